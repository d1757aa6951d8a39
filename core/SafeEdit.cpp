// The safe tag edit: checks, a private copy that a writer edits, the copy
// checked, and a rename over the original. The fields writer's copy is
// checked by its audio bytes and by reading it back; the library's writer,
// which does not notice every failed write, runs a second time in memory
// and the copy must hold the same bytes.
#include "SafeEdit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "AacInfo.h"
#include "AifInfo.h"
#include "AudioSpans.h"
#include "Difference.h"
#include "FileOps.h"
#include "MediaFileInfo.h"
#include "Mp3Info.h"
#include "Mp4Info.h"
#include "TagWriter.h"
#include "WavInfo.h"
#include "media/Reading.h"

namespace fileinfo {

namespace {

// Room the writer may need beyond a full copy: the tag's growth, one
// 1024-byte block it duplicates, the ID3v1 tag, with a margin.
constexpr unsigned long long kGrowthMargin = 1 << 20;
// Backup names tried before giving up: song.orig.mp3 ... song.orig-999.mp3.
constexpr int kBackupNames = 999;

enum class ReaderKind { None, Mp3, Aac };

ReaderKind KindOf(MediaFileInfoBase* reader) {
    if (dynamic_cast<Mp3Info*>(reader) != nullptr) return ReaderKind::Mp3;
    if (dynamic_cast<AacInfo*>(reader) != nullptr) return ReaderKind::Aac;
    return ReaderKind::None;
}

// The format named in a refusal, by the reader that loaded the file.
std::string FormatOf(MediaFileInfoBase* reader) {
    if (dynamic_cast<Mp4Info*>(reader) != nullptr) return "MP4";
    if (dynamic_cast<WavInfo*>(reader) != nullptr) return "WAV";
    if (dynamic_cast<AifInfo*>(reader) != nullptr) return "AIFF";
    return "such";
}

std::unique_ptr<MediaFileInfoBase> NewReader(ReaderKind kind) {
    if (kind == ReaderKind::Mp3) return std::make_unique<Mp3Info>();
    return std::make_unique<AacInfo>();
}

std::string StatusText(int status) {
    return "status " + std::to_string(status) + ": " + MediaFileStatusText(status);
}

bool SameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool IsLibrary(const TagEdits& edits) { return edits.writer() == EditWriter::Library; }

// The library names a file without a title tag after the file: the copy's
// own name is no title the file will ever have.
void TakeDefaultTitle(MediaFileInfo_st& record, const std::string& copy, const std::string& original) {
    char* copyName = nullptr;
    char* originalName = nullptr;
    MediaFileInfoBase::GetFileName(&copyName, copy.c_str());
    MediaFileInfoBase::GetFileName(&originalName, original.c_str());
    if (copyName != nullptr && strncmp(record.title, copyName, MEDIA_TEXT_SIZE) == 0)
        MediaFileInfoBase::CopyField(record.title, originalName != nullptr ? originalName : "");
    free(copyName);
    free(originalName);
}

// Loads `path` with a reader of `kind` and writes `record` through it.
// The library's status; `error` gets errno when the writer failed.
int RunWriter(ReaderKind kind, const std::string& path, MediaFileInfo_st record, int& error) {
    std::unique_ptr<MediaFileInfoBase> reader = NewReader(kind);
    const int loaded = reader->LoadFile(path.c_str());
    if (loaded != MFI_OK) return loaded;
    errno = 0;
    const int written = reader->SetId3Info(&record);
    error = written == MFI_OK ? 0 : errno;
    return written;
}

class Editor {
public:
    Editor(const std::string& path, const TagEdits& edits, const EditOptions& options)
        : given_(path), edits_(edits), options_(options) {}

    EditResult Run() {
        if (Prepare() && EditCopy()) {
            if (options_.dryRun) {
                result_.status = EditStatus::WouldChange;
            } else {
                Commit();
            }
        }
        return result_;
    }

private:
    void Point(EditPoint point) {
        if (options_.onPoint) options_.onPoint(point);
    }
    bool Refuse(const std::string& reason, int error = 0) {
        result_.status = EditStatus::Refused;
        result_.reason = reason;
        result_.error = error;
        return false;
    }
    bool Fail(const std::string& reason, int error) {
        result_.status = EditStatus::Failed;
        result_.reason = reason;
        result_.error = error;
        return false;
    }

    // Everything that may refuse the edit before a byte is copied.
    bool Prepare() {
        if (!Resolve()) return false;
        // A dry run changes nothing, not even what killed edits left.
        if (!options_.dryRun) RemoveStaleTempFiles(folder_);
        if (!LockOriginal()) return false;
        Point(EditPoint::Locked);
        if (!CheckFile()) return false;
        if (!(IsLibrary(edits_) ? LoadOriginal() : ReadOriginal()) || !CheckSpace()) return false;
        Point(EditPoint::Checked);
        return true;
    }

    // The edit on the private copy, checked, and its difference.
    bool EditCopy() {
        if (!MakeCopy()) return false;
        Point(EditPoint::Copied);
        if (!WriteTags()) return false;
        Point(EditPoint::Written);
        if (!Verify()) return false;
        Point(EditPoint::Verified);
        return ReadBack();
    }

    // The copy takes the original's place, once agreed to and only if the
    // original is still what was copied.
    bool Commit() {
        if (!IsLibrary(edits_) && result_.difference.GoesBeyond(edits_))
            return Refuse("the edit would change more than the fields given, or not read back as given");
        if (IsLibrary(edits_) && !options_.force && result_.difference.GoesBeyond(edits_))
            return Refuse("the edit changes more than the fields given; --force writes it anyway");
        if (!StillUnchanged()) return false;
        if (options_.backup && !MakeBackup()) return false;
        Point(EditPoint::BackedUp);
        Point(EditPoint::BeforeRename);
        if (!StillUnchanged() || !Replace()) {
            RemoveOwnBackup();
            return false;
        }
        // The file is replaced: the backup is no longer a pending one.
        copy_.Unmark();
        Point(EditPoint::Renamed);
        if (const int error = SyncFolder(folder_))
            return Fail("the file holds the new tags, but syncing its folder failed", error);
        result_.status = EditStatus::Changed;
        return true;
    }

    // Symbolic links are followed: the file they lead to is edited and the
    // links stay as they are.
    bool Resolve() {
        // The system would edit the file the part before the NUL names.
        if (PathHoldsNul(given_)) return Fail(kNulInPath, EINVAL);
        char* resolved = realpath(given_.c_str(), nullptr);
        if (resolved == nullptr) return Fail("cannot find the file", errno);
        target_ = resolved;
        free(resolved);
        folder_ = FolderOf(target_);
        result_.path = target_;
        struct stat st;
        if (stat(target_.c_str(), &st) != 0) return Fail("cannot read the file's status", errno);
        if (!S_ISREG(st.st_mode)) return Refuse("not a regular file");
        return true;
    }

    // The lock is held until the edit ends, so that two edits of one file
    // never overlap; it must be the lock of the file the path still names.
    bool LockOriginal() {
        for (int attempt = 0; attempt < 3; ++attempt) {
            UniqueFd fd(open(target_.c_str(), O_RDONLY | O_CLOEXEC));
            if (!fd.valid()) return Fail("cannot open the file", errno);
            if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
                if (errno == EWOULDBLOCK) return Refuse("another edit of this file is in progress");
                return Fail("cannot lock the file", errno);
            }
            if (NamesFile(target_, fd.get())) {
                original_ = std::move(fd);
                if (fstat(original_.get(), &before_) != 0) return Fail("cannot read the file's status", errno);
                return true;
            }
        }
        return Refuse("the file keeps being replaced");
    }

    bool CheckFile() {
        // A backup that a killed edit made of this file and never finished
        // is no link of the user's: the cleaner removes it (a dry run only
        // looks).
        const nlink_t pending = static_cast<nlink_t>(PendingBackupsOf(target_, before_));
        if (before_.st_nlink > 1 + pending)
            return Refuse("the file has " + std::to_string(before_.st_nlink) +
                          " hard links, and a new file in its place would part them");
        if (faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) != 0)
            return Refuse("the file is not writable", errno);
        // Writing in place of a file nobody may write is what a read-only
        // mode asks to prevent, even for a user the mode does not bind.
        if ((before_.st_mode & 0222) == 0) return Refuse("the file is read-only", EACCES);
        if (faccessat(AT_FDCWD, folder_.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
            return Refuse("its folder is not writable", errno);
        return true;
    }

    bool LoadOriginal() {
        MediaFileInfo facade;
        const int status = facade.LoadFile(target_.c_str());
        if (status != MFI_OK || facade.GetFileInfo() == nullptr)
            return Refuse("the file did not load (" + StatusText(status) + ")");
        kind_ = KindOf(facade.m_reader);
        if (kind_ == ReaderKind::None) return Refuse("fileinfo cannot write tags into " + FormatOf(facade.m_reader) + " files");
        before_record_ = *facade.GetFileInfo();
        edited_record_ = before_record_;
        edits_.ApplyTo(edited_record_);
        frames_before_ = ReadFrameList(target_);
        return true;
    }

    // The fields writer's edit: the reading names the format, and its tags
    // and stream fields are what the copy's reading is held to.
    bool ReadOriginal() {
        if (const int error = media::ReadMedia(original_.get(), reading_before_))
            return Fail("cannot read the file", error);
        if (!reading_before_.Identified()) return Refuse("fileinfo cannot tell what the file holds");
        format_ = TagFormatOf(reading_before_.type, reading_before_.aac_format);
        if (format_ == TagFormat::None)
            return Refuse("fileinfo cannot write tags into " +
                          (reading_before_.type == "AAC" ? reading_before_.aac_format + " AAC" : reading_before_.type) +
                          " files");
        if ((format_ == TagFormat::Wav || format_ == TagFormat::Aiff) && reading_before_.tags.Empty())
            return Refuse("fileinfo writes tags into " + reading_before_.type +
                          " files only where they hold tags already, and this one holds none");
        return true;
    }

    bool CheckSpace() {
        struct statvfs fs;
        if (fstatvfs(original_.get(), &fs) != 0) return Fail("cannot read the free space of its folder", errno);
        const unsigned long long available = static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
        // The fields writer's copy keeps the file's holes: it takes the
        // room the file takes.
        const unsigned long long allocated = static_cast<unsigned long long>(before_.st_blocks) * 512;
        const unsigned long long size = static_cast<unsigned long long>(before_.st_size);
        const unsigned long long needed =
            (IsLibrary(edits_) || allocated > size ? size : allocated) + kGrowthMargin;
        if (available < needed)
            return Refuse("not enough free space for a copy of the file (" + std::to_string(available) + " bytes free, " +
                              std::to_string(needed) + " needed)",
                          ENOSPC);
        return true;
    }

    // A copy with the original's owner and mode, beside it.
    bool MakeCopy() {
        if (const int error = copy_.Create(target_)) return Fail("cannot create a temporary file beside it", error);
        if (fchown(copy_.fd(), before_.st_uid, before_.st_gid) != 0)
            return Refuse("cannot give a copy the file's owner and group", errno);
        if (fchmod(copy_.fd(), before_.st_mode & 07777) != 0) return Fail("cannot give a copy the file's mode", errno);
        if (const int error = CopyContents(original_.get(), copy_.fd())) return Fail("copying the file failed", error);
        if (!IsLibrary(edits_)) return true;
        // The check's copy in memory starts from the same bytes.
        shadow_ = UniqueFd(memfd_create("fileinfo-edit", MFD_CLOEXEC));
        if (!shadow_.valid()) return Fail("cannot make room in memory to check the copy", errno);
        if (const int error = CopyContents(copy_.fd(), shadow_.get()))
            return Fail("copying the file into memory failed", error);
        return true;
    }

    bool WriteTags() {
        if (!IsLibrary(edits_)) return WriteFields();
        int error = 0;
        const int status = RunWriter(kind_, copy_.path(), edited_record_, error);
        if (status != MFI_OK) return Fail("writing the tags into a copy failed (" + StatusText(status) + ")", error);
        if (fsync(copy_.fd()) != 0) return Fail("syncing the copy failed", errno);
        return true;
    }

    bool WriteFields() {
        TagWriteOptions writeOptions;
        writeOptions.id3v23 = options_.id3v23;
        const TagWriteResult written = fileinfo::WriteTags(copy_.fd(), copy_.path(), format_, edits_, writeOptions);
        if (!written.written) {
            if (written.error != 0) return Fail(written.reason, written.error);
            return Refuse(written.reason);
        }
        if (fsync(copy_.fd()) != 0) return Fail("syncing the copy failed", errno);
        return true;
    }

    // The fields writer saw every read and write succeed (its stream keeps
    // the first error); what is left to prove is that the audio did not move.
    bool VerifyAudio() {
        // The file is the copy's reference: it must still be what was copied.
        if (!StillUnchanged()) return false;
        int error = 0;
        if (SameAudio(original_.get(), copy_.fd(), format_, error)) return true;
        if (error == EIO || error == ENOMEM) return Fail("reading the copy back failed", error);
        return Refuse("the written copy's audio bytes differ from the file's");
    }

    // The copy as the reading reads it back, against the file's reading.
    bool ReadBackFields() {
        media::Reading after;
        if (const int error = media::ReadMedia(copy_.fd(), after)) return Fail("cannot read the written copy", error);
        const std::string lyrics =
            edits_.Sets(TagField::Lyrics) ? ReadLyrics(copy_.fd(), copy_.path(), format_) : std::string();
        CompareReadings(reading_before_, after, edits_, lyrics, result_.difference);
        return true;
    }

    // The writer ignores some failures (its closing flush among them). The
    // same edit in memory must give the same bytes.
    bool Verify() {
        if (!IsLibrary(edits_)) return VerifyAudio();
        int error = 0;
        const std::string shadowPath = "/proc/self/fd/" + std::to_string(shadow_.get());
        const int status = RunWriter(kind_, shadowPath, edited_record_, error);
        if (status != MFI_OK) return Fail("writing the tags in memory failed (" + StatusText(status) + ")", error);
        if (!SameContents(copy_.fd(), shadow_.get(), error))
            return Fail("the copy does not hold what the writer wrote: a write was lost", error);
        return true;
    }

    bool ReadBack() {
        if (!IsLibrary(edits_)) return ReadBackFields();
        std::unique_ptr<MediaFileInfoBase> reader = NewReader(kind_);
        const int status = reader->LoadFile(copy_.path().c_str());
        if (status != MFI_OK || reader->GetFileInfo() == nullptr)
            return Fail("the written copy does not load (" + StatusText(status) + ")", 0);
        MediaFileInfo_st after = *reader->GetFileInfo();
        TakeDefaultTitle(after, copy_.path(), target_);
        Difference& difference = result_.difference;
        CompareRecords(before_record_, after, difference);
        CompareFrames(frames_before_, ReadFrameList(copy_.path()), difference);
        CompareReadBack(edits_, after, difference);
        return true;
    }

    // Nothing may have replaced, cut or extended the file since it was copied.
    bool StillUnchanged() {
        struct stat now;
        if (fstat(original_.get(), &now) != 0) return Fail("cannot read the file's status", errno);
        if (!NamesFile(target_, original_.get())) return Refuse("the file was replaced while it was being edited");
        if (now.st_size != before_.st_size || !SameTime(now.st_mtim, before_.st_mtim))
            return Refuse("the file was changed while it was being edited");
        return true;
    }

    // The backup is the original file itself under a second name: it keeps
    // its owner, mode and times, takes no room, and once the new file is
    // renamed into place it is the only name of the old bytes.
    bool MakeBackup() {
        std::string name;
        const int error = NameBackup(target_, false, name);
        // Where a file system has no hard links, or no marks to find a
        // second name of a dead edit by: a full copy.
        if (error == EPERM || error == EOPNOTSUPP || error == EMLINK || error == ENOTSUP) return CopyBackup();
        if (error != 0) return Fail("cannot make the backup " + name, error);
        if (!RegisterBackup(name)) return false;
        if (!NamesFile(name, original_.get())) {
            RemoveOwnBackup();
            return Refuse("the file was replaced while it was being edited");
        }
        return true;
    }

    // Gives `from` the first free backup name, never replacing a file: as a
    // second name, or (`move`) as its only name. 0 or errno; `name` is the
    // name given or tried last.
    int NameBackup(const std::string& from, bool move, std::string& name) {
        for (int number = 1; number <= kBackupNames; ++number) {
            name = BackupName(target_, number);
            // The copy names the second name before it exists: if the edit
            // dies before the file is replaced, the next one finds it.
            if (!move) {
                if (const int error = copy_.MarkBackup(NameOf(name), before_.st_ino)) return error;
            }
            const int done = move ? renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE)
                                  : link(from.c_str(), name.c_str());
            if (done == 0) return 0;
            if (errno != EEXIST) return errno;
        }
        return EEXIST;
    }

    // The backup is ours from here on (to remove if the edit does not
    // happen), and its name is on disk.
    bool RegisterBackup(const std::string& name) {
        struct stat st;
        result_.backupPath = name;
        if (stat(name.c_str(), &st) == 0) backup_inode_ = st.st_ino;
        if (const int error = SyncFolder(folder_)) {
            RemoveOwnBackup();
            return Fail("syncing the backup failed", error);
        }
        return true;
    }

    // Where a second name cannot be made: a full copy with the original's
    // owner, mode and times, synced, then named. A partial copy is removed.
    bool CopyBackup() {
        EditTempFile copy;
        if (const int error = copy.Create(target_)) return Fail("cannot create the backup", error);
        const timespec times[2] = {before_.st_atim, before_.st_mtim};
        if (fchown(copy.fd(), before_.st_uid, before_.st_gid) != 0 || fchmod(copy.fd(), before_.st_mode & 07777) != 0)
            return Fail("cannot give the backup the file's owner and mode", errno);
        if (const int error = CopyContents(original_.get(), copy.fd())) return Fail("copying the backup failed", error);
        if (futimens(copy.fd(), times) != 0 || fsync(copy.fd()) != 0) return Fail("syncing the backup failed", errno);
        std::string name;
        if (const int error = NameBackup(copy.path(), true, name)) return Fail("cannot name the backup " + name, error);
        copy.Keep();
        copy.Unmark();
        return RegisterBackup(name);
    }

    // A backup of an edit that did not happen is an identical copy: removed.
    void RemoveOwnBackup() {
        struct stat st;
        if (result_.backupPath.empty() || stat(result_.backupPath.c_str(), &st) != 0) return;
        if (st.st_ino == backup_inode_) unlink(result_.backupPath.c_str());
        result_.backupPath.clear();
    }

    bool Replace() {
        if (rename(copy_.path().c_str(), target_.c_str()) != 0) return Fail("replacing the file failed", errno);
        copy_.Keep();
        result_.touched = true;
        return true;
    }

    const std::string given_;
    const TagEdits& edits_;
    const EditOptions& options_;
    EditResult result_;
    std::string target_;
    std::string folder_;
    UniqueFd original_;
    struct stat before_ {};
    ReaderKind kind_ = ReaderKind::None;
    TagFormat format_ = TagFormat::None;
    media::Reading reading_before_;
    MediaFileInfo_st before_record_;
    MediaFileInfo_st edited_record_;
    FrameList frames_before_;
    EditTempFile copy_;
    UniqueFd shadow_;  // the same edit in memory, to check the copy against
    ino_t backup_inode_ = 0;
};

std::string ExtensionOf(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot);
}

}  // namespace

const char* EditPointName(EditPoint point) {
    switch (point) {
        case EditPoint::Locked: return "locked";
        case EditPoint::Checked: return "checked";
        case EditPoint::Copied: return "copied";
        case EditPoint::Written: return "written";
        case EditPoint::Verified: return "verified";
        case EditPoint::BackedUp: return "backed-up";
        case EditPoint::BeforeRename: return "before-rename";
        case EditPoint::Renamed: return "renamed";
    }
    return "";
}

const char* EditStatusName(EditStatus status) {
    switch (status) {
        case EditStatus::Changed: return "changed";
        case EditStatus::WouldChange: return "would change";
        case EditStatus::Refused: return "refused";
        case EditStatus::Failed: return "failed";
    }
    return "";
}

EditResult EditTags(const std::string& path, const TagEdits& edits, const EditOptions& options) {
    return Editor(path, edits, options).Run();
}

std::string BackupName(const std::string& path, int number) {
    const std::string folder = path.find('/') == std::string::npos ? std::string() : FolderOf(path) + "/";
    const std::string name = NameOf(path);
    const std::string extension = ExtensionOf(name);
    const std::string stem = name.substr(0, name.size() - extension.size());
    return folder + stem + ".orig" + (number > 1 ? "-" + std::to_string(number) : std::string()) + extension;
}

std::string OriginalOfBackup(const std::string& backupPath) {
    const std::string name = NameOf(backupPath);
    const std::string extension = ExtensionOf(name);
    std::string stem = name.substr(0, name.size() - extension.size());
    const size_t mark = stem.rfind(".orig");
    if (mark == std::string::npos || mark == 0) return std::string();
    const std::string number = stem.substr(mark + 5);
    if (!number.empty()) {
        if (number.size() < 2 || number[0] != '-' || number[1] == '0') return std::string();
        for (size_t i = 1; i < number.size(); ++i)
            if (number[i] < '0' || number[i] > '9') return std::string();
    }
    const std::string folder = backupPath.find('/') == std::string::npos ? std::string() : FolderOf(backupPath) + "/";
    return folder + stem.substr(0, mark) + extension;
}

}  // namespace fileinfo
