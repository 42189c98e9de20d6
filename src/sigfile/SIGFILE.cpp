#include "sigfile/SIGFILE.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/Assert.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "recording/FileHeader.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"

IMPLEMENT_DYNAMIC(CSigFile, CObject)

int CSigFile::ReadDigital(CDigSigRec* record) {
    if (!record) return 0;
    std::unique_ptr<CRawSigRec> raw(CreateCompatibleRawSigRec());
    if (!raw || !Read(raw.get())) return 0;
    const unsigned channels = raw->GetNumChannels();
    bool same = record->GetNumChannels() == channels;
    for (unsigned c = 0; same && c < channels; ++c) same = record->GetNumSamples(c) == raw->GetNumSamples(c);
    if (!same) {
        std::vector<unsigned short> counts(channels);
        for (unsigned c = 0; c < channels; ++c) counts[c] = static_cast<unsigned short>(raw->GetNumSamples(c));
        record->Create(channels, counts.data());
    }
    record->SetTime(raw->GetTime());
    const short* in = raw->GetData();
    LONG* out = record->GetData();
    for (unsigned i = 0, n = raw->GetTotalSamples(); i < n; ++i) out[i] = in[i];
    return 1;
}

// ---------------------------------------------------------------------------
// Messages

void CSigFile::ErrorMessageBox(const char* name, long code) {
    if (!name || !*name) return;
    std::string detail;
    if (code == ERROR_BAD_FORMAT) {
        detail = LoadResString(IDS_ERR_INVALID_FORMAT);
    } else if (code == ERROR_BAD_LENGTH) {
        detail = LoadResString(IDS_ERR_24_HOURS);
    } else if (!GetSystemErrorText(code, detail)) {
        detail = StrFormat(LoadResString(IDS_ERR_CODE).c_str(), code);
    }
    if (Utf8Length(detail) > 512) detail = Utf8Left(detail, 512);
    // What the format said of the failure, when it said more.
    const std::string more = GetLastErrorDetail(code);
    if (!more.empty()) detail += "\n" + more;
    AfxMessageBox(StrFormat(LoadResString(IDS_ERR_FILE_BOX).c_str(), name, detail.c_str()));
}

void SetErrorCondition(const char* sourceFile, int line, const char* message) {
    std::string text;
    if (message)
        text = StrFormat("%s \n%s %s %d", message, LoadResString(IDS_AT).c_str(), sourceFile ? sourceFile : "", line);
    else
        text = StrFormat("%s %d", sourceFile ? sourceFile : "", line);
    AfxMessageBox(text, "Moltrane32 - " + LoadResString(IDS_INTERNAL_ERROR));
    std::exit(0);
}

void CSigFile::GetStsExtensions(const char* name, CStringArray* extensions) {
    if (!extensions) return;
    extensions->RemoveAll();
    if (!name || !*name) return;
    std::string base = ExtractBase(name);
    for (int i = 0; i <= 999; ++i) {
        std::string ext = StrFormat(".%.3d", i);
        if (VhlCheckFileExist(base + ext)) extensions->Add(ext);
    }
}

bool IsFileOfRecording(const std::string& sigName, const std::string& name) {
    const std::string base = ExtractBase(sigName);
    if (IsSameFile(sigName, name)) return true;
    for (const char* ext : {".STS", ".ST$", ".$T$"})
        if (IsSameFile(base + ext, name)) return true;
    CStringArray extensions;
    CSigFile::GetStsExtensions(sigName.c_str(), &extensions);
    for (const std::string& ext : extensions)
        if (IsSameFile(base + ext, name)) return true;
    return false;
}

int CSigFile::CopyStsFile(const char* from, const char* to, CProgressInfo* progress) {
    if (!from || !to) return 0;
    std::string fromBase = ExtractBase(from), toBase = ExtractBase(to);
    CopyProgress report;
    if (progress)
        report = [progress](ULONGLONG done, ULONGLONG total) {
            progress->SetRange(total);
            progress->SetPos(done);
            return !progress->IsCancelled();
        };
    if (!CopyFileReplace(fromBase + ".STS", toBase + ".STS", report)) return 0;
    CStringArray extensions;
    GetStsExtensions(from, &extensions);
    for (const std::string& ext : extensions)
        if (!CopyFileReplace(fromBase + ext, toBase + ext, report)) return 0;
    return 1;
}

int CSigFile::RenameStsFile(const char* from, const char* to) {
    if (!from || !to) return 0;
    std::string fromBase = ExtractBase(from), toBase = ExtractBase(to);
    CStringArray extensions;
    GetStsExtensions(from, &extensions);
    if (!MoveFileReplace(fromBase + ".STS", toBase + ".STS")) return 0;
    for (const std::string& ext : extensions)
        if (!MoveFileReplace(fromBase + ext, toBase + ext)) return 0;
    return 1;
}

int CSigFile::DeleteStsFile(const char* name) {
    if (!name) return 0;
    std::string base = ExtractBase(name);
    CStringArray extensions;
    GetStsExtensions(name, &extensions);
    int ok = 1;
    for (const std::string& ext : extensions)
        if (!DeleteFileName(base + ext)) ok = 0;
    return ok;
}

CSigQuickInfo* MakeSigQuickInfo(const char* name, const CFileHeader& header, const CPatientInfo& patient,
                                ULONGLONG totalSize) {
    auto* info = new CSigQuickInfo;
    info->m_strFileName = name ? name : "";
    info->m_strLastName = patient.GetLastName();
    info->m_strFirstName = patient.GetFirstName();
    info->m_strPatientId1 = patient.GetPatientId1();
    info->m_strPatientId2 = patient.GetPatientId2();
    info->m_nTotalSize = totalSize;
    info->m_creation = header.GetCreationDateTime();
    return info;
}
