// The Nihon Kohden (3) entry of the format registry: a ".EEG" told by its
// device signature (at byte 0 and again at the control block, 0x81),
// whatever its name; its side files (".PNT", ".LOG", ".21E" ...) move,
// copy and delete with it, all or nothing.
#include "formats/nihonkohden/NkSigFile.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"

namespace {

int IdentifyNk(const CSigFileProbe& probe) { return CNkSigFile::IsNkHeader(probe.head, probe.headSize); }

CSigFile* OpenNk(const char* name, int /*readOnly*/, long* error) {
    std::string message;
    CSigFile* file = CNkSigFile::Open(name, error, &message);
    if (!file && error && *error) SetLastErrorDetail(*error, message);
    return file;
}

std::string JournalOf(const std::string& name) { return ExtractBase(name) + ".$J$"; }

// A target file keeps the extension of the source file it comes from.
std::vector<CFileMove> MovesOfSet(const std::string& from, const std::string& to) {
    std::vector<CFileMove> moves;
    for (const std::string& f : CNkSigFile::FilesOfSet(from)) moves.push_back({f, ExtractBase(to) + ExtractExt(f)});
    return moves;
}

int CopyNk(const char* from, const char* to, CProgressInfo* progress) {
    if (!from || !to || EqualsNoCase(ExtractBase(from), ExtractBase(to))) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    RecoverFileSet(JournalOf(to));
    CleanLeftoverTemporaries(ExtractBase(to));
    // Each file is copied under a temporary name, then the set is put in
    // place at once.
    std::vector<CFileMove> moves;
    std::vector<std::string> temps;
    ULONGLONG total = 0, done = 0;
    for (const std::string& f : CNkSigFile::FilesOfSet(from)) total += VhlGetFileSize(f);
    if (progress) progress->SetRange(total);
    for (const std::string& f : CNkSigFile::FilesOfSet(from)) {
        const std::string target = ExtractBase(to) + ExtractExt(f);
        const std::string temp = OwnedTemporaryName(target, "copy");
        CopyProgress report;
        if (progress)
            report = [&](ULONGLONG n, ULONGLONG) {
                progress->SetPos(done + n);
                return !progress->IsCancelled();
            };
        if (!CopyFileReplace(f, temp, report)) {
            const long code = GetLastError();
            for (const std::string& t : temps) DeleteFileName(t);
            SetLastError(code);
            return 0;
        }
        done += VhlGetFileSize(f);
        temps.push_back(temp);
        moves.push_back({temp, target});
    }
    // Side files of an earlier set under the target name go with it.
    for (const std::string& old : CNkSigFile::FilesOfSet(to))
        if (std::none_of(moves.begin(), moves.end(), [&](const CFileMove& m) { return m.to == old; }))
            moves.push_back({"", old});
    return ReplaceFileSet(JournalOf(to), moves) ? 1 : 0;
}

int RenameNk(const char* from, const char* to) {
    if (!from || !to) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    RecoverFileSet(JournalOf(from));
    RecoverFileSet(JournalOf(to));
    if (!CNkSigFile::FilesOfSet(to).empty()) {
        SetLastError(ERROR_FILE_EXISTS);
        return 0;
    }
    return ReplaceFileSet(JournalOf(to), MovesOfSet(from, to)) ? 1 : 0;
}

int DeleteNk(const char* name) {
    if (!name) return 0;
    RecoverFileSet(JournalOf(name));
    std::vector<CFileMove> moves;
    for (const std::string& f : CNkSigFile::FilesOfSet(name)) moves.push_back({"", f});
    if (moves.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return ReplaceFileSet(JournalOf(name), moves) ? 1 : 0;
}

CSigQuickInfo* QuickInfoNk(const char* name, long* error) {
    CSigFilePtr file(CNkSigFile::Open(name, error));
    if (!file) return nullptr;
    CSigQuickInfo* info =
        MakeSigQuickInfo(name, *file->GetFileHeader(), *file->GetPatientInfo(), ULONGLONG(file->GetFileSize()));
    info->m_strDescription = file->GetFileHeader()->GetInstitution();
    return info;
}

}  // namespace

extern const CSigFileDriver g_nihonKohdenDriver = {.format = SIGFILE_FORMAT_NIHONKOHDEN,
                                                   .name = "nihon-kohden",
                                                   .description = "Nihon Kohden recording (.EEG with .PNT, .LOG, .21E)",
                                                   .Identify = IdentifyNk,
                                                   .Open = OpenNk,
                                                   .Delete = DeleteNk,
                                                   .Copy = CopyNk,
                                                   .Rename = RenameNk,
                                                   .GetFileQuickInfo = QuickInfoNk};
