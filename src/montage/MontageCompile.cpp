// The montages' use of the formula compiler: declaring the recording
// channels and globals, trial compilations that decide whether an edit is
// accepted, and the compiler's montage overload.
#include <set>
#include <string>
#include <vector>

#include "formula/RFMT.h"
#include "formula/filters.h"
#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/Strings.h"
#include "platform/Support.h"

namespace {
constexpr const char* kSource = "mtgs";
}  // namespace

void CRecordingMontage::DeclareInputs(CCReformater& compiler, int skip, int overrideIndex,
                                      const ChannelDesc* override) const {
    for (unsigned i = 0; i < m_nChannels; ++i) {
        if (static_cast<int>(i) == skip) continue;
        ChannelDesc desc;
        if (override && static_cast<int>(i) == overrideIndex) {
            desc = *override;
        } else {
            desc.elec1 = GetElectrodeName1(i);
            desc.elec2 = GetElectrodeName2(i);
            desc.frequency = GetFrequency(i);
            desc.type = GetType(i);
            desc.unit = GetUnit(i);
        }
        // The input keeps the channel's own index, so that leaving a channel
        // out of a trial leaves a gap instead of shifting the others.
        const unsigned samples = override && static_cast<int>(i) == overrideIndex
                                     ? VhlGetSamplesChannel(m_wSamplesRecord, m_wBaseFrequency, desc.frequency)
                                     : GetSamplesChannel(i);
        compiler.AddInput(desc.elec1.c_str(), desc.elec2.c_str(), samples, desc.frequency, desc.type, desc.unit,
                          static_cast<int>(i));
    }
}

void CReformatedMontage::DeclareSources(CCReformater& compiler, int skipInput, int skipGlobal, int overrideIndex,
                                        const CRecordingMontage::ChannelDesc* override) const {
    if (m_pRecordingMontage) m_pRecordingMontage->DeclareInputs(compiler, skipInput, overrideIndex, override);
    for (unsigned g = 0; g < GetNumGlobals(); ++g)
        if (static_cast<int>(g) != skipGlobal) compiler.AddGlobal(GetGlobalName(g), GetGlobalFormula(g));
}

int CRecordingMontage::AllReformatedCompile(int skip, int overrideIndex, const ChannelDesc* override) const {
    for (unsigned r = 0; r < GetNumReformatedMontages(); ++r) {
        const CReformatedMontage* ref = GetReformatedMontageAt(r);
        CCReformater compiler;
        ref->DeclareSources(compiler, skip, -1, overrideIndex, override);
        for (unsigned c = 0; c < ref->GetNumChannels(); ++c)
            compiler.AddOutput(ref->GetLabel(c).c_str(), ref->GetFormula(c).c_str());
        if (!compiler.Compile()) return FALSE;
    }
    return TRUE;
}

int CRecordingMontage::CheckChannelInUse(unsigned index) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    for (unsigned r = GetNumReformatedMontages(); r-- > 0;) {
        const CReformatedMontage* ref = GetReformatedMontageAt(r);
        for (unsigned g = ref->GetNumGlobals(); g-- > 0;)
            if (!ref->CompilesGlobal(g, static_cast<int>(index))) return TRUE;
        for (unsigned c = ref->GetNumChannels(); c-- > 0;)
            if (!ref->CompilesChannel(c, static_cast<int>(index))) return TRUE;
    }
    return FALSE;
}

int CReformatedMontage::CompileOne(const char* label, const char* formula, unsigned* frequency, unsigned* type,
                                   unsigned* unit) const {
    CCReformater compiler;
    DeclareSources(compiler);
    compiler.AddOutput(label, formula);
    if (!compiler.Compile()) return FALSE;
    *frequency = compiler.GetFrequency(0);
    *type = compiler.GetType(0);
    *unit = compiler.GetUnit(0);
    return TRUE;
}

int CReformatedMontage::CompilesWith(int skipInput, int skipGlobal) const {
    CCReformater compiler;
    DeclareSources(compiler, skipInput, skipGlobal);
    for (unsigned c = 0; c < m_nChannels; ++c)
        compiler.AddOutput(m_saLabels[static_cast<int>(c)].c_str(), m_saFormulas[static_cast<int>(c)].c_str());
    return compiler.Compile();
}

int CReformatedMontage::CompilesGlobal(unsigned index, int skipInput) const {
    SF_ASSERT(index < GetNumGlobals(), kSource, __LINE__);
    if (index >= GetNumGlobals()) return FALSE;
    CCReformater compiler;
    if (m_pRecordingMontage) m_pRecordingMontage->DeclareInputs(compiler, skipInput);
    compiler.AddGlobal(GetGlobalName(index), GetGlobalFormula(index));
    return compiler.Compile();
}

int CReformatedMontage::CompilesChannel(unsigned index, int skipInput) const {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    CCReformater compiler;
    DeclareSources(compiler, skipInput);
    compiler.AddOutput(m_saLabels[static_cast<int>(index)].c_str(), m_saFormulas[static_cast<int>(index)].c_str());
    return compiler.Compile();
}

int CReformatedMontage::RefreshChannel(unsigned index) {
    SF_ASSERT(index < m_nChannels, kSource, __LINE__);
    if (index >= m_nChannels) return FALSE;
    unsigned frequency = 0, type = 0, unit = 0;
    if (!CompileOne(m_saLabels[static_cast<int>(index)].c_str(), m_saFormulas[static_cast<int>(index)].c_str(),
                    &frequency, &type, &unit))
        return FALSE;
    const int i = static_cast<int>(index);
    m_waFrequency.SetAt(i, static_cast<WORD>(frequency));
    m_waType.SetAt(i, static_cast<WORD>(type));
    m_waUnit.SetAt(i, static_cast<WORD>(unit));
    return TRUE;
}

// Inputs: every channel of the montage's recording montage, named by its
// first electrode with its second as reference, reading the channel of the
// same index.  Globals: the montage's.  Outputs: the montage's channels (for
// a recording montage, each channel itself), each formula wrapped in the
// filters that apply to the channel's frequency, type and label.
int CCReformater::Compile(CLogicalMontage* montage, CFilter* filter1, CFilter* filter2, CFilter* filter3) {
    Destroy();
    SF_ASSERT(montage != nullptr, kSource, __LINE__);
    if (!montage) return 0;
    const CRecordingMontage* rec = montage->GetRecordingMontage();
    // A recording montage computes its own channels: each output reads its
    // own channel, even when channels share electrode 1 (C3-A1 and C3-A2),
    // through a name of its own ("C3~1") for every repeat.
    std::vector<CString> ownNames;
    if (rec && rec == montage) {
        std::set<CString> seen;
        for (unsigned i = 0; i < rec->GetNumChannels(); ++i) {
            CString name = ToUpperAscii(rec->GetElectrodeName1(i));
            if (!seen.insert(name).second) name += "~" + std::to_string(i);
            ownNames.push_back(name);
            AddInput(name.c_str(), rec->GetElectrodeName2(i), rec->GetSamplesChannel(i), rec->GetFrequency(i),
                     rec->GetType(i), rec->GetUnit(i), static_cast<int>(i));
        }
    } else if (rec) {
        rec->DeclareInputs(*this);
    }
    for (unsigned g = 0; g < montage->GetNumGlobals(); ++g)
        AddGlobal(montage->GetGlobalName(g), montage->GetGlobalFormula(g));
    const CFilter* filters[] = {filter1, filter2, filter3};
    for (unsigned c = 0; c < montage->GetNumChannels(); ++c) {
        const CString label = montage->GetLabel(c);
        CString formula = c < ownNames.size() ? ownNames[c] : montage->GetFormula(c);
        for (const CFilter* filter : filters)
            if (filter)
                formula = filter->GetFilteredFormula(formula.c_str(), montage->GetFrequency(c), montage->GetType(c),
                                                     label.c_str());
        AddOutput(label.c_str(), formula.c_str());
    }
    return Compile();
}
