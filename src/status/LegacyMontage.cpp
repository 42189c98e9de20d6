// Reading the montage reference of the first archive versions.
// Provisional until the montage classes are in this branch: the montage
// class is looked up by name and a file that holds one is refused.
#include "status/LegacyMontage.h"

#include "platform/Assert.h"

CLegacyChannelRef ReadLegacyChannelRef(CArchive& ar, int assertLine) {
    const CRuntimeClass* logical = CRuntimeClass::FromName("CLogicalMontage");
    if (!logical) AfxThrowArchiveException(CArchiveException::badClass, ar.m_strFileName.c_str());
    CObject* montage = ar.ReadReference(logical, true);
    SF_ASSERT(montage != nullptr, "stsitm", assertLine);
    CLegacyChannelRef ref;
    ar >> ref.index;
    return ref;
}
