// Helpers of the picture tests: rendering into an image in memory and
// reading its pixels back, and small native recordings with a sine on one
// channel and sleep stages placed by hand.
#pragma once

#include <cairo.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "platform/DateTime.h"
#include "records/SigRec.h"
#include "sigfile/SIGFILE.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"
#include "support/SmallRecording.h"

namespace plottest {

// An RGB image rendered at `scale` pixels per point.
struct Image {
    int width = 0, height = 0;
    double scale = 1;
    std::vector<uint32_t> pixels;  // 0x00RRGGBB
    uint32_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
    int Red(int x, int y) const { return (At(x, y) >> 16) & 0xFF; }
    int Green(int x, int y) const { return (At(x, y) >> 8) & 0xFF; }
    int Blue(int x, int y) const { return At(x, y) & 0xFF; }
    // Pixel of a point in page units.
    int Px(double points) const { return static_cast<int>(std::floor(points * scale)); }
};

inline Image Render(double width, double height, double scale, const std::function<void(cairo_t*)>& draw) {
    Image img;
    img.width = static_cast<int>(std::ceil(width * scale));
    img.height = static_cast<int>(std::ceil(height * scale));
    img.scale = scale;
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, img.width, img.height);
    cairo_t* cr = cairo_create(s);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_scale(cr, scale, scale);
    draw(cr);
    cairo_destroy(cr);
    cairo_surface_flush(s);
    const unsigned char* data = cairo_image_surface_get_data(s);
    const int stride = cairo_image_surface_get_stride(s);
    img.pixels.resize(static_cast<size_t>(img.width) * img.height);
    for (int y = 0; y < img.height; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(data + static_cast<size_t>(y) * stride);
        for (int x = 0; x < img.width; ++x) img.pixels[static_cast<size_t>(y) * img.width + x] = row[x] & 0xFFFFFF;
    }
    cairo_surface_destroy(s);
    return img;
}

struct StageItem {
    double begin, end;
    const char* name;
};

const CSDateTime kStart(2026, 1, 31, 22, 5, 0.0);

// A native recording of one 256-Hz EEG channel (Fp1-REF, µV) holding a sine of
// `hz` Hz and `amplitude` µV for `seconds`, with the given stage items (none:
// no sleep-stage group) and a discontinuity item at each of `gaps` seconds.
inline bool MakeRecording(const std::string& name, double seconds, double hz, double amplitude,
                          const std::vector<StageItem>& stages, const std::vector<double>& gaps = {}) {
    auto d = testsupport::DescribeRecording({256});
    d.montage->GetRecordingMontageAt(0)->SetSamplesRecord(256);
    d.calibration->SetCalibFromGain(0, 0.1f, 0.0f, 1);
    long error = 0;
    CSigFilePtr file(testsupport::CreateRecording(name, d, &error));
    if (!file) return false;
    std::unique_ptr<CFmtSigRec> rec(file->CreateCompatibleFmtSigRec());
    const double recordSeconds = file->GetRecordDuration();
    const long records = static_cast<long>(std::ceil(seconds / recordSeconds));
    for (long r = 0; r < records; ++r) {
        const unsigned n = rec->GetNumSamples(0);
        for (unsigned s = 0; s < n; ++s) {
            const double t = r * recordSeconds + s * recordSeconds / n;
            rec->SetAt(0, s, static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * hz * t)));
        }
        rec->SetTime(kStart + CSTimeSpan(r * recordSeconds));
        file->MoveTo(r);
        if (!file->Write(rec.get())) return false;
    }
    const double base = file->GetTrueFrequency();
    auto sample = [base](double t) { return static_cast<LONG>(std::lround(t * base)); };
    if (!stages.empty()) {
        auto* g = new CStatusGroup(groupid::kSleepStages, "Sleep Stages", "", 4, 0, 1, -1, "", 0, 0, 1, 0);
        file->AddGroup(g);
        for (const StageItem& s : stages)
            file->AddStatusItem(new CStatusItem(g, sample(s.begin), kStart + CSTimeSpan(s.begin), sample(s.end),
                                                kStart + CSTimeSpan(s.end), "", s.name, "", 0, 1));
    }
    if (!gaps.empty()) {
        auto* g = new CStatusGroup(groupid::kDiscontinuity, "Discontinuity", "", 0, 0, 0, -1, "", 0, 0, 1, 0);
        file->AddGroup(g);
        for (double t : gaps)
            file->AddStatusItem(
                new CStatusItem(g, sample(t), kStart + CSTimeSpan(t), sample(t), kStart + CSTimeSpan(t), "", "", "", 0, 1));
    }
    return file->Flush() != 0;
}

}  // namespace plottest
