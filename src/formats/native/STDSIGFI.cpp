#include "formats/native/STDSIGFI.h"

#include "formats/native/NativeCreateCopy.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "montage/mtgs.h"
#include "platform/Assert.h"
#include "platform/FileOps.h"
#include "platform/Messages.h"
#include "platform/Paths.h"
#include "platform/Strings.h"
#include "platform/strings/NativeStrings.h"
#include "recording/FileHeader.h"
#include "recording/calib.h"
#include "recording/ptntinfo.h"
#include "sigfile/FormatDriver.h"
#include "records/stdcodec.h"
#include "status/IntStsFile.h"

IMPLEMENT_DYNAMIC(CStdSigFile, CIntSigFile)

namespace {
constexpr size_t kReadAheadBytes = 256 * 1024;
constexpr WORD kMaxStatusVersion = 2;  // the signal file accepts one more than the status reader's own limit

std::string StsName(const std::string& base) { return base + ".STS"; }
std::string SigName(const std::string& base) { return base + ".SIG"; }

// The data file of a recording name as it exists on disk: the name given
// when it exists, else the base with ".SIG" or ".sig".
std::string DataNameOf(const std::string& name) {
    if (VhlCheckFileExist(name)) return name;
    const std::string base = ExtractBase(name);
    if (VhlCheckFileExist(base + ".sig")) return base + ".sig";
    return SigName(base);
}

// The status file beside a data file, in the letter case of the data
// file's extension (night.sig goes with night.sts), whichever exists.
std::string StatusNameOf(const std::string& name) {
    const std::string base = ExtractBase(name), ext = ExtractExt(DataNameOf(name));
    std::string mapped = ".STS";
    for (size_t i = 1; i < 4 && i < ext.size(); ++i)
        if (ext[i] >= 'a' && ext[i] <= 'z') mapped[i] = char(mapped[i] - 'A' + 'a');
    if (VhlCheckFileExist(base + mapped)) return base + mapped;
    for (const char* other : {".STS", ".sts"})
        if (VhlCheckFileExist(base + other)) return base + other;
    return base + mapped;
}
std::string WorkName(const std::string& base) { return base + ".ST$"; }
std::string TransferName(const std::string& base) { return base + ".$T$"; }

// Turns an exception of the library or the platform into a system error
// code; the code already set by the thrower wins for the library's own.
long ErrorFromCurrentException(long preset) {
    try {
        throw;
    } catch (const CFileException& e) {
        return e.m_lOsError > 0 ? e.m_lOsError : ERROR_ACCESS_DENIED;
    } catch (const CArchiveException&) {
        return ERROR_BAD_FORMAT;
    } catch (const CMemoryException&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const CInvalidArgException&) {
        return ERROR_BAD_FORMAT;
    } catch (const CGenericException&) {
        return preset ? preset : ERROR_INVALID_PARAMETER;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

[[noreturn]] void ThrowLastFileError(const std::string& name) {
    long code = GetLastError();
    if (code == 0) code = ERROR_GEN_FAILURE;
    AfxThrowFileException(CFileException::OsErrorToException(code), code, name.c_str());
}

// Reads a whole file into memory (with a tenth of its size again as
// reserve) for loading through a memory archive.
std::vector<BYTE> ReadWholeFile(const std::string& name) {
    CFile f;
    CFileException e;
    if (!f.Open(name.c_str(), CFile::modeRead | CFile::shareDenyNone, &e)) throw e;
    ULONGLONG length = f.GetLength();
    if (length > (1ull << 31)) AfxThrowArchiveException(CArchiveException::genericException, name.c_str());
    std::vector<BYTE> buffer;
    buffer.reserve(static_cast<size_t>(length + length / 10));
    buffer.resize(static_cast<size_t>(length));
    if (f.Read(buffer.data(), static_cast<UINT>(length)) != length)
        AfxThrowArchiveException(CArchiveException::endOfFile, name.c_str());
    return buffer;
}

// True when another process holds the writer's lock on the data file.
bool IsLockedByWriter(const std::string& sigName) {
    CFile f;
    CFileException e;
    if (f.Open(sigName.c_str(), CFile::modeReadWrite | CFile::shareDenyWrite, &e)) return false;
    return e.m_lOsError == ERROR_SHARING_VIOLATION;
}

bool FolderAcceptsFiles(const std::string& base) {
    std::string dir = ExtractDriveDir(base);
    return ::access(dir.empty() ? "." : dir.c_str(), W_OK | X_OK) == 0;
}

std::string VideoFolder(const char* name) {
    std::string folder;
    if (!CStdSigFile::IsFolderBasedStorage(name, &folder)) return {};
    return NormalizeSeparators(StrFormat("%s%s\\", folder.c_str(), "DV"));
}
}  // namespace

CStdSigFile::CStdSigFile(const std::string& name)
    : m_base(ExtractBase(name)), m_stsName(StatusNameOf(name)), m_workName(WorkName(m_base)) {
    m_strFileName = DataNameOf(name);
}

CStdSigFile::~CStdSigFile() = default;

// ---------------------------------------------------------------------------
// Names and video

int CStdSigFile::IsValidFormat(const char* name) {
    if (!name || !*name) return 0;
    return ToUpper(ExtractExt(name)) == ".SIG";
}

int CStdSigFile::GetFileNameExtension(const char* name, CString& base, CString& extension, CString& statusExtension) {
    std::string n = name ? name : "";
    base = ExtractBase(n);
    extension = ToUpper(ExtractExt(n));
    statusExtension = extension == ".SIG" ? ".STS" : "";
    return extension == ".SIG";
}

int CStdSigFile::IsFolderBasedStorage(const char* name, std::string* folder) {
    if (!name || !*name) return 0;
    std::string dir = ExtractDriveDir(name);
    if (dir.size() < 2) return 0;
    std::string parent = dir.substr(0, dir.size() - 1);
    size_t sep = parent.find_last_of('/');
    std::string last = sep == std::string::npos ? parent : parent.substr(sep + 1);
    if (!EqualsNoCase(last, ExtractFName(name))) return 0;
    if (folder) *folder = dir;
    return 1;
}

ULONGLONG CStdSigFile::GetDVIdxSize(const char* name) {
    std::string dv = VideoFolder(name);
    return dv.empty() ? 0 : VhlGetFileSize(dv + "DV.MPX");
}

ULONGLONG CStdSigFile::GetDVSize(const char* name) {
    std::string dv = VideoFolder(name);
    if (dv.empty()) return 0;
    ULONGLONG total = VhlGetFileSize(dv + "DV.MPG");
    if (DIR* d = ::opendir(dv.c_str())) {
        while (dirent* e = ::readdir(d))
            if (EqualsNoCase(ExtractExt(e->d_name), ".AVI")) total += VhlGetFileSize(dv + e->d_name);
        ::closedir(d);
    }
    return total;
}

int CStdSigFile::HasDV(const char* name) {
    std::string dv = VideoFolder(name);
    if (dv.empty() || !VhlCheckFileExist(dv + "DV.MPX")) return 0;
    if (VhlCheckFileExist(dv + "DV.MPG")) return 1;
    int found = 0;
    if (DIR* d = ::opendir(dv.c_str())) {
        while (dirent* e = ::readdir(d))
            if (EqualsNoCase(ExtractExt(e->d_name), ".AVI") && VhlCheckFileExist(dv + e->d_name)) found = 1;
        ::closedir(d);
    }
    return found;
}

// ---------------------------------------------------------------------------
// Replacing a whole recording

namespace {
std::string JournalName(const std::string& base) { return base + ".$J$"; }
}  // namespace

void RecoverRecording(const std::string& sig) {
    const std::string base = ExtractBase(sig);
    RecoverFileSet(JournalName(base));
    // A rename's journal lies at the new name: any journal of the folder
    // that moves a file of this name is finished too.
    const std::string dir = ExtractDriveDir(base);
    if (DIR* d = ::opendir(dir.empty() ? "." : dir.c_str())) {
        std::vector<std::string> journals;
        while (dirent* e = ::readdir(d))
            // (a journal still under its temporary name decided nothing)
            if (EqualsNoCase(ExtractExt(e->d_name), ".$J$") && !std::strchr(e->d_name, '~'))
                journals.push_back(dir + e->d_name);
        ::closedir(d);
        for (const std::string& j : journals)
            if (FileSetJournalTouches(j, base)) RecoverFileSet(j);
    }
    CleanLeftoverTemporaries(base);
}

int ReplaceRecording(const std::string& tempSig, const std::string& targetSig) {
    const std::string from = ExtractBase(tempSig), to = ExtractBase(targetSig);
    if (VhlCheckFileExist(SigName(to)) && IsLockedByWriter(SigName(to))) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return 0;
    }
    std::vector<CFileMove> moves = {{SigName(from), SigName(to)}, {StsName(from), StsName(to)}};
    CStringArray fromExt, toExt;
    CSigFile::GetStsExtensions(tempSig.c_str(), &fromExt);
    CSigFile::GetStsExtensions(targetSig.c_str(), &toExt);
    for (const std::string& ext : fromExt) moves.push_back({from + ext, to + ext});
    for (const std::string& ext : toExt)
        if (std::find(fromExt.begin(), fromExt.end(), ext) == fromExt.end()) moves.push_back({"", to + ext});
    // The working and transfer files of the recording replaced are its own.
    for (const std::string& side : {WorkName(to), TransferName(to)})
        if (VhlCheckFileExist(side)) moves.push_back({"", side});
    return ReplaceFileSet(JournalName(to), moves) ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Opening

CStdSigFile* CStdSigFile::Open(const char* name, int readOnly, long* error) {
    SetLastError(0);
    long err = 0;
    std::unique_ptr<CStdSigFile> file;
    try {
        if (!name || !*name) {
            err = ERROR_INVALID_PARAMETER;
            ThrowGenericException("Failure due to invalid argument(s)");
        }
        RecoverRecording(name);
        file.reset(new CStdSigFile(name));
        file->OpenFiles(readOnly);
    } catch (...) {
        err = ErrorFromCurrentException(err);
        file.reset();
        SetLastError(err);
    }
    if (error) *error = err;
    return file.release();
}

void CStdSigFile::LoadStatus(const std::string& stsName) {
    std::vector<BYTE> image = ReadWholeFile(stsName);
    CMemFile mem(image.data(), image.size());
    CArchive ar(&mem, CArchive::load, 4096);
    ar.m_strFileName = stsName;
    m_pStsFile->LoadFromArchive(ar, kMaxStatusVersion, "STDSIGFI", 256);
    CheckConsistency();
    const auto* codec = dynamic_cast<const CStdCoDec*>(m_pStsFile->GetSigCoDec());
    SetSigCoDec(new CStdCoDec(*codec));
}

void CStdSigFile::CheckConsistency() const {
    // The record layout must agree with itself and with the calibration, or
    // record access would leave its arrays.
    const auto* codec = dynamic_cast<const CStdCoDec*>(m_pStsFile->GetSigCoDec());
    const CCalibration* calibration = m_pStsFile->GetCalibration();
    bool ok = codec && calibration && (codec->GetNumChannels() > 0 || m_pStsFile->GetNumRecords() == 0) &&
              m_pStsFile->GetNumRecords() >= 0 &&
              calibration->GetNumChannels() >= codec->GetNumChannels();
    if (ok) {
        unsigned long long size = 8;
        for (unsigned c = 0; c < codec->GetNumChannels(); ++c) size += 2ull * codec->GetSamplesChannel()[c];
        ok = size == codec->GetCompRecSize();
    }
    if (!ok) AfxThrowArchiveException(CArchiveException::genericException, m_stsName.c_str());
}

namespace {
// What a status file says of the records it describes.
struct StatusShape {
    bool loaded = false;
    long records = 0;
    unsigned recordSize = 0;
    double created = 0;
};

StatusShape ShapeOf(const std::string& name) {
    StatusShape shape;
    try {
        CIntStsFile probe;
        std::vector<BYTE> image = ReadWholeFile(name);
        probe.LoadFromMemory(image.data(), image.size(), kMaxStatusVersion);
        shape.records = probe.GetNumRecords();
        shape.recordSize = probe.GetSigCoDec() ? probe.GetSigCoDec()->GetCompRecSize() : 0;
        shape.created = probe.GetFileHeader() ? probe.GetFileHeader()->GetCreationDateTime().GetValue() : 0;
        shape.loaded = shape.recordSize > 0 && shape.records >= 0;
    } catch (const CException&) {
    } catch (const std::bad_alloc&) {
    }
    return shape;
}

// A working status describes this data file: complete, of the recording the
// ".STS" describes (same record layout and creation time, when the ".STS"
// can be read), naming no record the data file lacks.
bool WorkFits(const StatusShape& work, const StatusShape& status, ULONGLONG sigBytes) {
    if (!work.loaded) return false;
    if (status.loaded && (status.recordSize != work.recordSize || status.created != work.created)) return false;
    return ULONGLONG(work.records) * work.recordSize <= sigBytes;
}
}  // namespace

void CStdSigFile::OpenFiles(int readOnly) {
    // A writer needs the folder for its working status and transfer files.
    bool writer = !readOnly && FolderAcceptsFiles(m_base);
    UINT mode = writer ? CFile::modeReadWrite | CFile::shareDenyWrite : CFile::modeRead | CFile::shareDenyNone;
    CFileException fe;
    if (!m_file.Open(m_strFileName.c_str(), mode, &fe)) throw fe;
    const ULONGLONG sigBytes = m_file.GetLength();

    if (writer) {
        // Holding the lock: a working status left behind belongs to a writer
        // that is gone.  It is restored only over the data file it describes.
        if (VhlCheckFileExist(m_workName)) {
            const StatusShape work = ShapeOf(m_workName), status = ShapeOf(m_stsName);
            if (WorkFits(work, status, sigBytes)) {
                if (!CopyFileReplace(m_workName, TransferName(m_base)) ||
                    !MoveFileReplace(TransferName(m_base), m_stsName))
                    ThrowLastFileError(m_stsName);
            } else {
                if (work.loaded)
                    m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_FOREIGN_WORK).c_str(), m_workName.c_str()));
                DeleteFileName(m_workName);
            }
        }
        LoadStatus(m_stsName);
    } else {
        // A reader takes the working status of a writer that died (no lock
        // on the data file) when it is complete and fits, without restoring
        // it; the ".STS" otherwise, the working status when only it reads.
        bool done = false;
        if (VhlCheckFileExist(m_workName) && !IsLockedByWriter(m_strFileName)) {
            const StatusShape work = ShapeOf(m_workName);
            if (WorkFits(work, ShapeOf(m_stsName), sigBytes)) {
                LoadStatus(m_workName);
                done = true;
            }
        }
        if (!done) {
            try {
                LoadStatus(m_stsName);
            } catch (const CException&) {
                if (!VhlCheckFileExist(m_workName)) throw;
                LoadStatus(m_workName);
            }
        }
    }
    // The data file must hold every record the status names: a shorter one
    // opens with the records it holds, read-only, and says so.
    const unsigned size = m_pCoDec ? m_pCoDec->GetCompRecSize() : 0;
    const ULONGLONG held = size ? sigBytes / size : 0;
    if (ULONGLONG(m_pStsFile->GetNumRecords()) > held) {
        m_notes.push_back(StrFormat(LoadResString(IDS_NATIVE_NOTE_SHORT_DATA).c_str(), m_pStsFile->GetNumRecords(),
                                    (unsigned long long)held));
        m_pStsFile->SetNumRecords(long(held));
        if (writer) {
            m_file.Abort();
            if (!m_file.Open(m_strFileName.c_str(), CFile::modeRead | CFile::shareDenyNone, &fe)) throw fe;
            writer = false;
        }
    }
    if (writer) {
        if (!CopyFileReplace(m_stsName, m_workName)) ThrowLastFileError(m_workName);
        CFileException we;
        if (!m_workFile.Open(m_workName.c_str(), CFile::modeReadWrite | CFile::shareExclusive, &we)) throw we;
        m_pStsFile->ClearReadOnly();
    } else {
        m_pStsFile->SetReadOnly();
    }
    m_pStsFile->ClearChanged();
    m_pStsFile->ClearIOError();
    m_nCurrentRecord = 0;
}

void CStdSigFile::GetFormatNotes(CStringArray* notes) const {
    if (!notes) return;
    notes->RemoveAll();
    for (const std::string& n : m_notes) notes->Add(n);
}

// ---------------------------------------------------------------------------
// Creating

CStdSigFile* CStdSigFile::Create(const char* name, CFileHeader* header, CPatientInfo* patient,
                                 CPhysicalMontage* montage, CCalibration* calibration, long* error) {
    SetLastError(0);
    long err = 0;
    std::unique_ptr<CStdSigFile> file;
    try {
        const CRecordingMontage* rec =
            montage && montage->GetNumRecordingMontages() > 0 ? montage->GetRecordingMontageAt(0) : nullptr;
        // (a recording without channels holds events only: a scored hypnogram)
        if (!header || !patient || !calibration || !rec || rec->GetNumChannels() > 128 || calibration->GetNumChannels() < rec->GetNumChannels()) {
            err = ERROR_INVALID_PARAMETER;
            ThrowGenericException("Failure due to invalid argument(s)");
        }
        if (!IsValidFormat(name)) {
            err = ERROR_INVALID_NAME;
            ThrowGenericException("Failure due to invalid file name");
        }
        std::string folder;
        if (IsFolderBasedStorage(name, &folder) && !VhlCheckFolderExist(folder) && ::mkdir(folder.c_str(), 0777) != 0) {
            err = ErrnoToSystemError(errno);
            ThrowGenericException("Failure to create filder folder");
        }
        auto codec = std::make_unique<CStdCoDec>(rec);
        unsigned long long size = 8;
        for (unsigned c = 0; c < codec->GetNumChannels(); ++c) size += 2ull * codec->GetSamplesChannel()[c];
        if (size != codec->GetCompRecSize() || size > 0xFFFF) {
            err = ERROR_INVALID_PARAMETER;
            ThrowGenericException("Failure due to invalid argument(s)");
        }

        file.reset(new CStdSigFile(SigName(ExtractBase(name))));
        CFileException fe;
        if (!file->m_file.Open(file->m_strFileName.c_str(),
                               CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareDenyWrite,
                               &fe))
            throw fe;
        CIntStsFile* sts = file->m_pStsFile.get();
        sts->SetFileHeader(new CFileHeader(*header));
        sts->SetPatientInfo(new CPatientInfo(*patient));
        sts->SetPhysicalMontage(new CPhysicalMontage(*montage));
        sts->SetCalibration(new CCalibration(*calibration));
        sts->SetSigCoDec(new CStdCoDec(*codec));
        sts->SetNumRecords(0);
        file->SetSigCoDec(codec.release());
        sts->ClearReadOnly();

        // The empty recording's status reaches the disk before the data file
        // is emptied.
        if (VhlCheckFileExist(file->m_workName)) DeleteFileName(file->m_workName);
        if (!file->m_workFile.Open(file->m_workName.c_str(),
                                   CFile::modeCreate | CFile::modeReadWrite | CFile::shareExclusive, &fe))
            throw fe;
        file->WriteWorkingStatus();
        if (!file->CreateStsBackup()) ThrowLastFileError(file->m_stsName);
        file->m_file.SetLength(0);
        file->m_file.FlushToDisk();
        sts->ClearChanged();
        file->m_nCurrentRecord = 0;
    } catch (...) {
        err = ErrorFromCurrentException(err);
        file.reset();
        SetLastError(err);
    }
    if (error) *error = err;
    return file.release();
}

// ---------------------------------------------------------------------------
// Records

int CStdSigFile::Load(DWORD record, CObject* bytes) {
    auto* image = static_cast<CByteArray*>(bytes);
    size_t size = m_pCoDec ? m_pCoDec->GetCompRecSize() : 0;
    if (size == 0) return 0;
    if (record >= m_writeBehindFirst && record < m_writeBehindFirst + m_writeBehindCount) {
        image->SetSize(static_cast<int>(size));
        std::memcpy(image->GetData(), m_writeBehind.data() + (record - m_writeBehindFirst) * size, size);
        return 1;
    }
    if (record < m_readAheadFirst || record >= m_readAheadFirst + m_readAheadCount) {
        // Read ahead only when the reading is sequential.
        bool sequential = m_readAheadCount > 0 && record == m_readAheadFirst + m_readAheadCount;
        long available = GetNumRecords() - static_cast<long>(record);
        size_t records = sequential ? std::max<size_t>(1, kReadAheadBytes / size) : 1;
        if (available > 0) records = std::min<size_t>(records, static_cast<size_t>(available));
        m_readAhead.resize(records * size);
        ssize_t got = 0;
        off_t offset = static_cast<off_t>(record) * static_cast<off_t>(size);
        while (static_cast<size_t>(got) < m_readAhead.size()) {
            ssize_t n = ::pread(m_file.GetHandle(), m_readAhead.data() + got, m_readAhead.size() - static_cast<size_t>(got),
                                offset + got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                m_readAheadCount = 0;
                SetIOError(ErrnoToSystemError(errno));
                return 0;
            }
            if (n == 0) break;
            got += n;
        }
        m_readAheadFirst = record;
        m_readAheadCount = static_cast<DWORD>(static_cast<size_t>(got) / size);
        if (m_readAheadCount == 0) {
            // The data file is shorter than the status file says.
            SetIOError(ERROR_HANDLE_EOF);
            return 0;
        }
    }
    image->SetSize(static_cast<int>(size));
    std::memcpy(image->GetData(), m_readAhead.data() + (record - m_readAheadFirst) * size, size);
    return 1;
}

void CStdSigFile::InvalidateReadAhead(DWORD record) {
    if (record >= m_readAheadFirst && record < m_readAheadFirst + m_readAheadCount) m_readAheadCount = 0;
}

int CStdSigFile::FlushWriteBehind() {
    size_t size = m_pCoDec ? m_pCoDec->GetCompRecSize() : 0;
    size_t total = static_cast<size_t>(m_writeBehindCount) * size;
    off_t offset = static_cast<off_t>(m_writeBehindFirst) * static_cast<off_t>(size);
    size_t done = 0;
    while (done < total) {
        ssize_t n = ::pwrite(m_file.GetHandle(), m_writeBehind.data() + done, total - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            SetIOError(n < 0 ? ErrnoToSystemError(errno) : ERROR_WRITE_FAULT);
            return 0;
        }
        done += static_cast<size_t>(n);
    }
    // The disk starts on these bytes now, so that the next Flush waits for
    // little more than the last of them.
    m_file.StartWriteBack(static_cast<ULONGLONG>(offset), total);
    // Records read ahead while these waited here hold what the disk had
    // before: they take the bytes just written.
    const DWORD from = std::max(m_writeBehindFirst, m_readAheadFirst);
    const DWORD to = std::min(m_writeBehindFirst + m_writeBehindCount, m_readAheadFirst + m_readAheadCount);
    for (DWORD r = from; r < to; ++r)
        std::memcpy(m_readAhead.data() + static_cast<size_t>(r - m_readAheadFirst) * size,
                    m_writeBehind.data() + static_cast<size_t>(r - m_writeBehindFirst) * size, size);
    m_writeBehindCount = 0;
    return 1;
}

int CStdSigFile::Save(DWORD record, CObject* bytes) {
    auto* image = static_cast<CByteArray*>(bytes);
    size_t size = m_pCoDec->GetCompRecSize();
    if (static_cast<size_t>(image->GetSize()) != size) return 0;
    InvalidateReadAhead(record);
    // Records that follow one another are written together; anything else
    // writes what was gathered first.
    size_t capacity = std::max<size_t>(1, kReadAheadBytes / size);
    bool follows = m_writeBehindCount > 0 && record == m_writeBehindFirst + m_writeBehindCount &&
                   m_writeBehindCount < capacity;
    if (!follows) {
        if (m_writeBehindCount && !FlushWriteBehind()) return 0;
        m_writeBehindFirst = record;
        m_writeBehind.resize(capacity * size);
    }
    std::memcpy(m_writeBehind.data() + static_cast<size_t>(m_writeBehindCount) * size, image->GetData(), size);
    ++m_writeBehindCount;
    return 1;
}

// ---------------------------------------------------------------------------
// Saving and closing

void CStdSigFile::WriteWorkingStatus() {
    m_workFile.SeekToBegin();
    CArchive ar(&m_workFile, CArchive::store, 4096);
    ar.m_strFileName = m_workName;
    m_pStsFile->StoreToArchive(ar);
    ar.Close();
    m_workFile.SetLength(m_workFile.GetPosition());
    m_workFile.FlushToDisk();
}

int CStdSigFile::CreateStsBackup() {
    std::string transfer = TransferName(m_base);
    if (!CopyFileReplace(m_workName, transfer)) return GetLastError() == ERROR_FILE_NOT_FOUND ? 1 : 0;
    if (!MoveFileReplace(transfer, m_stsName)) {
        long code = GetLastError();
        DeleteFileName(transfer);
        SetLastError(code);
        return 0;
    }
    return 1;
}

int CStdSigFile::Flush() {
    if (IsReadOnly() || !m_workFile.IsOpen()) return 1;
    if (!IsChanged()) return 1;
    if (!m_pCache->Flush() || !FlushWriteBehind()) return 0;
    try {
        m_file.FlushToDisk();
        WriteWorkingStatus();
    } catch (const CFileException& e) {
        SetIOError(e.m_lOsError > 0 ? e.m_lOsError : ERROR_WRITE_FAULT);
        return 0;
    }
    if (!CreateStsBackup()) {
        SetIOError(GetLastError() ? GetLastError() : ERROR_WRITE_FAULT);
        return 0;
    }
    ClearChanged();
    return 1;
}

int CStdSigFile::Close() {
    int ok = Flush();
    bool writer = m_workFile.IsOpen();
    m_workFile.Abort();
    // With everything saved the working status has served; after a failure
    // it stays for the next writer to recover.
    if (writer && ok) DeleteFileName(m_workName);
    m_file.Abort();
    m_readAheadCount = 0;
    return ok;
}

LONGLONG CStdSigFile::GetFileSize() const {
    return static_cast<LONGLONG>(VhlGetFileSize(m_strFileName) + VhlGetFileSize(m_stsName));
}

void CStdSigFile::SetFileHeader(CFileHeader* header) {
    SF_ASSERT(header != nullptr, "STDSIGFI", 610);
    if (!header) return;
    CIntSigFile::SetFileHeader(header);
    SetChanged();
}

void CStdSigFile::SetPatientInfo(CPatientInfo* patient) {
    SF_ASSERT(patient != nullptr, "STDSIGFI", 620);
    if (!patient) return;
    CIntSigFile::SetPatientInfo(patient);
    SetChanged();
}

void CStdSigFile::SetPhysicalMontage(CPhysicalMontage* montage) {
    SF_ASSERT(montage != nullptr, "STDSIGFI", 630);
    if (!montage) return;
    CIntSigFile::SetPhysicalMontage(montage);
    SetChanged();
}

void CStdSigFile::SetCalibration(CCalibration* calibration) {
    SF_ASSERT(calibration != nullptr, "STDSIGFI", 640);
    // The records keep their layout: a calibration must cover every channel.
    if (!calibration || calibration->GetNumChannels() < GetNumChannels()) {
        delete calibration;
        return;
    }
    CIntSigFile::SetCalibration(calibration);
    SetChanged();
}

// ---------------------------------------------------------------------------
// Whole-recording operations

namespace {
// Every file of a recording that exists: data, status, companions, the
// working and transfer status files.
std::vector<std::string> FilesOfRecording(const std::string& sig) {
    const std::string base = ExtractBase(sig);
    std::vector<std::string> files;
    for (const std::string& f : {DataNameOf(sig), StatusNameOf(sig), WorkName(base), TransferName(base)})
        if (VhlCheckFileExist(f)) files.push_back(f);
    CStringArray extensions;
    CSigFile::GetStsExtensions(sig.c_str(), &extensions);
    for (const std::string& ext : extensions) files.push_back(base + ext);
    return files;
}
}  // namespace

// Deleting is a replacement by nothing: killed half way, the next operation
// on the name finishes it.
int CStdSigFile::Delete(const char* name) {
    if (!IsValidFormat(name)) return 0;
    RecoverRecording(name);
    const std::string sig = DataNameOf(name);
    if (!VhlCheckFileExist(sig)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (IsLockedByWriter(sig)) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return 0;
    }
    std::vector<CFileMove> moves;
    for (const std::string& f : FilesOfRecording(sig)) moves.push_back({"", f});
    return ReplaceFileSet(JournalName(ExtractBase(sig)), moves) ? 1 : 0;
}

// The copy is a snapshot: the status file first, then exactly the records it
// names (a writer may be appending), each under a temporary name forced to
// the disk, then put in place of the target whole (ReplaceRecording).
int CStdSigFile::Copy(const char* from, const char* to, CProgressInfo* progress) {
    if (!IsValidFormat(from) || !IsValidFormat(to)) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    RecoverRecording(from);
    RecoverRecording(to);
    const std::string fromSig = DataNameOf(from), fromSts = StatusNameOf(from);
    if (!VhlCheckFileExist(fromSig) || !VhlCheckFileExist(fromSts)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (IsLockedByWriter(SigName(ExtractBase(to))) ||
        (VhlCheckFileExist(DataNameOf(to)) && IsLockedByWriter(DataNameOf(to)))) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return 0;
    }
    const std::string temp = OwnedTemporaryName(SigName(ExtractBase(to)), "copy");
    const std::string tempBase = ExtractBase(temp);
    auto cleanUp = [&] {
        const long code = GetLastError();
        for (const std::string& f : FilesOfRecording(temp)) DeleteFileName(f);
        SetLastError(code);
        return 0;
    };
    const StatusShape shape = ShapeOf(fromSts);
    if (!CopyFileReplace(fromSts, StsName(tempBase))) return cleanUp();
    const StatusShape copied = ShapeOf(StsName(tempBase));
    if (!copied.loaded) {
        SetLastError(shape.loaded ? ERROR_WRITE_FAULT : ERROR_BAD_FORMAT);
        return cleanUp();
    }
    const ULONGLONG bytes = ULONGLONG(copied.records) * copied.recordSize;
    if (VhlGetFileSize(fromSig) < bytes) {
        SetLastErrorDetail(ERROR_BAD_LENGTH, StrFormat(LoadResString(IDS_NATIVE_ERR_SNAPSHOT).c_str(), fromSig.c_str()));
        SetLastError(ERROR_BAD_LENGTH);
        return cleanUp();
    }
    const ULONGLONG total = bytes + VhlGetFileSize(fromSts);
    if (progress) progress->SetRange(total);
    CopyProgress report;
    if (progress)
        report = [progress](ULONGLONG done, ULONGLONG) {
            progress->SetPos(done);
            return !progress->IsCancelled();
        };
    if (!CopyFilePart(fromSig, SigName(tempBase), bytes, report)) return cleanUp();
    CStringArray extensions;
    GetStsExtensions(from, &extensions);
    for (const std::string& ext : extensions)
        if (!CopyFileReplace(ExtractBase(from) + ext, tempBase + ext)) return cleanUp();
    if (!ReplaceRecording(SigName(tempBase), SigName(ExtractBase(to)))) return cleanUp();
    if (progress) progress->SetPos(total);
    return 1;
}

// Renaming moves every file of the recording at once (through the journal).
int CStdSigFile::Rename(const char* from, const char* to) {
    if (!IsValidFormat(from) || !IsValidFormat(to)) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    RecoverRecording(from);
    RecoverRecording(to);
    const std::string fromSig = DataNameOf(from);
    const std::string fromBase = ExtractBase(from), toBase = ExtractBase(to);
    if (!VhlCheckFileExist(fromSig)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (VhlCheckFileExist(SigName(toBase)) || VhlCheckFileExist(StsName(toBase)) ||
        VhlCheckFileExist(toBase + ".sig") || VhlCheckFileExist(toBase + ".sts")) {
        SetLastError(ERROR_FILE_EXISTS);
        return 0;
    }
    if (IsLockedByWriter(fromSig)) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return 0;
    }
    std::vector<CFileMove> moves;
    for (const std::string& f : FilesOfRecording(fromSig)) {
        // Each file keeps its extension; the status files their usual case.
        moves.push_back({f, toBase + ExtractExt(f)});
    }
    return ReplaceFileSet(JournalName(toBase), moves) ? 1 : 0;
}

CSigQuickInfo* CStdSigFile::GetFileQuickInfo(const char* name, long* error) {
    long err = 0;
    std::unique_ptr<CSigQuickInfo> info;
    try {
        if (!name || !*name) {
            err = ERROR_INVALID_PARAMETER;
            ThrowGenericException("Failure due to invalid argument(s)");
        }
        std::string base = ExtractBase(name);
        std::vector<BYTE> image = ReadWholeFile(StsName(base));
        CMemFile mem(image.data(), image.size());
        CArchive ar(&mem, CArchive::load, 4096);
        WORD version;
        ar >> version;
        if (version > kMaxStatusVersion) AfxThrowArchiveException(CArchiveException::badSchema);
        std::unique_ptr<CObject> header(ar.ReadObject(RUNTIME_CLASS(CFileHeader)));
        std::unique_ptr<CObject> patient(ar.ReadObject(RUNTIME_CLASS(CPatientInfo)));
        if (!header || !patient) AfxThrowArchiveException(CArchiveException::badClass);
        const auto* h = static_cast<const CFileHeader*>(header.get());
        const auto* p = static_cast<const CPatientInfo*>(patient.get());
        info.reset(MakeSigQuickInfo(name, *h, *p,
                                    VhlGetFileSize(StsName(base)) + VhlGetFileSize(SigName(base)) + GetDVSize(name)));
    } catch (...) {
        err = ErrorFromCurrentException(err);
        info.reset();
    }
    if (error) *error = err;
    return info.release();
}

// ---------------------------------------------------------------------------
// The native entry of the format dispatch.

namespace {
CSigFile* OpenNative(const char* name, int readOnly, long* error) { return CStdSigFile::Open(name, readOnly, error); }
CSigFile* CreateNative(const char* name, CFileHeader* header, CPatientInfo* patient, CPhysicalMontage* montage,
                       CCalibration* calibration, long* error) {
    return CStdSigFile::Create(name, header, patient, montage, calibration, error);
}

int CopyToNative(CSigFile* source, const char* to, const CSigFileCopyOptions& options, std::string* error,
                 CProgressInfo* progress) {
    return CreateNativeCopy(source, to, options, error, progress, options.notes);
}

int IdentifyNative(const CSigFileProbe& probe) { return CStdSigFile::IsValidFormat(probe.name); }
const char* const kNativeExtensions[] = {".SIG", nullptr};
}  // namespace

// The native recording: recognised by its ".SIG" name alone (the data file
// has no header), probed after every signature.
extern const CSigFileDriver g_nativeDriver = {.format = SIGFILE_FORMAT_NATIVE,
                                       .name = "native",
                                       .description = "native recording (.SIG data + .STS status)",
                                       .outputExtensions = kNativeExtensions,
                                       .Identify = IdentifyNative,
                                       .Open = OpenNative,
                                       .Create = CreateNative,
                                       .Delete = CStdSigFile::Delete,
                                       .Copy = CStdSigFile::Copy,
                                       .Rename = CStdSigFile::Rename,
                                       .GetFileQuickInfo = CStdSigFile::GetFileQuickInfo,
                                       .GetDVSize = CStdSigFile::GetDVSize,
                                       .GetDVIdxSize = CStdSigFile::GetDVIdxSize,
                                       .HasDV = CStdSigFile::HasDV,
                                       .CreateCopy = CopyToNative};
