// sigfile export FILE OUT.csv [--montage NAME] [--channel LABEL]...
//                 [--records A:B] [--volts]
// Calibrated samples of recording montage 0, or of one of its reformatted
// montages computed by the formula engine, as CSV.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "platform/Paths.h"
#include "ToolSupport.h"
#include "formula/RFMT.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Strings.h"
#include "records/SigRec.h"

namespace sigfile_tool {
namespace {

struct ExportOptions {
    std::string file;
    std::string out;
    std::string montage;
    std::vector<std::string> channels;
    std::string records;
    bool volts = false;
};

// "A:B" with 0 <= A, B decimal integers; false when the text is not of that form.
bool ParseRange(const std::string& text, long& first, long& last) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
    auto number = [](const std::string& s, long& v) {
        if (s.empty() || s.size() > 9) return false;
        for (char c : s)
            if (c < '0' || c > '9') return false;
        v = std::stol(s);
        return true;
    };
    return number(text.substr(0, colon), first) && number(text.substr(colon + 1), last);
}

// A CSV field: quoted when it holds a comma, a quote or a line break.
std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

// One exported channel: where its samples are in the record that holds them.
struct Column {
    std::string label;
    unsigned channel;    // channel of the recording record or output of the compiler
    unsigned frequency;
    unsigned samples;    // per record
};

// Reads record q of the file into rec (calibrated, or in volts); a record
// outside the recording reads as zeros, timed as if it were there.
class RecordSource {
public:
    RecordSource(CSigFile& file, bool volts, double recordSeconds)
        : m_file(file), m_volts(volts), m_recordSeconds(recordSeconds) {}

    bool Read(long q, CFmtSigRec& rec) {
        if (q >= 0 && q < m_file.GetNumRecords()) {
            m_file.MoveTo(q);
            return m_volts ? m_file.ReadAsVolts(&rec) != 0 : m_file.Read(&rec) != 0;
        }
        if (!m_haveOrigin) {
            std::unique_ptr<CFmtSigRec> first(m_file.CreateCompatibleFmtSigRec());
            m_file.MoveTo(0);
            if (m_file.GetNumRecords() > 0 && first && m_file.Read(first.get())) m_origin = first->GetTime();
            m_haveOrigin = true;
        }
        rec.SetAll(0.0f);
        rec.SetTime(m_origin + CSTimeSpan(static_cast<double>(q) * m_recordSeconds));
        return true;
    }

private:
    CSigFile& m_file;
    bool m_volts;
    double m_recordSeconds;
    bool m_haveOrigin = false;
    CSDateTime m_origin;
};

// Writes the lines of one record: the time, then each column's sample.
void WriteRecordLines(FILE* out, long record, double recordSeconds, const std::vector<Column>& columns,
                      const CFmtSigRec& rec) {
    const unsigned samples = columns.front().samples;
    const double frequency = columns.front().frequency;
    for (unsigned s = 0; s < samples; ++s) {
        std::fprintf(out, "%.6f", static_cast<double>(record) * recordSeconds + s / frequency);
        for (const Column& col : columns) std::fprintf(out, ",%.9g", static_cast<double>(rec.GetAt(col.channel, s)));
        std::fputc('\n', out);
    }
}

class Exporter {
public:
    Exporter(const ExportOptions& opt, CSigFile& file, const CRecordingMontage& rec0)
        : m_opt(opt), m_file(file), m_rec0(rec0) {}

    int Run() {
        CReformatedMontage* ref = nullptr;
        if (!m_opt.montage.empty() && !EqualsNoCase(m_opt.montage, m_rec0.GetMontageName())) {
            ref = m_rec0.GetReformatedMontage(m_opt.montage.c_str());
            if (!ref) return Failure("Montage inconnu : " + m_opt.montage);
        }
        if (ref) {
            m_compiler = std::make_unique<CCReformater>();
            if (!m_compiler->Compile(ref)) {
                std::string text = "Impossible de calculer le montage " + m_opt.montage;
                for (const CString& d : m_compiler->GetDiagnostics()) text += "\n" + d;
                return Failure(text);
            }
        }
        std::vector<Column> all;
        if (ref) {
            for (unsigned c = 0; c < m_compiler->GetNumChannels(); ++c)
                all.push_back({ref->GetLabel(c), c, m_compiler->GetFrequency(c), m_compiler->GetSamplesRec(c)});
        } else {
            for (unsigned c = 0; c < m_rec0.GetNumChannels() && c < m_file.GetNumChannels(); ++c)
                all.push_back({m_rec0.GetLabel(c), c, m_rec0.GetFrequency(c), m_file.GetSamplesChannel(c)});
        }
        if (!SelectColumns(all)) return 1;
        if (!CheckFrequencies()) return 1;

        long first = 0, last = m_file.GetNumRecords();
        if (!m_opt.records.empty()) {
            ParseRange(m_opt.records, first, last);
            if (first > last || last > m_file.GetNumRecords())
                return Failure(StrFormat("Intervalle d'enregistrements invalide %ld:%ld (l'enregistrement en compte %ld)",
                                         first, last, m_file.GetNumRecords()));
        }
        m_recordSeconds = static_cast<double>(m_rec0.GetSamplesRecord()) / m_rec0.GetBaseFrequency();

        ReplacingOutput out(m_opt.out);
        if (!out.Open()) return FileFailure(m_opt.out);
        std::string header = "time_s";
        for (const Column& col : m_columns) header += "," + CsvField(col.label);
        std::fprintf(out.Stream(), "%s\n", header.c_str());
        ProgressBar bar("export", static_cast<unsigned long long>(last - first));
        int ok = ref ? WriteComputed(out.Stream(), first, last, bar) : WriteRecorded(out.Stream(), first, last, bar);
        bar.Finish();
        if (!ok) return 1;
        if (std::ferror(out.Stream()) || !out.Commit()) return FileFailure(m_opt.out);
        return 0;
    }

private:
    static int Failure(const std::string& text) {
        Fail(text);
        return 1;
    }
    static int FileFailure(const std::string& name) {
        long code = GetLastError();
        CSigFile::ErrorMessageBox(name.c_str(), code ? code : ERROR_WRITE_FAULT);
        return 1;
    }

    bool SelectColumns(const std::vector<Column>& all) {
        if (m_opt.channels.empty()) {
            m_columns = all;
        } else {
            for (const std::string& label : m_opt.channels) {
                const Column* found = nullptr;
                for (const Column& col : all)
                    if (EqualsNoCase(col.label, label)) {
                        found = &col;
                        break;
                    }
                if (!found) {
                    Fail("Canal inconnu : " + label);
                    return false;
                }
                m_columns.push_back(*found);
            }
        }
        if (m_columns.empty()) {
            Fail("Aucun canal à exporter");
            return false;
        }
        return true;
    }

    bool CheckFrequencies() const {
        std::vector<unsigned> found;
        for (const Column& col : m_columns) {
            bool known = false;
            for (unsigned f : found) known = known || f == col.frequency;
            if (!known) found.push_back(col.frequency);
        }
        if (found.size() == 1) return true;
        std::string text = "Les canaux exportés n'ont pas la même fréquence d'échantillonnage :";
        for (size_t i = 0; i < found.size(); ++i) text += StrFormat("%s %u Hz", i ? "," : "", found[i]);
        Fail(text);
        return false;
    }

    bool ReadFailure(long record) const {
        Fail(StrFormat("Lecture impossible de l'enregistrement %ld du fichier %s", record, m_opt.file.c_str()));
        return false;
    }

    int WriteRecorded(FILE* out, long first, long last, ProgressBar& bar) {
        std::unique_ptr<CFmtSigRec> rec(m_file.CreateCompatibleFmtSigRec());
        RecordSource source(m_file, m_opt.volts, m_recordSeconds);
        for (long r = first; r < last; ++r) {
            if (!rec || !source.Read(r, *rec)) return ReadFailure(r);
            WriteRecordLines(out, r, m_recordSeconds, m_columns, *rec);
            bar.Update(static_cast<unsigned long long>(r - first + 1));
        }
        return 1;
    }

    // The compiler needs the records from GetFirstRecOfs() to GetLastRecOfs()
    // around the current one: the whole span for the first record, then only
    // the newest record of each following one.
    int WriteComputed(FILE* out, long first, long last, ProgressBar& bar) {
        RecordSource source(m_file, m_opt.volts, m_recordSeconds);
        const int firstOfs = m_compiler->GetFirstRecOfs();
        const int span = m_compiler->GetSpanLength();
        std::vector<std::unique_ptr<CFmtSigRec>> inputs;
        std::vector<const CFmtSigRec*> pointers;
        for (int k = 0; k < span; ++k) {
            inputs.emplace_back(m_file.CreateCompatibleFmtSigRec());
            pointers.push_back(inputs.back().get());
        }
        std::unique_ptr<CFmtSigRec> output(m_compiler->CreateCompatibleFmtSigRec());
        for (long r = first; r < last; ++r) {
            const bool restart = r == first;
            const int count = restart ? span : (span > 0 ? 1 : 0);
            for (int k = 0; k < count; ++k) {
                // Restart: offsets firstOfs .. lastOfs; then the newest, at lastOfs.
                const long q = restart ? r + firstOfs + k : r + m_compiler->GetLastRecOfs();
                if (!source.Read(q, *inputs[static_cast<size_t>(k)])) return ReadFailure(q);
            }
            if (!m_compiler->Eval(span > 0 ? pointers.data() : nullptr, output.get(), restart ? 1 : 0)) {
                Fail(StrFormat("Calcul impossible de l'enregistrement %ld", r));
                return 0;
            }
            WriteRecordLines(out, r, m_recordSeconds, m_columns, *output);
            bar.Update(static_cast<unsigned long long>(r - first + 1));
        }
        return 1;
    }

    const ExportOptions& m_opt;
    CSigFile& m_file;
    const CRecordingMontage& m_rec0;
    std::unique_ptr<CCReformater> m_compiler;
    std::vector<Column> m_columns;
    double m_recordSeconds = 0.0;
};

}  // namespace

void RegisterExportCommand(CLI::App& app) {
    auto opt = std::make_shared<ExportOptions>();
    auto* cmd = app.add_subcommand("export", "write calibrated samples as CSV, or the recording as EDF+/BDF+");
    cmd->add_option("FILE", opt->file, "recording file")->required();
    cmd->add_option("OUT", opt->out, "CSV, EDF+ (.edf) or BDF+ (.bdf) file to write")->required();
    cmd->add_option("--montage", opt->montage, "reformatted montage whose channels are computed");
    cmd->add_option("--channel", opt->channels, "label of a channel to export (repeatable)")->allow_extra_args(false);
    cmd->add_option("--records", opt->records, "records A to B - 1")
        ->check([](const std::string& text) {
            long a, b;
            return ParseRange(text, a, b) ? std::string() : std::string("expected A:B, two record numbers");
        });
    cmd->add_flag("--volts", opt->volts, "values in volts instead of world units");
    cmd->callback([opt] {
        // EDF+ and BDF+ outputs take the montage and the record range only.
        std::string ext = ToUpper(ExtractExt(opt->out));
        if (ext == ".EDF" || ext == ".BDF") {
            if (!opt->channels.empty() || opt->volts) {
                std::fprintf(stderr, "--channel and --volts apply to CSV output only\n");
                std::fprintf(stderr, "usage: sigfile export FILE OUT.edf|OUT.bdf [--montage NAME] [--records A:B]\n");
                g_exitStatus = 2;
                return;
            }
            g_exitStatus = RunEdfExport(opt->file, opt->out, opt->montage, opt->records);
            return;
        }
        g_exitStatus = 1;
        if (IsFileOfRecording(opt->file, opt->out)) {
            Fail(opt->out + " est un fichier de l'enregistrement " + opt->file + " : l'exportation ne peut l'écraser");
            return;
        }
        SigFilePtr file = OpenForReading(opt->file);
        if (!file) return;
        const CPhysicalMontage* physical = file->GetPhysicalMontage();
        const CRecordingMontage* rec0 =
            physical && physical->GetNumRecordingMontages() > 0 ? physical->GetRecordingMontageAt(0) : nullptr;
        if (!rec0 || rec0->GetBaseFrequency() == 0) {
            CSigFile::ErrorMessageBox(opt->file.c_str(), ERROR_BAD_FORMAT);
            return;
        }
        g_exitStatus = Exporter(*opt, *file, *rec0).Run();
    });
}

}  // namespace sigfile_tool
