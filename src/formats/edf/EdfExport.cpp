// Annotation texts of status items, and record ranges (conventions in
// EdfExport.h).
#include "formats/edf/EdfExport.h"

#include "formats/edf/Edf.h"
#include "formats/edf/EdfDescribe.h"
#include "platform/Strings.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace edf {

std::string AnnotationTextOf(const std::string& group, bool annotationGroup, const std::string& name) {
    if (annotationGroup && name.find(": ") == std::string::npos) return name;
    return group + ": " + name;
}

void SplitAnnotationText(const std::string& text, std::string& group, std::string& name) {
    size_t colon = text.find(": ");
    if (colon == std::string::npos || colon == 0) {
        group.clear();
        name = text;
        return;
    }
    group = text.substr(0, colon);
    name = text.substr(colon + 2);
}

bool ParseRecordRange(const std::string& text, long& first, long& end) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos) return false;
    auto number = [](const std::string& s, long& v, long empty) {
        if (s.empty()) {
            v = empty;
            return true;
        }
        LONGLONG n = 0;
        if (!ParseEdfInteger(s, n) || n < 0 || n > 0x7FFFFFFF) return false;
        v = long(n);
        return true;
    };
    return number(text.substr(0, colon), first, 0) && number(text.substr(colon + 1), end, -1);
}

// The text an item had (or would have) in an annotation signal.
std::string TextOfItem(const CStatusItem& item) {
    const CStatusGroup* group = item.GetGroup();
    if (group && group->GetGroupType() == 4) {
        // A stage keeps the spelling it was scored with.
        if (!item.GetComments().empty() && StageNameOfText(item.GetComments()) == item.GetName()) return item.GetComments();
        return TextOfStageName(item.GetName());
    }
    std::string groupName = group ? std::string(group->GetGroupName()) : "";
    if (group && groupName.empty()) groupName = GetDefaultGroupName(group->GetGroupID().c_str());
    const bool annotation = !group || EqualsNoCase(group->GetGroupID(), groupid::kAnnotation);
    return AnnotationTextOf(groupName, annotation, item.GetName());
}

}  // namespace edf
