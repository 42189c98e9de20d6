// Filter definitions: item uniqueness, selection, filtered formulas, the
// archive form byte by byte and "default.flt" in the user's folder.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "formula/RFMT.h"
#include "formula/filters.h"
#include "support/TestSupport.h"

using testsupport::Bytes;

namespace {

// The user's folder points to a fresh temporary folder during a test.
class UserDir {
public:
    UserDir() {
        const char* old = std::getenv("SIGFILE_USER_DIR");
        hadOld_ = old != nullptr;
        if (old) old_ = old;
        setenv("SIGFILE_USER_DIR", dir.path.c_str(), 1);
    }
    ~UserDir() {
        if (hadOld_)
            setenv("SIGFILE_USER_DIR", old_.c_str(), 1);
        else
            unsetenv("SIGFILE_USER_DIR");
    }
    std::string File() const { return dir / "default.flt"; }
    void Write(const std::vector<BYTE>& bytes) const {
        std::ofstream out(File(), std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    std::vector<BYTE> Read() const {
        std::ifstream in(File(), std::ios::binary);
        return std::vector<BYTE>(std::istreambuf_iterator<char>(in), {});
    }
    testsupport::TempDir dir;

private:
    bool hadOld_ = false;
    std::string old_;
};

// Two filters: "EEG" (band-pass, two items) and "EMG" (high-pass, none).
void FillSample(CFilterSet& set) {
    CFilter* eeg = set.AddNew();
    eeg->SetName("EEG");
    eeg->SetFilterType(3);
    ASSERT_EQ(eeg->Add(256, 0, "", 1, 4, 0.5f, 70.0f), 1);
    ASSERT_EQ(eeg->Add(256, 1, "Fp1", 2, 31, 1.0f, 35.0f), 1);
    CFilter* emg = set.AddNew();
    emg->SetName("EMG");
    emg->SetFilterType(2);
}

// The sample set as the archive holds it, built from the file's layout.
Bytes SampleBytes() {
    Bytes b;
    b.u16(3).u16(2);                         // version, filter count
    b.newClass("CFilter").str("EEG").u16(3).u16(2);
    b.u16(256).u16(0).str("").u16(1).u16(4).f32(0.5f).f32(70.0f);
    b.u16(256).u16(1).str("Fp1").u16(2).u16(31).f32(1.0f).f32(35.0f);
    b.u16(0x8001).str("EMG").u16(2).u16(0);  // known class, pid 1
    return b;
}

TEST(FiltersTest, ItemsAreUniqueByFrequencyTypeAndLabel) {
    CFilter f;
    EXPECT_EQ(f.Add(256, 1, "Fp1", 1, 4, 0.5f, 70.0f), 1);
    EXPECT_EQ(f.Add(256, 1, "", 1, 2, 0.5f, 70.0f), 1);
    EXPECT_EQ(f.Add(200, 1, "Fp1", 2, 3, 0.5f, 70.0f), 1);
    // The same key with the label in another case: refused, nothing changes.
    EXPECT_EQ(f.Add(256, 1, "FP1", 2, 9, 1.0f, 2.0f), 0);
    EXPECT_EQ(f.Insert(0, 256, 1, "fp1", 2, 9, 1.0f, 2.0f), 0);
    ASSERT_EQ(f.GetNumItems(), 3u);
    EXPECT_EQ(f.GetTraceLabel(0), "Fp1");
    EXPECT_EQ(f.GetFilterOrder(0), 4u);
    EXPECT_EQ(f.GetTraceLabel(1), "");
    // Replacing an item by itself (same key) is allowed; taking another's is not.
    EXPECT_EQ(f.Replace(0, 256, 1, "FP1", 2, 8, 1.5f, 40.0f), 1);
    EXPECT_EQ(f.GetTraceLabel(0), "FP1");
    EXPECT_EQ(f.GetFilterClass(0), 2u);
    EXPECT_EQ(f.GetFilterCut1(0), 1.5f);
    EXPECT_EQ(f.GetFilterCut2(0), 40.0f);
    EXPECT_EQ(f.Replace(2, 256, 1, "", 1, 1, 0, 0), 0);
    EXPECT_EQ(f.GetTraceFreq(2), 200u);
    // Insert places the item at the index.
    EXPECT_EQ(f.Insert(1, 500, 0, "", 1, 2, 0, 0), 1);
    EXPECT_EQ(f.GetTraceFreq(1), 500u);
    EXPECT_EQ(f.GetNumItems(), 4u);
    EXPECT_EQ(f.Delete(1), 1);
    EXPECT_EQ(f.GetTraceFreq(1), 256u);
    EXPECT_EQ(f.GetTraceType(1), 1u);

    testsupport::AssertRecorder asserts;
    EXPECT_EQ(f.Delete(3), 0);
    EXPECT_THROW(f.GetTraceFreq(3), CInvalidArgException);
    EXPECT_EQ(f.Insert(9, 1, 1, "", 1, 1, 0, 0), 0);
    EXPECT_EQ(f.GetNumItems(), 3u);
    ASSERT_FALSE(asserts.hits.empty());
    for (const auto& hit : asserts.hits) EXPECT_EQ(hit.first, "filters");
}

TEST(FiltersTest, SelectionPrefersLabelThenTypeThenAnyType) {
    CFilter f;
    f.Add(256, 0, "", 1, 1, 0, 0);      // 0: any type at 256 Hz
    f.Add(256, 1, "", 1, 2, 0, 0);      // 1: type 1
    f.Add(256, 1, "Cz", 1, 3, 0, 0);    // 2: type 1, label Cz
    f.Add(200, 2, "", 1, 4, 0, 0);      // 3: type 2 at 200 Hz
    f.Add(256, 28, "", 1, 5, 0, 0);     // 4: type 28 (never used)
    f.Add(256, 0, "Pz", 1, 6, 0, 0);    // 5: any type, labelled: never a fallback
    EXPECT_EQ(f.GetFilterSelection(256, 1, "cz"), 2u);
    EXPECT_EQ(f.GetFilterSelection(256, 1, "O1"), 1u);
    EXPECT_EQ(f.GetFilterSelection(256, 2, "O1"), 0u);
    EXPECT_EQ(f.GetFilterSelection(256, 0, "PZ"), 5u);
    EXPECT_EQ(f.GetFilterSelection(256, 3, "Pz"), 0u);
    EXPECT_EQ(f.GetFilterSelection(200, 2, ""), 3u);
    EXPECT_EQ(f.GetFilterSelection(200, 1, "Cz"), CFilter::noSelection);  // no item for 200 Hz type 1
    EXPECT_EQ(f.GetFilterSelection(512, 1, "Cz"), CFilter::noSelection);  // another frequency never applies
    EXPECT_EQ(f.GetFilterSelection(256, 28, ""), CFilter::noSelection);
    EXPECT_EQ(f.GetFilterSelection(256, 17, "Cz"), CFilter::noSelection);
    EXPECT_EQ(CFilter::noSelection, 0xFFFFFFFFu);
}

TEST(FiltersTest, FilteredFormulas) {
    CFilter f;
    f.SetFilterType(3);
    f.Add(256, 0, "", CFilter::classIIR, 4, 0.5f, 35.0f);
    f.Add(256, 1, "", CFilter::classFIR, 31, 1.0f, 35.25f);
    f.Add(256, 2, "", 3, 1, 0, 0);  // no such class
    EXPECT_EQ(f.GetFilteredFormula("FP1-F3", 256, 5, "X"), "IIR(FP1-F3,3,4,0.500000,35.000000)");
    EXPECT_EQ(f.GetFilteredFormula("A", 256, 1, "X"), "FIR(A,3,31,1.000000,35.250000)");
    EXPECT_EQ(f.GetFilteredFormula("FP1-F3", 256, 28, "X"), "FP1-F3");
    EXPECT_EQ(f.GetFilteredFormula("FP1-F3", 128, 1, "X"), "FP1-F3");
    testsupport::AssertRecorder asserts;
    EXPECT_EQ(f.GetFilteredFormula("B", 256, 2, ""), "B");
    ASSERT_EQ(asserts.hits.size(), 1u);
    EXPECT_EQ(asserts.hits[0].first, "filters");

    // Filters wrap one another and the result compiles.
    CFilter notch;
    notch.SetFilterType(4);
    notch.Add(256, 0, "", CFilter::classIIR, 2, 48, 52);
    const std::string text = notch.GetFilteredFormula(f.GetFilteredFormula("FP1-F3", 256, 5, "").c_str(), 256, 5, "");
    EXPECT_EQ(text, "IIR(IIR(FP1-F3,3,4,0.500000,35.000000),4,2,48.000000,52.000000)");
    CCReformater r;
    r.AddInput("FP1", "", 64, 256, 5, 1);
    r.AddInput("F3", "", 64, 256, 5, 1);
    r.AddOutput("O", text.c_str());
    EXPECT_EQ(r.Compile(), 1);
}

TEST(FiltersTest, AssignmentCopiesEverything) {
    CFilterSet set;
    FillSample(set);
    CFilterSet copy;
    copy.AddNew()->SetName("old");
    copy = set;
    set[0].SetName("changed");
    set[0].Delete(0);
    ASSERT_EQ(copy.GetNumFilters(), 2u);
    EXPECT_EQ(copy[0].GetName(), "EEG");
    EXPECT_EQ(copy[0].GetFilterType(), 3u);
    EXPECT_EQ(copy[0].GetNumItems(), 2u);
    EXPECT_EQ(copy[1].GetName(), "EMG");
    CFilter single;
    single = copy[0];
    EXPECT_EQ(single.GetTraceLabel(1), "Fp1");

    testsupport::AssertRecorder asserts;
    EXPECT_THROW(copy[2], CInvalidArgException);
    EXPECT_EQ(copy.DeleteAt(2), 0);
    EXPECT_EQ(copy.DeleteAt(0), 1);
    EXPECT_EQ(copy[0].GetName(), "EMG");
    copy.DeleteAll();
    EXPECT_EQ(copy.GetNumFilters(), 0u);
}

TEST(FiltersTest, ArchiveFormByteByByte) {
    CFilterSet set;
    FillSample(set);
    const auto bytes = testsupport::StoreToBytes([&](CArchive& ar) { set.Serialize(ar); });
    EXPECT_EQ(bytes, SampleBytes().data);

    CFilterSet back;
    testsupport::LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
    ASSERT_EQ(back.GetNumFilters(), 2u);
    EXPECT_EQ(back[0].GetName(), "EEG");
    EXPECT_EQ(back[0].GetFilterType(), 3u);
    ASSERT_EQ(back[0].GetNumItems(), 2u);
    EXPECT_EQ(back[0].GetTraceFreq(1), 256u);
    EXPECT_EQ(back[0].GetTraceType(1), 1u);
    EXPECT_EQ(back[0].GetTraceLabel(1), "Fp1");
    EXPECT_EQ(back[0].GetFilterClass(1), 2u);
    EXPECT_EQ(back[0].GetFilterOrder(1), 31u);
    EXPECT_EQ(back[0].GetFilterCut1(1), 1.0f);
    EXPECT_EQ(back[0].GetFilterCut2(1), 35.0f);
    EXPECT_EQ(back[1].GetName(), "EMG");
    EXPECT_EQ(back[1].GetNumItems(), 0u);

    // A filter by itself, through the object archive.
    const auto one = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(&set[1]); });
    EXPECT_EQ(one, Bytes().newClass("CFilter").str("EMG").u16(2).u16(0).data);
    testsupport::LoadFromBytes(one, [&](CArchive& ar) {
        std::unique_ptr<CObject> ob(ar.ReadObject(RUNTIME_CLASS(CFilter)));
        ASSERT_TRUE(ob && ob->IsKindOf(RUNTIME_CLASS(CFilter)));
        EXPECT_EQ(static_cast<CFilter*>(ob.get())->GetFilterType(), 2u);
    });
}

TEST(FiltersTest, DefinitionsFileIsWrittenAndReadBack) {
    UserDir user;
    CFilterSet set;
    FillSample(set);
    ASSERT_EQ(set.Update(), 1);
    EXPECT_EQ(CFilterSet::GetFileName(), user.File());
    EXPECT_EQ(user.Read(), SampleBytes().data);

    CFilterSet back;
    back.AddNew()->SetName("dropped by the refresh");
    ASSERT_EQ(back.Refresh(), 1);
    ASSERT_EQ(back.GetNumFilters(), 2u);
    EXPECT_EQ(back[0].GetTraceLabel(1), "Fp1");
    EXPECT_EQ(back[1].GetName(), "EMG");

    // Writing again replaces the file's contents.
    back.DeleteAt(0);
    ASSERT_EQ(back.Update(), 1);
    EXPECT_EQ(user.Read(), Bytes().u16(3).u16(1).newClass("CFilter").str("EMG").u16(2).u16(0).data);
}

TEST(FiltersTest, MissingOrForeignVersionsLeaveAnEmptySet) {
    UserDir user;
    CFilterSet set;
    set.AddNew();
    EXPECT_EQ(set.Refresh(), 0);  // no file
    EXPECT_EQ(set.GetNumFilters(), 0u);

    for (unsigned version : {0u, 2u, 4u}) {
        auto bytes = SampleBytes().data;
        bytes[0] = static_cast<BYTE>(version);
        user.Write(bytes);
        EXPECT_EQ(set.Refresh(), 0) << version;
        EXPECT_EQ(set.GetNumFilters(), 0u);
    }
    // The archive layer refuses the version with the bad-schema cause.
    auto bytes = SampleBytes().data;
    bytes[0] = 2;
    try {
        testsupport::LoadFromBytes(bytes, [&](CArchive& ar) { set.Serialize(ar); });
        ADD_FAILURE() << "version 2 accepted";
    } catch (const CArchiveException& e) {
        EXPECT_EQ(e.m_cause, CArchiveException::badSchema);
    }
}

TEST(FiltersTest, TruncatedFileKeepsTheFiltersReadBeforeTheCut) {
    UserDir user;
    const auto full = SampleBytes().data;
    // The first filter ends where the second's class tag starts.
    const size_t firstEnd = full.size() - 10;
    for (size_t cut = 0; cut < full.size(); ++cut) {
        user.Write(std::vector<BYTE>(full.begin(), full.begin() + static_cast<long>(cut)));
        CFilterSet set;
        EXPECT_EQ(set.Refresh(), 0) << cut;
        EXPECT_EQ(set.GetNumFilters(), cut >= firstEnd ? 1u : 0u) << cut;
        set.AddNew()->Add(1, 1, "", 1, 1, 0, 0);  // still usable
    }
}

TEST(FiltersTest, DamagedFilesNeverCrashAndLeaveAUsableSet) {
    UserDir user;
    std::mt19937 rng(7);
    const auto full = SampleBytes().data;
    for (int i = 0; i < 120; ++i) {
        std::vector<BYTE> bytes = full;
        // Flip a few bytes, sometimes with huge counts, sometimes pure noise.
        if (i % 4 == 0) {
            bytes.assign(rng() % 64, 0);
            for (auto& b : bytes) b = static_cast<BYTE>(rng());
        } else {
            for (int k = 0; k < 1 + i % 3; ++k) bytes[rng() % bytes.size()] = static_cast<BYTE>(rng());
        }
        user.Write(bytes);
        CFilterSet set;
        const int ok = set.Refresh();
        EXPECT_TRUE(ok == 0 || ok == 1);
        EXPECT_LE(set.GetNumFilters(), 2u);
        set.AddNew()->SetName("usable");
        EXPECT_EQ(set[set.GetNumFilters() - 1].GetName(), "usable");
    }
    // A count far beyond the file is refused before anything is allocated.
    user.Write(Bytes().u16(3).u16(0xFFFF).u32(0x7FFFFFFF).data);
    CFilterSet set;
    EXPECT_EQ(set.Refresh(), 0);
    user.Write(Bytes().u16(3).u16(1).newClass("CFilter").str("X").u16(1).u16(0xFFFF).u32(0x10000000).data);
    EXPECT_EQ(set.Refresh(), 0);
    EXPECT_EQ(set.GetNumFilters(), 0u);
}

TEST(FiltersTest, SharedInstanceIsMadeOnceAndRefreshedOnce) {
    UserDir user;
    CFilterSet& first = CFilterSet::GetInstance();
    const UINT count = first.GetNumFilters();
    // A file appearing later is not read again by GetInstance.
    CFilterSet other;
    FillSample(other);
    ASSERT_EQ(other.Update(), 1);
    CFilterSet& second = CFilterSet::GetInstance();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(second.GetNumFilters(), count);
}

}  // namespace
