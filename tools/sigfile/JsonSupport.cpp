#include "JsonSupport.h"

#include <charconv>
#include <cstdlib>

#include "recording/ptntinfo.h"

namespace sigfile_tool {

Json PatientJson(const CPatientInfo* p) {
    CPatientInfo empty;
    if (!p) p = &empty;
    Json j = Json::object();
    j["id1"] = p->GetPatientId1();
    j["id2"] = p->GetPatientId2();
    j["last_name"] = p->GetLastName();
    j["first_name"] = p->GetFirstName();
    j["birth_date"] = p->GetBirthDate().ToIso();
    j["sex"] = p->GetSex();
    j["address"] = p->GetAddress();
    j["city"] = p->GetCity();
    j["state"] = p->GetState();
    j["country"] = p->GetCountry();
    j["zip"] = p->GetZip();
    j["phone_home"] = p->GetPhoneHome();
    j["phone_work"] = p->GetPhoneWork();
    j["comment"] = p->GetComment();
    j["height"] = p->GetHeightText();
    j["weight"] = p->GetWeightText();
    j["user_fields"] = Json::array({p->GetUserFieldP1(), p->GetUserFieldP2(), p->GetUserFieldP3(),
                                    p->GetUserFieldP4(), p->GetUserFieldP5()});
    return j;
}

double FloatForJson(float value) {
    char text[64];
    auto res = std::to_chars(text, text + sizeof text - 1, value);
    *res.ptr = '\0';
    return std::strtod(text, nullptr);
}

}  // namespace sigfile_tool
