// The scan of a collection: the files and folders a user names, walked in
// a stable order and loaded by several workers at once, each result handed
// out in that same order as soon as every one before it is done.
//
// Order: the paths as given; inside a folder its entries sorted by name
// (bytewise), each subfolder walked where it stands. Symbolic links to
// files are followed; links to folders are not walked. With one job the
// caller's thread walks and loads in turn, and nothing crosses a thread.
// With several, the walk runs ahead on a thread of its own and hands its
// tasks over a folder at a time (at most 64), workers take a share of what
// is queued, and results come back in batches; the number of files found
// but not yet handed out is bounded, so memory stays flat for any tree size.
#ifndef FILEINFO_CORE_SCAN_H
#define FILEINFO_CORE_SCAN_H

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "MediaFileInfoDefine.h"
#include "media/Reading.h"

namespace fileinfo {

struct ScanOptions {
    // Loading workers; 0 takes one per core.
    unsigned jobs = 0;
    // Extensions a walk takes, lower-case without the dot ("mp3"); empty:
    // every extension a reader takes. Named files are never filtered.
    std::vector<std::string> extensions;
    // Walk into files and folders whose names start with a dot.
    bool hidden = false;
};

// What became of one path.
enum class Outcome : unsigned char {
    kLoaded,   // the library loaded it: see status (which may be a failure)
    kSkipped,  // deliberately not loaded: see skip
    kError,    // could not be reached: see error (an errno value)
};

enum class SkipReason : unsigned char {
    kNone,
    kExtension,     // its extension is not one of a media format
    kNotSelected,   // its extension is not among ScanOptions::extensions
    kHidden,        // a hidden file or folder, and hidden ones are not walked
    kSpecialFile,   // a FIFO, device or socket: opening it could block
    kLinkedFolder,  // a symbolic link to a folder, found in a walk
};

struct ScanItem {
    ScanItem();

    std::string path;
    bool named = false;  // given by the caller rather than found in a walk
    Outcome outcome = Outcome::kLoaded;
    SkipReason skip = SkipReason::kNone;
    // errno: why a path could not be reached (kError), or why a file the
    // library could not open could not be (kLoaded with status 5).
    int error = 0;
    // In words, for kSkipped and kError: "FIFO", "Permission denied", ...
    std::string reason;

    // kLoaded only.
    int status = MFI_NOT_THIS_FORMAT;
    bool isAudio = false;
    bool isVideo = false;
    bool hasTags = false;
    bool hasRecord = false;
    MediaFileInfo_st record;
    // errno when a compressed movie header could not be inflated because
    // its temporary file could not be made; the record is the library's.
    int tempFileError = 0;

    // What the file really holds, read by our own readers beside the
    // library's load; readingError is the errno when it could not be read.
    media::Reading reading;
    int readingError = 0;

    // Loaded and identified: status 1 with a file type or a stream found.
    // ADTS streams have no file type but are audio; a status of 1 with
    // neither means no reader recognised the bytes (a misnamed file is
    // taken by the AIFF reader, which accepts anything, with only a title).
    bool Identified() const;
    // The file could not be loaded: it could not be read at all, or the
    // library failed on a name it has a reader for. A name the library has
    // no reader for (".aiff", no extension) is read by its bytes alone, and
    // is then at worst unidentified.
    bool LoadFailed() const;
};

// The file's type for people and for totals by type: the record's fileType;
// "AAC" for an ADTS stream, which the AAC reader leaves without one; empty
// when the file was not identified. Machine outputs keep the record's own
// fileType.
std::string TypeLabel(const ScanItem& item);

// The extensions of an --ext list ("mp3,.M4A"), as ScanOptions takes them:
// lower-case, without a leading dot, empty entries dropped.
std::vector<std::string> ExtensionList(const std::string& list);

// Whether a walk loads a regular file of this name: its extension is one a
// library reader takes or another name of those formats (.aiff, .m4b, .mp2,
// ...), or it has none. Other front ends that list files walk the same way.
bool WalkTakes(const std::string& path);

// The extension the library reads a file of the reading's type by: ".aif"
// for AIFF and AIFF-C, ".m4a" for an M4A (an audiobook's .m4b too), ".mp3"
// for any MPEG audio stream, ... Empty for an unidentified reading. A file
// named otherwise gets this name where the library is to take it.
std::string LibraryExtension(const media::Reading& reading);

// Loads one regular file the way the scan does, in the calling thread. The
// file is opened once, without blocking; one that is not a regular file (by
// now) is kSkipped as a special file and never given to the library, which
// with the readers reads the very file that was checked. A path holding a
// NUL byte loads nothing: status MFI_OPEN_FAILED, error EINVAL.
void LoadInto(const std::string& path, ScanItem& item);

// Loads an open regular file the way LoadInto does, as if it were named
// `name` (a name without a folder, whose extension picks the library's
// reader): a file being made under a temporary name is judged as what it
// will be. Nothing is loaded (status MFI_OPEN_FAILED) when no such name can
// be given to the library.
void LoadDescriptorInto(int fd, const std::string& name, ScanItem& item);

// The kind of a file that is not regular, in words: "FIFO", "socket", ...
const char* SpecialFileKind(mode_t mode);

// What the record alone does not show, in words: a compressed movie header
// that could not be inflated, with the system's reason.
std::vector<std::string> Warnings(const ScanItem& item);

// Why a file whose extension is not one of a media format is not read:
// "extension .txt is not read". Files without an extension are read.
std::string ExtensionAdvice(const std::string& path);

class Scan {
public:
    // Throws std::system_error when a worker thread cannot be started.
    Scan(std::vector<std::string> roots, ScanOptions options);
    // Stops the walk and the workers; items not handed out are dropped.
    ~Scan();
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    // The next item in walk order, waiting for it if need be; false once
    // every item was handed out, or after Cancel.
    bool Next(ScanItem& item);
    // Ends the scan early: Next returns false from now on. Safe to call
    // from any thread, not from a signal handler (set a flag there).
    void Cancel();

    // Paths found by the walk so far, and items handed out by Next.
    size_t Found() const;
    size_t Done() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fileinfo

#endif  // FILEINFO_CORE_SCAN_H
