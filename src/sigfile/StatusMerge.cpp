#include "sigfile/StatusMerge.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "platform/Strings.h"
#include "sigfile/SIGFILE.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace {

// The base-rate sample of a time in a recording: found by bisection over
// its record times (records are in time order), so that a night is not
// read whole.
class SampleFinder {
public:
    explicit SampleFinder(CSigFile& file) : m_file(file), m_record(file.CreateCompatibleRawSigRec()) {}

    LONG At(const CSDateTime& t) {
        const long count = m_file.GetNumRecords();
        const double frequency = m_file.GetTrueFrequency();
        const double spr = m_file.GetSamplesRecord();
        if (count <= 0 || frequency <= 0) return 0;
        long lo = 0, hi = count - 1;
        if (Seconds(0, t) < 0) return Clamp(std::round(Seconds(0, t) * frequency));
        while (lo < hi) {
            const long mid = lo + (hi - lo + 1) / 2;
            if (Seconds(mid, t) >= 0) lo = mid;
            else hi = mid - 1;
        }
        return Clamp(lo * spr + std::round(Seconds(lo, t) * frequency));
    }

private:
    // Seconds from the start of record r to t.
    double Seconds(long r, const CSDateTime& t) {
        auto it = m_times.find(r);
        if (it == m_times.end()) {
            m_file.MoveTo(r);
            const double v = m_record && m_file.Read(m_record.get()) ? m_record->GetTime().GetValue() : 0.0;
            it = m_times.emplace(r, v).first;
        }
        return (t.GetValue() - it->second) * 86400.0;
    }
    static LONG Clamp(double s) { return LONG(std::clamp(std::isnan(s) ? 0.0 : s, -2147483647.0, 2147483647.0)); }

    CSigFile& m_file;
    std::unique_ptr<CRawSigRec> m_record;
    std::map<long, double> m_times;
};

}  // namespace

long MergeStatusItems(const CSigFile& from, CSigFile& into, std::string* error) {
    if (into.IsReadOnly()) {
        if (error) *error = std::string(into.GetFileName()) + " : enregistrement ouvert en lecture seule";
        return -1;
    }
    std::map<const CStatusGroup*, const CStatusGroup*> groups;
    for (unsigned g = 0; g < from.GetNumGroups(); ++g) {
        const CStatusGroup* group = from.GetGroupAt(g);
        if (!group || EqualsNoCase(group->GetGroupID(), groupid::kDiscontinuity) ||
            EqualsNoCase(group->GetGroupID(), groupid::kChannelDescriptions))
            continue;
        const CStatusGroup* target = nullptr;
        for (unsigned k = 0; k < into.GetNumGroups() && !target; ++k)
            if (EqualsNoCase(into.GetGroupAt(k)->GetGroupID(), group->GetGroupID())) target = into.GetGroupAt(k);
        if (!target) {
            into.AddGroup(new CStatusGroup(*group));
            target = into.GetGroupAt(into.GetNumGroups() - 1);
        }
        groups[group] = target;
    }
    SampleFinder finder(into);
    const double frequency = into.GetTrueFrequency();
    long added = 0;
    for (unsigned i = 0; i < from.GetNumStatusItems(); ++i) {
        const CStatusItem* item = from.GetStatusItemAt(i);
        auto it = item ? groups.find(item->GetGroup()) : groups.end();
        if (it == groups.end()) continue;
        auto* copy = new CStatusItem(*item);
        copy->SetGroup(it->second);
        const LONG begin = finder.At(item->GetBeginTime());
        const double seconds = (item->GetEndTime().GetValue() - item->GetBeginTime().GetValue()) * 86400.0;
        const double end = double(begin) + std::round(std::max(0.0, seconds) * frequency);
        copy->SetSampleRange(begin, LONG(std::clamp(end, double(begin), 2147483647.0)));
        copy->FitPropertiesToGroup();
        into.AddStatusItem(copy);
        ++added;
    }
    into.SetChanged();
    return added;
}
