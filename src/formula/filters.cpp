#include "formula/filters.h"

#include <charconv>
#include <filesystem>

#include "platform/Archive.h"
#include "platform/Assert.h"
#include "platform/File.h"
#include "platform/Paths.h"
#include "platform/Strings.h"

IMPLEMENT_SERIAL(CFilter, CObject, 1)
IMPLEMENT_SERIAL(CFilterSet, CObject, 1)

namespace {
constexpr const char* kSource = "filters";
// Bytes of the smallest archived item: four WORDs, an empty string's length
// byte and two floats.
constexpr size_t kMinItemBytes = 4 * 2 + 1 + 2 * 4;

// A float as printf's "%f" prints it in the "C" locale, whatever the host's
// locale: the text goes into a formula, whose decimal separator is '.'.
std::string FixedSix(float value) {
    char buf[400];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, static_cast<double>(value), std::chars_format::fixed, 6);
    return ec == std::errc() ? std::string(buf, end) : std::string("0.000000");
}
}  // namespace

// ---------------------------------------------------------------- CFilter

CFilter::CFilter(const CFilter& other) : CObject() { *this = other; }

CFilter& CFilter::operator=(const CFilter& other) {
    if (this != &other) {
        m_strName = other.m_strName;
        m_wFilterType = other.m_wFilterType;
        m_items = other.m_items;
    }
    return *this;
}

const CFilter::Item& CFilter::ItemAt(UINT index) const {
    SF_ASSERT(index < m_items.size(), kSource, 40);
    if (index >= m_items.size()) AfxThrowInvalidArgException();
    return m_items[index];
}

int CFilter::Add(WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass, WORD filterOrder,
                 float cut1, float cut2) {
    return Insert(GetNumItems(), traceFreq, traceType, traceLabel, filterClass, filterOrder, cut1, cut2);
}

int CFilter::Insert(UINT index, WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass,
                    WORD filterOrder, float cut1, float cut2) {
    SF_ASSERT(index <= m_items.size(), kSource, 53);
    if (index > m_items.size()) return 0;
    // An empty item goes in first; a refused replacement takes it out again.
    m_items.insert(m_items.begin() + index, Item{});
    if (Replace(index, traceFreq, traceType, traceLabel, filterClass, filterOrder, cut1, cut2)) return 1;
    m_items.erase(m_items.begin() + index);
    return 0;
}

int CFilter::Replace(UINT index, WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass,
                     WORD filterOrder, float cut1, float cut2) {
    SF_ASSERT(index < m_items.size(), kSource, 64);
    if (index >= m_items.size()) return 0;
    const CString label = traceLabel ? traceLabel : "";
    for (size_t i = 0; i < m_items.size(); ++i) {
        if (i == index) continue;
        const Item& other = m_items[i];
        if (other.traceFreq == traceFreq && other.traceType == traceType && EqualsNoCase(other.traceLabel, label))
            return 0;
    }
    m_items[index] = Item{traceFreq, traceType, label, filterClass, filterOrder, cut1, cut2};
    return 1;
}

int CFilter::Delete(UINT index) {
    SF_ASSERT(index < m_items.size(), kSource, 78);
    if (index >= m_items.size()) return 0;
    m_items.erase(m_items.begin() + index);
    return 1;
}

UINT CFilter::GetFilterSelection(UINT traceFreq, UINT traceType, const char* traceLabel) const {
    // Channel types 17 and 28 are never filtered.
    if (traceType == 17 || traceType == 28) return noSelection;
    const CString label = traceLabel ? traceLabel : "";
    auto find = [&](auto match) -> UINT {
        for (size_t i = 0; i < m_items.size(); ++i)
            if (m_items[i].traceFreq == traceFreq && match(m_items[i])) return static_cast<UINT>(i);
        return noSelection;
    };
    // The label's own entry, else the type's, else the frequency's.
    UINT index = find([&](const Item& it) { return it.traceType == traceType && EqualsNoCase(it.traceLabel, label); });
    if (index == noSelection)
        index = find([&](const Item& it) { return it.traceType == traceType && it.traceLabel.empty(); });
    if (index == noSelection) index = find([&](const Item& it) { return it.traceType == 0 && it.traceLabel.empty(); });
    return index;
}

CString CFilter::GetFilteredFormula(const char* formula, UINT traceFreq, UINT traceType,
                                    const char* traceLabel) const {
    const CString text = formula ? formula : "";
    const UINT index = GetFilterSelection(traceFreq, traceType, traceLabel);
    if (index == noSelection) return text;
    const Item& item = m_items[index];
    const char* function = nullptr;
    switch (item.filterClass) {
    case classIIR: function = "IIR"; break;
    case classFIR: function = "FIR"; break;
    default:
        SF_ASSERT(false, kSource, 113);
        return text;
    }
    // "IIR(%s,%u,%u,%f,%f)" or "FIR(...)": formula, filter type, order and
    // the two cut-offs with six decimals.
    return StrFormat("%s(%s,%u,%u,", function, text.c_str(), static_cast<unsigned>(m_wFilterType),
                     static_cast<unsigned>(item.filterOrder)) +
           FixedSix(item.cut1) + "," + FixedSix(item.cut2) + ")";
}

void CFilter::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << m_strName << m_wFilterType;
        ar.WriteCount(m_items.size());
        for (const Item& it : m_items)
            ar << it.traceFreq << it.traceType << it.traceLabel << it.filterClass << it.filterOrder << it.cut1
               << it.cut2;
    } else {
        CString name;
        WORD type = 0;
        ar >> name >> type;
        const DWORD count = ar.ReadCount();
        ar.CheckCount(count, kMinItemBytes);
        std::vector<Item> items(count);
        for (Item& it : items)
            ar >> it.traceFreq >> it.traceType >> it.traceLabel >> it.filterClass >> it.filterOrder >> it.cut1 >>
                it.cut2;
        m_strName = std::move(name);
        m_wFilterType = type;
        m_items = std::move(items);
    }
}

// ---------------------------------------------------------------- CFilterSet

CFilterSet& CFilterSet::operator=(const CFilterSet& other) {
    if (this != &other) {
        std::vector<std::unique_ptr<CFilter>> copy;
        for (const auto& f : other.m_filters) copy.push_back(std::make_unique<CFilter>(*f));
        m_filters = std::move(copy);
    }
    return *this;
}

CFilterSet& CFilterSet::GetInstance() {
    // Made on first use and refreshed once, whatever the result.
    static CFilterSet instance = [] {
        CFilterSet set;
        set.Refresh();
        return set;
    }();
    return instance;
}

CFilter& CFilterSet::operator[](UINT index) {
    SF_ASSERT(index < m_filters.size(), kSource, 170);
    if (index >= m_filters.size()) AfxThrowInvalidArgException();
    return *m_filters[index];
}

const CFilter& CFilterSet::operator[](UINT index) const {
    SF_ASSERT(index < m_filters.size(), kSource, 176);
    if (index >= m_filters.size()) AfxThrowInvalidArgException();
    return *m_filters[index];
}

CFilter* CFilterSet::AddNew() {
    m_filters.push_back(std::make_unique<CFilter>());
    return m_filters.back().get();
}

int CFilterSet::DeleteAt(UINT index) {
    SF_ASSERT(index < m_filters.size(), kSource, 187);
    if (index >= m_filters.size()) return 0;
    m_filters.erase(m_filters.begin() + index);
    return 1;
}

CString CFilterSet::GetFileName() { return VhlGetUserPath() + "default.flt"; }

int CFilterSet::Refresh() {
    DeleteAll();
    CFile file;
    if (!file.Open(GetFileName().c_str(), CFile::modeRead | CFile::shareDenyWrite)) return 0;
    try {
        CArchive ar(&file, CArchive::load, 4096);
        Serialize(ar);
        ar.Close();
    } catch (const std::exception&) {  // file, archive and memory exceptions
        return 0;
    }
    return 1;
}

int CFilterSet::Update() {
    try {
        std::error_code ec;
        std::filesystem::create_directories(VhlGetUserPath(), ec);
        CFile file;
        if (!file.Open(GetFileName().c_str(), CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive)) return 0;
        CArchive ar(&file, CArchive::store, 4096);
        Serialize(ar);
        ar.Close();
        file.Close();
    } catch (const std::exception&) {  // file, archive and memory exceptions
        return 0;
    }
    return 1;
}

void CFilterSet::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kVersion;
        ar.WriteCount(m_filters.size());
        for (const auto& f : m_filters) ar.WriteObject(f.get());
    } else {
        WORD version = 0;
        ar >> version;
        if (version != kVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
        m_filters.clear();
        const DWORD count = ar.ReadCount();
        ar.CheckCount(count, 2);
        // Filters join the set one by one, so that a failure keeps those read.
        for (DWORD i = 0; i < count; ++i) {
            std::unique_ptr<CObject> ob(ar.ReadObject(RUNTIME_CLASS(CFilter)));
            if (ob) m_filters.emplace_back(static_cast<CFilter*>(ob.release()));
        }
    }
}
