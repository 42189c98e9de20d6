// Patient information of a recording: identity, address, height and weight,
// comment and five free user fields.  Limits count characters (UTF-8 code
// points), not bytes.
//
// Height and weight are kept as metric decimal texts (metres, kilograms) so
// that they survive storage exactly; the numeric accessors convert to and
// from imperial units (feet, pounds) on request.
//
// Archive form (WORD version 3): id 1, id 2, last name, first name, birth
// date, WORD sex, address, city, state, country, zip, home phone, work phone,
// comment, height, weight, user fields P1 to P5.  Version 1 ends after the
// comment, version 2 after the weight.  Version 0 is refused.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Archive.h"
#include "platform/DateTime.h"
#include "platform/Object.h"
#include "platform/Types.h"
#include "recording/FileHeader.h"
#include "recording/LightWeightPatientInfo.h"

class CPatientInfo : public CObject {
    DECLARE_SERIAL(CPatientInfo)
public:
    // Longest text (in characters) that each field accepts.
    enum : int {
        kMaxPatientId = 25,
        kMaxName = 24,
        kMaxAddress = 32,
        kMaxCity = 16,
        kMaxState = 16,
        kMaxCountry = 24,
        kMaxZip = 16,
        kMaxPhone = 32,
        kMaxComment = 64000,
        kMaxUserField = 255,
        // Height and weight texts hold fewer characters than this.
        kMeasureTextLimit = 16,
    };
    // Unit systems of the height and weight accessors.
    enum : UINT { kUnitsLocale = 0, kUnitsMetric = 1, kUnitsImperial = 2 };

    CPatientInfo();
    // Every field in stored order; height and weight are the metric texts.
    // The texts go through the asserting one-argument setters.
    CPatientInfo(const CString& patientId1, const CString& patientId2, const CString& lastName,
                 const CString& firstName, const CSDateTime& birthDate, WORD sex, const CString& address,
                 const CString& city, const CString& state, const CString& country, const CString& zip,
                 const CString& phoneHome, const CString& phoneWork, const CString& comment,
                 const CString& heightText = {}, const CString& weightText = {}, const CString& userP1 = {},
                 const CString& userP2 = {}, const CString& userP3 = {}, const CString& userP4 = {},
                 const CString& userP5 = {});
    CPatientInfo(const CPatientInfo& src);
    ~CPatientInfo() override;

    CPatientInfo& operator=(const CPatientInfo& src);
    bool operator==(const CPatientInfo& other) const;
    bool operator!=(const CPatientInfo& other) const { return !(*this == other); }

    void Serialize(CArchive& ar) override;

    // Text fields.  Set<Field>(text) asserts that the text is within the
    // field's limit and stores it whole; Set<Field>(text, maxLength) stores
    // its first maxLength characters.
#define SF_PATIENT_TEXT_FIELD(Name)                                   \
    const CString& Get##Name() const { return m_##Name; }             \
    void Set##Name(const CString& text);                              \
    void Set##Name(const CString& text, int maxLength);
    SF_PATIENT_TEXT_FIELD(PatientId1)
    SF_PATIENT_TEXT_FIELD(PatientId2)
    SF_PATIENT_TEXT_FIELD(LastName)
    SF_PATIENT_TEXT_FIELD(FirstName)
    SF_PATIENT_TEXT_FIELD(Address)
    SF_PATIENT_TEXT_FIELD(City)
    SF_PATIENT_TEXT_FIELD(State)
    SF_PATIENT_TEXT_FIELD(Zip)
    SF_PATIENT_TEXT_FIELD(Country)
    SF_PATIENT_TEXT_FIELD(PhoneHome)
    SF_PATIENT_TEXT_FIELD(PhoneWork)
    SF_PATIENT_TEXT_FIELD(Comment)
    SF_PATIENT_TEXT_FIELD(UserFieldP1)
    SF_PATIENT_TEXT_FIELD(UserFieldP2)
    SF_PATIENT_TEXT_FIELD(UserFieldP3)
    SF_PATIENT_TEXT_FIELD(UserFieldP4)
    SF_PATIENT_TEXT_FIELD(UserFieldP5)
#undef SF_PATIENT_TEXT_FIELD

    void SetBirthDate(const CSDateTime& date) { m_birthDate = date; }
    const CSDateTime& GetBirthDate() const { return m_birthDate; }

    // 1 and 2 are stored; anything else stores 0 (unknown).
    void SetSex(WORD sex);
    WORD GetSex() const { return m_sex; }

    // Height in metres (metric) or feet (imperial); weight in kilograms or
    // pounds.  Unit system 0 follows the locale; an unknown one asserts and
    // is taken as metric.
    void SetHeight(double height, UINT unitSystem);
    double GetHeight(UINT unitSystem) const;
    void SetWeight(double weight, UINT unitSystem);
    double GetWeight(UINT unitSystem) const;
    // The stored metric texts.
    const CString& GetHeightText() const { return m_height; }
    const CString& GetWeightText() const { return m_weight; }

    // Display forms: metric "1.83" + "m"; imperial "6 pi 0 po" with an empty
    // unit text (likewise "kg", and "lb"/"oz").  An unknown unit system
    // empties both texts.  The one-text forms join value and unit with a
    // space.
    void GetHeightAsString(CString& value, CString& unit, UINT unitSystem) const;
    void GetHeightAsString(CString& text, UINT unitSystem) const;
    void GetWeightAsString(CString& value, CString& unit, UINT unitSystem) const;
    void GetWeightAsString(CString& text, UINT unitSystem) const;

    // Fills this object from the exchange record (user fields are not
    // exchanged and keep their values).  Returns 1, or 0 when some text
    // reached its field's limit.
    int Init(const CLightWeightPatientInfo* info);
    // A new exchange record (owned by the caller) filled from this object.
    CLightWeightPatientInfo* CreateLightWeightCopy() const;
    // Fills the exchange record from this object; height and weight are
    // given as the metric texts with unit-system code 1.
    void CopyLightWeightInfo(CLightWeightPatientInfo* info) const;

private:
    CString m_PatientId1;
    CString m_PatientId2;
    CString m_LastName;
    CString m_FirstName;
    CSDateTime m_birthDate;
    WORD m_sex = 0;
    CString m_Address;
    CString m_City;
    CString m_State;
    CString m_Country;
    CString m_Zip;
    CString m_PhoneHome;
    CString m_PhoneWork;
    CString m_Comment;
    CString m_height;
    CString m_weight;
    CString m_UserFieldP1;
    CString m_UserFieldP2;
    CString m_UserFieldP3;
    CString m_UserFieldP4;
    CString m_UserFieldP5;
};

CArchive& operator>>(CArchive& ar, CPatientInfo*& patient);
#pragma GCC visibility pop
