#include "platform/Object.h"

#include <cstring>
#include <map>
#include <string>

#include "platform/Archive.h"

namespace {
std::map<std::string, const CRuntimeClass*>& Registry() {
    static std::map<std::string, const CRuntimeClass*> registry;
    return registry;
}
}  // namespace

const CRuntimeClass CObject::classCObject = {"CObject", sizeof(CObject), 0xFFFF, nullptr, nullptr};

const CRuntimeClass* CObject::GetRuntimeClass() const { return &classCObject; }

void CObject::Serialize(CArchive&) {}

bool CObject::IsKindOf(const CRuntimeClass* cls) const { return GetRuntimeClass()->IsDerivedFrom(cls); }

CObject* CRuntimeClass::CreateObject() const { return m_pfnCreateObject ? m_pfnCreateObject() : nullptr; }

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
    for (const CRuntimeClass* c = this; c; c = c->m_pBaseClass)
        if (c == base) return true;
    return false;
}

const CRuntimeClass* CRuntimeClass::FromName(const char* className) {
    if (!className) return nullptr;
    auto& reg = Registry();
    auto it = reg.find(className);
    return it == reg.end() ? nullptr : it->second;
}

void CRuntimeClass::Register(const CRuntimeClass* cls) { Registry()[cls->m_lpszClassName] = cls; }
