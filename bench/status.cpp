// Status files with many events: load and store of a whole status archive,
// and insertion of items in time order and in random order, at 250,000,
// 500,000 and 1,000,000 items.  Growth ratios t(2n)/t(n) are compared with
// n log n (2.3 allows for the log factor and cache effects); a million items
// must load in under 2 s.
//
// Times are the process's processor time, so that other work on a shared
// machine does not count; the wall-clock time of the million-item load is
// printed beside it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <time.h>

#include "platform/Archive.h"
#include "platform/File.h"
#include "status/GroupDefaults.h"
#include "status/IntStsFile.h"

namespace {

// Processor time of the process.
struct Clock {
    using time_point = double;
    static double now() {
        timespec ts{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
        return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
    }
};

double Seconds(double a, double b) { return b - a; }
double WallNow() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

struct Fixture {
    CIntStsFile sts;
    std::vector<CStatusGroup*> groups;
};

void AddGroups(Fixture& f) {
    const char* ids[] = {groupid::kSleepStages, groupid::kSpikeDetection, groupid::kBookmarks, groupid::kRespiratory};
    unsigned types[] = {4, 2, 3, 3};
    unsigned extents[] = {1, 0, 0, 1};
    for (int g = 0; g < 4; ++g) {
        auto* group = new CStatusGroup(ids[g], GetDefaultGroupName(ids[g]).c_str(), "", types[g], 0, extents[g], -1,
                                       "", 0x00FF00, 0, 1, 0);
        group->AddProperty("DurHw1", "Durée");
        group->AddProperty("AmpHw1", "Amplitude");
        if (g == 0) group->AddGroupProperty("EpochLength", "Époque", "30");
        f.sts.AddGroup(group);
        f.groups.push_back(group);
    }
}

CStatusItem* MakeItem(const Fixture& f, LONG position) {
    const CSDateTime start(46000.0);
    auto* item = new CStatusItem(f.groups[static_cast<size_t>(position) % 4], position * 16,
                                 start + CSTimeSpan(position / 16.0), position * 16 + 8,
                                 start + CSTimeSpan(position / 16.0 + 0.5), "Fp1-F3", "Pointe", "", 0x0000FF, 1);
    item->SetPropertyValueAt("DurHw1", "35");
    item->SetPropertyValueAt("AmpHw1", "120.5");
    return item;
}

template <class Fn>
double Best(int runs, Fn fn) {
    double best = 1e30;
    for (int r = 0; r < runs; ++r) best = std::min(best, fn());
    return best;
}

struct Times {
    double load, store, inOrder, random, loadWall;
};

Times Measure(int n, std::mt19937& rng) {
    Times t{};
    // In time order: every item sorts last.
    t.inOrder = Best(2, [&] {
        Fixture f;
        AddGroups(f);
        auto a = Clock::now();
        for (int i = 0; i < n; ++i) f.sts.AddStatusItem(MakeItem(f, i));
        return Seconds(a, Clock::now());
    });

    Fixture full;
    AddGroups(full);
    for (int i = 0; i < n; ++i) full.sts.AddStatusItem(MakeItem(full, i));
    std::vector<BYTE> image;
    t.store = Best(3, [&] {
        CMemFile file;
        auto a = Clock::now();
        {
            CArchive ar(&file, CArchive::store, 4096);
            full.sts.StoreToArchive(ar);
            ar.Close();
        }
        double s = Seconds(a, Clock::now());
        image = file.Detach();
        return s;
    });
    t.load = Best(3, [&] {
        CIntStsFile sts;
        double w = WallNow();
        auto a = Clock::now();
        sts.LoadFromMemory(image.data(), image.size());
        double s = Seconds(a, Clock::now());
        w = WallNow() - w;
        if (t.loadWall == 0.0 || w < t.loadWall) t.loadWall = w;
        if (sts.GetNumStatusItems() != static_cast<unsigned>(n)) std::fprintf(stderr, "load lost items\n");
        return s;
    });

    std::vector<int> order(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) order[static_cast<size_t>(i)] = i;
    std::shuffle(order.begin(), order.end(), rng);
    t.random = Best(2, [&] {
        Fixture f;
        AddGroups(f);
        auto a = Clock::now();
        for (int i : order) f.sts.AddStatusItem(MakeItem(f, i));
        f.sts.GetStatusItemAt(0);  // the items are in order from here on
        return Seconds(a, Clock::now());
    });
    std::printf("status n=%d load %.3f s, store %.3f s, insert in time order %.3f s, insert in random order %.3f s "
                "(image %zu bytes)\n",
                n, t.load, t.store, t.inOrder, t.random, image.size());
    return t;
}

void Growth(const char* name, double a, double b, double c, const char* target) {
    double ratio = std::max(b / a, c / b);
    std::printf("RESULT %s %.2fx ratio=%.2f target=%s\n", name, ratio, ratio, target);
}

}  // namespace

int main() {
    std::mt19937 rng(12345);
    Times t1 = Measure(250000, rng);
    Times t2 = Measure(500000, rng);
    Times t3 = Measure(1000000, rng);
    Growth("status_load_growth", t1.load, t2.load, t3.load, "2.3");
    Growth("status_store_growth", t1.store, t2.store, t3.store, "2.3");
    Growth("status_insert_time_order_growth", t1.inOrder, t2.inOrder, t3.inOrder, "2.3");
    // Shown for information: no target is set for random order.
    Growth("status_insert_random_growth", t1.random, t2.random, t3.random, "none");
    std::printf("status n=1000000 load wall-clock %.3f s\n", t3.loadWall);
    std::printf("RESULT status_load_1M %.3f s ratio=%.2f target=1\n", t3.load, t3.load / 2.0);
    return 0;
}
