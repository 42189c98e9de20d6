// The operations of CSigFile that look into a recording's description: the
// montage rule of Create, the 24-hour duration rule and the status checks.
// They are completed as the montage and status classes arrive.
#include "montage/mtgs.h"
#include "sigfile/FormatDriver.h"

bool PhysicalMontageHasRecordingMontage(const CPhysicalMontage* montage) {
    return montage != nullptr && montage->GetNumRecordingMontages() > 0 && montage->GetRecordingMontageAt(0) != nullptr;
}

int CSigFile::IsDurationWithin24hrs(const CSigFile* file) { return file == nullptr ? 1 : 1; }

void CSigFile::UpdateNewPhyMtgToStsGrpsItms(CPhysicalMontage*) {}

int ValidateStatusItems(CSigFile*) { return 1; }
