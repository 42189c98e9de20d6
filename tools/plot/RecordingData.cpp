#include "RecordingData.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "montage/mtgs.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "records/SigRec.h"
#include "sigfile/RecordSource.h"
#include "sigfile/SIGFILE.h"
#include "spectral/Csafile.h"
#include "spectral/Specrec.h"
#include "status/GroupDefaults.h"
#include "status/stsitm.h"

namespace sigplot {

namespace {

bool IsGroup(const CStatusItem& item, const char* id) {
    return item.GetGroup() && EqualsNoCase(item.GetGroup()->GetGroupID(), id);
}

// The base frequency items are placed at, 0 when items are placed by time.
double PositionFrequency(const CSigFile& file) {
    return file.GetNumRecords() > 0 && file.GetNumChannels() > 0 ? file.GetTrueFrequency() : 0.0;
}

// World unit to microvolts; 0 for a unit that is not a voltage.
double MicrovoltsPer(const std::string& unit) {
    if (unit == "uV" || unit == "\xC2\xB5V" || unit == "\xB5V" || EqualsNoCase(unit, "microvolt")) return 1.0;
    if (unit == "mV") return 1000.0;
    if (unit == "V") return 1e6;
    if (unit == "nV") return 1e-3;
    return 0.0;
}

// A channel a picture can show: where its samples are in the records read.
struct ChannelRef {
    std::string label, alias, unit;
    unsigned index = 0;
    unsigned samples = 0;  // per record
    unsigned type = 0;     // montage trace type (1: EEG), 0 when unknown
};

std::vector<ChannelRef> RecordedChannels(const CSigFile& file) {
    std::vector<ChannelRef> all;
    for (unsigned c = 0; c < file.GetNumChannels(); ++c) {
        ChannelRef ref;
        CSigChannelInfo info;
        if (file.GetChannelInfo(c, &info)) {
            ref.label = info.label;
            ref.unit = info.unit;
        }
        unsigned k = 0;
        if (const CRecordingMontage* rec = RecordingMontageOfChannel(file, c, &k)) {
            ref.alias = rec->GetLabel(k);
            ref.type = rec->GetType(k);
            if (ref.unit.empty()) ref.unit = VhlGetUnitName(rec->GetUnit(k));
        }
        ref.index = c;
        ref.samples = file.GetSamplesChannel(c);
        all.push_back(ref);
    }
    return all;
}

const ChannelRef* FindChannel(const std::vector<ChannelRef>& all, const std::string& label) {
    for (const ChannelRef& c : all)
        if (EqualsNoCase(c.label, label)) return &c;
    for (const ChannelRef& c : all)
        if (!c.alias.empty() && EqualsNoCase(c.alias, label)) return &c;
    return nullptr;
}

// Reads records of the recording or of a computed montage.
class Reader {
public:
    explicit Reader(CSigFile& file) : m_file(file) {}

    bool Choose(const std::string& montage, std::string& error) {
        if (!m_computed.Choose(m_file, montage, {}, error)) return false;
        if (CReformatedMontage* ref = m_computed.Get()) {
            m_derived = std::make_unique<CDerivedSource>(m_file, ref);
            std::string why;
            if (!m_derived->Compile(&why)) {
                error = "Impossible de calculer le montage " + montage + (why.empty() ? "" : "\n" + why);
                return false;
            }
            for (unsigned c = 0; c < m_derived->GetNumChannels(); ++c) {
                ChannelRef ref;
                ref.label = m_derived->GetLabel(c);
                ref.unit = VhlGetUnitName(m_derived->GetUnit(c));
                ref.type = m_derived->GetType(c);
                ref.index = c;
                ref.samples = m_derived->GetSamplesRec(c);
                m_channels.push_back(ref);
            }
        } else {
            m_source = std::make_unique<CRecordSource>(m_file);
            m_channels = RecordedChannels(m_file);
        }
        m_record.reset(m_derived ? m_derived->CreateCompatibleFmtSigRec() : m_source->CreateCompatibleFmtSigRec());
        if (!m_record) {
            error = "Mémoire insuffisante pour lire les enregistrements";
            return false;
        }
        return true;
    }

    const std::vector<ChannelRef>& Channels() const { return m_channels; }

    const CFmtSigRec* Read(long record, std::string& error) {
        const int ok = m_derived ? m_derived->Read(record, *m_record) : m_source->Read(record, *m_record);
        if (ok) return m_record.get();
        error = StrFormat("Lecture impossible de l'enregistrement %ld du fichier %s", record, m_file.GetFileName());
        return nullptr;
    }

private:
    CSigFile& m_file;
    CComputedMontage m_computed;
    std::unique_ptr<CRecordSource> m_source;
    std::unique_ptr<CDerivedSource> m_derived;
    std::unique_ptr<CFmtSigRec> m_record;
    std::vector<ChannelRef> m_channels;
};

}  // namespace

double RecordingSeconds(const CSigFile& file) {
    return static_cast<double>(file.GetNumRecords()) * file.GetRecordDuration();
}

CSDateTime RecordingStart(const CSigFile& file) {
    const CFileHeader* header = file.GetFileHeader();
    return header ? header->GetCreationDateTime() : CSDateTime();
}

double SecondsOfDay(const CSDateTime& when) {
    int y, mo, d, h, mi, s, ms;
    when.GetParts(y, mo, d, h, mi, s, ms);
    return h * 3600.0 + mi * 60.0 + s + ms / 1000.0;
}

void ItemSeconds(const CSigFile& file, const CStatusItem& item, double& begin, double& end) {
    const double frequency = PositionFrequency(file);
    if (frequency > 0) {
        begin = item.GetBeginSample() / frequency;
        end = item.GetEndSample() / frequency;
    } else {
        const CSDateTime origin = RecordingStart(file);
        begin = (item.GetBeginTime() - origin).GetTotalSeconds();
        end = (item.GetEndTime() - origin).GetTotalSeconds();
    }
    if (!(end >= begin)) end = begin;
}

bool HasSleepStages(const CSigFile& file) {
    for (unsigned g = 0; g < file.GetNumGroups(); ++g) {
        const CStatusGroup* group = file.GetGroupAt(g);
        if (group && EqualsNoCase(group->GetGroupID(), groupid::kSleepStages)) return true;
    }
    return false;
}

std::vector<StageSpan> ReadStages(const CSigFile& file) {
    std::vector<StageSpan> spans;
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = file.GetStatusItemAt(i);
        if (!item || !IsGroup(*item, groupid::kSleepStages)) continue;
        StageSpan s;
        ItemSeconds(file, *item, s.begin, s.end);
        // A stage without a length lasts the group's epoch (30 s).
        if (s.end <= s.begin) {
            double epoch = std::atof(item->GetGroup()->GetGroupPropertyValueAt("EpochLength").c_str());
            s.end = s.begin + (epoch > 0 ? epoch : 30.0);
        }
        s.stage = StageOfName(item->GetName());
        spans.push_back(s);
    }
    return NormalizeStages(std::move(spans));
}

std::vector<EventMark> ReadEvents(const CSigFile& file, double from, double to, size_t maxItems) {
    std::vector<EventMark> marks;
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = file.GetStatusItemAt(i);
        if (!item || !item->GetGroup() || IsGroup(*item, groupid::kSleepStages) ||
            IsGroup(*item, groupid::kDiscontinuity))
            continue;
        EventMark m;
        ItemSeconds(file, *item, m.begin, m.end);
        if (m.end < from || m.begin > to) continue;
        m.name = item->GetName();
        m.group = item->GetGroup()->GetGroupName();
        m.rgb = item->GetColor() ? item->GetColor() : item->GetGroup()->GetGroupColor();
        marks.push_back(m);
    }
    std::stable_sort(marks.begin(), marks.end(), [](const EventMark& a, const EventMark& b) { return a.begin < b.begin; });
    if (marks.size() > maxItems) marks.resize(maxItems);
    return marks;
}

std::vector<double> ReadGaps(const CSigFile& file, double from, double to) {
    std::vector<double> gaps;
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = file.GetStatusItemAt(i);
        if (!item || !IsGroup(*item, groupid::kDiscontinuity)) continue;
        double b, e;
        ItemSeconds(file, *item, b, e);
        if (b >= from && b <= to) gaps.push_back(b);
    }
    std::sort(gaps.begin(), gaps.end());
    return gaps;
}

std::vector<GroupCount> CountGroups(const CSigFile& file, double from, double to) {
    std::vector<GroupCount> counts;
    std::map<const CStatusGroup*, size_t> where;
    for (unsigned i = 0; i < file.GetNumStatusItems(); ++i) {
        const CStatusItem* item = file.GetStatusItemAt(i);
        if (!item || !item->GetGroup() || IsGroup(*item, groupid::kSleepStages) ||
            IsGroup(*item, groupid::kDiscontinuity))
            continue;
        double b, e;
        ItemSeconds(file, *item, b, e);
        if (b < from || b > to) continue;
        auto [it, added] = where.emplace(item->GetGroup(), counts.size());
        if (added) counts.push_back({item->GetGroup()->GetGroupName(), 0});
        ++counts[it->second].count;
    }
    return counts;
}

double DefaultPageSeconds(const CSigFile& file) { return HasSleepStages(file) ? 30.0 : 10.0; }

bool ReadPage(CSigFile& file, const PageRequest& request, PageData& page, std::string& error) {
    const double length = RecordingSeconds(file);
    const double recordSeconds = file.GetRecordDuration();
    if (file.GetNumChannels() == 0 || file.GetNumRecords() <= 0 || !(recordSeconds > 0)) {
        error = std::string(file.GetFileName()) + " : aucun signal à tracer";
        return false;
    }
    const double duration = request.duration > 0 ? request.duration : DefaultPageSeconds(file);
    if (!(request.start >= 0) || request.start >= length) {
        error = StrFormat("La page commence à %g s, après la fin de l'enregistrement (%g s)", request.start, length);
        return false;
    }
    Reader reader(file);
    if (!reader.Choose(request.montage, error)) return false;
    std::vector<ChannelRef> shown;
    if (request.channels.empty()) {
        shown = reader.Channels();
    } else {
        for (const std::string& label : request.channels) {
            const ChannelRef* c = FindChannel(reader.Channels(), label);
            if (!c) {
                error = "Canal inconnu : " + label;
                return false;
            }
            shown.push_back(*c);
        }
    }
    if (shown.empty()) {
        error = "Aucun canal à tracer";
        return false;
    }

    page.start = request.start;
    page.duration = duration;
    page.sensitivity = request.sensitivity;
    page.montage = request.montage;
    page.title = ExtractFName(file.GetFileName());
    const double end = std::min(length, request.start + duration);
    page.gaps = ReadGaps(file, request.start, end);
    page.events = ReadEvents(file, request.start, end, 200);
    for (const StageSpan& s : ReadStages(file))
        if (s.begin <= request.start + 1e-6 && request.start < s.end) page.stage = StageShortName(s.stage);

    std::vector<TraceBuffer> buffers;
    for (const ChannelRef& c : shown) {
        const double frequency = c.samples / recordSeconds;
        buffers.emplace_back(request.start, duration, frequency, request.buckets);
        page.traces.push_back({c.label, c.unit, MicrovoltsPer(c.unit), {}});
    }
    const long first = static_cast<long>(std::floor(request.start / recordSeconds));
    const long last = std::min(file.GetNumRecords(), static_cast<long>(std::ceil(end / recordSeconds - 1e-9)));
    size_t nextGap = 0;
    bool clockSet = false;
    for (long r = first; r < last; ++r) {
        const double t0 = static_cast<double>(r) * recordSeconds;
        const CFmtSigRec* rec = reader.Read(r, error);
        if (!rec) return false;
        if (!clockSet) {
            page.clockAtZero = SecondsOfDay(rec->GetTime()) - t0;
            clockSet = true;
        }
        while (nextGap < page.gaps.size() && page.gaps[nextGap] < t0 + recordSeconds * 0.5) {
            if (page.gaps[nextGap] > request.start) {
                for (TraceBuffer& b : buffers) b.Break();
            }
            ++nextGap;
        }
        for (size_t k = 0; k < shown.size(); ++k) {
            const ChannelRef& c = shown[k];
            if (c.index >= rec->GetNumChannels() || c.samples == 0) continue;
            const unsigned n = std::min(c.samples, rec->GetNumSamples(c.index));
            const double step = recordSeconds / c.samples;
            // The samples of this record inside [start, end).
            const double from = std::ceil((request.start - t0) / step - 1e-9);
            const double to = std::ceil((end - t0) / step - 1e-9);
            const unsigned s0 = static_cast<unsigned>(std::clamp(from, 0.0, double(n)));
            const unsigned s1 = static_cast<unsigned>(std::clamp(to, double(s0), double(n)));
            buffers[k].AddRun(t0 + s0 * step, step, rec->GetAt(c.index) + s0, s1 - s0);
        }
    }
    for (size_t k = 0; k < buffers.size(); ++k) {
        buffers[k].Finish();
        page.traces[k].points = buffers[k].TakePoints();
    }
    return true;
}

std::string CentralChannel(const CSigFile& file) {
    const std::vector<ChannelRef> all = RecordedChannels(file);
    for (const char* site : {"C3", "C4", "CZ"})
        for (const ChannelRef& c : all) {
            // The site as a word of the label: "EEG C3-A2", "C3-M2", "C3".
            const std::string upper = ToUpperAscii(c.label);
            for (size_t at = upper.find(site); at != std::string::npos; at = upper.find(site, at + 1)) {
                const bool before = at == 0 || !std::isalnum(static_cast<unsigned char>(upper[at - 1]));
                const bool after = at + 2 >= upper.size() || !std::isalnum(static_cast<unsigned char>(upper[at + 2]));
                if (before && after) return c.label;
            }
        }
    for (const ChannelRef& c : all)
        if (c.type == 1 || ToUpperAscii(c.label).rfind("EEG", 0) == 0) return c.label;
    return all.empty() ? std::string() : all.front().label;
}

bool ComputeSpectrogram(CSigFile& file, const std::string& label, double fmax, SpectrogramMatrix& matrix,
                        std::string& error) {
    const double recordSeconds = file.GetRecordDuration();
    if (file.GetNumChannels() == 0 || file.GetNumRecords() <= 0 || !(recordSeconds > 0)) {
        error = std::string(file.GetFileName()) + " : aucun signal à analyser";
        return false;
    }
    const std::vector<ChannelRef> all = RecordedChannels(file);
    const std::string wanted = label.empty() ? CentralChannel(file) : label;
    const ChannelRef* c = FindChannel(all, wanted);
    if (!c) {
        error = "Canal inconnu : " + wanted;
        return false;
    }
    const double rate = c->samples / recordSeconds;
    const double length = RecordingSeconds(file);
    SpectrogramBuilder builder(rate, ColumnSecondsFor(length, 2.0), fmax, length);
    if (!builder.IsValid()) {
        error = StrFormat("Le canal %s (%g Hz) est échantillonné trop lentement pour un spectrogramme", c->label.c_str(),
                          rate);
        return false;
    }
    const std::vector<double> gaps = ReadGaps(file, 0.0, length);
    CRecordSource source(file);
    std::unique_ptr<CFmtSigRec> rec(source.CreateCompatibleFmtSigRec());
    std::vector<float> samples(c->samples);
    size_t nextGap = 0;
    for (long r = 0; r < file.GetNumRecords(); ++r) {
        const double t0 = static_cast<double>(r) * recordSeconds;
        if (!rec || !source.Read(r, *rec)) {
            error = StrFormat("Lecture impossible de l'enregistrement %ld du fichier %s", r, file.GetFileName());
            return false;
        }
        for (; nextGap < gaps.size() && gaps[nextGap] < t0 + recordSeconds * 0.5; ++nextGap) builder.Break();
        const unsigned n = c->index < rec->GetNumChannels() ? std::min(c->samples, rec->GetNumSamples(c->index)) : 0;
        for (unsigned s = 0; s < n; ++s) samples[s] = rec->GetAt(c->index, s);
        builder.Add(t0, samples.data(), n);
    }
    matrix = builder.Finish(c->label);
    return true;
}

std::string RecordingId(const CSigFile& file) {
    const CFileHeader* header = file.GetFileHeader();
    return header ? header->GetCreationDateTime().ToIso() : std::string();
}

bool SpectralFileMatches(const SpectralSource& source, const CSigFile& file) {
    if (source.fileId.empty() || source.fileId != RecordingId(file)) return false;
    const auto nameOf = [](const std::string& path) { return ExtractFName(path) + ExtractExt(path); };
    if (EqualsNoCase(nameOf(source.fileName), nameOf(file.GetFileName()))) return true;
    // Spectra of derived channels name them by their montage; only recorded
    // channels are looked for.
    const std::vector<ChannelRef> all = RecordedChannels(file);
    for (const std::string& label : source.labels)
        if (!FindChannel(all, label)) return false;
    return source.seconds <= RecordingSeconds(file) + 1.0;
}

// The most values a spectrogram holds (32 MB).
constexpr double kMaxCells = 8e6;

bool ReadSpectralFile(const std::string& name, const std::string& label, double fmax, CSDateTime origin,
                      SpectrogramMatrix& matrix, SpectralSource& source, std::string& error) {
    std::string data = name;
    const std::string ext = ExtractExt(name);
    if (EqualsNoCase(ext, ".SPH")) data.back() = ext.back() == 'h' ? 'c' : 'C';
    long code = 0;
    CCsaFilePtr file(CCsaFile::Open(data.c_str(), 1, &code));
    if (!file) {
        error = "Impossible d'ouvrir le fichier spectral " + name;
        return false;
    }
    source.fileName = file->GetSigFileName();
    source.fileId = file->GetSigFileId();
    for (unsigned c = 0; c < file->GetNumChannels(); ++c) source.labels.push_back(file->GetChannelLabel(c));
    unsigned channel = 0;
    if (!label.empty()) {
        bool found = false;
        for (unsigned c = 0; c < file->GetNumChannels() && !found; ++c)
            if (EqualsNoCase(file->GetChannelLabel(c), label)) {
                channel = c;
                found = true;
            }
        if (!found) {
            error = "Canal inconnu dans le fichier spectral " + name + " : " + label;
            return false;
        }
    }
    if (file->GetNumChannels() == 0 || file->GetNumRecords() == 0) {
        error = "Le fichier spectral " + name + " ne contient aucun spectre";
        return false;
    }
    const double res = file->GetFreqRes();
    const unsigned numFreq = file->GetChannelNumFreq(channel);
    if (!(res > 0) || numFreq == 0) {
        error = "Le fichier spectral " + name + " n'a pas de fréquences pour ce canal";
        return false;
    }
    const unsigned bins =
        fmax > 0 ? std::min(numFreq, static_cast<unsigned>(std::floor(fmax / res)) + 1) : numFreq;
    double step = file->GetCsaRestartInterval();
    if (!(step > 0)) step = file->GetCsaEpochLength();
    if (!(step > 0)) step = file->GetFftEpochLength();
    if (!(step > 0)) step = 1.0;
    const double recordStep = step;
    std::unique_ptr<CSpecRec> rec(file->CreateCompatibleSpecRec());
    if (!rec || !file->MoveFirst() || !file->Read(*rec)) {
        error = "Lecture impossible du fichier spectral " + name;
        return false;
    }
    source.start = rec->GetTime().ToIso();
    if (origin.GetValue() == 0) origin = rec->GetTime();
    const CSDateTime first = rec->GetTime();
    // Columns as wide as the spectral records are apart, or wider when
    // there would be more than 20000 of them or more than kMaxCells values.
    if (file->MoveLast() && file->Read(*rec)) {
        const double span = (rec->GetTime() - origin).GetTotalSeconds();
        const double columns = std::min(20000.0, std::floor(kMaxCells / bins));
        if (std::isfinite(span) && span / step > columns) step = span / columns;
    }
    matrix = SpectrogramMatrix();
    matrix.label = file->GetChannelLabel(channel);
    matrix.freqRes = res;
    matrix.columnSeconds = step;
    matrix.Resize(0, bins);
    constexpr unsigned maxColumns = 20001;
    std::vector<float> values(bins);
    for (DWORD i = 0; i < file->GetNumRecords(); ++i) {
        if (!file->MoveTo(i) || !file->Read(*rec)) {
            error = StrFormat("Lecture impossible de l'enregistrement spectral %lu de %s", static_cast<unsigned long>(i),
                              name.c_str());
            return false;
        }
        const float* v = rec->GetAt(channel);
        if (!v) continue;
        const unsigned n = std::min(bins, rec->GetNumFreq(channel));
        for (unsigned k = 0; k < bins; ++k)
            values[k] = k < n && v[k] > 0 && std::isfinite(v[k]) ? 10.0f * std::log10(v[k]) : NAN;
        source.seconds = std::max(source.seconds, (rec->GetTime() - first).GetTotalSeconds() + recordStep);
        const double t = (rec->GetTime() - origin).GetTotalSeconds();
        if (!(t >= 0) || !(t / step < maxColumns)) continue;
        matrix.SetColumn(static_cast<unsigned>(std::floor(t / step + 0.5)), values, maxColumns);
    }
    return true;
}

}  // namespace sigplot
