// A fixed-size write-back cache from a 32-bit key to an object.
//
// The entries form one circular ring; the head is the entry filled most
// recently.  A hit does not move anything; a miss takes the entry before the
// head (the least recently filled), saves it first when it is dirty, loads
// the new key into it unless the caller is about to overwrite it, and makes
// it the head.  Replacement is therefore first-in first-out.  The objects
// are created once, from the run-time class given at construction, and
// reused for every key their entry holds: a look-up allocates nothing.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "platform/Object.h"

class CCacheDWordToOb : public CObject {
    DECLARE_DYNAMIC(CCacheDWordToOb)
public:
    static constexpr DWORD kEmptyKey = 0xFFFFFFFF;

    CCacheDWordToOb(unsigned entries, const CRuntimeClass* objectClass);
    ~CCacheDWordToOb() override;
    CCacheDWordToOb(const CCacheDWordToOb&) = delete;
    CCacheDWordToOb& operator=(const CCacheDWordToOb&) = delete;

    // Hands out the object of key, loading it on a miss unless forWrite; a
    // look-up for writing marks the entry dirty.  0 when a save or load fails
    // (the cache is then as it was).
    int LookUp(DWORD key, CObject*& object, int forWrite);
    // Saves every dirty entry, oldest first; 0 at the first failure.
    int Flush();
    // Flush, and forget every key.
    int Empty();
    unsigned GetSize() const { return static_cast<unsigned>(m_entries.size()); }

protected:
    // Fills object with the data of key.  Must leave the object unchanged
    // when it fails, since the entry keeps its old key.
    virtual int Load(DWORD key, CObject* object) = 0;
    // Writes object back as key.  The base class cannot save: it asserts.
    virtual int Save(DWORD key, CObject* object);

private:
    struct Entry {
        DWORD key = kEmptyKey;
        std::unique_ptr<CObject> object;
        int dirty = 0;
        Entry* prev = nullptr;
        Entry* next = nullptr;
    };
    int SaveAll(bool forget);

    std::vector<Entry> m_entries;
    Entry* m_head = nullptr;
};
#pragma GCC visibility pop
