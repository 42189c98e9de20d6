// A small referential EEG montage shared by the montage tests: Fp1, F3, C3,
// P3 and Ecg recorded against A1 at 256 Hz (64 samples per record), plus a
// 3 x 2 grid "[G]" and a depth sensor.
#pragma once

#include "montage/mtgs.h"

namespace montagetest {

inline void AddStd(CPhysicalMontage& pm, const char* name) {
    pm.AddElectrode(name, CPhysicalMontage::GetStdElecPosition(name));
}

inline CElecGroup* NewGrid(const char* name, int rows, int cols) {
    int t[18][8] = {};
    for (auto& row : t)
        for (int& v : row) v = 1;
    return new CElecGroup(name, 0, rows, cols, &t, 2.0, 1.0, 255, 1, 1);
}

// Builds the physical montage and one recording montage "Ref A1" with the
// channels Fp1-A1, F3-A1, C3-A1, P3-A1 (EEG, µV, 256 Hz) and Ecg-A1 (ECG, mV,
// 128 Hz).
inline CRecordingMontage* BuildReferential(CPhysicalMontage& pm) {
    pm.SetMontageName("10-20");
    for (const char* n : {"Fp1", "F3", "C3", "P3", "A1", "Ecg"}) AddStd(pm, n);
    pm.AddElectrode(NewGrid("[G]", 3, 2));
    pm.AddElectrode("Hip", CPolar3D(0.5, 60.0, 200.0));
    CRecordingMontage* rec = pm.CreateRecordingMontage();
    rec->SetMontageName("Ref A1");
    rec->SetBaseFrequency(256);
    for (const char* n : {"Fp1", "F3", "C3", "P3"}) rec->AddChannel(n, "A1", 1, 1, 256, 0x0000FF, 0, "");
    rec->AddChannel("Ecg", "A1", 8, 2, 128, 0x00FF00, 1, "notch");
    return rec;
}

}  // namespace montagetest
