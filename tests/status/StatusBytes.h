// Hand-built archive bytes of status groups and items, shared by the status
// tests.
#pragma once

#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace statustest {

using testsupport::Bytes;

inline Bytes StringArray(const std::vector<std::string>& values) {
    Bytes b;
    b.u16(static_cast<unsigned>(values.size()));
    for (const auto& v : values) b.str(v);
    return b;
}

struct GroupFields {
    std::string id = "8D1996CC-55A2-41B7-9477-839A46DE2ABE";
    std::string name = "Bookmarks";
    std::string description = "Signets";
    unsigned type = 3, flags = 0, extent = 0;
    int channelType = -1;
    std::string channel;
    unsigned color = 0x00FF00, access = 2;
    std::vector<std::string> defaultNames;
    std::vector<unsigned> defaultColors;
    unsigned visibility = 1, eventNameType = 0;
    std::vector<std::string> itemKeys, itemDescs, groupKeys, groupDescs, groupValues;
};

// Serialize data of a version 7 group.
inline Bytes GroupV7(const GroupFields& g) {
    Bytes b;
    b.u16(7).str(g.id).str(g.name).str(g.description);
    b.u32(g.type).u32(g.flags).u32(g.extent).i32(g.channelType).str(g.channel);
    b.u32(g.color).u32(g.access);
    b.append(StringArray(g.defaultNames));
    b.u16(static_cast<unsigned>(g.defaultColors.size()));
    for (unsigned c : g.defaultColors) b.u32(c);
    b.u32(g.visibility).u32(g.eventNameType);
    b.append(StringArray(g.itemKeys)).append(StringArray(g.itemDescs));
    b.append(StringArray(g.groupKeys)).append(StringArray(g.groupDescs)).append(StringArray(g.groupValues));
    return b;
}

// Packed property values: WORD 1, count, used size, the terminated strings.
inline Bytes Packed(const std::vector<std::string>& values) {
    Bytes b;
    b.u16(1).i32(static_cast<int>(values.size()));
    if (values.empty()) return b;
    std::string buf;
    for (const auto& v : values) {
        buf += v;
        buf.push_back('\0');
    }
    b.i32(static_cast<int>(buf.size())).raw(buf);
    return b;
}

// A recording montage of two channels, Fp1-F3 and C3, as old files hold it:
// logical part (schema 7), no physical montage, then its own part.
inline Bytes OldRecordingMontage() {
    Bytes m;
    m.newClass("CRecordingMontage").u16(7).str("Old").u16(2);
    for (int array = 0; array < 5; ++array) m.u16(2).u16(array == 0 ? 256 : 1).u16(array == 0 ? 256 : 1);
    m.u16(2).u32(0).u32(0);
    m.u16(0).u16(64).u16(256);
    m.append(StringArray({"Fp1", "C3"})).append(StringArray({"F3", ""}));
    m.u16(2).u16(0).u16(0).append(StringArray({"", ""})).u16(0);
    return m;
}

}  // namespace statustest
