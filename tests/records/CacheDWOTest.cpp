// The FIFO write-back cache: hits, evictions, write-back and failures.
#include <gtest/gtest.h>

#include <map>

#include "platform/Collections.h"
#include "records/CacheDWO.h"
#include "support/TestSupport.h"

namespace {
// A cache over a map of key -> value, counting the loads and saves.
class CMapCache : public CCacheDWordToOb {
public:
    explicit CMapCache(unsigned n = 32) : CCacheDWordToOb(n, RUNTIME_CLASS(CDWordArray)) {}
    std::map<DWORD, DWORD> store;
    std::vector<DWORD> loads, saves;
    bool failSave = false, failLoad = false;

    DWORD Get(DWORD key) {
        CObject* ob = nullptr;
        if (!LookUp(key, ob, 0)) return 0xDEAD;
        return static_cast<CDWordArray*>(ob)->GetAt(0);
    }
    int Put(DWORD key, DWORD value) {
        CObject* ob = nullptr;
        if (!LookUp(key, ob, 1)) return 0;
        auto* a = static_cast<CDWordArray*>(ob);
        a->SetSize(1);
        a->SetAt(0, value);
        return 1;
    }

protected:
    int Load(DWORD key, CObject* ob) override {
        if (failLoad) return 0;
        loads.push_back(key);
        auto* a = static_cast<CDWordArray*>(ob);
        a->SetSize(1);
        a->SetAt(0, store.count(key) ? store[key] : 0);
        return 1;
    }
    int Save(DWORD key, CObject* ob) override {
        if (failSave) return 0;
        saves.push_back(key);
        store[key] = static_cast<CDWordArray*>(ob)->GetAt(0);
        return 1;
    }
};
}  // namespace

TEST(CacheDWOTest, RepeatedReadLoadsOnce) {
    CMapCache c;
    c.store[5] = 50;
    EXPECT_EQ(c.Get(5), 50u);
    EXPECT_EQ(c.Get(5), 50u);
    EXPECT_EQ(c.loads, std::vector<DWORD>{5});
    EXPECT_EQ(c.GetSize(), 32u);
}

TEST(CacheDWOTest, ReplacementIsFirstInFirstOutEvenAfterHits) {
    CMapCache c;
    for (DWORD k = 0; k < 32; ++k) c.Get(k);
    c.Get(0);  // a hit does not protect the first entry
    c.Get(32);  // evicts key 0
    c.Get(0);
    EXPECT_EQ(c.loads.size(), 34u);
    EXPECT_EQ(c.loads.back(), 0u);
}

TEST(CacheDWOTest, WritesReachTheStoreOnEvictionOrFlush) {
    CMapCache c(2);
    EXPECT_TRUE(c.Put(1, 10));
    EXPECT_TRUE(c.loads.empty());  // writing never loads
    EXPECT_TRUE(c.Put(2, 20));
    EXPECT_TRUE(c.saves.empty());
    c.Get(3);  // evicts dirty key 1
    EXPECT_EQ(c.saves, std::vector<DWORD>{1});
    EXPECT_EQ(c.store[1], 10u);
    EXPECT_TRUE(c.Flush());
    EXPECT_EQ(c.store[2], 20u);
    EXPECT_TRUE(c.Flush());  // nothing dirty any more
    EXPECT_EQ(c.saves.size(), 2u);
}

TEST(CacheDWOTest, FailedSaveKeepsTheEntryAndFailsTheLookUp) {
    CMapCache c(1);
    c.Put(1, 11);
    c.failSave = true;
    EXPECT_EQ(c.Get(2), 0xDEADu);
    EXPECT_FALSE(c.Flush());
    c.failSave = false;
    EXPECT_EQ(c.Get(1), 11u);  // still cached, still dirty
    EXPECT_TRUE(c.Flush());
    EXPECT_EQ(c.store[1], 11u);
}

TEST(CacheDWOTest, EmptySavesThenForgets) {
    CMapCache c;
    c.Put(7, 70);
    EXPECT_TRUE(c.Empty());
    EXPECT_EQ(c.store[7], 70u);
    c.Get(7);
    EXPECT_EQ(c.loads, std::vector<DWORD>{7});
}

TEST(CacheDWOTest, MisuseAsserts) {
    testsupport::AssertRecorder asserts;
    CMapCache c;
    CObject* ob = nullptr;
    EXPECT_FALSE(c.LookUp(CCacheDWordToOb::kEmptyKey, ob, 0));
    EXPECT_TRUE(asserts.Saw("CACHEDWO", 64));
    CMapCache none(0);
    EXPECT_TRUE(asserts.Saw("CACHEDWO", 19));
    EXPECT_FALSE(none.LookUp(1, ob, 0));
}
