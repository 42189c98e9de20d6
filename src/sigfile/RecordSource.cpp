#include "sigfile/RecordSource.h"

#include "formula/RFMT.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "platform/strings/SourceStrings.h"
#include "sigfile/SIGFILE.h"

// ---------------------------------------------------------------------------
// CRecordSource

CRecordSource::CRecordSource(CSigFile& file, Unit unit) : m_file(file), m_unit(unit) {}

CRecordSource::~CRecordSource() = default;

CFmtSigRec* CRecordSource::CreateCompatibleFmtSigRec() const { return m_file.CreateCompatibleFmtSigRec(); }

long CRecordSource::GetNumRecords() const { return m_file.GetNumRecords(); }

int CRecordSource::ReadInside(long record, CFmtSigRec& out) {
    m_file.MoveTo(record);
    return m_unit == Unit::Volts ? m_file.ReadAsVolts(&out) : m_file.Read(&out);
}

int CRecordSource::LoadEdges() {
    if (m_edgesLoaded) return 1;
    const unsigned channels = m_file.GetNumChannels();
    m_firstSamples.assign(channels, 0.0f);
    m_lastSamples.assign(channels, 0.0f);
    m_recordSeconds = m_file.GetRecordDuration();
    const long count = m_file.GetNumRecords();
    if (count > 0) {
        std::unique_ptr<CFmtSigRec> rec(m_file.CreateCompatibleFmtSigRec());
        if (!rec || !ReadInside(0, *rec)) return 0;
        m_origin = rec->GetTime();
        for (unsigned c = 0; c < channels && c < rec->GetNumChannels(); ++c)
            if (rec->GetNumSamples(c) > 0) m_firstSamples[c] = rec->GetAt(c, 0);
        if (count > 1 && !ReadInside(count - 1, *rec)) return 0;
        for (unsigned c = 0; c < channels && c < rec->GetNumChannels(); ++c)
            if (const unsigned n = rec->GetNumSamples(c)) m_lastSamples[c] = rec->GetAt(c, n - 1);
    }
    m_edgesLoaded = true;
    return 1;
}

int CRecordSource::Read(long record, CFmtSigRec& out) {
    const long count = m_file.GetNumRecords();
    if (record >= 0 && record < count) return ReadInside(record, out);
    if (!LoadEdges()) return 0;
    const std::vector<float>& held = record < 0 ? m_firstSamples : m_lastSamples;
    for (unsigned c = 0; c < out.GetNumChannels(); ++c) out.SetAt(c, c < held.size() ? held[c] : 0.0f);
    out.SetTime(m_origin + CSTimeSpan(static_cast<double>(record) * m_recordSeconds));
    return 1;
}

// ---------------------------------------------------------------------------
// CDerivedSource

CDerivedSource::CDerivedSource(CSigFile& file, CLogicalMontage* montage, CRecordSource::Unit unit, CFilter* filter1,
                               CFilter* filter2, CFilter* filter3)
    : m_input(file, unit), m_montage(montage), m_filters{filter1, filter2, filter3} {}

CDerivedSource::~CDerivedSource() = default;

int CDerivedSource::Compile(std::string* error) {
    m_engine = std::make_unique<CCReformater>();
    m_span.clear();
    m_pointers.clear();
    m_started = false;
    if (!m_montage || !m_engine->Compile(m_montage, m_filters[0], m_filters[1], m_filters[2])) {
        if (error) {
            error->clear();
            for (const CString& d : m_engine->GetDiagnostics()) *error += (error->empty() ? "" : "\n") + d;
        }
        m_engine.reset();
        return 0;
    }
    for (int k = 0; k < m_engine->GetSpanLength(); ++k) {
        m_span.emplace_back(m_input.CreateCompatibleFmtSigRec());
        m_pointers.push_back(m_span.back().get());
    }
    return 1;
}

int CDerivedSource::Read(long record, CFmtSigRec& out) {
    if (!m_engine) return 0;
    const int span = m_engine->GetSpanLength();
    const bool restart = !m_started || record != m_next;
    if (restart) {
        for (int k = 0; k < span; ++k)
            if (!m_input.Read(record + m_engine->GetFirstRecOfs() + k, *m_span[static_cast<size_t>(k)])) return 0;
    } else if (span > 0 && !m_input.Read(record + m_engine->GetLastRecOfs(), *m_span[0])) {
        m_started = false;
        return 0;
    }
    if (!m_engine->Eval(span > 0 ? m_pointers.data() : nullptr, &out, restart ? 1 : 0)) {
        m_started = false;
        return 0;
    }
    m_started = true;
    m_next = record + 1;
    return 1;
}

CFmtSigRec* CDerivedSource::CreateCompatibleFmtSigRec() const {
    return m_engine ? m_engine->CreateCompatibleFmtSigRec() : new CFmtSigRec;
}

unsigned CDerivedSource::GetNumChannels() const { return m_engine ? m_engine->GetNumChannels() : 0; }
std::string CDerivedSource::GetLabel(unsigned channel) const {
    return m_montage && channel < m_montage->GetNumChannels() ? std::string(m_montage->GetLabel(channel)) : "";
}
unsigned CDerivedSource::GetFrequency(unsigned channel) const { return m_engine ? m_engine->GetFrequency(channel) : 0; }
unsigned CDerivedSource::GetSamplesRec(unsigned channel) const {
    return m_engine ? m_engine->GetSamplesRec(channel) : 0;
}
unsigned CDerivedSource::GetType(unsigned channel) const { return m_engine ? m_engine->GetType(channel) : 0; }
unsigned CDerivedSource::GetUnit(unsigned channel) const { return m_engine ? m_engine->GetUnit(channel) : 0; }

// ---------------------------------------------------------------------------
// CComputedMontage

CComputedMontage::CComputedMontage() = default;
CComputedMontage::~CComputedMontage() = default;

bool CComputedMontage::Choose(const CSigFile& file, const std::string& montage, const std::vector<std::string>& derives,
                             std::string& error) {
    m_chosen = nullptr;
    m_owned.reset();
    const CPhysicalMontage* physical = file.GetPhysicalMontage();
    CRecordingMontage* rec0 =
        physical && physical->GetNumRecordingMontages() > 0 ? physical->GetRecordingMontageAt(0) : nullptr;
    CReformatedMontage* named = nullptr;
    if (!montage.empty() && !(rec0 && EqualsNoCase(montage, rec0->GetMontageName()))) {
        named = rec0 ? rec0->GetReformatedMontage(montage.c_str()) : nullptr;
        if (!named) {
            error = StrFormat(LoadResString(IDS_SRC_UNKNOWN_MONTAGE).c_str(), montage.c_str());
            return false;
        }
    }
    if (derives.empty()) {
        m_chosen = named;
        return true;
    }
    if (!rec0) {
        error = LoadResString(IDS_SRC_NO_RECORDING_MONTAGE);
        return false;
    }
    // A montage of the command's own, over recording montage 0; the file's
    // montages stay as they are.
    m_owned = named ? std::make_unique<CReformatedMontage>(*named) : std::make_unique<CReformatedMontage>(rec0);
    m_owned->SetRecordingMontage(rec0);
    for (const std::string& d : derives) {
        const size_t eq = d.find('=');
        if (eq == std::string::npos || eq == 0 || eq + 1 == d.size()) {
            error = StrFormat(LoadResString(IDS_SRC_DERIVE_FORM).c_str(), d.c_str());
            return false;
        }
        const std::string label = d.substr(0, eq), formula = d.substr(eq + 1);
        if (!m_owned->AddChannel(label.c_str(), formula.c_str(), 0)) {
            error = StrFormat(LoadResString(IDS_SRC_DERIVE_FORMULA).c_str(), label.c_str(), formula.c_str());
            return false;
        }
    }
    m_chosen = m_owned.get();
    return true;
}

