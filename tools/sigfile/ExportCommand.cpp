// sigfile export FILE OUT [--montage NAME] [--derive LABEL=FORMULA]...
//                 [--channel LABEL]... [--records A:B] [--volts]
// OUT.csv: calibrated samples of the record channels, or of computed
// channels (a reformatted montage, formulas given on the command line), as
// CSV.  Any other output is written by the format its name chooses (EDF+,
// BDF+, native recording) through the library's create-copy.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "ToolSupport.h"
#include "montage/mtgs.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "records/SigRec.h"
#include "sigfile/FormatDriver.h"
#include "sigfile/RecordSource.h"

namespace sigfile_tool {
namespace {

struct ExportOptions {
    std::string file;
    std::string out;
    std::string montage;
    std::vector<std::string> derives;
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
    std::string alias;   // another name that selects it (the montage's label)
    unsigned channel;    // channel of the recording record or output of the compiler
    double frequency;
    unsigned samples;    // per record
};

// Lines of text gathered into a buffer written in large blocks.  Numbers
// are formatted with to_chars, which gives the text of printf's "%.9g" and
// "%.6f" at a fraction of its cost.
class LineWriter {
public:
    explicit LineWriter(FILE* out) : m_out(out) { m_buffer.reserve(kBlock + 4096); }
    ~LineWriter() { Drain(); }
    void Time(double seconds) { Put(seconds, std::chars_format::fixed, 6); }
    void Value(float value) {
        m_buffer.push_back(',');
        Put(static_cast<double>(value), std::chars_format::general, 9);
    }
    void EndLine() {
        m_buffer.push_back('\n');
        if (m_buffer.size() >= kBlock) Drain();
    }
    void Drain() {
        if (!m_buffer.empty()) std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_out);
        m_buffer.clear();
    }

private:
    static constexpr size_t kBlock = 1 << 20;
    void Put(double v, std::chars_format format, int precision) {
        char text[64];
        const auto res = std::to_chars(text, text + sizeof text, v, format, precision);
        m_buffer.append(text, res.ptr);
    }
    FILE* m_out;
    std::string m_buffer;
};

// Writes the lines of one record: the time, then each column's sample.
void WriteRecordLines(LineWriter& out, long record, double recordSeconds, const std::vector<Column>& columns,
                      const CFmtSigRec& rec) {
    const unsigned samples = columns.front().samples;
    const double frequency = columns.front().frequency;
    for (unsigned s = 0; s < samples; ++s) {
        out.Time(static_cast<double>(record) * recordSeconds + s / frequency);
        for (const Column& col : columns) out.Value(rec.GetAt(col.channel, s));
        out.EndLine();
    }
}

class Exporter {
public:
    Exporter(const ExportOptions& opt, CSigFile& file) : m_opt(opt), m_file(file) {}

    int Run() {
        std::string error;
        if (!m_computed.Choose(m_file, m_opt.montage, m_opt.derives, error)) return Failure(error);
        const CRecordSource::Unit unit = m_opt.volts ? CRecordSource::Unit::Volts : CRecordSource::Unit::World;
        std::vector<Column> all;
        if (CReformatedMontage* ref = m_computed.Get()) {
            m_derived = std::make_unique<CDerivedSource>(m_file, ref, unit);
            if (!m_derived->Compile(&error)) {
                const std::string name = m_opt.montage.empty() ? std::string("--derive") : m_opt.montage;
                return Failure("Impossible de calculer le montage " + name + (error.empty() ? "" : "\n" + error));
            }
            const double seconds = m_file.GetRecordDuration();
            for (unsigned c = 0; c < m_derived->GetNumChannels(); ++c) {
                const unsigned n = m_derived->GetSamplesRec(c);
                all.push_back({m_derived->GetLabel(c), "", c, seconds > 0 ? n / seconds : 0.0, n});
            }
        } else {
            m_source = std::make_unique<CRecordSource>(m_file, unit);
            for (unsigned c = 0; c < m_file.GetNumChannels(); ++c) {
                // The montage's label selects the channel too ("Fp1-REF" for "EEG Fp1-REF").
                std::string alias;
                unsigned k = 0;
                if (const CRecordingMontage* rec = RecordingMontageOfChannel(m_file, c, &k)) alias = rec->GetLabel(k);
                all.push_back({ChannelLabel(m_file, c), alias, c, m_file.GetChannelFrequency(c),
                               m_file.GetSamplesChannel(c)});
            }
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
        m_recordSeconds = m_file.GetRecordDuration();

        ReplacingOutput out(m_opt.out);
        if (!out.Open()) return FileFailure(m_opt.out);
        std::string header = "time_s";
        for (const Column& col : m_columns) header += "," + CsvField(col.label);
        std::fprintf(out.Stream(), "%s\n", header.c_str());
        ProgressBar bar("export", static_cast<unsigned long long>(last - first));
        int ok = WriteRecords(out.Stream(), first, last, bar);
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
                for (const Column& col : all)
                    if (!found && !col.alias.empty() && EqualsNoCase(col.alias, label)) found = &col;
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
        std::vector<double> found;
        for (const Column& col : m_columns) {
            bool known = false;
            for (double f : found) known = known || f == col.frequency;
            if (!known) found.push_back(col.frequency);
        }
        if (found.size() == 1) return true;
        std::string text = "Les canaux exportés n'ont pas la même fréquence d'échantillonnage :";
        for (size_t i = 0; i < found.size(); ++i) text += StrFormat("%s %g Hz", i ? "," : "", found[i]);
        Fail(text);
        return false;
    }

    bool ReadFailure(long record) const {
        Fail(StrFormat("Lecture impossible de l'enregistrement %ld du fichier %s", record, m_opt.file.c_str()));
        return false;
    }

    int WriteRecords(FILE* out, long first, long last, ProgressBar& bar) {
        std::unique_ptr<CFmtSigRec> rec(m_derived ? m_derived->CreateCompatibleFmtSigRec()
                                                  : m_source->CreateCompatibleFmtSigRec());
        LineWriter lines(out);
        for (long r = first; r < last; ++r) {
            const int ok = m_derived ? m_derived->Read(r, *rec) : m_source->Read(r, *rec);
            if (!rec || !ok) return ReadFailure(r);
            WriteRecordLines(lines, r, m_recordSeconds, m_columns, *rec);
            bar.Update(static_cast<unsigned long long>(r - first + 1));
        }
        return 1;
    }

    const ExportOptions& m_opt;
    CSigFile& m_file;
    CComputedMontage m_computed;
    std::unique_ptr<CRecordSource> m_source;
    std::unique_ptr<CDerivedSource> m_derived;
    std::vector<Column> m_columns;
    double m_recordSeconds = 0.0;
};

// Any output but CSV: the format its name chooses writes it.
int RunCreateCopy(const ExportOptions& opt) {
    CSigFileCopyOptions options;
    options.montage = opt.montage;
    options.channels = opt.channels;
    options.derives = opt.derives;
    if (!opt.records.empty()) ParseRange(opt.records, options.firstRecord, options.endRecord);
    SigFilePtr file = OpenForReading(opt.file);
    if (!file) return 1;
    std::string error;
    ProgressInfoBar progress("export");
    const int ok = CreateSigFileCopy(file.get(), opt.out.c_str(), options, &error, &progress);
    progress.Finish();
    if (ok) return 0;
    PrintError(error);
    return 1;
}

}  // namespace

void RegisterExportCommand(CLI::App& app) {
    auto opt = std::make_shared<ExportOptions>();
    auto* cmd = app.add_subcommand("export", "write calibrated samples as CSV, or the recording as EDF+, BDF+ or native");
    cmd->add_option("FILE", opt->file, "recording file")->required();
    cmd->add_option("OUT", opt->out, "CSV, EDF+ (.edf), BDF+ (.bdf) or native (.SIG) file to write")->required();
    cmd->add_option("--montage", opt->montage, "reformatted montage whose channels are computed");
    cmd->add_option("--derive", opt->derives, "a computed channel LABEL=FORMULA (repeatable)")->allow_extra_args(false);
    cmd->add_option("--channel", opt->channels, "label of a channel to export (repeatable)")->allow_extra_args(false);
    cmd->add_option("--records", opt->records, "records A to B - 1")
        ->check([](const std::string& text) {
            long a, b;
            return ParseRange(text, a, b) ? std::string() : std::string("expected A:B, two record numbers");
        });
    cmd->add_flag("--volts", opt->volts, "values in volts instead of world units (CSV)");
    cmd->callback([opt] {
        if (!EqualsNoCase(ExtractExt(opt->out), ".csv") && GetSigFileDriverForOutput(opt->out.c_str())) {
            if (opt->volts) {
                std::fprintf(stderr, "--volts applies to CSV output only\n");
                std::fprintf(stderr, "usage: sigfile export FILE OUT.edf|OUT.bdf|OUT.SIG [--montage NAME] "
                                     "[--derive LABEL=FORMULA]... [--channel LABEL]... [--records A:B]\n");
                g_exitStatus = 2;
                return;
            }
            g_exitStatus = RunCreateCopy(*opt);
            return;
        }
        g_exitStatus = 1;
        if (IsFileOfRecording(opt->file, opt->out)) {
            Fail(opt->out + " est un fichier de l'enregistrement " + opt->file + " : l'exportation ne peut l'écraser");
            return;
        }
        SigFilePtr file = OpenForReading(opt->file);
        if (!file) return;
        if (file->GetNumChannels() == 0) {
            Fail(opt->file + " : aucun canal à exporter");
            return;
        }
        g_exitStatus = Exporter(*opt, *file).Run();
    });
}

}  // namespace sigfile_tool
