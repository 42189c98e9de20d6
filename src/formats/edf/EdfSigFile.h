// EDF, EDF+, BDF and BDF+ files opened as recordings, read-only, over the
// file itself (nothing is converted or copied).
//
// - Description: the file header and patient information come from the
//   EDF+ identification subfields (code, sex, birth date, name; admin code,
//   equipment); the two 80-character fields are also kept as they stand in
//   the patient's user fields 1 and 2, which is all a plain EDF file gives.
//   The creation time is the time of the first sample (the header's start
//   plus the first record's time-keeping offset).
// - Channels: one per data signal, in file order; the physical montage has
//   one electrode per label part (EdfDescribe.h) and one recording montage
//   per 128 signals.  The montages' integer rates are the signals' rates
//   rounded (at least 1 Hz) and their base frequency the highest of them;
//   the exact rates, ranges, physical dimension, transducer and
//   prefiltering are given by GetChannelFrequency and GetChannelInfo.
// - Records: the file's data records.  A data record of more samples than a
//   signal record holds (65535 in all) is read as k equal sub-records, k the
//   smallest divisor of every signal's count that makes them fit.  A
//   record's time comes from its time-keeping TAL (EDF+D) or its index
//   (continuous files); a gap between records is a discontinuity item.
// - Values: formatted reads give d x gain + offset in the channel's world
//   unit (the unit code of its physical dimension; "nV" reads as µV), and
//   ReadAsVolts the same in volts for voltage dimensions (as they stand for
//   any other dimension), computed in double from the stored sample: exact
//   for 16- and 24-bit samples.  Raw 16-bit reads give EDF samples as they
//   are; a BDF sample d of a channel whose digital range exceeds 16 bits
//   reads as d >> s, s the smallest shift that brings the range into 16
//   bits, and the calibration describes those shifted values.  The
//   calibration (at most 128 channels) covers the first 128 signals; reads
//   of every signal use the file's own ranges.
// - The stored image of a record (Read(CByteArray*)) is its time (8 bytes,
//   as in a native record) followed by each data signal's samples of the
//   (sub-)record, 2 or 3 bytes each, as in the file.
// - Annotations: status items (EdfDescribe.h), onsets and durations kept to
//   the file's precision in the items' times; sample positions at the
//   highest rate, counted from the first sample, extrapolated for
//   annotations outside the data.
// - Departures from the standard that the reader tolerated are given by
//   GetFormatNotes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "formats/edf/EdfReader.h"
#include "sigfile/IntSigFile.h"

class CEdfSigFile : public CIntSigFile {
    DECLARE_DYNAMIC(CEdfSigFile)
public:
    ~CEdfSigFile() override;

    // Opens name read-only whatever readOnly says (the format has no
    // writer); null with the system error code in *error, the reader's
    // message in *message when given.
    static CEdfSigFile* Open(const char* name, long* error, std::string* message = nullptr);

    int Close() override;
    int Flush() override { return 1; }
    LONGLONG GetFileSize() const override;
    int Read(CFmtSigRec* record) override;
    int Read(CRawSigRec* record) override { return CIntSigFile::Read(record); }
    int Read(CByteArray* bytes) override { return CIntSigFile::Read(bytes); }
    int ReadAsVolts(CFmtSigRec* record) override;
    int ReadDigital(CDigSigRec* record) override;

    unsigned GetFormat() const override;
    double GetRecordDuration() const override { return m_subDuration; }
    double GetChannelFrequency(unsigned channel) const override;
    int GetChannelInfo(unsigned channel, CSigChannelInfo* info) const override;
    void GetFormatNotes(CStringArray* notes) const override;

protected:
    int Load(DWORD record, CObject* bytes) override;
    int Save(DWORD, CObject*) override { return 0; }

private:
    struct Channel {
        std::string label;     // unique label
        size_t offset = 0;     // byte offset of the signal in a data record
        unsigned samples = 0;  // per sub-record
        double worldScale = 0, worldOffset = 0;  // world = d x scale + offset
        double voltScale = 0, voltOffset = 0;    // volts = d x scale + offset
        unsigned shift = 0;                      // raw = d >> shift
    };

    CEdfSigFile();
    bool Build(std::string& error);
    bool ChooseSplit(std::string& error);
    void Describe();
    void AddAnnotations();
    CSDateTime RecordTime(long record) const;
    double RecordStartSeconds(long record) const;  // from the header's start
    // The data record bytes of a (sub-)record and the sub-record's index.
    const BYTE* RecordBytes(long record, unsigned& part);
    int ReadValues(CFmtSigRec* record, bool volts);

    edf::EdfReader m_reader;
    std::vector<Channel> m_channels;
    unsigned m_split = 1;       // sub-records per data record
    double m_subDuration = 0;   // seconds per sub-record
    double m_trueFrequency = 0;
    int m_width = 2;            // bytes per sample
    std::vector<std::string> m_notes;
};
