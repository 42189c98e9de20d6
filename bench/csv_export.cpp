// CSV export of a reformatted montage against computing the montage alone.
//
// One hour of the demo night (sigfile demo) is written once; then, in the
// same run, the bipolar montage is computed record by record through the
// formula engine (the record source the export uses), and `sigfile export
// NIGHT OUT.csv --montage Bipolar` writes the same channels as text.  The
// ratio is the export's time over the engine's: what writing the text adds.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <memory>
#include <string>

#include "montage/mtgs.h"
#include "platform/Paths.h"
#include "sigfile/RecordSource.h"
#include "sigfile/SIGFILE.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

// The sigfile program beside the bench folder of the build.
std::string ToolPath(const char* argv0) {
    std::string self = argv0;
    const size_t slash = self.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : self.substr(0, slash);
    return folder + "/../sigfile";
}

double ComputeMontage(const std::string& name, double& checksum) {
    const auto t0 = std::chrono::steady_clock::now();
    CSigFilePtr file(CSigFile::Open(name.c_str(), 1));
    if (!file) return -1;
    CComputedMontage computed;
    std::string error;
    if (!computed.Choose(*file, "Bipolar", {}, error) || !computed.Get()) return -1;
    CDerivedSource source(*file, computed.Get());
    if (!source.Compile(&error)) return -1;
    std::unique_ptr<CFmtSigRec> record(source.CreateCompatibleFmtSigRec());
    for (long r = 0; r < file->GetNumRecords(); ++r) {
        if (!source.Read(r, *record)) return -1;
        checksum += record->GetAt(0, 0);
    }
    return Seconds(t0);
}

}  // namespace

int main(int, char** argv) {
    char folderTemplate[] = "/tmp/sigfile-bench-csv-XXXXXX";
    if (!mkdtemp(folderTemplate)) return 1;
    const std::string folder = folderTemplate, night = folder + "/night.sig", csv = folder + "/night.csv";
    const std::string tool = ToolPath(argv[0]);
    if (std::system((tool + " demo " + night + " --minutes 60 > /dev/null").c_str()) != 0) {
        std::fprintf(stderr, "demo night not written\n");
        return 1;
    }
    double checksum = 0;
    ComputeMontage(night, checksum);  // warm the page cache
    double engine = 1e30, exported = 1e30;
    for (int run = 0; run < 2; ++run) {
        engine = std::min(engine, ComputeMontage(night, checksum));
        const auto t0 = std::chrono::steady_clock::now();
        if (std::system((tool + " export " + night + " " + csv + " --montage Bipolar > /dev/null").c_str()) != 0) {
            std::fprintf(stderr, "export failed\n");
            return 1;
        }
        exported = std::min(exported, Seconds(t0));
    }
    std::printf("RESULT csv_export_montage %.2f s ratio=%.2f target=3\n", exported, exported / engine);
    std::fprintf(stderr, "(engine %.2f s, export %.2f s, checksum %g)\n", engine, exported, checksum);
    std::system(("rm -rf " + folder).c_str());
    return 0;
}
