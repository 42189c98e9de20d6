// The one way the library reads records for computing.
//
// CRecordSource reads formatted records (world units or volts) of any open
// recording by index, with one rule for indexes beyond its ends: a record
// before the first holds, on every channel, that channel's first sample in
// the recording, and a record after the last holds its last sample; such a
// record is timed as if it were there (the first record's time plus index x
// record duration).  Filters that reach before the start or past the end of
// a recording therefore run into a held value, not into a step to zero or a
// repeated stretch of signal.  An empty recording reads zeros.
//
// CDerivedSource computes the channels of a reformatted montage (or of any
// logical montage: a recording montage gives its channels as they are) with
// the formula engine, fed by a CRecordSource.  Reading records in increasing
// order one after another evaluates each input record once; any other jump
// restarts the engine over the record span its formulas need.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <string>
#include <vector>

#include "records/SigRec.h"

class CSigFile;
class CLogicalMontage;
class CReformatedMontage;
class CCReformater;
class CFilter;

class CRecordSource {
public:
    enum class Unit { World, Volts };

    explicit CRecordSource(CSigFile& file, Unit unit = Unit::World);
    ~CRecordSource();
    CRecordSource(const CRecordSource&) = delete;
    CRecordSource& operator=(const CRecordSource&) = delete;

    // Record `record` (any index) into `out`, which must have the file's
    // record shape (CreateCompatibleFmtSigRec).  0 when a record of the
    // recording cannot be read (the file's I/O error tells why).
    int Read(long record, CFmtSigRec& out);
    CFmtSigRec* CreateCompatibleFmtSigRec() const;
    CSigFile& GetFile() const { return m_file; }
    Unit GetUnit() const { return m_unit; }
    long GetNumRecords() const;

private:
    int ReadInside(long record, CFmtSigRec& out);
    // Loads the first and last samples of every channel, once.
    int LoadEdges();

    CSigFile& m_file;
    Unit m_unit;
    bool m_edgesLoaded = false;
    std::vector<float> m_firstSamples, m_lastSamples;
    CSDateTime m_origin;
    double m_recordSeconds = 0;
};

class CDerivedSource {
public:
    // The montage and filters must outlive the source.
    CDerivedSource(CSigFile& file, CLogicalMontage* montage, CRecordSource::Unit unit = CRecordSource::Unit::World,
                   CFilter* filter1 = nullptr, CFilter* filter2 = nullptr, CFilter* filter3 = nullptr);
    ~CDerivedSource();
    CDerivedSource(const CDerivedSource&) = delete;
    CDerivedSource& operator=(const CDerivedSource&) = delete;

    // Compiles the montage's formulas.  0 with the French diagnostics, one
    // per line, in *error (when given).
    int Compile(std::string* error);
    // Derived record `record` (any index) into `out`, shaped by
    // CreateCompatibleFmtSigRec.  0 when an input record cannot be read.
    int Read(long record, CFmtSigRec& out);
    CFmtSigRec* CreateCompatibleFmtSigRec() const;

    unsigned GetNumChannels() const;
    std::string GetLabel(unsigned channel) const;
    unsigned GetFrequency(unsigned channel) const;
    unsigned GetSamplesRec(unsigned channel) const;
    unsigned GetType(unsigned channel) const;
    unsigned GetUnit(unsigned channel) const;
    CRecordSource& GetInput() { return m_input; }

private:
    CRecordSource m_input;
    CLogicalMontage* m_montage;
    CFilter* m_filters[3];
    std::unique_ptr<CCReformater> m_engine;
    std::vector<std::unique_ptr<CFmtSigRec>> m_span;
    std::vector<const CFmtSigRec*> m_pointers;
    long m_next = 0;          // the record whose read continues without a restart
    bool m_started = false;
};

// The channels a caller computes with the formula engine: the reformatted
// montage of recording montage 0 named `montage`, extended by channels given
// as "LABEL=FORMULA" texts (formulas over the recording channels, named by
// electrode 1, with the built-in functions and filters).  Without either,
// Get() is null: the recorded channels themselves.  The file's own montages
// are never changed; a montage extended by formulas belongs to this object.
class CComputedMontage {
public:
    CComputedMontage();
    ~CComputedMontage();
    // False with a French message in error.
    bool Choose(const CSigFile& file, const std::string& montage, const std::vector<std::string>& derives,
                std::string& error);
    CReformatedMontage* Get() const { return m_chosen; }

private:
    std::unique_ptr<CReformatedMontage> m_owned;
    CReformatedMontage* m_chosen = nullptr;
};
#pragma GCC visibility pop
