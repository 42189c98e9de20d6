#include "records/CacheDWO.h"

#include "platform/Assert.h"

IMPLEMENT_DYNAMIC(CCacheDWordToOb, CObject)

CCacheDWordToOb::CCacheDWordToOb(unsigned entries, const CRuntimeClass* objectClass) {
    SF_ASSERT(entries != 0, "CACHEDWO", 19);
    SF_ASSERT(objectClass != nullptr, "CACHEDWO", 20);
    if (entries == 0 || !objectClass) return;
    m_entries.resize(entries);
    for (unsigned i = 0; i < entries; ++i) {
        Entry& e = m_entries[i];
        e.object.reset(objectClass->CreateObject());
        e.next = &m_entries[(i + 1) % entries];
        e.prev = &m_entries[(i + entries - 1) % entries];
    }
    m_head = &m_entries[0];
}

CCacheDWordToOb::~CCacheDWordToOb() = default;

int CCacheDWordToOb::Save(DWORD, CObject*) {
    VhlAssert("CACHEDWO", 102);
    return 0;
}

int CCacheDWordToOb::LookUp(DWORD key, CObject*& object, int forWrite) {
    SF_ASSERT(key != kEmptyKey, "CACHEDWO", 64);
    if (!m_head || key == kEmptyKey) return 0;
    Entry* e = m_head;
    do {
        if (e->key == key) {
            object = e->object.get();
            e->dirty |= forWrite ? 1 : 0;
            return 1;
        }
        e = e->next;
    } while (e != m_head);

    Entry* victim = m_head->prev;
    if (victim->dirty) {
        if (!Save(victim->key, victim->object.get())) return 0;
        victim->dirty = 0;
    }
    if (!forWrite && !Load(key, victim->object.get())) return 0;
    victim->key = key;
    victim->dirty = forWrite ? 1 : 0;
    m_head = victim;
    object = victim->object.get();
    return 1;
}

int CCacheDWordToOb::SaveAll(bool forget) {
    if (!m_head) return 1;
    Entry* e = m_head->prev;
    for (size_t i = 0; i < m_entries.size(); ++i, e = e->prev) {
        if (e->dirty) {
            if (!Save(e->key, e->object.get())) return 0;
            e->dirty = 0;
        }
        if (forget) e->key = kEmptyKey;
    }
    return 1;
}

int CCacheDWordToOb::Flush() { return SaveAll(false); }

int CCacheDWordToOb::Empty() { return SaveAll(true); }
