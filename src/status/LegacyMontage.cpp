// Reading the montage reference of the first archive versions.  The montage
// object stays with the archive (it is not part of the description any
// more); only the label of the channel is kept.
#include "status/LegacyMontage.h"

#include "montage/mtgs.h"
#include "platform/Assert.h"

CLegacyChannelRef ReadLegacyChannelRef(CArchive& ar, int assertLine) {
    auto* montage = static_cast<CLogicalMontage*>(ar.ReadReference(RUNTIME_CLASS(CLogicalMontage), true));
    SF_ASSERT(montage != nullptr, "stsitm", assertLine);
    CLegacyChannelRef ref;
    ar >> ref.index;
    if (montage && ref.index >= 0 && static_cast<unsigned>(ref.index) < montage->GetNumChannels())
        ref.name = montage->GetLabel(static_cast<unsigned>(ref.index));
    return ref;
}
