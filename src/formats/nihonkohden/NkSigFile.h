// Nihon Kohden recordings (EEG-1100, EEG-1200, EEG-2100, QI-403A, DAE-2100D
// file sets) opened read-only as recordings.
//
// The file set shares one base name: ".EEG" (the signals), ".PNT" (the
// patient), ".LOG" (the event log), ".21E" (electrode names by code), and
// side files (".11D", ".CMT", ".CN2") that go with them on copy, rename and
// delete.  Letter case of the extensions may vary.
//
// ".EEG" layout (little-endian):
//   0x0000  16 chars  device signature ("EEG-1100A V01.00", "EEG-2100  V02.00" ...)
//   0x0040  14 chars  start of the recording, "YYYYMMDDhhmmss"
//   0x0081  16 chars  control block signature (same list)
//   0x0091  u8        number of control blocks
//   0x0092 + 20 i     u32 address of control block i
//   control block + 17         u8   number of data blocks
//   control block + 18 + 20 j  u32  address of data block j
//   data block + 0x00  u8   1 (waveform block)
//   data block + 0x14  6 BCD bytes: start of the block, yy mm dd hh mm ss
//   data block + 0x1A  u16  sampling rate (lower 14 bits)
//   data block + 0x1C  u32  duration in tenths of a second
//   data block + 0x26  u8   number of channels n
//   data block + 0x27 + 10 c  u8  electrode code of channel c (then 9 bytes)
//   data block + 0x27 + 10 n  the samples: for every instant, n + 1 u16
//                      words (the channels, then a mark word), each the
//                      sample + 0x8000.
// Electrode codes name electrodes through the ".21E" file ([ELECTRODE] and
// [REFERENCE] sections, "code=name"), else through the standard table.
// Codes 42-73 (DC inputs) and 76-77 are in mV over -12002.9 .. 12002.56;
// every other code in µV over -3200 .. 3199.902; samples span -32768 ..
// 32767.
//
// ".PNT": 0x0040 the start as in ".EEG"; patient id at 0x0604, name at
// 0x062E, sex at 0x064A (a localised word: M..., F..., W...), birth date at
// 0x0660 ("YYYY/MM/DD"), each NUL-ended.
//
// ".LOG": 0x0091 u8 number of log blocks, block i at the address at
// 0x0092 + 20 i: + 0x12 u8 number of events, + 0x14 events of 45 bytes:
// text (20 bytes), elapsed time "hhmmss" from the start.  When log block i +
// 22 exists with as many events, each of its events gives 20 more bytes of
// text and, at bytes 24-29, the microseconds of the event.  Texts are UTF-8
// or, failing that, Windows-1252.
//
// Records: each data block is read in records of one second (a tenth of a
// second when a block's duration is not whole seconds); a block that does
// not start where the one before it ended is a discontinuity.  The stored
// image of a record is its time (8 bytes) followed by its multiplexed
// words as in the file.  Formatted reads compute d x gain + offset in double.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sigfile/IntSigFile.h"

class CNkSigFile : public CIntSigFile {
    DECLARE_DYNAMIC(CNkSigFile)
public:
    ~CNkSigFile() override;

    // Opens the set of `name` (its ".EEG") read-only; null with the system
    // error in *error and a French message in *message.
    static CNkSigFile* Open(const char* name, long* error, std::string* message = nullptr);
    // True when the first bytes are those of a Nihon Kohden ".EEG".
    static bool IsNkHeader(const BYTE* head, size_t size);
    // The files of the set of `name` that exist.
    static std::vector<std::string> FilesOfSet(const std::string& name);

    int Close() override;
    int Flush() override { return 1; }
    LONGLONG GetFileSize() const override;
    int Read(CFmtSigRec* record) override;
    int Read(CRawSigRec* record) override { return CIntSigFile::Read(record); }
    int Read(CByteArray* bytes) override { return CIntSigFile::Read(bytes); }
    int ReadAsVolts(CFmtSigRec* record) override;

    unsigned GetFormat() const override { return SIGFILE_FORMAT_NIHONKOHDEN; }
    double GetRecordDuration() const override;
    double GetChannelFrequency(unsigned channel) const override;
    int GetChannelInfo(unsigned channel, CSigChannelInfo* info) const override;
    void GetFormatNotes(CStringArray* notes) const override;

protected:
    int Load(DWORD record, CObject* bytes) override;
    int Save(DWORD, CObject*) override { return 0; }

private:
    struct Block {
        ULONGLONG data = 0;       // offset of the first sample word
        ULONGLONG samples = 0;    // per channel
        double start = 0;         // seconds from the recording's start
        long firstRecord = 0;
        long records = 0;
    };
    struct Channel {
        unsigned code = 0;
        std::string name;
        bool millivolts = false;
        double gain = 0, offset = 0;  // physical = d x gain + offset
    };

    CNkSigFile();
    bool ReadHeader(std::string& error);
    void ReadElectrodeNames(std::vector<std::string>& names);
    void ReadPatient();
    void ReadLog();
    void Describe();
    const Block* BlockOf(long record, ULONGLONG& firstSample) const;
    bool ReadWords(long record, std::vector<uint16_t>& words);
    int ReadValues(CFmtSigRec* record, bool volts);

    std::string m_base;
    std::string m_device;
    CSDateTime m_start;
    unsigned m_rate = 0;
    unsigned m_recordSamples = 0;
    std::vector<Block> m_blocks;
    std::vector<Channel> m_channels;
    std::vector<std::string> m_notes;
    std::vector<uint16_t> m_words;
    ULONGLONG m_length = 0;
};
