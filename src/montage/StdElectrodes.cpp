// The standard electrode table, the head map list and the names of the trace
// type and unit codes.
#include <cstring>

#include "montage/mtgs.h"
#include "platform/Strings.h"

namespace {

struct StdElectrode {
    const char* name;
    unsigned short type;
    unsigned short unit;
    double radius;
    double inclination;
    double azimuth;
};

// Scalp positions on the unit sphere; sensors without a head position have
// radius -1.  The ear electrodes keep an angle although they are off the map.
#define SCALP(n, incl, azim) {n, 1, 1, 1.0, incl, azim}
#define OFFMAP(n, t, u) {n, t, u, -1.0, 0.0, 0.0}

constexpr StdElectrode kStdElectrodes[] = {
    OFFMAP("Loc", 7, 1), OFFMAP("Roc", 7, 1), OFFMAP("Sp1", 1, 1), OFFMAP("Sp2", 1, 1),
    SCALP("Nz", 112.5, 90), SCALP("Fp1", 90, 108), SCALP("Fpz", 90, 90), SCALP("Fp2", 90, 72),
    SCALP("AF7", 90, 126), SCALP("AF3", 76.8, 118), SCALP("AFz", 67.5, 90), SCALP("AF4", 76.8, 62),
    SCALP("AF8", 90, 54), SCALP("F9", 103.7, 149.4), SCALP("F7", 90, 144), SCALP("F5", 76.9, 136.9),
    SCALP("F3", 64, 129.1), SCALP("F1", 52.9, 112), SCALP("Fz", 45, 90), SCALP("F2", 52.9, 68),
    SCALP("F4", 64, 50.9), SCALP("F6", 76.9, 43.1), SCALP("F8", 90, 36), SCALP("F10", 103.7, 30.6),
    SCALP("FT9", 108.7, 164.3), SCALP("FT7", 90, 162), SCALP("FC5", 71, 157.9), SCALP("FC3", 51.7, 151.3),
    SCALP("FC1", 33.4, 132.7), SCALP("FCz", 22.5, 90), SCALP("FC2", 33.4, 47.3), SCALP("FC4", 51.7, 28.7),
    SCALP("FC6", 71, 22.1), SCALP("FT8", 90, 18), SCALP("FT10", 108.7, 15.7),
    {"A1", 1, 1, -1.0, 120, 180},
    SCALP("T9", 112.5, 180), SCALP("T3", 90, 180), SCALP("C5", 62.5, 180), SCALP("C3", 45, 180),
    SCALP("C1", 22.5, 180), SCALP("Cz", 0, 0), SCALP("C2", 22.5, 0), SCALP("C4", 45, 0), SCALP("C6", 62.5, 0),
    SCALP("T4", 90, 0), SCALP("T10", 112.5, 0),
    {"A2", 1, 1, -1.0, 120, 0},
    SCALP("TP9", 108.7, 195.7), SCALP("TP7", 90, 198), SCALP("CP5", 71, 202.1), SCALP("CP3", 51.7, 208.7),
    SCALP("CP1", 33.4, 227.3), SCALP("CPz", 22.5, 270), SCALP("CP2", 33.4, 312.7), SCALP("CP4", 51.7, 331.3),
    SCALP("CP6", 71, 337.9), SCALP("TP8", 90, 342), SCALP("TP10", 108.7, 344.3), SCALP("P9", 103.7, 210.6),
    SCALP("T5", 90, 216), SCALP("P5", 76.9, 223.1), SCALP("P3", 64, 230.9), SCALP("P1", 52.9, 248),
    SCALP("Pz", 45, 270), SCALP("P2", 52.9, 292), SCALP("P4", 64, 309.1), SCALP("P6", 76.9, 316.9),
    SCALP("T6", 90, 324), SCALP("P10", 103.7, 329.4), SCALP("PO7", 90, 234), SCALP("PO3", 76.8, 242),
    SCALP("POz", 67.5, 270), SCALP("PO4", 76.8, 298), SCALP("PO8", 90, 306), SCALP("O1", 90, 252),
    SCALP("Oz", 90, 270), SCALP("O2", 90, 288), SCALP("Iz", 112.5, 270),
    OFFMAP("REF", 1, 1), OFFMAP("T1", 1, 1), OFFMAP("T2", 1, 1),
    SCALP("P7", 90, 216), SCALP("T8", 90, 0), SCALP("T7", 90, 180), SCALP("P8", 90, 324),
    OFFMAP("Chin", 3, 1), OFFMAP("Rleg", 3, 1), OFFMAP("Lleg", 3, 1), OFFMAP("Legs", 3, 1),
    OFFMAP("EMG1a", 3, 1), OFFMAP("EMG1b", 3, 1), OFFMAP("EMG2a", 3, 1), OFFMAP("EMG2b", 3, 1),
    OFFMAP("EMG3a", 3, 1), OFFMAP("EMG3b", 3, 1), OFFMAP("EMG4a", 3, 1), OFFMAP("EMG4b", 3, 1),
    OFFMAP("Eref26", 3, 1), OFFMAP("Eref27", 3, 1), OFFMAP("Eref28", 3, 1), OFFMAP("Eref29", 3, 1),
    OFFMAP("Eref30", 3, 1), OFFMAP("Eref31", 3, 1), OFFMAP("Eref32", 3, 1), OFFMAP("Eref33", 3, 1),
    OFFMAP("Ebip1", 3, 1), OFFMAP("TibLa", 3, 1), OFFMAP("TibLb", 3, 1), OFFMAP("TibRa", 3, 1),
    OFFMAP("TibRb", 3, 1), OFFMAP("Kinn", 3, 1),
    OFFMAP("Nasl", 23, 1), OFFMAP("Oral", 23, 1), OFFMAP("Flow", 23, 1), OFFMAP("Flow1", 23, 1),
    OFFMAP("Flow2", 23, 1), OFFMAP("Flow3", 23, 1), OFFMAP("Euni1", 23, 1), OFFMAP("Euni2", 23, 1),
    OFFMAP("Euni3", 23, 1),
    OFFMAP("Thor", 24, 1), OFFMAP("Abdo", 24, 1), OFFMAP("Abd", 24, 1),
    OFFMAP("Pap", 18, 5), OFFMAP("AP1", 18, 5), OFFMAP("AP2", 18, 5), OFFMAP("AP3", 18, 5),
    OFFMAP("Ecg", 8, 2), OFFMAP("Ps", 17, 2), OFFMAP("PHOT", 17, 16),
    OFFMAP("Mic", 29, 1), OFFMAP("Ebip2", 29, 1), OFFMAP("Temp", 21, 10),
    OFFMAP("SpO2", 5, 4), OFFMAP("OXY", 5, 4), OFFMAP("HR", 25, 12), OFFMAP("PRate", 25, 12),
    OFFMAP("Bpos", 22, 2), OFFMAP("POS", 22, 2), OFFMAP("Light", 27, 15), OFFMAP("MARK", 28, 16),
    OFFMAP("PLTH", 32, 16), OFFMAP("PLETH", 32, 16), OFFMAP("Cb1", 9, 1), OFFMAP("Cb2", 9, 1),
    OFFMAP("DC1", 9, 2), OFFMAP("DC2", 9, 2), OFFMAP("DC3", 9, 2), OFFMAP("DC4", 9, 2),
    OFFMAP("DC5", 9, 2), OFFMAP("DC6", 9, 2), OFFMAP("DC7", 9, 2), OFFMAP("DC8", 9, 2),
    OFFMAP("DC9", 9, 2), OFFMAP("DC10", 9, 2), OFFMAP("DC11", 9, 2), OFFMAP("DC12", 9, 2),
};
#undef SCALP
#undef OFFMAP

constexpr unsigned kNumStd = sizeof(kStdElectrodes) / sizeof(kStdElectrodes[0]);
static_assert(kNumStd == 158, "the standard electrode table has 158 rows");

constexpr const char* kHeadMap[] = {
    "T1", "T2", "T3", "T4", "T5", "T6", "T9", "T10", "Fp1", "Fpz", "Fp2", "Fz", "F3", "F4", "F7",
    "F8", "F9", "F10", "C3", "Cz", "C4", "Loc", "Roc", "Sp1", "Sp2", "Pg1", "Pg2", "P3", "Pz", "P4",
    "P9", "P10", "O1", "Oz", "O2", "A1", "A2", "Cb1", "Cb2", "T7", "T8", "P7", "P8",
};
static_assert(sizeof(kHeadMap) / sizeof(kHeadMap[0]) == 43, "the head map list has 43 names");

const StdElectrode* FindStd(const char* name) {
    if (!name) return nullptr;
    for (const StdElectrode& e : kStdElectrodes)
        if (EqualsNoCase(e.name, name)) return &e;
    return nullptr;
}

const StdElectrode* StdAt(unsigned index) { return index < kNumStd ? &kStdElectrodes[index] : nullptr; }

CPolar3D PositionOf(const StdElectrode* e) {
    return e ? CPolar3D(e->radius, e->inclination, e->azimuth) : CPolar3D(-1.0, 0.0, 0.0);
}

}  // namespace

const char* VhlGetTraceTypeName(unsigned code) {
    switch (code) {
        case 1: return "EEG";
        case 3: return "EMG";
        case 5: return "SpO2";
        case 7: return "EOG";
        case 8: return "ECG";
        case 9: return "DC";
        case 17: return "Stimulus";
        case 18: return "Pressure";
        case 21: return "Temperature";
        case 22: return "Body position";
        case 23: return "Airflow";
        case 24: return "Respiratory effort";
        case 25: return "Heart rate";
        case 27: return "Light";
        case 28: return "Marker";
        case 29: return "Sound";
        case 32: return "Plethysmogram";
        default: return "";
    }
}

const char* VhlGetUnitName(unsigned code) {
    switch (code) {
        case 1: return "\xC2\xB5V";  // µV
        case 2: return "mV";
        case 3: return "V";
        case 4: return "%";
        case 5: return "cmH2O";
        case 10: return "\xC2\xB0" "C";  // °C
        case 12: return "bpm";
        case 15: return "lux";
        case 16: return "AU";
        default: return "";
    }
}

int CPhysicalMontage::IsOnMap(const char* name) {
    if (!name) return FALSE;
    for (const char* n : kHeadMap)
        if (EqualsNoCase(n, name)) return TRUE;
    return FALSE;
}

unsigned CPhysicalMontage::GetNumStdElectrode() { return kNumStd; }
int CPhysicalMontage::IsStdElec(const char* name) { return FindStd(name) != nullptr; }

unsigned CPhysicalMontage::GetStdElecTypeCode(const char* name) {
    const StdElectrode* e = FindStd(name);
    return e ? e->type : 1;
}
unsigned CPhysicalMontage::GetStdElecTypeCode(unsigned index) {
    const StdElectrode* e = StdAt(index);
    return e ? e->type : 1;
}
unsigned CPhysicalMontage::GetStdElecUnitCode(const char* name) {
    const StdElectrode* e = FindStd(name);
    return e ? e->unit : 1;
}
unsigned CPhysicalMontage::GetStdElecUnitCode(unsigned index) {
    const StdElectrode* e = StdAt(index);
    return e ? e->unit : 1;
}
const char* CPhysicalMontage::GetStdElecType(const char* name) { return VhlGetTraceTypeName(GetStdElecTypeCode(name)); }
const char* CPhysicalMontage::GetStdElecType(unsigned index) { return VhlGetTraceTypeName(GetStdElecTypeCode(index)); }
const char* CPhysicalMontage::GetStdElecUnit(const char* name) { return VhlGetUnitName(GetStdElecUnitCode(name)); }
const char* CPhysicalMontage::GetStdElecUnit(unsigned index) { return VhlGetUnitName(GetStdElecUnitCode(index)); }

const char* CPhysicalMontage::GetStdElecName(unsigned index) {
    const StdElectrode* e = StdAt(index);
    return e ? e->name : nullptr;
}

CPolar3D CPhysicalMontage::GetStdElecPosition(const char* name) { return PositionOf(FindStd(name)); }
CPolar3D CPhysicalMontage::GetStdElecPosition(unsigned index) { return PositionOf(StdAt(index)); }
