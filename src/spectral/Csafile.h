// Spectral files: a sequence of spectral records (one per analysis epoch)
// with the settings of the analysis, the patient, the montage of the
// analysed channels, the breaks in the sequence and short annotations.
//
// A spectral file is a pair with one base name:
//   ".SPH"  the header, one archive from offset 0:
//           WORD version (1; 0 is refused), source file name, source file
//           identifier, CPatientInfo (its own Serialize), float FFT epoch
//           length, WORD pre-processing, WORD tapering, WORD overlap
//           percentage, float analysis epoch length, float restart interval,
//           the CPhysicalMontage object, the discontinuities (count + DWORD
//           record indexes), the annotations (count + DWORD index / string
//           pairs), DWORD number of records;
//   ".SPC"  the data: fixed-size records back to back, no header.  Record i
//           starts at i x record size and holds the record time (the 8-byte
//           double of CSDateTime) then the values of every channel of the
//           logical montage in channel order (floats, as many per channel as
//           its number of frequencies).  Record size = 8 + 4 x all values.
//
// The montage is a physical montage reduced to one recording montage and, when
// the analysed channels were derived ones, one reformatted montage of it; the
// logical montage of the file is that reformatted montage, else the recording
// montage.  Channel c sampled at f Hz has (f x FFT epoch + 0.5) / 2
// frequencies (truncated), spaced by the resolution 1 / FFT epoch.
//
// Records go through a small write-back FIFO cache keyed by record index;
// Close flushes it and rewrites the header.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <string>
#include <vector>

#include "platform/Collections.h"
#include "platform/DateTime.h"
#include "platform/File.h"
#include "platform/Types.h"
#include "records/CacheDWO.h"

class CSpecRec;
class CPatientInfo;
class CPhysicalMontage;
class CLogicalMontage;
class CProgressInfo;
class CCsaFile;

// Record cache of a spectral file.
class CCsaFileCache : public CCacheDWordToOb {
public:
    enum { kEntries = 8 };
    explicit CCsaFileCache(CCsaFile* file);

protected:
    int Load(DWORD key, CObject* object) override;
    int Save(DWORD key, CObject* object) override;

private:
    CCsaFile* m_pFile;
};

class CCsaFile {
public:
    // Creates the pair (the header with the name's extension changed to
    // ".SPH") and returns it open for writing, or null on failure (the code
    // in error when given, and as the thread's last error).  The name must
    // end in ".SPC".  montage is the logical montage the records are computed
    // from; the file keeps a copy of its physical montage reduced to the
    // selected channels, which are taken in montage order.  Refused: a
    // montage without recording or physical montage, no channel, an index
    // out of range or given twice, a channel whose FFT length (frequency x
    // FFT epoch + 0.5) is not a power of two of at least 4 points, options
    // out of range, or more than 65535 values per record.
    static CCsaFile* Create(const char* dataFileName, const char* sigFileName, const char* sigFileId,
                            const CPatientInfo* patient, float fftEpochLen, WORD preProcessing, WORD tapering,
                            WORD pcOverlap, float csaEpochLen, float restartInterval,
                            const CLogicalMontage* montage, unsigned numSelected, const WORD* selected,
                            long* error = nullptr);
    // Opens a pair by the name of its data file, which must end in ".SPC"
    // (any case); null when it does not or a file cannot be opened (a
    // read-write open of a pair that another writer holds fails with 32).
    // A header that cannot be read raises its CArchiveException (the files
    // are closed first).  Records the data file does not hold are not
    // counted.
    static CCsaFile* Open(const char* fileName, int readOnly, long* error = nullptr);

    // Flushes the cache and rewrites the header (unless read-only), closes
    // both files and deletes this object.  Returns 1, or 0 when the flush or
    // the header write fails (the file then stays open).
    int Close();

    // Static operations on the pair, named by either of its files (".SPC" or
    // ".SPH", any case).  Copy replaces an existing target pair only once
    // both files are copied.  They return 1, or 0 with the thread's last
    // error set (87 for a name of another extension).
    static int Copy(const char* from, const char* to, CProgressInfo* progress = nullptr);
    // Finishes a move or deletion of the pair named by name that a dead
    // process left half done, and clears temporaries of dead processes.
    static void RecoverPair(const char* name);
    static int Rename(const char* from, const char* to);
    static int Delete(const char* name);
    // The header file beside a data file: its name with the ".SPH" extension.
    static std::string HeaderName(const std::string& dataName);
    // Splits a name into base (folder included) and extension (with its dot).
    static void GetFileNameExtension(const char* name, CString& base, CString& extension);

    // Navigation.  The current index runs from 0 to the number of records
    // (the end, where Write appends).  The Move operations return 1 when the
    // new current index holds a record.  MoveTo beyond the end is asserted
    // and refused (index unchanged).
    int MoveFirst();
    int MoveLast();
    int MoveNext();
    int MovePrev();
    int MoveTo(DWORD index);
    DWORD GetCurRecIx() const { return m_nCurRec; }
    DWORD GetNumRecords() const { return m_nRecords; }

    // Reads the current record into specRec (reshaped for this file when it
    // has another shape).  0 at the end (asserted) or when the data cannot be
    // read.
    int Read(CSpecRec& specRec);
    // Appends specRec at the end (the current index must be the number of
    // records, and the file writable: both asserted) and moves past it.  A
    // record that comes 1.5 restart intervals or more after the previous one
    // is marked as a discontinuity.  specRec must have this file's shape.
    int Write(const CSpecRec& specRec);
    // A new record (owned by the caller) shaped for this file.
    CSpecRec* CreateCompatibleSpecRec() const;

    // Settings.
    const CString& GetSigFileName() const { return m_strSigFileName; }
    const CString& GetSigFileId() const { return m_strSigFileId; }
    float GetFftEpochLength() const { return m_fftEpochLen; }
    WORD GetFftPreprocessing() const { return m_wFftPreProcessing; }
    WORD GetFftTapering() const { return m_wFftTapering; }
    WORD GetPcOverlap() const { return m_wPcOverlap; }
    float GetCsaEpochLength() const { return m_csaEpochLen; }
    float GetCsaRestartInterval() const { return m_csaRestartInterval; }
    float GetFreqRes() const;
    // Highest band edge over the channels.
    float GetMaxFreq() const;

    // Channels of the logical montage.
    unsigned GetNumChannels() const;
    CString GetChannelLabel(unsigned channel) const;
    unsigned GetChannelSourceFreq(unsigned channel) const;
    unsigned GetChannelUnit(unsigned channel) const;
    unsigned GetChannelType(unsigned channel) const;
    // Upper band edge of a channel: its number of frequencies x resolution.
    float GetChannelMaxFreq(unsigned channel) const;
    unsigned GetChannelNumFreq(unsigned channel) const;
    const CLogicalMontage* GetLogicalMontage() const;
    const CPhysicalMontage* GetPhysicalMontage() const { return m_pMontage.get(); }
    DWORD GetRecordSize() const { return m_nRecordSize; }

    const CPatientInfo* GetPatientInfo() const { return m_pPatientInfo.get(); }
    void SetPatientInfo(const CPatientInfo& patient);
    int IsReadOnly() const { return m_bReadOnly; }
    void SetChanged(int changed = 1) { m_bChanged = changed; }
    int IsChanged() const { return m_bChanged; }

    // Discontinuities: indexes of the records that start a new stretch.
    int IsDiscontinuityAt(DWORD index) const;
    int GetNumDiscontinuities() const { return m_daDiscontinuities.GetSize(); }
    DWORD GetDiscontinuityAt(int i) const;

    // Annotations: one text per record index.  Adding replaces the text of a
    // record that has one.  Refused (asserted) on a read-only file or for a
    // record that does not exist.
    int AddAnnotationAt(DWORD index, const CString& text);
    int DeleteAnnotationAt(DWORD index);
    int IsAnnotationAt(DWORD index) const;
    CString GetAnnotationAt(DWORD index) const;
    int GetNumPairsAnnotRecIx() const { return m_mapAnnotations.GetCount(); }
    // The i-th pair in ascending record order; 0 when i is out of range.
    int GetPairAnnotRecIxAt(int i, DWORD& index, CString& text) const;

    ~CCsaFile();
    CCsaFile(const CCsaFile&) = delete;
    CCsaFile& operator=(const CCsaFile&) = delete;

private:
    friend class CCsaFileCache;
    CCsaFile();

    // Record i of the data file into rec (created with this file's shape
    // when it has none); 0 when it cannot be read whole.
    int Load(DWORD index, CSpecRec& rec);
    // Writes rec as record i (i at most the number of records).
    int Save(DWORD index, const CSpecRec& rec);

    void SerializeHeader(CArchive& ar);
    int WriteHeader();
    // Frequencies per channel and record size from the montage and the FFT
    // epoch; false when they do not make a usable layout.
    bool ComputeLayout();
    bool IsSameShape(const CSpecRec& rec) const;

    static bool PairNames(const char* name, std::string& data, std::string& header);

    CFile m_fileHeader;
    CFile m_fileData;
    DWORD m_nCurRec = 0;
    DWORD m_nRecordSize = 8;
    int m_bReadOnly = 0;
    int m_bChanged = 0;
    CString m_strSigFileName;
    CString m_strSigFileId;
    std::unique_ptr<CPatientInfo> m_pPatientInfo;
    float m_fftEpochLen = 0.0f;
    WORD m_wFftPreProcessing = 0;
    WORD m_wFftTapering = 0;
    WORD m_wPcOverlap = 0;
    float m_csaEpochLen = 0.0f;
    float m_csaRestartInterval = 0.0f;
    DWORD m_nRecords = 0;
    CDWordArray m_daDiscontinuities;
    CMapDWordToString m_mapAnnotations;
    std::unique_ptr<CPhysicalMontage> m_pMontage;
    std::unique_ptr<CCsaFileCache> m_pCache;

    std::vector<WORD> m_numFreq;       // per channel of the logical montage
    std::vector<BYTE> m_recordBytes;   // one record's image during Load and Save
    ULONGLONG m_dataPos = ~0ull;       // position of the data file, when known
};

// Owner of an open spectral file for C++ callers: Close deletes the object;
// when Close fails the file is deleted without its last writes.
struct CCsaFileCloser {
    void operator()(CCsaFile* file) const {
        if (file && !file->Close()) delete file;
    }
};
using CCsaFilePtr = std::unique_ptr<CCsaFile, CCsaFileCloser>;
#pragma GCC visibility pop
