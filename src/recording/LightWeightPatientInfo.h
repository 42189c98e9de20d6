// The suite's patient exchange record: the identity, address and measures of
// a patient as the suite's programs pass them to one another.  Everything is
// text except the sex and the unit-system code; the birth date is ISO
// "YYYY-MM-DD" (empty when unknown); height and weight are decimal texts in
// the units of the record's unit-system code (0 the locale's system,
// 1 metric: metres and kilograms, 2 imperial: feet and pounds).
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

class CLightWeightPatientInfo {
public:
    CLightWeightPatientInfo() = default;

    const CString& GetPatientId1() const { return m_patientId1; }
    void SetPatientId1(const CString& v) { m_patientId1 = v; }
    const CString& GetPatientId2() const { return m_patientId2; }
    void SetPatientId2(const CString& v) { m_patientId2 = v; }
    const CString& GetLastName() const { return m_lastName; }
    void SetLastName(const CString& v) { m_lastName = v; }
    const CString& GetFirstName() const { return m_firstName; }
    void SetFirstName(const CString& v) { m_firstName = v; }
    const CString& GetBirthDate() const { return m_birthDate; }
    void SetBirthDate(const CString& v) { m_birthDate = v; }
    WORD GetSex() const { return m_sex; }
    void SetSex(WORD v) { m_sex = v; }
    const CString& GetAddress() const { return m_address; }
    void SetAddress(const CString& v) { m_address = v; }
    const CString& GetCity() const { return m_city; }
    void SetCity(const CString& v) { m_city = v; }
    const CString& GetState() const { return m_state; }
    void SetState(const CString& v) { m_state = v; }
    const CString& GetCountry() const { return m_country; }
    void SetCountry(const CString& v) { m_country = v; }
    const CString& GetZip() const { return m_zip; }
    void SetZip(const CString& v) { m_zip = v; }
    const CString& GetPhoneHome() const { return m_phoneHome; }
    void SetPhoneHome(const CString& v) { m_phoneHome = v; }
    const CString& GetPhoneWork() const { return m_phoneWork; }
    void SetPhoneWork(const CString& v) { m_phoneWork = v; }
    const CString& GetComment() const { return m_comment; }
    void SetComment(const CString& v) { m_comment = v; }
    UINT GetUnitSystemCode() const { return m_unitSystemCode; }
    void SetUnitSystemCode(UINT v) { m_unitSystemCode = v; }
    const CString& GetHeight() const { return m_height; }
    void SetHeight(const CString& v) { m_height = v; }
    const CString& GetWeight() const { return m_weight; }
    void SetWeight(const CString& v) { m_weight = v; }

private:
    CString m_patientId1;
    CString m_patientId2;
    CString m_lastName;
    CString m_firstName;
    CString m_birthDate;
    WORD m_sex = 0;
    CString m_address;
    CString m_city;
    CString m_state;
    CString m_country;
    CString m_zip;
    CString m_phoneHome;
    CString m_phoneWork;
    CString m_comment;
    UINT m_unitSystemCode = 1;
    CString m_height;
    CString m_weight;
};
#pragma GCC visibility pop
