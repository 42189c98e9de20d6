// Electrodes and electrode groups: numbering of the contacts of a group and
// the archive forms of both classes.
#include "montage/ElecGroup.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "platform/Assert.h"
#include "platform/Strings.h"

namespace {
constexpr const char* kSource = "ElecGroup";
constexpr WORD kElectrodeSchema = 1;
constexpr WORD kGroupSchema = 1;

void ClearTable(int (&table)[18][8], int rows) {
    for (int r = 0; r < rows && r < 18; ++r)
        for (int c = 0; c < 8; ++c) table[r][c] = 0;
}
}  // namespace

IMPLEMENT_SERIAL(CElectrode, CObject, 1)
IMPLEMENT_SERIAL(CElecGroup, CObject, 1)

// ---------------------------------------------------------------- CElectrode

CElectrode::CElectrode() = default;

CElectrode::CElectrode(const char* name, const CPoint* position) {
    SF_ASSERT(name != nullptr && *name != '\0', kSource, __LINE__);
    m_strName = name ? name : "";
    if (position) m_ptPosition = *position;
}

CElectrode::CElectrode(const CElectrode& other) : CObject(), m_strName(other.m_strName), m_ptPosition(other.m_ptPosition) {}

CElectrode::~CElectrode() = default;

void CElectrode::SetName(const char* name) {
    SF_ASSERT(name != nullptr && *name != '\0', kSource, __LINE__);
    if (name) m_strName = name;
}

void CElectrode::SetPosition(const CPoint* position) {
    if (position) m_ptPosition = *position;
}

CElectrode& CElectrode::operator=(const CElectrode& other) {
    m_strName = other.m_strName;
    m_ptPosition = other.m_ptPosition;
    return *this;
}

int CElectrode::operator==(const CElectrode& other) const {
    return m_strName == other.m_strName && m_ptPosition == other.m_ptPosition;
}

void CElectrode::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kElectrodeSchema << m_strName;
        ar << static_cast<int>(m_ptPosition.x) << static_cast<int>(m_ptPosition.y);
    } else {
        WORD schema;
        ar >> schema;
        if (schema > kElectrodeSchema) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
        CString name;
        ar >> name;
        BYTE raw[8];
        if (ar.Read(raw, 8) != 8) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName.c_str());
        auto le32 = [](const BYTE* p) {
            return static_cast<LONG>(static_cast<DWORD>(p[0]) | (static_cast<DWORD>(p[1]) << 8) |
                                     (static_cast<DWORD>(p[2]) << 16) | (static_cast<DWORD>(p[3]) << 24));
        };
        m_strName = std::move(name);
        m_ptPosition = CPoint(le32(raw), le32(raw + 4));
    }
}

CArchive& operator>>(CArchive& ar, CElectrode*& electrode) {
    electrode = static_cast<CElectrode*>(ar.ReadObject(RUNTIME_CLASS(CElectrode)));
    return ar;
}

// ---------------------------------------------------------------- CElecGroup

CElecGroup::CElecGroup() {
    std::memset(m_nElecStatus, 0, sizeof m_nElecStatus);
    ClearTable(m_nElecStatus, 8);
    BuildElectrodes();
}

CElecGroup::CElecGroup(const char* name, int type, int numRow, int numCol, const int (*status)[18][8],
                       double interDistance, double contactSize, unsigned long color, int nameSequence,
                       int originPoint) {
    std::memset(m_nElecStatus, 0, sizeof m_nElecStatus);
    SF_ASSERT(name != nullptr, kSource, __LINE__);
    const std::string text = name ? name : "";
    const size_t len = Utf8Length(text);
    SF_ASSERT(len >= 1 && len <= 7, kSource, __LINE__);
    SF_ASSERT(IsElecGroup(name), kSource, __LINE__);
    SF_ASSERT(numRow >= 1 && numCol >= 1 && numCol <= 8, kSource, __LINE__);
    SF_ASSERT(type >= 0 && type <= 3, kSource, __LINE__);
    SF_ASSERT(interDistance >= 0.0, kSource, __LINE__);
    SF_ASSERT(contactSize >= 0.0, kSource, __LINE__);
    SF_ASSERT(nameSequence >= 1 && nameSequence <= 4, kSource, __LINE__);
    SF_ASSERT(status != nullptr, kSource, __LINE__);
    m_strName = text;
    m_nType = type;
    m_nNumRow = numRow;
    m_nNumCol = numCol;
    m_dInterDistance = interDistance;
    m_dContactSize = contactSize;
    m_crColor = static_cast<DWORD>(color);
    m_nNameSequence = nameSequence;
    m_nOriginPoint = originPoint;
    if (status) std::memcpy(m_nElecStatus, *status, sizeof m_nElecStatus);
    BuildElectrodes();
}

CElecGroup::CElecGroup(const CElecGroup& other) : CObject() {
    std::memset(m_nElecStatus, 0, sizeof m_nElecStatus);
    *this = other;
}

CElecGroup::~CElecGroup() { DeleteElectrodes(); }

int CElecGroup::IsElecGroup(const char* name) {
    if (!name || !*name) return FALSE;
    const size_t n = std::strlen(name);
    return name[0] == '[' && name[n - 1] == ']';
}

int CElecGroup::CheckNameReservedInGroup(const char* baseName, const char* candidate, int numRow, int numCol) {
    if (!baseName || !candidate) return FALSE;
    const std::string base = baseName, cand = candidate;
    // Folding keeps the byte length of every letter, so the base name is the
    // candidate's prefix of the same byte length.
    if (cand.size() <= base.size() || !EqualsNoCase(cand.substr(0, base.size()), base)) return FALSE;
    const std::string digits = cand.substr(base.size());
    if (digits[0] == '0') return FALSE;  // "%d" never writes a leading zero
    long long n = 0;
    for (char ch : digits) {
        if (ch < '0' || ch > '9') return FALSE;
        n = n * 10 + (ch - '0');
        if (n > 1000000) return FALSE;
    }
    const long long count = static_cast<long long>(numRow) * numCol;
    return n >= 1 && n <= count;
}

int CElecGroup::GetRowLimit(int type) {
    switch (type) {
        case 0:
        case 3: return 8;
        case 1: return 12;
        case 2: return 18;
        default: return 0;
    }
}

const CElectrode* CElecGroup::GetElectrodeAt(int index) const {
    return static_cast<const CElectrode*>(m_oaElectrodes.GetAt(index));
}

int CElecGroup::IsElectrodeExist(const char* name) const {
    if (!name) return FALSE;
    for (const CObject* ob : m_oaElectrodes)
        if (EqualsNoCase(static_cast<const CElectrode*>(ob)->GetName(), name)) return TRUE;
    return FALSE;
}

int CElecGroup::IsElectrodeIncluded(int row, int col) const {
    SF_ASSERT(row >= 0 && row < m_nNumRow, kSource, __LINE__);
    SF_ASSERT(col >= 0 && col < m_nNumCol, kSource, __LINE__);
    if (row < 0 || row >= 18 || col < 0 || col >= 8) return FALSE;
    return m_nElecStatus[row][col];
}

CString CElecGroup::GetBaseName() const {
    CString base;
    for (char ch : m_strName)
        if (ch != '[' && ch != ']') base += ch;
    return base;
}

void CElecGroup::SetName(const char* name) {
    SF_ASSERT(name != nullptr, kSource, __LINE__);
    if (!name) return;
    SF_ASSERT(Utf8Length(name) <= 7, kSource, __LINE__);
    SF_ASSERT(IsElecGroup(name), kSource, __LINE__);
    m_strName = name;
    BuildElectrodes();
}

void CElecGroup::SetNameSequence(int nameSequence) {
    SF_ASSERT(nameSequence >= 1 && nameSequence <= 4, kSource, __LINE__);
    m_nNameSequence = nameSequence;
    BuildElectrodes();
}

void CElecGroup::SetOriginPoint(int originPoint) {
    m_nOriginPoint = originPoint;
    BuildElectrodes();
}

void CElecGroup::SetGroupParams(int type, int numRow, int numCol, const int (*status)[18][8]) {
    SF_ASSERT(type <= 3, kSource, __LINE__);
    SF_ASSERT(numCol >= 1 && numCol <= 8, kSource, __LINE__);
    SF_ASSERT(status != nullptr, kSource, __LINE__);
    m_nType = type;
    m_nNumRow = numRow;
    m_nNumCol = numCol;
    const int limit = GetRowLimit(type);
    SF_ASSERT(numRow >= 1 && numRow <= limit, kSource, __LINE__);
    if (status) std::memcpy(m_nElecStatus, *status, sizeof(int) * 8 * static_cast<size_t>(limit));
    BuildElectrodes();
}

void CElecGroup::SetInterDistance(double d) {
    SF_ASSERT(d >= 0.0, kSource, __LINE__);
    m_dInterDistance = d;
}

void CElecGroup::SetContactSize(double d) {
    SF_ASSERT(d >= 0.0, kSource, __LINE__);
    m_dContactSize = d;
}

CElecGroup& CElecGroup::operator=(const CElecGroup& other) {
    if (this == &other) return *this;
    m_strName = other.m_strName;
    m_nNameSequence = other.m_nNameSequence;
    m_nOriginPoint = other.m_nOriginPoint;
    m_nType = other.m_nType;
    m_nNumRow = other.m_nNumRow;
    m_nNumCol = other.m_nNumCol;
    m_dInterDistance = other.m_dInterDistance;
    m_dContactSize = other.m_dContactSize;
    m_crColor = other.m_crColor;
    std::memcpy(m_nElecStatus, other.m_nElecStatus, sizeof m_nElecStatus);
    DeleteElectrodes();
    for (const CObject* ob : other.m_oaElectrodes)
        m_oaElectrodes.Add(new CElectrode(*static_cast<const CElectrode*>(ob)));
    return *this;
}

int CElecGroup::operator==(const CElecGroup& other) const {
    if (m_nNameSequence != other.m_nNameSequence || m_nType != other.m_nType ||
        m_nOriginPoint != other.m_nOriginPoint || m_strName != other.m_strName || m_nNumRow != other.m_nNumRow ||
        m_nNumCol != other.m_nNumCol || m_dInterDistance != other.m_dInterDistance ||
        m_dContactSize != other.m_dContactSize || m_crColor != other.m_crColor ||
        GetElectrodeCount() != other.GetElectrodeCount())
        return FALSE;
    for (int i = 0; i < GetElectrodeCount(); ++i)
        if (*GetElectrodeAt(i) != *other.GetElectrodeAt(i)) return FALSE;
    return TRUE;
}

void CElecGroup::DeleteElectrodes() {
    for (CObject* ob : m_oaElectrodes) delete ob;
    m_oaElectrodes.RemoveAll();
}

void CElecGroup::AppendElectrode(int number, int row, int col) {
    const CString name = StrFormat("%s%d", GetBaseName().c_str(), number);
    const CPoint pos(row + 1, col + 1);
    m_oaElectrodes.Add(new CElectrode(name.c_str(), &pos));
}

int CElecGroup::NameMapping(int row, int col, int mode, int originPoint) {
    SF_ASSERT(originPoint >= 1 && originPoint <= 4, kSource, __LINE__);
    const int R = m_nNumRow, C = m_nNumCol;
    const bool byRow = mode == 1;
    switch (originPoint) {
        case 1: return byRow ? row * C + col + 1 : row * R + col + 1;
        case 2: return byRow ? row * C + C - col : (C - col - 1) * R + row + 1;
        case 3: return byRow ? (R - row - 1) * C + col + 1 : col * R + R - row;
        case 4: return byRow ? (R - row) * C - col : (C - col - 1) * R + R - row;
        default: return 0;
    }
}

int CElecGroup::BuildElectrodes() {
    DeleteElectrodes();
    // Loops stay inside the status table whatever the parameters say.
    const int rows = std::min(m_nNumRow, 18);
    const int cols = std::min(m_nNumCol, 8);
    switch (m_nType) {
        case 0: {
            std::vector<std::tuple<int, int, int>> contacts;  // number, row, column
            for (int r = 0; r < rows; ++r)
                for (int c = 0; c < cols; ++c) {
                    if (m_nElecStatus[r][c] != 1) continue;
                    int number;
                    if (m_nOriginPoint == 1)
                        number = m_nNameSequence == 1 ? r * m_nNumCol + c + 1 : c * m_nNumRow + r + 1;
                    else
                        number = NameMapping(r, c, m_nNameSequence, m_nOriginPoint);
                    contacts.emplace_back(number, r, c);
                }
            std::stable_sort(contacts.begin(), contacts.end(),
                             [](const auto& a, const auto& b) { return std::get<0>(a) < std::get<0>(b); });
            for (const auto& [number, r, c] : contacts) AppendElectrode(number, r, c);
            return TRUE;
        }
        case 1:
        case 2:
            for (int r = 0; r < rows; ++r)
                if (m_nElecStatus[r][0] == 1) AppendElectrode(r + 1, r, 0);
            return TRUE;
        case 3:
            for (int r = 0; r < rows; ++r) AppendElectrode(r + 1, r, 0);
            return TRUE;
        default:
            return FALSE;
    }
}

void CElecGroup::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kGroupSchema << m_strName << m_dContactSize << m_dInterDistance;
        ar << m_nType << m_nNumCol << m_nNumRow << m_nNameSequence << m_crColor << m_nOriginPoint;
        m_oaElectrodes.Serialize(ar);
        return;
    }
    WORD schema;
    ar >> schema;
    if (schema > kGroupSchema) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    CString name;
    double contactSize, interDistance;
    int type, numCol, numRow, nameSequence, originPoint;
    DWORD color;
    ar >> name >> contactSize >> interDistance >> type >> numCol >> numRow >> nameSequence >> color >> originPoint;
    // A grid the status table cannot hold is not a group this system wrote.
    if (numRow < 1 || numRow > 18 || numCol < 1 || numCol > 8)
        AfxThrowArchiveException(CArchiveException::genericException, ar.m_strFileName.c_str());
    CObArray loaded;
    try {
        loaded.Serialize(ar);
        for (CObject* ob : loaded)
            if (!ob || !ob->IsKindOf(RUNTIME_CLASS(CElectrode)))
                AfxThrowArchiveException(CArchiveException::badClass, ar.m_strFileName.c_str());
    } catch (...) {
        for (CObject* ob : loaded) delete ob;
        throw;
    }
    m_strName = std::move(name);
    m_dContactSize = contactSize;
    m_dInterDistance = interDistance;
    m_nType = type;
    m_nNumCol = numCol;
    m_nNumRow = numRow;
    m_nNameSequence = nameSequence;
    m_crColor = color;
    m_nOriginPoint = originPoint;
    DeleteElectrodes();
    m_oaElectrodes.Copy(loaded);
    // The status table is rebuilt from the electrodes' positions.
    for (int r = 0; r < m_nNumRow; ++r)
        for (int c = 0; c < m_nNumCol; ++c) m_nElecStatus[r][c] = 0;
    for (const CObject* ob : m_oaElectrodes) {
        const CPoint* p = static_cast<const CElectrode*>(ob)->GetPosition();
        if (p->x >= 1 && p->x <= 18 && p->y >= 1 && p->y <= 8) m_nElecStatus[p->x - 1][p->y - 1] = 1;
    }
}

CArchive& operator>>(CArchive& ar, CElecGroup*& group) {
    group = static_cast<CElecGroup*>(ar.ReadObject(RUNTIME_CLASS(CElecGroup)));
    return ar;
}
