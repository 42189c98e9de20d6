// Hand-built status archives: the description objects (written by their own
// classes, each new to the archive and holding no nested object, so that
// they take the persistent ids 1 to 10), then groups and items built byte by
// byte.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "montage/mtgs.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "records/stdcodec.h"
#include "status/StatusBytes.h"

namespace statustest {

inline constexpr unsigned kGroupClassPid = 11;
inline constexpr unsigned kFirstGroupPid = 12;

template <class T>
Bytes ObjectBytes(const T& object) {
    Bytes b;
    b.data = testsupport::StoreToBytes([&](CArchive& ar) { ar.WriteObject(&object); });
    return b;
}

struct Description {
    CFileHeader header;
    CPatientInfo patient;
    CStdCoDec codec;
    CCalibration calibration;
    CPhysicalMontage montage;
    int numRecords = 0;

    Description() {
        header.SetCreationDateTime(CSDateTime(46000.0));
        calibration.SetTrueFrequency(256.0);
        Bytes codecBytes;
        codecBytes.u16(1).u16(1).u16(136).u16(64).u16(64);
        testsupport::LoadFromBytes(codecBytes.data, [&](CArchive& ar) { codec.Serialize(ar); });
    }
    // File version, then the five objects and the record count.
    Bytes Prefix(unsigned version = 1) const {
        Bytes b;
        b.u16(version);
        b.append(ObjectBytes(header)).append(ObjectBytes(patient)).append(ObjectBytes(codec));
        b.append(ObjectBytes(calibration)).append(ObjectBytes(montage));
        b.i32(numRecords);
        return b;
    }
};

// Groups as an object array: the first new to the archive, the others
// referring to its class.
inline Bytes GroupList(const std::vector<Bytes>& groups) {
    Bytes b;
    b.u16(static_cast<unsigned>(groups.size()));
    for (size_t i = 0; i < groups.size(); ++i) {
        if (i == 0) b.newClass("CStatusGroup");
        else b.u16(0x8000 | kGroupClassPid);
        b.append(groups[i]);
    }
    return b;
}

struct ItemFields {
    unsigned groupIndex = 0;  // position in the group list
    int begin = 0, end = 0;
    double beginTime = 46000.0, endTime = 46000.0;
    std::string channel, name, comments;
    unsigned color = 0, visibility = 1;
    std::vector<std::string> values;
};

// Version 4 item data (after its class tag).
inline Bytes ItemV4(const ItemFields& f) {
    Bytes b;
    b.u16(4).u16(kFirstGroupPid + f.groupIndex).i32(f.begin).f64(f.beginTime).i32(f.end).f64(f.endTime);
    b.str(f.channel).str(f.name).str(f.comments).u32(f.color).u32(f.visibility).append(Packed(f.values));
    return b;
}

// Items as an object array, after numGroups groups.
inline Bytes ItemList(const std::vector<Bytes>& items, unsigned numGroups) {
    Bytes b;
    b.u16(static_cast<unsigned>(items.size()));
    const unsigned itemClassPid = kFirstGroupPid + numGroups;
    for (size_t i = 0; i < items.size(); ++i) {
        if (i == 0) b.newClass("CStatusItem");
        else b.u16(0x8000 | itemClassPid);
        b.append(items[i]);
    }
    return b;
}

}  // namespace statustest
