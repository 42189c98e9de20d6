#include "recording/ptntinfo.h"

#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <memory>

#include "platform/Assert.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "platform/Support.h"

IMPLEMENT_SERIAL(CPatientInfo, CObject, 1)

namespace {

constexpr const char* kSource = "ptntinfo";
constexpr WORD kVersion = 3;

constexpr double kMetresPerFoot = 0.3048;
constexpr double kKilogramsPerPound = 0.45359237;

// Assertion lines.
enum : int {
    kLinePatientId1 = 190,
    kLinePatientId2 = 203,
    kLineLastName = 216,
    kLineFirstName = 229,
    kLineAddress = 242,
    kLineCity = 255,
    kLineState = 268,
    kLineZip = 281,
    kLineCountry = 294,
    kLinePhoneHome = 307,
    kLinePhoneWork = 320,
    kLineComment = 333,
    kLineUserFieldP1 = 346,
    kLineUserFieldP2 = 359,
    kLineUserFieldP3 = 372,
    kLineUserFieldP4 = 385,
    kLineUserFieldP5 = 398,
    kLineGetHeightUnits = 412,
    kLineWeightUnits = 437,
    kLineSetHeightUnits = 593,
    kLineHeightText = 599,
    kLineWeightText = 625,
};

// Resolves a unit system to imperial (true) or metric (false).  0 follows
// the locale; an unknown system asserts at line and counts as metric.
bool IsImperial(UINT unitSystem, int line) {
    switch (unitSystem) {
        case CPatientInfo::kUnitsLocale: return !VhlIsLocaleMetric();
        case CPatientInfo::kUnitsMetric: return false;
        case CPatientInfo::kUnitsImperial: return true;
        default: VhlAssert(kSource, line); return false;
    }
}

// Decimal text with a fixed number of decimals, whatever the process locale.
CString FormatFixed(double value, int decimals) {
    char buf[512];
    auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, decimals);
    if (r.ec != std::errc()) return StrFormat("%.*g", decimals, value);
    return CString(buf, r.ptr);
}

// The leading number of a text, 0 when there is none (as atof reads it, but
// always with a point as the decimal separator).
double ParseNumber(const CString& text) {
    const char* p = text.c_str();
    const char* end = p + text.size();
    while (p < end && std::isspace(static_cast<unsigned char>(*p))) ++p;
    if (p < end && *p == '+') ++p;
    double value = 0.0;
    auto r = std::from_chars(p, end, value, std::chars_format::general);
    return r.ec == std::errc() ? value : 0.0;
}

// Whole part toward zero, clamped to int.
int WholePart(double v) {
    if (!(v > INT_MIN && v < INT_MAX)) return v > 0 ? INT_MAX : INT_MIN;
    return static_cast<int>(v);
}

// Imperial display: whole units, then the rounded fraction in sub-units.  A
// fraction that rounds up to a whole unit is shown as such, not carried.
CString TwoUnitText(double value, int subUnits, UINT unitId, UINT subUnitId) {
    const int whole = WholePart(value);
    const int sub = WholePart(std::floor((value - whole) * subUnits + 0.5));
    return StrFormat("%d %s %d %s", whole, LoadResString(unitId).c_str(), sub, LoadResString(subUnitId).c_str());
}

void JoinValueAndUnit(CString& text, const CString& value, const CString& unit) {
    text = unit.empty() ? value : value + " " + unit;
}

CString CutText(const CString& text, int maxLength) {
    return Utf8Left(text, maxLength < 0 ? 0 : static_cast<size_t>(maxLength));
}

}  // namespace

#define SF_PATIENT_TEXT_SETTERS(Name, Limit)                                          \
    void CPatientInfo::Set##Name(const CString& text) {                               \
        SF_ASSERT(Utf8Length(text) <= static_cast<size_t>(Limit), kSource, kLine##Name); \
        m_##Name = text;                                                              \
    }                                                                                 \
    void CPatientInfo::Set##Name(const CString& text, int maxLength) { m_##Name = CutText(text, maxLength); }

SF_PATIENT_TEXT_SETTERS(PatientId1, kMaxPatientId)
SF_PATIENT_TEXT_SETTERS(PatientId2, kMaxPatientId)
SF_PATIENT_TEXT_SETTERS(LastName, kMaxName)
SF_PATIENT_TEXT_SETTERS(FirstName, kMaxName)
SF_PATIENT_TEXT_SETTERS(Address, kMaxAddress)
SF_PATIENT_TEXT_SETTERS(City, kMaxCity)
SF_PATIENT_TEXT_SETTERS(State, kMaxState)
SF_PATIENT_TEXT_SETTERS(Zip, kMaxZip)
SF_PATIENT_TEXT_SETTERS(Country, kMaxCountry)
SF_PATIENT_TEXT_SETTERS(PhoneHome, kMaxPhone)
SF_PATIENT_TEXT_SETTERS(PhoneWork, kMaxPhone)
SF_PATIENT_TEXT_SETTERS(Comment, kMaxComment)
SF_PATIENT_TEXT_SETTERS(UserFieldP1, kMaxUserField)
SF_PATIENT_TEXT_SETTERS(UserFieldP2, kMaxUserField)
SF_PATIENT_TEXT_SETTERS(UserFieldP3, kMaxUserField)
SF_PATIENT_TEXT_SETTERS(UserFieldP4, kMaxUserField)
SF_PATIENT_TEXT_SETTERS(UserFieldP5, kMaxUserField)
#undef SF_PATIENT_TEXT_SETTERS

CPatientInfo::CPatientInfo() = default;

CPatientInfo::CPatientInfo(const CString& patientId1, const CString& patientId2, const CString& lastName,
                           const CString& firstName, const CSDateTime& birthDate, WORD sex, const CString& address,
                           const CString& city, const CString& state, const CString& country, const CString& zip,
                           const CString& phoneHome, const CString& phoneWork, const CString& comment,
                           const CString& heightText, const CString& weightText, const CString& userP1,
                           const CString& userP2, const CString& userP3, const CString& userP4,
                           const CString& userP5) {
    SetPatientId1(patientId1);
    SetPatientId2(patientId2);
    SetLastName(lastName);
    SetFirstName(firstName);
    SetBirthDate(birthDate);
    SetSex(sex);
    SetAddress(address);
    SetCity(city);
    SetState(state);
    SetCountry(country);
    SetZip(zip);
    SetPhoneHome(phoneHome);
    SetPhoneWork(phoneWork);
    SetComment(comment);
    SF_ASSERT(Utf8Length(heightText) < kMeasureTextLimit, kSource, kLineHeightText);
    m_height = heightText;
    SF_ASSERT(Utf8Length(weightText) < kMeasureTextLimit, kSource, kLineWeightText);
    m_weight = weightText;
    SetUserFieldP1(userP1);
    SetUserFieldP2(userP2);
    SetUserFieldP3(userP3);
    SetUserFieldP4(userP4);
    SetUserFieldP5(userP5);
}

CPatientInfo::CPatientInfo(const CPatientInfo& src) : CObject() { *this = src; }

CPatientInfo::~CPatientInfo() = default;

CPatientInfo& CPatientInfo::operator=(const CPatientInfo& src) {
    if (this == &src) return *this;
    m_PatientId1 = src.m_PatientId1;
    m_PatientId2 = src.m_PatientId2;
    m_LastName = src.m_LastName;
    m_FirstName = src.m_FirstName;
    m_birthDate = src.m_birthDate;
    m_sex = src.m_sex;
    m_Address = src.m_Address;
    m_City = src.m_City;
    m_State = src.m_State;
    m_Country = src.m_Country;
    m_Zip = src.m_Zip;
    m_PhoneHome = src.m_PhoneHome;
    m_PhoneWork = src.m_PhoneWork;
    m_Comment = src.m_Comment;
    m_height = src.m_height;
    m_weight = src.m_weight;
    m_UserFieldP1 = src.m_UserFieldP1;
    m_UserFieldP2 = src.m_UserFieldP2;
    m_UserFieldP3 = src.m_UserFieldP3;
    m_UserFieldP4 = src.m_UserFieldP4;
    m_UserFieldP5 = src.m_UserFieldP5;
    return *this;
}

bool CPatientInfo::operator==(const CPatientInfo& o) const {
    return m_PatientId1 == o.m_PatientId1 && m_PatientId2 == o.m_PatientId2 && m_LastName == o.m_LastName &&
           m_FirstName == o.m_FirstName && m_birthDate == o.m_birthDate && m_sex == o.m_sex &&
           m_height == o.m_height && m_weight == o.m_weight && m_Address == o.m_Address && m_City == o.m_City &&
           m_State == o.m_State && m_Country == o.m_Country && m_Zip == o.m_Zip &&
           m_PhoneHome == o.m_PhoneHome && m_PhoneWork == o.m_PhoneWork && m_Comment == o.m_Comment &&
           m_UserFieldP1 == o.m_UserFieldP1 && m_UserFieldP2 == o.m_UserFieldP2 &&
           m_UserFieldP3 == o.m_UserFieldP3 && m_UserFieldP4 == o.m_UserFieldP4 &&
           m_UserFieldP5 == o.m_UserFieldP5;
}

void CPatientInfo::SetSex(WORD sex) { m_sex = (sex == 1 || sex == 2) ? sex : 0; }

// ---------------------------------------------------------------------------
// Height and weight

void CPatientInfo::SetHeight(double height, UINT unitSystem) {
    const double metres = IsImperial(unitSystem, kLineSetHeightUnits) ? height * kMetresPerFoot : height;
    CString text = FormatFixed(metres, 8);
    SF_ASSERT(Utf8Length(text) < kMeasureTextLimit, kSource, kLineHeightText);
    m_height = std::move(text);
}

double CPatientInfo::GetHeight(UINT unitSystem) const {
    const double metres = ParseNumber(m_height);
    return IsImperial(unitSystem, kLineGetHeightUnits) ? metres / kMetresPerFoot : metres;
}

void CPatientInfo::SetWeight(double weight, UINT unitSystem) {
    const double kilograms = IsImperial(unitSystem, kLineWeightUnits) ? weight * kKilogramsPerPound : weight;
    CString text = FormatFixed(kilograms, 8);
    SF_ASSERT(Utf8Length(text) < kMeasureTextLimit, kSource, kLineWeightText);
    m_weight = std::move(text);
}

double CPatientInfo::GetWeight(UINT unitSystem) const {
    const double kilograms = ParseNumber(m_weight);
    return IsImperial(unitSystem, kLineWeightUnits) ? kilograms / kKilogramsPerPound : kilograms;
}

void CPatientInfo::GetHeightAsString(CString& value, CString& unit, UINT unitSystem) const {
    value.clear();
    unit.clear();
    if (unitSystem > kUnitsImperial) return;
    if (IsImperial(unitSystem, kLineGetHeightUnits)) {
        value = TwoUnitText(GetHeight(kUnitsImperial), 12, IDS_UNIT_FEET, IDS_UNIT_INCH);
    } else {
        value = FormatFixed(GetHeight(kUnitsMetric), 2);
        unit = LoadResString(IDS_UNIT_METER);
    }
}

void CPatientInfo::GetHeightAsString(CString& text, UINT unitSystem) const {
    CString value, unit;
    GetHeightAsString(value, unit, unitSystem);
    JoinValueAndUnit(text, value, unit);
}

void CPatientInfo::GetWeightAsString(CString& value, CString& unit, UINT unitSystem) const {
    value.clear();
    unit.clear();
    if (unitSystem > kUnitsImperial) return;
    if (IsImperial(unitSystem, kLineWeightUnits)) {
        value = TwoUnitText(GetWeight(kUnitsImperial), 16, IDS_UNIT_POUND, IDS_UNIT_OUNCE);
    } else {
        value = FormatFixed(GetWeight(kUnitsMetric), 2);
        unit = LoadResString(IDS_UNIT_KG);
    }
}

void CPatientInfo::GetWeightAsString(CString& text, UINT unitSystem) const {
    CString value, unit;
    GetWeightAsString(value, unit, unitSystem);
    JoinValueAndUnit(text, value, unit);
}

// ---------------------------------------------------------------------------
// Exchange record

int CPatientInfo::Init(const CLightWeightPatientInfo* info) {
    int result = 1;
    // A text at its limit or beyond counts as cut.
    auto check = [&result](const CString& text, int limit) {
        if (Utf8Length(text) >= static_cast<size_t>(limit)) result = 0;
    };

    CSDateTime birth;
    if (!CSDateTime::FromText(info->GetBirthDate(), birth)) birth = CSDateTime();
    SetBirthDate(birth);

    check(info->GetPatientId1(), kMaxPatientId);
    SetPatientId1(info->GetPatientId1(), kMaxPatientId);
    check(info->GetPatientId2(), kMaxPatientId);
    SetPatientId2(info->GetPatientId2(), kMaxPatientId);
    check(info->GetLastName(), kMaxName);
    SetLastName(info->GetLastName(), kMaxName);
    check(info->GetFirstName(), kMaxName);
    SetFirstName(info->GetFirstName(), kMaxName);
    SetSex(info->GetSex());
    check(info->GetAddress(), kMaxAddress);
    SetAddress(info->GetAddress(), kMaxAddress);
    check(info->GetCity(), kMaxCity);
    SetCity(info->GetCity(), kMaxCity);
    check(info->GetState(), kMaxState);
    SetState(info->GetState(), kMaxState);
    check(info->GetCountry(), kMaxCountry);
    SetCountry(info->GetCountry(), kMaxCountry);
    check(info->GetZip(), kMaxZip);
    SetZip(info->GetZip(), kMaxZip);
    // The home-phone check measures the country text: the exchange has
    // always behaved this way and callers rely on the result it gives.
    check(info->GetCountry(), kMaxPhone);
    SetPhoneHome(info->GetPhoneHome(), kMaxPhone);
    check(info->GetPhoneWork(), kMaxPhone);
    SetPhoneWork(info->GetPhoneWork(), kMaxPhone);
    check(info->GetComment(), kMaxComment);
    SetComment(info->GetComment(), kMaxComment);

    SetHeight(ParseNumber(info->GetHeight()), info->GetUnitSystemCode());
    SetWeight(ParseNumber(info->GetWeight()), info->GetUnitSystemCode());
    return result;
}

CLightWeightPatientInfo* CPatientInfo::CreateLightWeightCopy() const {
    auto info = std::make_unique<CLightWeightPatientInfo>();
    CopyLightWeightInfo(info.get());
    return info.release();
}

void CPatientInfo::CopyLightWeightInfo(CLightWeightPatientInfo* info) const {
    info->SetPatientId1(m_PatientId1);
    info->SetPatientId2(m_PatientId2);
    info->SetLastName(m_LastName);
    info->SetFirstName(m_FirstName);
    // An unset birth date (the epoch) is exchanged as an empty text.
    info->SetBirthDate(m_birthDate.GetValue() == 0.0 ? CString() : m_birthDate.ToDateText());
    info->SetSex(m_sex);
    info->SetAddress(m_Address);
    info->SetCity(m_City);
    info->SetState(m_State);
    info->SetCountry(m_Country);
    info->SetZip(m_Zip);
    info->SetPhoneHome(m_PhoneHome);
    info->SetPhoneWork(m_PhoneWork);
    info->SetComment(m_Comment);
    info->SetUnitSystemCode(kUnitsMetric);
    info->SetHeight(m_height);
    info->SetWeight(m_weight);
}

// ---------------------------------------------------------------------------
// Archive

void CPatientInfo::Serialize(CArchive& ar) {
    if (ar.IsStoring()) {
        ar << kVersion << m_PatientId1 << m_PatientId2 << m_LastName << m_FirstName << m_birthDate << m_sex
           << m_Address << m_City << m_State << m_Country << m_Zip << m_PhoneHome << m_PhoneWork << m_Comment
           << m_height << m_weight << m_UserFieldP1 << m_UserFieldP2 << m_UserFieldP3 << m_UserFieldP4
           << m_UserFieldP5;
        return;
    }
    WORD version = 0;
    ar >> version;
    if (version == 0 || version > kVersion)
        AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName.c_str());
    // Read into a copy so that a truncated archive leaves this object whole;
    // fields that an older version lacks keep their values.
    CPatientInfo loaded(*this);
    ar >> loaded.m_PatientId1 >> loaded.m_PatientId2 >> loaded.m_LastName >> loaded.m_FirstName >>
        loaded.m_birthDate >> loaded.m_sex >> loaded.m_Address >> loaded.m_City >> loaded.m_State >>
        loaded.m_Country >> loaded.m_Zip >> loaded.m_PhoneHome >> loaded.m_PhoneWork >> loaded.m_Comment;
    if (version >= 2) ar >> loaded.m_height >> loaded.m_weight;
    if (version >= 3)
        ar >> loaded.m_UserFieldP1 >> loaded.m_UserFieldP2 >> loaded.m_UserFieldP3 >> loaded.m_UserFieldP4 >>
            loaded.m_UserFieldP5;
    *this = loaded;
}

CArchive& operator>>(CArchive& ar, CPatientInfo*& patient) {
    patient = static_cast<CPatientInfo*>(ar.ReadObject(RUNTIME_CLASS(CPatientInfo)));
    return ar;
}
