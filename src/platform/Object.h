// Serializable object base with run-time class information and dynamic
// creation by class name, as the archive format needs it.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Types.h"

class CArchive;
class CObject;

struct CRuntimeClass {
    const char* m_lpszClassName;
    int m_nObjectSize;
    UINT m_wSchema;                     // 0xFFFF for classes that are not serializable
    CObject* (*m_pfnCreateObject)();    // null for abstract classes
    const CRuntimeClass* m_pBaseClass;  // null for CObject

    CObject* CreateObject() const;
    bool IsDerivedFrom(const CRuntimeClass* base) const;
    bool IsSerializable() const { return m_wSchema != 0xFFFF; }

    // Serializable classes register themselves at load time so that an
    // archive can re-create them from the name it holds.
    static const CRuntimeClass* FromName(const char* className);
    static void Register(const CRuntimeClass* cls);
};

class CObject {
public:
    virtual ~CObject() = default;
    virtual const CRuntimeClass* GetRuntimeClass() const;
    virtual void Serialize(CArchive& ar);

    bool IsKindOf(const CRuntimeClass* cls) const;
    bool IsSerializable() const { return GetRuntimeClass()->IsSerializable(); }

    static const CRuntimeClass classCObject;

protected:
    CObject() = default;
    CObject(const CObject&) = default;
    CObject& operator=(const CObject&) = default;
};

#define RUNTIME_CLASS(class_name) (&class_name::class##class_name)

// Helper that registers a class by name during static initialisation.
struct CClassRegistrar {
    explicit CClassRegistrar(const CRuntimeClass* cls) { CRuntimeClass::Register(cls); }
};

#define DECLARE_DYNAMIC(class_name)                              \
public:                                                          \
    static const CRuntimeClass class##class_name;                \
    const CRuntimeClass* GetRuntimeClass() const override;       \
    static const CRuntimeClass* GetThisClass() { return RUNTIME_CLASS(class_name); }

#define DECLARE_DYNCREATE(class_name) \
    DECLARE_DYNAMIC(class_name)       \
    static CObject* CreateObject();

#define DECLARE_SERIAL(class_name) DECLARE_DYNCREATE(class_name)

#define SF_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, schema, pfnNew)              \
    const CRuntimeClass class_name::class##class_name = {#class_name, sizeof(class_name), \
                                                         schema, pfnNew,                  \
                                                         RUNTIME_CLASS(base_class_name)}; \
    const CRuntimeClass* class_name::GetRuntimeClass() const { return RUNTIME_CLASS(class_name); }

#define IMPLEMENT_DYNAMIC(class_name, base_class_name) \
    SF_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, 0xFFFF, nullptr)

#define IMPLEMENT_DYNCREATE(class_name, base_class_name)                    \
    CObject* class_name::CreateObject() { return new class_name; }          \
    SF_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, 0xFFFF, class_name::CreateObject)

// Serializable classes: dynamic creation plus registration by name.  An
// abstract serializable class (one that is only ever read through a derived
// class) uses IMPLEMENT_SERIAL_ABSTRACT.
#define IMPLEMENT_SERIAL(class_name, base_class_name, wSchema)               \
    CObject* class_name::CreateObject() { return new class_name; }           \
    SF_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, class_name::CreateObject) \
    static const CClassRegistrar s_register##class_name(RUNTIME_CLASS(class_name));

#define IMPLEMENT_SERIAL_ABSTRACT(class_name, base_class_name, wSchema) \
    SF_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, nullptr) \
    static const CClassRegistrar s_register##class_name(RUNTIME_CLASS(class_name));

// Abstract classes declare DECLARE_DYNAMIC and use IMPLEMENT_SERIAL_ABSTRACT
// when they must be known to the archive by name.
#pragma GCC visibility pop
