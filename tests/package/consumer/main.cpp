// Writes a small native recording through the public API, opens it again
// by the format registry and prints what it holds.
#include <cstdio>
#include <memory>

#include "formats/native/STDSIGFI.h"
#include "sigfile/SIGFILE.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer FILE.SIG\n");
        return 2;
    }
    const char* name = argv[1];
    std::printf("format of %s: %d\n", name, GetSigFileFormat(name));
    std::unique_ptr<CSigFile> file(CSigFile::Open(name, 1));
    if (!file) {
        std::fprintf(stderr, "cannot open %s\n", name);
        return 1;
    }
    std::unique_ptr<CFmtSigRec> record(file->CreateCompatibleFmtSigRec());
    long read = 0;
    for (file->MoveFirst(); !file->IsEOF(); file->MoveNext()) read += file->Read(record.get()) ? 1 : 0;
    std::printf("channels %u records %ld read %ld\n", file->GetNumChannels(), file->GetNumRecords(), read);
    return read == file->GetNumRecords() && read > 0 ? 0 : 1;
}
