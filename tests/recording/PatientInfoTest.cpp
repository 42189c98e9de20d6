#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>

#include "recording/ptntinfo.h"
#include "support/TestSupport.h"

using testsupport::AssertRecorder;
using testsupport::Bytes;
using testsupport::LoadFromBytes;
using testsupport::StoreToBytes;

namespace {

// n copies of a two-byte character: n characters, 2n bytes.
std::string Accents(size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += "é";
    return s;
}

struct TextField {
    const char* name;
    size_t limit;
    std::function<void(CPatientInfo&, const CString&)> set;
    std::function<void(CPatientInfo&, const CString&, int)> setCut;
    std::function<const CString&(const CPatientInfo&)> get;
};

#define FIELD(Name, limit)                                                              \
    TextField {                                                                         \
        #Name, limit, [](CPatientInfo& p, const CString& t) { p.Set##Name(t); },        \
            [](CPatientInfo& p, const CString& t, int n) { p.Set##Name(t, n); },        \
            [](const CPatientInfo& p) -> const CString& { return p.Get##Name(); }       \
    }

std::vector<TextField> TextFields() {
    return {FIELD(PatientId1, 25), FIELD(PatientId2, 25), FIELD(LastName, 24),   FIELD(FirstName, 24),
            FIELD(Address, 32),    FIELD(City, 16),       FIELD(State, 16),      FIELD(Zip, 16),
            FIELD(Country, 24),    FIELD(PhoneHome, 32),  FIELD(PhoneWork, 32),  FIELD(Comment, 64000),
            FIELD(UserFieldP1, 255), FIELD(UserFieldP2, 255), FIELD(UserFieldP3, 255),
            FIELD(UserFieldP4, 255), FIELD(UserFieldP5, 255)};
}
#undef FIELD

CPatientInfo MakePatient() {
    CPatientInfo p("A-001", "B-002", "Lefèvre", "Hélène", CSDateTime(1975, 4, 12), 2, "12 rue des Lilas", "Québec",
                   "QC", "Canada", "G1R 4P5", "418-555-0101", "418-555-0199", "Suivi post-opératoire",
                   "1.65000000", "58.50000000", "p1", "p2", "p3", "p4", "p5");
    return p;
}

// Body of MakePatient() as stored, up to and including the comment.
Bytes PatientBodyToComment(unsigned version) {
    return Bytes()
        .u16(version)
        .str("A-001")
        .str("B-002")
        .str("Lef\xE8vre")
        .str("H\xE9l\xE8ne")
        .f64(CSDateTime(1975, 4, 12).GetValue())
        .u16(2)
        .str("12 rue des Lilas")
        .str("Qu\xE9" "bec")
        .str("QC")
        .str("Canada")
        .str("G1R 4P5")
        .str("418-555-0101")
        .str("418-555-0199")
        .str("Suivi post-op\xE9ratoire");
}

std::vector<BYTE> Store(CPatientInfo& p) {
    return StoreToBytes([&](CArchive& ar) { p.Serialize(ar); });
}

// Sets the measurement system that unit system 0 follows, for one scope.
class LocaleUnits {
public:
    explicit LocaleUnits(const char* value) {
        if (const char* old = std::getenv("SIGFILE_UNITS")) old_ = old;
        setenv("SIGFILE_UNITS", value, 1);
    }
    ~LocaleUnits() {
        if (old_) setenv("SIGFILE_UNITS", old_->c_str(), 1);
        else unsetenv("SIGFILE_UNITS");
    }

private:
    std::optional<std::string> old_;
};

}  // namespace

TEST(PatientInfoTest, TextLimitsCountCharactersAndBothSetterFormsApply) {
    for (const TextField& f : TextFields()) {
        SCOPED_TRACE(f.name);
        CPatientInfo p;
        {
            // At the limit, in two-byte characters: no assertion.
            AssertRecorder rec;
            f.set(p, Accents(f.limit));
            EXPECT_TRUE(rec.hits.empty());
        }
        {
            // One character over: assertion, and the text is kept whole.
            AssertRecorder rec;
            f.set(p, Accents(f.limit + 1));
            ASSERT_EQ(rec.hits.size(), 1u);
            EXPECT_EQ(rec.hits[0].first, "ptntinfo");
            EXPECT_EQ(f.get(p), Accents(f.limit + 1));
        }
        {
            // The two-argument form cuts to whole characters, silently.
            AssertRecorder rec;
            f.setCut(p, Accents(f.limit + 5), static_cast<int>(f.limit));
            EXPECT_EQ(f.get(p), Accents(f.limit));
            f.setCut(p, "abc", 2);
            EXPECT_EQ(f.get(p), "ab");
            EXPECT_TRUE(rec.hits.empty());
        }
    }
}

TEST(PatientInfoTest, SexOtherThanOneOrTwoIsUnknown) {
    CPatientInfo p;
    for (WORD sex : {1, 2, 0, 3, 0xFFFF}) {
        p.SetSex(sex);
        EXPECT_EQ(p.GetSex(), sex <= 2 ? sex : 0);
    }
}

namespace {
// Value and unit texts of the height (or weight) display.
std::pair<CString, CString> Shown(const CPatientInfo& p, bool height, UINT system) {
    CString value = "?", unit = "?";
    if (height) p.GetHeightAsString(value, unit, system);
    else p.GetWeightAsString(value, unit, system);
    return {value, unit};
}
}  // namespace

TEST(PatientInfoTest, HeightIsStoredInMetresAndShownInFeetAndInches) {
    CPatientInfo p;
    p.SetHeight(6.0, CPatientInfo::kUnitsImperial);
    EXPECT_EQ(p.GetHeightText(), "1.82880000");
    EXPECT_DOUBLE_EQ(p.GetHeight(CPatientInfo::kUnitsImperial), 6.0);
    EXPECT_EQ(p.GetHeight(CPatientInfo::kUnitsMetric), 1.8288);
    EXPECT_EQ(Shown(p, true, CPatientInfo::kUnitsImperial), std::make_pair(CString("6 pi 0 po"), CString()));
    EXPECT_EQ(Shown(p, true, CPatientInfo::kUnitsMetric), std::make_pair(CString("1.83"), CString("m")));
    CString text;
    p.GetHeightAsString(text, CPatientInfo::kUnitsMetric);
    EXPECT_EQ(text, "1.83 m");
    p.GetHeightAsString(text, CPatientInfo::kUnitsImperial);
    EXPECT_EQ(text, "6 pi 0 po");

    // 5.999 ft: 5 feet and 11.988 inches, shown as 12 inches, not carried.
    p.SetHeight(5.999, CPatientInfo::kUnitsImperial);
    EXPECT_EQ(p.GetHeightText(), "1.82849520");
    EXPECT_EQ(Shown(p, true, CPatientInfo::kUnitsImperial).first, "5 pi 12 po");
}

TEST(PatientInfoTest, WeightIsStoredInKilogramsAndShownInPoundsAndOunces) {
    CPatientInfo p;
    p.SetWeight(150.5, CPatientInfo::kUnitsImperial);
    EXPECT_EQ(p.GetWeightText(), "68.26565169");
    EXPECT_EQ(Shown(p, false, CPatientInfo::kUnitsImperial), std::make_pair(CString("150 lb 8 oz"), CString()));
    EXPECT_EQ(Shown(p, false, CPatientInfo::kUnitsMetric), std::make_pair(CString("68.27"), CString("kg")));
    // 10.99 lb: 15.84 oz rounds to 16, shown as such.
    p.SetWeight(10.99, CPatientInfo::kUnitsImperial);
    EXPECT_EQ(Shown(p, false, CPatientInfo::kUnitsImperial).first, "10 lb 16 oz");
    p.SetWeight(70.0, CPatientInfo::kUnitsMetric);
    EXPECT_EQ(p.GetWeightText(), "70.00000000");
    EXPECT_NEAR(p.GetWeight(CPatientInfo::kUnitsImperial), 70.0 / 0.45359237, 1e-9);
}

TEST(PatientInfoTest, UnitSystemZeroFollowsTheLocale) {
    CPatientInfo p;
    {
        LocaleUnits units("imperial");
        p.SetHeight(6.0, CPatientInfo::kUnitsLocale);
        EXPECT_EQ(p.GetHeightText(), "1.82880000");
        EXPECT_EQ(Shown(p, true, CPatientInfo::kUnitsLocale).first, "6 pi 0 po");
    }
    LocaleUnits units("metric");
    p.SetWeight(80.0, CPatientInfo::kUnitsLocale);
    EXPECT_EQ(p.GetWeightText(), "80.00000000");
    EXPECT_EQ(p.GetHeight(CPatientInfo::kUnitsLocale), 1.8288);
}

TEST(PatientInfoTest, BadUnitSystemsAndLongMeasureTextsOnlyAssert) {
    CPatientInfo p;
    AssertRecorder rec;
    p.SetHeight(1.7, 9);  // taken as metric
    EXPECT_EQ(p.GetHeightText(), "1.70000000");
    EXPECT_TRUE(rec.Saw("ptntinfo", 593));
    EXPECT_EQ(p.GetHeight(9), 1.7);
    EXPECT_TRUE(rec.Saw("ptntinfo", 412));
    p.SetWeight(70.0, 5);
    EXPECT_EQ(p.GetWeightText(), "70.00000000");
    EXPECT_EQ(p.GetWeight(5), 70.0);
    EXPECT_TRUE(rec.Saw("ptntinfo", 437));
    // An unknown system empties both display texts.
    EXPECT_EQ(Shown(p, true, 3), std::make_pair(CString(), CString()));
    EXPECT_EQ(Shown(p, false, 3), std::make_pair(CString(), CString()));

    // Sixteen characters or more assert; the text is kept.
    rec.hits.clear();
    p.SetHeight(999999.0, CPatientInfo::kUnitsMetric);  // 15 characters
    EXPECT_TRUE(rec.hits.empty());
    p.SetHeight(1e6, CPatientInfo::kUnitsMetric);  // 16 characters
    EXPECT_EQ(p.GetHeightText(), "1000000.00000000");
    EXPECT_TRUE(rec.Saw("ptntinfo", 599));
}

TEST(PatientInfoTest, EqualityComparesEveryField) {
    const CPatientInfo base = MakePatient();
    CPatientInfo same;
    same = base;
    EXPECT_TRUE(same == base);
    EXPECT_FALSE(same != base);
    for (const TextField& f : TextFields()) {
        CPatientInfo other(base);
        f.setCut(other, f.get(base) + "x", 100000);
        EXPECT_TRUE(other != base) << f.name;
    }
    CPatientInfo other(base);
    other.SetBirthDate(CSDateTime(1975, 4, 13));
    EXPECT_TRUE(other != base);
    other = base;
    other.SetSex(1);
    EXPECT_TRUE(other != base);
    other = base;
    other.SetHeight(1.65, CPatientInfo::kUnitsMetric);  // same value, same text
    EXPECT_TRUE(other == base);
    other.SetHeight(1.66, CPatientInfo::kUnitsMetric);
    EXPECT_TRUE(other != base);
    other = base;
    other.SetWeight(58.0, CPatientInfo::kUnitsMetric);
    EXPECT_TRUE(other != base);
}

// ---------------------------------------------------------------------------
// Archive

TEST(PatientInfoTest, StoresVersion3ByteForByteAndReadsItBack) {
    CPatientInfo p = MakePatient();
    Bytes expected = PatientBodyToComment(3);
    expected.str("1.65000000").str("58.50000000").str("p1").str("p2").str("p3").str("p4").str("p5");
    EXPECT_EQ(Store(p), expected.data);

    const std::vector<BYTE> object = StoreToBytes([&](CArchive& ar) { ar << &p; });
    EXPECT_EQ(object, Bytes().newClass("CPatientInfo").append(expected).data);
    CPatientInfo* loaded = nullptr;
    LoadFromBytes(object, [&](CArchive& ar) { ar >> loaded; });
    std::unique_ptr<CPatientInfo> owner(loaded);
    ASSERT_NE(loaded, nullptr);
    EXPECT_TRUE(*loaded == p);
}

TEST(PatientInfoTest, OlderVersionsLeaveTheFieldsTheyLack) {
    CPatientInfo p;
    p.SetHeight(1.8, CPatientInfo::kUnitsMetric);
    p.SetWeight(90, CPatientInfo::kUnitsMetric);
    p.SetUserFieldP1("old 1");
    p.SetUserFieldP5("old 5");
    // What each version should give: the stored fields, the rest as they were.
    CPatientInfo expected = MakePatient();
    expected.SetHeight(1.8, CPatientInfo::kUnitsMetric);
    expected.SetWeight(90, CPatientInfo::kUnitsMetric);
    expected.SetUserFieldP1("old 1");
    for (int i = 2; i <= 4; ++i) TextFields()[11 + i].setCut(expected, "", 0);
    expected.SetUserFieldP5("old 5");

    LoadFromBytes(PatientBodyToComment(1).data, [&](CArchive& ar) { p.Serialize(ar); });
    EXPECT_TRUE(p == expected);

    Bytes v2 = PatientBodyToComment(2);
    v2.str("1.65000000").str("58.50000000");
    LoadFromBytes(v2.data, [&](CArchive& ar) {
        p.Serialize(ar);
        EXPECT_EQ(ar.GetRemaining(), 0u);
    });
    expected.SetHeight(1.65, CPatientInfo::kUnitsMetric);
    expected.SetWeight(58.5, CPatientInfo::kUnitsMetric);
    EXPECT_TRUE(p == expected);
}

TEST(PatientInfoTest, RefusedAndTruncatedArchivesChangeNothing) {
    CPatientInfo p = MakePatient();
    const CPatientInfo before = p;
    for (unsigned version : {0u, 4u}) {
        try {
            LoadFromBytes(PatientBodyToComment(version).data, [&](CArchive& ar) { p.Serialize(ar); });
            ADD_FAILURE() << "version " << version << " accepted";
        } catch (const CArchiveException& e) {
            EXPECT_EQ(e.m_cause, CArchiveException::badSchema);
        }
        EXPECT_TRUE(p == before);
    }
    CPatientInfo other;
    other.SetLastName("Autre");
    std::vector<BYTE> cut = Store(other);
    cut.resize(cut.size() - 4);
    EXPECT_THROW(LoadFromBytes(cut, [&](CArchive& ar) { p.Serialize(ar); }), CArchiveException);
    EXPECT_TRUE(p == before);
}

// ---------------------------------------------------------------------------
// Exchange record

namespace {

CLightWeightPatientInfo MakeRecord() {
    CLightWeightPatientInfo r;
    r.SetPatientId1("P-77");
    r.SetLastName("Tremblay");
    r.SetFirstName("Éric");
    r.SetBirthDate("1980-02-29");
    r.SetSex(1);
    r.SetAddress("5 av. du Parc");
    r.SetCountry("Canada");
    r.SetPhoneHome("450-555-0000");
    r.SetComment("RAS");
    r.SetUnitSystemCode(2);
    r.SetHeight("6");
    r.SetWeight("70");
    return r;
}

}  // namespace

TEST(PatientInfoTest, InitTakesTheExchangeRecord) {
    CPatientInfo p;
    p.SetUserFieldP2("kept");
    const CLightWeightPatientInfo r = MakeRecord();
    EXPECT_EQ(p.Init(&r), 1);
    EXPECT_EQ(p.GetPatientId1(), "P-77");
    EXPECT_EQ(p.GetFirstName(), "Éric");
    EXPECT_EQ(p.GetBirthDate(), CSDateTime(1980, 2, 29));
    EXPECT_EQ(p.GetSex(), 1);
    EXPECT_EQ(p.GetPhoneHome(), "450-555-0000");
    // Imperial measures of the record, kept in metric.
    EXPECT_EQ(p.GetHeightText(), "1.82880000");
    EXPECT_EQ(p.GetWeightText(), "31.75146590");
    EXPECT_EQ(p.GetUserFieldP2(), "kept");

    CLightWeightPatientInfo odd = MakeRecord();
    odd.SetSex(7);
    odd.SetBirthDate("inconnue");
    EXPECT_EQ(p.Init(&odd), 1);
    EXPECT_EQ(p.GetSex(), 0);
    EXPECT_EQ(p.GetBirthDate(), CSDateTime());
}

TEST(PatientInfoTest, InitReportsTextsThatReachTheirLimit) {
    CPatientInfo p;
    // Exactly at the limit counts: 0 although nothing is cut.
    CLightWeightPatientInfo r = MakeRecord();
    r.SetPatientId1(Accents(25));
    EXPECT_EQ(p.Init(&r), 0);
    EXPECT_EQ(p.GetPatientId1(), Accents(25));
    // Beyond it: cut to the limit.
    r.SetPatientId1(Accents(24));
    r.SetCity("Saint-Jean-sur-Richelieu");
    EXPECT_EQ(p.Init(&r), 0);
    EXPECT_EQ(p.GetPatientId1(), Accents(24));
    EXPECT_EQ(p.GetCity(), "Saint-Jean-sur-R");
    r.SetCity("Laval");
    r.SetComment(std::string(64000, 'c'));
    EXPECT_EQ(p.Init(&r), 0);
    r.SetComment(std::string(63999, 'c'));
    EXPECT_EQ(p.Init(&r), 1);

    // The home-phone check measures the country: a long home phone is cut
    // without being reported.
    r = MakeRecord();
    r.SetPhoneHome(std::string(40, '5'));
    EXPECT_EQ(p.Init(&r), 1);
    EXPECT_EQ(p.GetPhoneHome(), std::string(32, '5'));
    r.SetPhoneHome("1");
    r.SetCountry(Accents(23));  // within the country's limit
    EXPECT_EQ(p.Init(&r), 1);
    r.SetCountry(Accents(33));  // cut to 24 characters
    EXPECT_EQ(p.Init(&r), 0);
    EXPECT_EQ(p.GetCountry(), Accents(24));
}

TEST(PatientInfoTest, LightWeightCopyRoundTrips) {
    CPatientInfo p = MakePatient();
    std::unique_ptr<CLightWeightPatientInfo> r(p.CreateLightWeightCopy());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->GetBirthDate(), "1975-04-12");
    EXPECT_EQ(r->GetCountry(), "Canada");
    EXPECT_EQ(r->GetZip(), "G1R 4P5");
    EXPECT_EQ(r->GetPhoneWork(), "418-555-0199");
    EXPECT_EQ(r->GetUnitSystemCode(), 1u);
    EXPECT_EQ(r->GetHeight(), "1.65000000");
    EXPECT_EQ(r->GetWeight(), "58.50000000");

    CPatientInfo back;
    // User fields are not exchanged: give them the original's values.
    const std::vector<TextField> fields = TextFields();
    for (size_t i = 12; i < 17; ++i) fields[i].setCut(back, fields[i].get(p), 255);
    EXPECT_EQ(back.Init(r.get()), 1);
    EXPECT_TRUE(back == p);

    // An unset birth date goes out as an empty text and comes back unset.
    CPatientInfo blank;
    CLightWeightPatientInfo r2;
    blank.CopyLightWeightInfo(&r2);
    EXPECT_EQ(r2.GetBirthDate(), "");
    CPatientInfo back2;
    back2.SetBirthDate(CSDateTime(2000, 1, 1));
    back2.Init(&r2);
    EXPECT_EQ(back2.GetBirthDate(), CSDateTime());
}
