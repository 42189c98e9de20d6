// Montages: what a recording contains, in three levels.
//
//   CPhysicalMontage    the electrodes and sensors connected (name, head
//                       position) and the electrode groups in use; owns its
//                       recording montages and groups.
//   CRecordingMontage   the digitised channels: electrode 1 minus electrode 2
//                       (or electrode 1 alone), frequency, type, unit, colour,
//                       under-sampling method, preprocessing; owns its
//                       reformatted montages, points back to its physical one.
//   CReformatedMontage  display channels computed by formulas over the
//                       channels of one recording montage, plus named global
//                       formulas; points back to its recording montage.
//
// Formulas name the recording channels by their first electrode (the
// reference, electrode 2, must agree across the inputs of one formula), so a
// referential montage Fp1-A1, F3-A1 ... gives "FP1-F3" as the bipolar
// derivation and "FP1-AVG" with a global AVG as the average reference.
//
// Editing operations return non-zero when done and 0 when refused, the montage
// then being unchanged.  Index checks assert with the source name "mtgs";
// array bounds raise CInvalidArgException.
//
// Follow-up rules when something is changed or deleted further up:
//   - Renaming an electrode (CPhysicalMontage::SetElectrodeName, or
//     ReplaceElecGroupAt when a group's contacts change names) renames it in
//     every recording channel that uses it, and every formula or label token
//     that named it as a channel input is rewritten to the new name
//     (CarryChangeElectrode, CarryChangeRecordingChannel).
//   - Deleting an electrode, a recording channel or a global formula that
//     something still uses is refused (DeleteElectrode, DeleteChannel,
//     DeleteGlobal).  The Carry*Delete* operations are the explicit cascade:
//     they delete the dependants first (the channels that use the electrode,
//     the derived channels and globals that no longer compile).
//   - Replacing a recording channel or a global is refused when a derived
//     channel that uses it would no longer compile; otherwise the formulas
//     follow a renamed input or global and the derived channels' frequency,
//     type and unit are recomputed.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>
#include <vector>

#include "montage/ElecGroup.h"
#include "platform/Archive.h"
#include "platform/Collections.h"
#include "platform/Object.h"
#include "platform/Types.h"

class CPhysicalMontage;
class CRecordingMontage;
class CReformatedMontage;
class CCReformater;

// Names of the trace type and unit codes that montages and calibrations use
// (1 "EEG" / "µV", 3 "EMG", 5 "SpO2" / "%", 7 "EOG", 8 "ECG" / "mV", ...).
// An unknown code gives "".
const char* VhlGetTraceTypeName(unsigned code);
const char* VhlGetUnitName(unsigned code);

// A head position: radius (1.0 on the scalp sphere, -1.0 for a sensor
// without a head position, below 1.0 for depth), inclination in degrees from
// the vertex, azimuth in degrees (0 right, 90 front, 180 left, 270 back).
struct CPolar3D {
    double radius = -1.0;
    double inclination = 0.0;
    double azimuth = 0.0;
    CPolar3D() = default;
    CPolar3D(double r, double incl, double azim) : radius(r), inclination(incl), azimuth(azim) {}
    bool operator==(const CPolar3D& o) const {
        return radius == o.radius && inclination == o.inclination && azimuth == o.azimuth;
    }
    bool operator!=(const CPolar3D& o) const { return !(*this == o); }
};

inline constexpr unsigned kMaxMontageChannels = 128;
inline constexpr const char* kIncompatibleMontageName = "<Montage Incompatible>";

// ---------------------------------------------------------------------------
class CPhysicalMontage : public CObject {
    DECLARE_SERIAL(CPhysicalMontage)
public:
    CPhysicalMontage();
    CPhysicalMontage(const char* name, unsigned mapType);
    CPhysicalMontage(const CPhysicalMontage& other);
    ~CPhysicalMontage() override;
    CPhysicalMontage& operator=(const CPhysicalMontage& other);
    int operator==(const CPhysicalMontage& other) const;
    int operator!=(const CPhysicalMontage& other) const { return !(*this == other); }

    void Serialize(CArchive& ar) override;

    // Standard electrode table (158 rows) and head map list (43 names); names
    // compared without regard to case.  Unknown names and indexes give type
    // and unit code 1 and position (-1, 0, 0).
    static int IsOnMap(const char* name);
    static unsigned GetNumStdElectrode();
    static int IsStdElec(const char* name);
    static unsigned GetStdElecTypeCode(const char* name);
    static unsigned GetStdElecTypeCode(unsigned index);
    static unsigned GetStdElecUnitCode(const char* name);
    static unsigned GetStdElecUnitCode(unsigned index);
    static const char* GetStdElecType(const char* name);
    static const char* GetStdElecType(unsigned index);
    static const char* GetStdElecUnit(const char* name);
    static const char* GetStdElecUnit(unsigned index);
    static const char* GetStdElecName(unsigned index);  // null out of range
    static CPolar3D GetStdElecPosition(const char* name);
    static CPolar3D GetStdElecPosition(unsigned index);

    const char* GetMontageName() const { return m_strName.c_str(); }
    void SetMontageName(const char* name) { m_strName = name ? name : ""; }
    unsigned GetMapType() const { return m_wMapType; }
    void SetMapType(unsigned mapType) { m_wMapType = static_cast<WORD>(mapType); }

    // Entries of the name list: plain electrodes and bracketed group names.
    unsigned GetNumElectrodes() const { return m_wNumElectrodes; }
    const char* GetElectrodeName(unsigned index) const;
    CPolar3D GetElectrodePosition(unsigned index) const;
    // Renames a plain electrode: refused for an empty or bracketed name, a
    // group entry, a name already in the list (without regard to case) or one
    // that a group of the list could produce.  The new name is carried into
    // every recording channel and formula (CarryChangeElectrode).
    int SetElectrodeName(unsigned index, const char* name);
    void SetElectrodePosition(unsigned index, CPolar3D position);

    int AddElectrode(const char* name, CPolar3D position);
    int InsertElectrode(unsigned index, const char* name, CPolar3D position);
    // Adds a group as the entry of its bracketed name (position (-1, 0, 0)).
    // Refused when its name is in the list already, when it could produce a
    // name of the list, or when one of its electrodes is an electrode of
    // another group.  Takes ownership only when accepted.
    int AddElectrode(CElecGroup* group);
    int InsertElectrode(unsigned index, CElecGroup* group);
    // Refused while a recording channel uses the electrode (for a group: one
    // of its electrodes as electrode 1).
    int DeleteElectrode(unsigned index);
    // Removes the entry (and its group) without the usage test.
    int DeleteElectrodeConfirmed(unsigned index);

    int GetElectrodeNumber(const char* name) const;  // exact match, -1 when none
    int CheckElectrode(const char* name) const;      // used by a channel (case-sensitive)
    int IsDepthElectrode(unsigned index) const;      // radius below 1.0
    // True when name is an electrode of the montage: a plain entry (without
    // regard to case) or an electrode of one of its groups.
    int IsElectrodeOfMontage(const char* name) const;

    // Recording montages (owned).
    int GetNumRecordingMontages() const { return m_oaRecMontages.GetSize(); }
    CRecordingMontage* GetRecordingMontageAt(int index) const;
    CRecordingMontage* GetRecordingMontage(const char* name) const;  // exact name
    CRecordingMontage* CreateRecordingMontage();
    // Takes ownership and points the montage to this one.
    int AddRecordingMontage(CRecordingMontage* montage);
    int InsertRecordingMontageAt(int index, CRecordingMontage* montage);
    // Copies a recording montage (possibly of another physical montage) into
    // a new one named name, inserted at index (appended when beyond the end).
    // Channels whose electrodes this montage lacks are left out, and so are
    // derived channels and globals that no longer compile.  Null when the
    // name is empty or taken (without regard to case) or no channel remains.
    CRecordingMontage* ImportRecordingMontage(const CRecordingMontage* source, const char* name, unsigned index);
    int DeleteRecordingMontage(const char* name);
    int DeleteRecordingMontage(CRecordingMontage* montage);
    int DeleteRecordingMontage(int index);

    // Groups (owned).
    CElecGroup* GetElecGroup(const char* name) const;  // without regard to case
    CElecGroup* GetElecGroupAt(int index) const;
    int GetNumElecGroups() const { return m_oaElecGroups.GetSize(); }
    int IsElecGroup(unsigned index) const;       // entry is a bracketed name
    int IsElecOfGroup(const char* name) const;   // electrode of one of the groups
    // Replaces the group of entry index (which must be a group entry) by a new
    // group.  The electrodes of the old group that channels use are followed
    // by grid position: each must have a contact at the same position in the
    // new group, whose name replaces the old one everywhere; otherwise the
    // replacement is refused.  The same name rules as AddElectrode apply.
    // Takes ownership only when accepted.
    int ReplaceElecGroupAt(unsigned index, CElecGroup* group);

    // Carries a renamed electrode into every recording channel that uses it
    // (as electrode 1 or 2, without regard to case) and rewrites the formula
    // and label tokens of the reformatted montages that named it.  montages
    // and channels, when given, receive the number of recording montages and
    // channels changed.  Returns the number of channels changed.
    virtual int CarryChangeElectrode(const char* oldName, const char* newName, int* montages = nullptr,
                                     int* channels = nullptr);
    // Deletes every recording channel that uses the electrode, with their
    // dependants (CRecordingMontage::CarryDeleteRecordingChannel); the entry
    // itself stays (DeleteElectrodeConfirmed removes it).  Returns the number
    // of recording channels deleted.
    virtual int CarryDeleteElectrode(const char* name, int* montages = nullptr, int* channels = nullptr);

private:
    CElecGroup* CreateElecGroup(const CElecGroup& model);
    void AddElecGroup(CElecGroup* group);
    int DeleteElecGroupAt(int index);
    int DeleteElecGroupConfirmed(const char* name);
    int GroupIndexOf(const char* name) const;
    int CheckGroupNames(const CElecGroup* group, int ignoreEntry) const;
    int IsNameTaken(const char* name, int ignoreEntry) const;
    void DeleteContents();
    void CopyFrom(const CPhysicalMontage& other);
    void RepairAfterLoad(WORD schema);

    CString m_strName;
    WORD m_wMapType = 0;
    WORD m_wNumElectrodes = 0;
    CStringArray m_saElectrodes;
    CDoubleArray m_daPositions;   // three per entry
    CObArray m_oaRecMontages;     // owned CRecordingMontage*
    CObArray m_oaElecGroups;      // owned CElecGroup*
};

// ---------------------------------------------------------------------------
class CLogicalMontage : public CObject {
    DECLARE_DYNAMIC(CLogicalMontage)
public:
    ~CLogicalMontage() override;
    void Serialize(CArchive& ar) override;

    virtual void Empty();
    virtual const char* GetMontageName() const { return m_strName.c_str(); }
    virtual unsigned GetNumChannels() const { return m_nChannels; }
    virtual unsigned GetFrequency(unsigned index) const;
    virtual unsigned GetType(unsigned index) const;
    virtual unsigned GetUnit(unsigned index) const;
    virtual unsigned GetSpikeOptions(unsigned index) const;
    virtual unsigned GetSeizureOptions(unsigned index) const;
    virtual unsigned long GetColor(unsigned index) const;
    virtual unsigned GetSamplesChannel(unsigned index) const = 0;
    virtual CRecordingMontage* GetRecordingMontage() = 0;
    virtual const CRecordingMontage* GetRecordingMontage() const = 0;
    // Labels are at most 17 characters for a recording channel.
    virtual CString GetLabel(unsigned index) const = 0;
    // The formula that computes the channel from the recording channels.
    virtual CString GetFormula(unsigned index) const = 0;
    virtual unsigned GetNumGlobals() const { return 0; }
    virtual const char* GetGlobalName(unsigned index) const;
    virtual const char* GetGlobalFormula(const char* name) const;
    virtual const char* GetGlobalFormula(unsigned index) const;
    virtual int SetMontageName(const char* name);
    virtual int SetFrequency(unsigned index, unsigned frequency);
    virtual int SetType(unsigned index, unsigned type);
    virtual int SetUnit(unsigned index, unsigned unit);
    virtual int SetColor(unsigned index, unsigned long color);
    virtual int IsLabelUsed(const char* label) const;  // case-sensitive

    int SetSpikeOptions(unsigned index, unsigned options);
    int SetSeizureOptions(unsigned index, unsigned options);

protected:
    CLogicalMontage() = default;
    CLogicalMontage(const CLogicalMontage&) = default;
    CLogicalMontage& operator=(const CLogicalMontage&) = default;
    int EqualsBase(const CLogicalMontage& other) const;

    // Per-channel array maintenance shared by the derived classes.
    void InsertBaseChannel(unsigned index, unsigned frequency, unsigned type, unsigned unit, unsigned long color);
    void RemoveBaseChannel(unsigned index);
    void SwapBaseChannel(unsigned a, unsigned b);
    void MoveBaseChannels(const CWordArray& order);
    // Loads the base part; false when the schema is too new (the name is then
    // "<Montage Incompatible>" and nothing else was read).
    bool SerializeBase(CArchive& ar);
    // Checks that an array loaded for this montage has one entry per channel.
    void CheckLoadedLength(int length) const;

    CString m_strName;
    WORD m_nChannels = 0;
    CWordArray m_waFrequency;
    CWordArray m_waType;
    CWordArray m_waUnit;
    CWordArray m_waSpikeOptions;
    CWordArray m_waSeizureOptions;
    CDWordArray m_dwaColor;
};

// ---------------------------------------------------------------------------
class CRecordingMontage : public CLogicalMontage {
    DECLARE_SERIAL(CRecordingMontage)
public:
    CRecordingMontage();
    explicit CRecordingMontage(CPhysicalMontage* physical);
    // Copies the channels and deep-copies the reformatted montages (which then
    // point to the copy); the physical montage pointer is copied as is.
    CRecordingMontage(const CRecordingMontage& other);
    CRecordingMontage& operator=(const CRecordingMontage& other);
    int operator==(const CRecordingMontage& other) const;
    int operator!=(const CRecordingMontage& other) const { return !(*this == other); }
    ~CRecordingMontage() override;

    void Serialize(CArchive& ar) override;
    void Empty() override;
    unsigned GetSamplesChannel(unsigned index) const override;
    CRecordingMontage* GetRecordingMontage() override { return this; }
    const CRecordingMontage* GetRecordingMontage() const override { return this; }
    // "%-.8s-%-.8s" of electrode 1 and 2, or electrode 1 alone.
    CString GetLabel(unsigned index) const override;
    // Electrode 1: the name by which formulas read the channel.
    CString GetFormula(unsigned index) const override;
    int SetMontageName(const char* name) override;
    // Refused when the frequency breaks the base frequency rules or a derived
    // channel using the channel would no longer compile.
    int SetFrequency(unsigned index, unsigned frequency) override;
    int SetType(unsigned index, unsigned type) override;
    int SetUnit(unsigned index, unsigned unit) override;

    // True when a derived channel or global needs channel index.
    virtual int CheckChannelInUse(unsigned index) const;
    // True when giving channel index this type, unit and frequency would make
    // a derived channel or global that uses it fail to compile.
    virtual int CheckChannelPropertyInConflict(unsigned index, unsigned type, unsigned unit, unsigned frequency) const;
    virtual int AddChannel(const char* elec1, const char* elec2, unsigned type, unsigned unit, unsigned frequency,
                           unsigned long color, unsigned underSampling, const char* preprocessing);
    virtual int InsertChannel(unsigned index, const char* elec1, const char* elec2, unsigned type, unsigned unit,
                              unsigned frequency, unsigned long color, unsigned underSampling,
                              const char* preprocessing);
    // The insertion rules (the channel itself excepted from the duplicate
    // test), then a trial compilation of every reformatted montage with the
    // new channel; on success the formulas follow a new electrode 1
    // (CarryChangeRecordingChannel) and the derived channels are refreshed.
    virtual int ReplaceChannel(unsigned index, const char* elec1, const char* elec2, unsigned type, unsigned unit,
                               unsigned frequency, unsigned long color, unsigned underSampling,
                               const char* preprocessing);
    // Appends a channel without the insertion rules (the electrodes must be
    // the physical montage's, at most 128 channels).  For formats whose
    // channels have rates that no base frequency divides: their montage
    // describes the channels, their records give the true sample counts.
    int AppendChannelConfirmed(const char* elec1, const char* elec2, unsigned type, unsigned unit,
                               unsigned frequency, unsigned long color, unsigned underSampling,
                               const char* preprocessing);
    // Gives a confirmed channel its true samples per record, where the
    // montage's rule (samples per record x frequency / base frequency)
    // cannot (a 12.8 Hz channel beside 100 Hz ones).  Not stored in the
    // archive: only formats that describe their own records set it.
    void SetSamplesChannelConfirmed(unsigned index, unsigned samples);
    // Sets the samples per record and base frequency without the rules (see
    // AppendChannelConfirmed).
    void SetRecordShapeConfirmed(unsigned samplesRecord, unsigned baseFrequency) {
        m_wSamplesRecord = static_cast<WORD>(samplesRecord);
        m_wBaseFrequency = static_cast<WORD>(baseFrequency);
    }
    // Overwrites channel index without any check (spike and seizure options kept).
    virtual int ReplaceChannelConfirmed(unsigned index, const char* elec1, const char* elec2, unsigned type,
                                        unsigned unit, unsigned frequency, unsigned long color,
                                        unsigned underSampling, const char* preprocessing);
    // Rewrites, in every reformatted montage, the formula and label tokens
    // that named the input oldElec1 when channel index was the channel that
    // name reached, to the channel's present electrode 1, then refreshes the
    // derived channels' frequency, type and unit.  montages and channels
    // receive the numbers of reformatted montages and channels changed.
    virtual int CarryChangeRecordingChannel(unsigned index, const char* oldElec1, int* montages = nullptr,
                                            int* channels = nullptr);
    // Refused when a reformatted montage no longer compiles without it.
    virtual int DeleteChannel(unsigned index);
    virtual int DeleteChannelConfirmed(unsigned index);
    // Deletes channel index after deleting, in every reformatted montage, the
    // globals and derived channels that need it.  montages and channels
    // receive the numbers of reformatted montages and derived channels changed.
    virtual int CarryDeleteRecordingChannel(unsigned index, int* montages = nullptr, int* channels = nullptr);
    // Exchanges two channels; formulas name channels by electrode, so only a
    // swap that changes which channel a formula name reaches (two channels
    // with the same electrode 1) can be refused, by trial compilation.
    virtual int SwapChannel(unsigned a, unsigned b);

    CPhysicalMontage* GetPhysicalMontage() const { return m_pPhysicalMontage; }
    void SetPhysicalMontage(CPhysicalMontage* physical) { m_pPhysicalMontage = physical; }
    unsigned GetBaseFrequency() const { return m_wBaseFrequency; }
    int SetBaseFrequency(unsigned frequency);
    unsigned GetSamplesRecord() const { return m_wSamplesRecord; }
    // Same rules as SetBaseFrequency against the channels; at least 1.
    int SetSamplesRecord(unsigned samples);
    const char* GetElectrodeName1(unsigned index) const;
    const char* GetElectrodeName2(unsigned index) const;
    unsigned GetUnderSamplingMethod(unsigned index) const;
    const char* GetPreprocessing(unsigned index) const;
    // Electrode 1 is a group contact or an entry below the scalp (radius
    // below 1.0, which includes sensors without a head position).
    int IsDepthChannel(unsigned index) const;
    int HasDepthChannel() const;
    int CheckUsageElectrode(const char* name) const;  // as electrode 1 or 2, without regard to case
    // Whether another recording montage of the same physical montage has a
    // channel with this label (without regard to case).
    int IsRecChLabelFoundElseInRecMtg(const char* label) const;
    // Index of the first channel whose electrode 1 is name (without regard to
    // case), -1 when none: the channel a formula name reaches.
    int FindInputChannel(const char* name) const;

    // Reformatted montages (owned).
    unsigned GetNumReformatedMontages() const { return static_cast<unsigned>(m_oaRefMontages.GetSize()); }
    virtual CReformatedMontage* CreateReformatedMontage();
    CReformatedMontage* GetReformatedMontageAt(unsigned index) const;
    CReformatedMontage* GetReformatedMontage(const char* name) const;  // without regard to case
    // Copies a reformatted montage (possibly of another recording montage)
    // into a new one of this montage, named name (source's name when null);
    // globals and channels that do not compile here are left out.  Null when
    // the name is taken.
    CReformatedMontage* ImportReformatedMontage(const CReformatedMontage* source, const char* name = nullptr);
    // Take ownership and point the montage to this one.
    int AddReformatedMontage(CReformatedMontage* montage);
    int InsertReformatedMontageAt(unsigned index, CReformatedMontage* montage);
    int DeleteReformatedMontageAt(unsigned index);
    int DeleteReformatedMontage(CReformatedMontage* montage);
    int HasReformatedMontage() const { return m_oaRefMontages.GetSize() > 0; }

    // Declares every channel (except skip) to a compiler as an input: name
    // electrode 1, reference electrode 2, samples per record of the channel,
    // frequency, type, unit.  override, when given, replaces the description
    // of channel overrideIndex.
    struct ChannelDesc {
        CString elec1, elec2;
        unsigned frequency = 0, type = 0, unit = 0;
    };
    void DeclareInputs(CCReformater& compiler, int skip = -1, int overrideIndex = -1,
                       const ChannelDesc* override = nullptr) const;

protected:
    int CheckChannelArgs(int ignoreIndex, const char* elec1, const char* elec2, unsigned frequency) const;
    int FrequencyFits(unsigned base, unsigned samples, unsigned frequency) const;
    // True when every reformatted montage compiles with the inputs that
    // DeclareInputs gives for (skip, overrideIndex, override).
    int AllReformatedCompile(int skip, int overrideIndex, const ChannelDesc* override) const;
    void RefreshReformated();
    void DeleteReformatedMontages();
    void CopyFrom(const CRecordingMontage& other);

    CPhysicalMontage* m_pPhysicalMontage = nullptr;
    WORD m_wSamplesRecord = 64;
    WORD m_wBaseFrequency = 0;
    CStringArray m_saElectrode1;
    CStringArray m_saElectrode2;
    CWordArray m_waUnderSampling;
    std::vector<unsigned> m_samplesConfirmed;  // per channel, 0: by the rule
    CStringArray m_saPreprocessing;
    CObArray m_oaRefMontages;  // owned CReformatedMontage*
};

// ---------------------------------------------------------------------------
class CReformatedMontage : public CLogicalMontage {
    DECLARE_SERIAL(CReformatedMontage)
public:
    CReformatedMontage();
    explicit CReformatedMontage(CRecordingMontage* recording);
    CReformatedMontage(const CReformatedMontage& other);
    CReformatedMontage& operator=(const CReformatedMontage& other);
    int operator==(const CReformatedMontage& other) const;
    int operator!=(const CReformatedMontage& other) const { return !(*this == other); }
    ~CReformatedMontage() override;

    void Serialize(CArchive& ar) override;
    void Empty() override;
    unsigned GetSamplesChannel(unsigned index) const override;
    CRecordingMontage* GetRecordingMontage() override { return m_pRecordingMontage; }
    const CRecordingMontage* GetRecordingMontage() const override { return m_pRecordingMontage; }
    CString GetLabel(unsigned index) const override;
    CString GetFormula(unsigned index) const override;
    unsigned GetNumGlobals() const override { return static_cast<unsigned>(m_saGlobalNames.GetSize()); }
    const char* GetGlobalName(unsigned index) const override;
    const char* GetGlobalFormula(const char* name) const override;  // without regard to case; null when none
    const char* GetGlobalFormula(unsigned index) const override;
    // Refused when another reformatted montage of the same recording montage
    // has this name (without regard to case).
    int SetMontageName(const char* name) override;

    // At most 128 channels; the formula must compile over the recording
    // channels and the globals.  Frequency, type and unit come from the
    // compiler; spike and seizure options are 0.
    virtual int AddChannel(const char* label, const char* formula, unsigned long color);
    virtual int InsertChannel(unsigned index, const char* label, const char* formula, unsigned long color);
    // Same checks as InsertChannel; keeps the spike and seizure options.
    virtual int ReplaceChannel(unsigned index, const char* label, const char* formula, unsigned long color);
    virtual int DeleteChannel(unsigned index);
    virtual int SwapChannel(unsigned a, unsigned b);
    // New channel k is old channel (*order)[k]; order must be a permutation.
    virtual int MoveChannel(CWordArray* order);
    virtual int ReplaceFormulaConfirmed(unsigned index, const char* formula);
    virtual int ReplaceLabelConfirmed(unsigned index, const char* label);
    // Rewrites the tokens naming global oldName (when it was reachable, i.e.
    // no input has that name) to newName in every channel formula; returns
    // the number of channels changed, also stored in channels when given.
    virtual int CarryChangeGlobal(const char* oldName, const char* newName, int* channels = nullptr);
    // Deletes every channel that does not compile without global name;
    // returns the number deleted, also stored in channels when given.
    virtual int CarryDeleteGlobal(const char* name, int* channels = nullptr);

    void SetRecordingMontage(CRecordingMontage* recording) { m_pRecordingMontage = recording; }

    // Globals.  A name equal to another global's (without regard to case) is
    // refused, and so is a formula that does not compile over the inputs.
    int AddGlobal(const char* name, const char* formula);
    int InsertGlobal(unsigned index, const char* name, const char* formula);
    // Also refused when a channel that uses the global would no longer
    // compile; a renamed global is followed in the channel formulas.
    int ReplaceGlobal(unsigned index, const char* name, const char* formula);
    int ReplaceGlobalConfirmed(unsigned index, const char* name, const char* formula);
    // Refused while a channel uses the global.
    int DeleteGlobal(unsigned index);
    int DeleteGlobalConfirmed(unsigned index);
    int FindGlobal(const char* name) const;  // without regard to case, -1 when none

    // Whether another reformatted montage of the same recording montage has a
    // channel with this label (without regard to case).
    int IsRefChLabelFoundElseInRecMtg(CString label) const;

    // Compiles channel index's formula alone (with the globals) and, when it
    // compiles, stores the frequency, type and unit the compiler reports.
    // Returns whether it compiled.
    int RefreshChannel(unsigned index);
    // True when the whole montage compiles; skipInput leaves that recording
    // channel out of the inputs, skipGlobal that global out of the globals.
    int CompilesWith(int skipInput = -1, int skipGlobal = -1) const;
    // Whether global index compiles alone, and whether channel index
    // compiles with all the globals, without recording channel skipInput.
    int CompilesGlobal(unsigned index, int skipInput = -1) const;
    int CompilesChannel(unsigned index, int skipInput = -1) const;

    // Declares the recording channels (see CRecordingMontage::DeclareInputs)
    // and the globals except skipGlobal to a compiler.
    void DeclareSources(CCReformater& compiler, int skipInput = -1, int skipGlobal = -1, int overrideIndex = -1,
                        const CRecordingMontage::ChannelDesc* override = nullptr) const;

protected:
    int CompileOne(const char* label, const char* formula, unsigned* frequency, unsigned* type,
                   unsigned* unit) const;
    void RepairLabels();
    void CopyFrom(const CReformatedMontage& other);

    CRecordingMontage* m_pRecordingMontage = nullptr;
    CStringArray m_saLabels;
    CStringArray m_saFormulas;
    CStringArray m_saGlobalNames;
    CStringArray m_saGlobalFormulas;
};

// ---------------------------------------------------------------------------
// The reformatted montage of a signal viewer: keeps a crosswalk from the
// present order of its channels to the order they had when it was built.
// Inserted channels have no original index (0xFFFF); deleted ones leave
// their original index unreachable.
class CSigViewRefMtg : public CReformatedMontage {
    DECLARE_SERIAL(CSigViewRefMtg)
public:
    CSigViewRefMtg();
    explicit CSigViewRefMtg(CRecordingMontage* recording);
    CSigViewRefMtg(const CSigViewRefMtg& other) = default;
    CSigViewRefMtg& operator=(const CSigViewRefMtg& other) = default;
    // Copies a reformatted montage and resets the crosswalk.
    CSigViewRefMtg& operator=(const CReformatedMontage& other);

    void Empty() override;
    int InsertChannel(unsigned index, const char* label, const char* formula, unsigned long color) override;
    int ReplaceChannel(unsigned index, const char* label, const char* formula, unsigned long color) override;
    int DeleteChannel(unsigned index) override;
    int SwapChannel(unsigned a, unsigned b) override;
    int MoveChannel(CWordArray* order) override;
    void Serialize(CArchive& ar) override;  // the crosswalk restarts as the identity

    void ResetChanCrsWlk();
    unsigned short GetChanCrsWlkNewToOrg(unsigned short index) const;
    unsigned short GetChanCrsWlkOrgToNew(unsigned short index) const;

private:
    CWordArray m_waCrossWalk;
};

class CSigViewRecMtg : public CRecordingMontage {
    DECLARE_SERIAL(CSigViewRecMtg)
public:
    CSigViewRecMtg();
    explicit CSigViewRecMtg(CPhysicalMontage* physical);
    CSigViewRecMtg(const CSigViewRecMtg& other) = default;
    CSigViewRecMtg& operator=(const CRecordingMontage& other);
    CSigViewRecMtg& operator=(const CSigViewRecMtg& other);
    // Creates, appends and returns a CSigViewRefMtg.
    CReformatedMontage* CreateReformatedMontage() override;
};

CArchive& operator>>(CArchive& ar, CPhysicalMontage*& montage);
CArchive& operator>>(CArchive& ar, CRecordingMontage*& montage);
CArchive& operator>>(CArchive& ar, CReformatedMontage*& montage);
#pragma GCC visibility pop
