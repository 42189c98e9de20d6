#include "formula/RFMT.h"

#include <algorithm>
#include <cstring>

#include "formula/Compiler.h"
#include "formula/UsrOps.h"
#include "platform/Assert.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "records/SigRec.h"

IMPLEMENT_DYNAMIC(CCInputVar, CCVar)
IMPLEMENT_DYNAMIC(CCFunction, CObject)
IMPLEMENT_DYNAMIC(CCGlobalVar, CCVar)
IMPLEMENT_DYNAMIC(CCReformater, CObject)

namespace {
constexpr const char* kSource = "RFMT";

// Whether channel of rec holds exactly spr samples inside the record's
// sample array (a start table that wrapped past 65535 is caught here).
bool ChannelFits(const CFmtSigRec& rec, unsigned channel, UINT spr) {
    if (channel >= rec.GetNumChannels() || rec.GetNumSamples(channel) != spr || !rec.GetStartTable()) return false;
    return static_cast<unsigned long>(rec.GetStartTable()[channel]) + spr <= rec.GetTotalSamples();
}

// Bounds on what one formula may ask for, so that no text can make the
// compiler allocate absurd buffers: the samples beyond the record that a
// formula reads (before plus after), and the floats that its nodes hold.
constexpr long long kMaxReach = 1 << 20;
constexpr long long kMaxFormulaFloats = 1 << 24;
}  // namespace

// ---------------------------------------------------------------- variables

CCInputVar::CCInputVar(int number, int channel, const char* name, const char* reference, UINT samplesRec,
                       UINT frequency, UINT type, UINT unit)
    : m_nNumber(number),
      m_nChannel(channel),
      m_strName(ToUpperAscii(name ? name : "")),
      m_strReference(reference ? reference : ""),
      m_nSamplesRec(samplesRec),
      m_nFrequency(frequency),
      m_nType(type),
      m_nUnit(unit) {}

void CCInputVar::Reset() {
    m_nFirstSample = 0;
    m_nLastSample = -1;
    m_buffer.clear();
    m_pOrigin = nullptr;
}

void CCInputVar::AllocateBuffer(int first, int last) {
    m_nFirstSample = first;
    m_nLastSample = last;
    m_buffer.assign(static_cast<size_t>(last - first + 1), 0.0f);
    m_pOrigin = m_buffer.data() - first;
}

bool CCInputVar::Load(const CFmtSigRec* const* records, int firstRecOfs) {
    const int spr = static_cast<int>(m_nSamplesRec);
    const int lastRecOfs = (m_nLastSample + 1) / spr - 1;
    for (int r = firstRecOfs; r <= lastRecOfs; ++r) {
        // Record r holds samples [r * spr, r * spr + spr - 1].
        const int from = std::max(r * spr, m_nFirstSample);
        const int to = r * spr + spr - 1;
        if (from > to) continue;
        const CFmtSigRec* rec = records[r - firstRecOfs];
        if (!rec || !ChannelFits(*rec, static_cast<unsigned>(m_nChannel), m_nSamplesRec)) return false;
        const float* src = rec->GetAt(static_cast<unsigned>(m_nChannel));
        std::memcpy(m_pOrigin + from, src + (from - r * spr), static_cast<size_t>(to - from + 1) * sizeof(float));
    }
    return true;
}

bool CCInputVar::Append(const CFmtSigRec& newest) {
    if (!ChannelFits(newest, static_cast<unsigned>(m_nChannel), m_nSamplesRec)) return false;
    const size_t spr = m_nSamplesRec;
    const size_t keep = m_buffer.size() - spr;
    std::memmove(m_buffer.data(), m_buffer.data() + spr, keep * sizeof(float));
    std::memcpy(m_buffer.data() + keep, newest.GetAt(static_cast<unsigned>(m_nChannel)), spr * sizeof(float));
    return true;
}

CCFunction::CCFunction(const char* name, const char* formula)
    : m_strName(ToUpperAscii(name ? name : "")), m_strFormula(formula ? formula : "") {}

void CCFunction::Reset() {
    m_nSamplesRec = 0;
    m_nFrequency = 0;
    m_nType = 65535;
    m_nUnit = 65535;
    m_strReference.clear();
    m_nNodes = 0;
    m_nReach = 0;
    m_pTree.reset();
}

void CCGlobalVar::Reset() {
    m_function.Reset();
    m_nFirstSample = 0;
    m_nLastSample = -1;
    m_pSamples = nullptr;
}

void CCGlobalVar::InitTree() {
    const int spr = static_cast<int>(std::max(m_function.m_nSamplesRec, 1u));
    m_function.GetTree()->Init(static_cast<int>(m_function.m_nFrequency), spr, m_nFirstSample, m_nLastSample);
}

void CCGlobalVar::Compute(int restart) { m_pSamples = m_function.GetTree()->Eval(restart); }

// ---------------------------------------------------------------- reformater

CCReformater::CCReformater() = default;
CCReformater::~CCReformater() = default;

int CCReformater::AddInput(const char* name, const char* reference, UINT samplesRec, UINT frequency, UINT type,
                           UINT unit, int channel) {
    m_bCompiled = false;
    const int number = static_cast<int>(m_inputs.size());
    m_inputs.push_back(std::make_unique<CCInputVar>(number, channel < 0 ? number : channel, name, reference,
                                                    samplesRec, frequency, type, unit));
    return 1;
}

int CCReformater::AddGlobal(const char* name, const char* formula) {
    m_bCompiled = false;
    m_globals.push_back(std::make_unique<CCGlobalVar>(name, formula));
    return 1;
}

int CCReformater::AddOutput(const char* name, const char* formula) {
    m_bCompiled = false;
    m_outputs.push_back(std::make_unique<CCFunction>(name, formula));
    return 1;
}

int CCReformater::AddUsrOp(const char* name, const CRuntimeClass* usrOpClass) {
    // Only classes that the parser can create as functions are entered.
    SF_ASSERT(usrOpClass && usrOpClass->m_pfnCreateObject && usrOpClass->IsDerivedFrom(RUNTIME_CLASS(CCUsrOp)),
              kSource, 140);
    if (!usrOpClass || !usrOpClass->m_pfnCreateObject || !usrOpClass->IsDerivedFrom(RUNTIME_CLASS(CCUsrOp)))
        return 0;
    m_functions[ToUpperAscii(name ? name : "")] = usrOpClass;
    return 1;
}

void CCReformater::Destroy() {
    m_bCompiled = false;
    m_inputs.clear();
    m_globals.clear();
    m_outputs.clear();
    m_recordTimes.clear();
    m_nFirstRecOfs = 0;
    m_nLastRecOfs = -1;
}

void CCReformater::Fail(const CString& diagnostic) {
    m_diagnostics.push_back(diagnostic);
    Destroy();
}

int CCReformater::CompileFunction(CCFunction& function, bool globalsVisible) {
    CCCompiler compiler(function, m_functions, m_inputs, globalsVisible ? &m_globals : nullptr);
    const int ok = compiler.Compile();
    CString diagnostic = compiler.GetDiagnostic();
    if (ok) {
        // Bound what the formula asks for before any buffer is made.
        const long long reach = function.GetTree()->GetReach();
        const long long spr = std::max(function.m_nSamplesRec, 1u);
        bool tooLarge = reach > kMaxReach || compiler.GetNodeCount() * (spr + reach) > kMaxFormulaFloats;
        for (CCGlobalVar* global : compiler.GetGlobalsUsed())
            if (global->GetFunction().m_nNodes * (spr + reach) > kMaxFormulaFloats) tooLarge = true;
        function.m_nNodes = compiler.GetNodeCount();
        function.m_nReach = reach;
        if (!tooLarge) return 1;
        diagnostic = StrFormat(LoadResString(IDS_RFMT_CANNOT_COMPILE).c_str(), function.GetName().c_str()) + "\n" +
                     LoadResString(IDS_RFMT_INTERNAL);
    }
    Fail(diagnostic);
    return 0;
}

int CCReformater::Compile() {
    m_diagnostics.clear();
    AddUsrOp(CCFirOp::GetName(), RUNTIME_CLASS(CCFirOp));
    AddUsrOp(CCIirOp::GetName(), RUNTIME_CLASS(CCIirOp));
    AddUsrOp(CCAbsOp::GetName(), RUNTIME_CLASS(CCAbsOp));
    AddUsrOp(CCSumOp::GetName(), RUNTIME_CLASS(CCSumOp));
    AddUsrOp(CCCmpOp::GetName(), RUNTIME_CLASS(CCCmpOp));

    // A second Compile starts again from the declarations.
    for (auto& input : m_inputs) input->Reset();
    for (auto& global : m_globals) global->Reset();
    for (auto& output : m_outputs) output->Reset();

    for (auto& global : m_globals) {
        CCFunction& function = global->GetFunction();
        if (!ValidateGlobalName(function.GetName().c_str())) {
            CString message = LoadResString(IDS_RFMT_BAD_MACRO_NAME);
            message.replace(message.find("%s"), 2, function.GetName());
            Fail(StrFormat(LoadResString(IDS_RFMT_CANNOT_COMPILE).c_str(), function.GetName().c_str()) + "\n" +
                 message);
            return 0;
        }
        if (!CompileFunction(function, false)) return 0;
    }
    for (auto& output : m_outputs)
        if (!CompileFunction(*output, true)) return 0;

    for (auto& output : m_outputs) {
        const int spr = static_cast<int>(std::max(output->m_nSamplesRec, 1u));
        output->GetTree()->Init(static_cast<int>(output->m_nFrequency), spr, 0, spr - 1);
    }
    // After all outputs, so that each used macro's range is complete.
    for (auto& global : m_globals)
        if (global->IsUsed()) global->InitTree();

    int firstRecOfs = 0;
    int lastRecOfs = -1;
    for (auto& input : m_inputs) {
        const int spr = static_cast<int>(input->GetSamplesRec());
        if (input->IsUsed() && spr > 0) {
            firstRecOfs = std::min(firstRecOfs, (input->GetFirstSample() - spr + 1) / spr);
            lastRecOfs = std::max(lastRecOfs, input->GetLastSample() / spr);
        } else {
            lastRecOfs = std::max(lastRecOfs, 0);
        }
    }
    m_nFirstRecOfs = firstRecOfs;
    m_nLastRecOfs = lastRecOfs;
    for (auto& input : m_inputs) {
        const int spr = static_cast<int>(input->GetSamplesRec());
        // An input without samples per record reads nothing: its buffer
        // keeps zeros over the range asked.
        if (!input->IsUsed()) continue;
        input->AllocateBuffer(input->GetFirstSample(),
                              spr > 0 ? (lastRecOfs + 1) * spr - 1 : input->GetLastSample());
    }
    m_recordTimes.assign(static_cast<size_t>(lastRecOfs + 1), 0.0);
    m_bCompiled = true;
    return 1;
}

int CCReformater::Eval(const CFmtSigRec* const* records, CFmtSigRec* output, int restart) {
    // Declarations added since the last Compile have no trees yet.
    SF_ASSERT(m_bCompiled || m_outputs.empty(), kSource, 249);
    if (!m_bCompiled && !m_outputs.empty()) return 0;
    SF_ASSERT(records != nullptr || GetSpanLength() <= 0, kSource, 250);
    SF_ASSERT(output != nullptr && output->GetNumChannels() == m_outputs.size(), kSource, 251);
    if ((!records && GetSpanLength() > 0) || !output || output->GetNumChannels() != m_outputs.size()) return 0;
    for (size_t i = 0; i < m_outputs.size(); ++i) {
        const bool fits = ChannelFits(*output, static_cast<unsigned>(i), m_outputs[i]->m_nSamplesRec);
        SF_ASSERT(fits, kSource, 255);
        if (!fits) return 0;
    }
    const int span = GetSpanLength();
    if (span > 0) {
        const int count = restart ? span : 1;
        for (int r = 0; r < count; ++r) {
            SF_ASSERT(records[r] != nullptr, kSource, 262);
            if (!records[r]) return 0;
        }
    }

    // Record times for offsets 0 .. last record offset.
    if (!m_recordTimes.empty()) {
        if (restart) {
            for (size_t k = 0; k < m_recordTimes.size(); ++k)
                m_recordTimes[k] = records[static_cast<int>(k) - m_nFirstRecOfs]->GetTime().GetValue();
        } else {
            std::copy(m_recordTimes.begin() + 1, m_recordTimes.end(), m_recordTimes.begin());
            m_recordTimes.back() = records[0]->GetTime().GetValue();
        }
        output->SetTime(CSDateTime(m_recordTimes.front()));
    }

    for (auto& input : m_inputs) {
        if (!input->IsUsed() || input->GetSamplesRec() == 0) continue;
        const bool ok = restart ? input->Load(records, m_nFirstRecOfs) : input->Append(*records[0]);
        SF_ASSERT(ok, kSource, 282);
        if (!ok) return 0;
    }
    for (auto& global : m_globals)
        if (global->IsUsed()) global->Compute(restart);
    for (size_t i = 0; i < m_outputs.size(); ++i) {
        const float* samples = m_outputs[i]->GetTree()->Eval(restart);
        std::memcpy(output->GetAt(static_cast<unsigned>(i)), samples, m_outputs[i]->m_nSamplesRec * sizeof(float));
    }
    return 1;
}

UINT CCReformater::GetSamplesRec(UINT i) const {
    SF_ASSERT(i < m_outputs.size(), kSource, 297);
    if (i >= m_outputs.size()) AfxThrowInvalidArgException();
    return m_outputs[i]->m_nSamplesRec;
}

UINT CCReformater::GetFrequency(UINT i) const {
    SF_ASSERT(i < m_outputs.size(), kSource, 303);
    if (i >= m_outputs.size()) AfxThrowInvalidArgException();
    return m_outputs[i]->m_nFrequency;
}

UINT CCReformater::GetType(UINT i) const {
    SF_ASSERT(i < m_outputs.size(), kSource, 309);
    if (i >= m_outputs.size()) AfxThrowInvalidArgException();
    return m_outputs[i]->m_nType;
}

UINT CCReformater::GetUnit(UINT i) const {
    SF_ASSERT(i < m_outputs.size(), kSource, 315);
    if (i >= m_outputs.size()) AfxThrowInvalidArgException();
    return m_outputs[i]->m_nUnit;
}

CString CCReformater::GetReference(UINT i) const {
    SF_ASSERT(i < m_outputs.size(), kSource, 321);
    if (i >= m_outputs.size()) AfxThrowInvalidArgException();
    return m_outputs[i]->m_strReference;
}

CFmtSigRec* CCReformater::CreateCompatibleFmtSigRec() const {
    std::vector<unsigned short> counts;
    for (const auto& output : m_outputs) counts.push_back(static_cast<unsigned short>(output->m_nSamplesRec));
    auto* rec = new CFmtSigRec;
    rec->Create(static_cast<unsigned>(counts.size()), counts.data());
    return rec;
}

// letter (letter | digit | '~' | '_' | '$' | '-')*
int CCReformater::ValidateGlobalName(const char* name) {
    if (!name) return 0;
    auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    if (!letter(name[0])) return 0;
    for (const char* p = name + 1; *p; ++p) {
        const char c = *p;
        if (!(letter(c) || (c >= '0' && c <= '9') || c == '~' || c == '_' || c == '$' || c == '-')) return 0;
    }
    return 1;
}

int CCReformater::ValidateElectrodeName(const char* name) {
    if (!name) return 0;
    // The first character's byte length is checked against 8, which a UTF-8
    // character never reaches: names longer than 8 are not refused here.
    const std::string text(name);
    if (!text.empty() && Utf8CharBytes(text, 0) > 8) return 0;
    return ValidateGlobalName(name);
}
