// Tag edits that never lose data. Every front end edits tags through
// EditTags: a writer runs on a private copy, the copy is checked, and only
// then is it renamed over the original, so that the path holds either the
// old bytes or the complete new ones at every instant.
//
// Two writers: by default the one for people (TagWriter.h), which changes
// only the fields asked and is checked by reading the copy back; and the
// library's own, for hosts that need exactly what it writes. The library's
// writer rewrites a file in place and does more than asked: it may grow the
// file by more than the tag, overwrite the first audio bytes and drop ID3v2
// frames it does not know.
#ifndef FILEINFO_CORE_SAFEEDIT_H
#define FILEINFO_CORE_SAFEEDIT_H

#include <functional>
#include <string>
#include <vector>

#include "MediaFileInfoDefine.h"

namespace fileinfo {

// ---- What the user asks for ----

enum class TagField { Title, Artist, Album, Genre, Year, Comment, Composer, Lyrics, Track };

// Who writes the tags.
enum class EditWriter {
    Fields,   // only the fields asked, Unicode, in MP3, AAC, MP4, and WAV and AIFF with tags
    Library,  // the library's SetId3Info: 8-bit texts, MP3 and AAC only
};
// "fields" and "library", as --writer takes them.
const char* EditWriterName(EditWriter writer);
bool ParseEditWriter(const std::string& name, EditWriter& writer);

// "title", "artist", ... as typed in FIELD=VALUE.
const char* TagFieldName(TagField field);
// Every field name, comma-separated, for messages.
std::string TagFieldNames();

// One checked FIELD=VALUE. For the library's writer a text is in the
// record's 8-bit (Latin-1) form, cut to what a record field holds, and a
// track is one number; for the fields writer a text is the UTF-8 given
// (empty: the tag is removed) and a track is N or N/TOTAL (0: removed).
struct TagEdit {
    TagField field;
    std::string text;
    unsigned short track = 0;
    unsigned short trackTotal = 0;  // fields writer only; 0 when no total was given
};

class TagEdits {
public:
    explicit TagEdits(EditWriter writer = EditWriter::Fields) : writer_(writer) {}
    // Parses "FIELD=VALUE" (VALUE in UTF-8) for the writer. On a mistake
    // returns false and says why in `error`; nothing is added.
    bool Add(const std::string& assignment, std::string& error);
    bool Sets(TagField field) const;
    bool empty() const { return edits_.empty(); }
    EditWriter writer() const { return writer_; }
    const std::vector<TagEdit>& edits() const { return edits_; }
    // Puts the values into a record as the library's writer takes them.
    void ApplyTo(MediaFileInfo_st& record) const;

private:
    EditWriter writer_;
    std::vector<TagEdit> edits_;
};

// Parses every assignment; false with the first mistake in `error`.
bool ParseTagEdits(const std::vector<std::string>& assignments, TagEdits& edits, std::string& error);
// The value as given, in the form the fields writer reads it back: the
// text, or "N" / "N/TOTAL" for a track ("" for track 0).
std::string GivenValue(const TagEdit& edit);

// ---- What the edit does to the file ----

// A record field whose value changes; texts as UTF-8, numbers in decimal.
// With the fields writer: a tag or a stream field of the reading.
struct FieldChange {
    std::string field;
    std::string before;
    std::string after;
};

// An ID3v2 frame of the frame list that is dropped, changed or added.
struct FrameChange {
    enum Kind { Dropped, Changed, Added } kind;
    std::string id;
    std::string before;  // UTF-8; empty for an added frame
    std::string after;   // UTF-8; empty for a dropped frame
};

// A value the user gave that does not read back as given.
struct ReadBackMismatch {
    TagField field;
    std::string given;     // UTF-8
    std::string readBack;  // UTF-8
    std::string why;       // the format's reason, or empty when none is known
};

struct Difference {
    std::vector<FieldChange> fields;
    std::vector<FrameChange> frames;
    std::vector<ReadBackMismatch> mismatches;

    bool empty() const { return fields.empty() && frames.empty() && mismatches.empty(); }
    // True when the edit changes more than the fields in `edits`: another
    // record field or reading field (the file's size excepted: it follows
    // the tag's), a frame that holds no field set, or a value that does not
    // read back as given.
    bool GoesBeyond(const TagEdits& edits) const;
};

// The difference as indented lines, one change a line.
std::string DescribeDifference(const Difference& difference);

// ---- The edit ----

// Named points of an edit, in order, reported to EditOptions::onPoint.
enum class EditPoint { Locked, Checked, Copied, Written, Verified, BackedUp, BeforeRename, Renamed };
const char* EditPointName(EditPoint point);

struct EditOptions {
    bool dryRun = false;  // do the whole edit on the copy, then drop it
    // The library's writer only: write even when the difference goes beyond
    // the request. The fields writer never writes such an edit.
    bool force = false;
    bool backup = true;   // keep the original as song.orig.mp3
    bool id3v23 = false;  // fields writer: write an ID3v2.4 tag as ID3v2.3
    // Called at each named point; for tests that interfere at a given moment.
    std::function<void(EditPoint)> onPoint;
};

enum class EditStatus {
    Changed,      // the file now holds the new tags
    WouldChange,  // dry run: the difference was found, nothing was touched
    Refused,      // a check failed before anything was written; nothing changed
    Failed,       // a system call failed; the original is as it was, unless `reason` says otherwise
};
const char* EditStatusName(EditStatus status);

struct EditResult {
    EditStatus status = EditStatus::Failed;
    std::string reason;      // why it was refused or failed; empty otherwise
    int error = 0;           // errno of the failed call, or 0
    std::string path;        // the file edited (symbolic links resolved)
    std::string backupPath;  // the backup made, or empty
    bool touched = false;    // the path holds new bytes (also when a later step failed)
    Difference difference;   // filled once the copy was written
};

// Edits the tags of the file at `path` with the writer `edits` were parsed
// for. See the file comment.
EditResult EditTags(const std::string& path, const TagEdits& edits, const EditOptions& options);

// Puts the backup at `backupPath` back at `originalPath` atomically (a copy
// renamed over the original); the backup itself stays. When `originalPath`
// is empty it is found from the backup's name (song.orig-2.mp3 → song.mp3).
EditResult RestoreBackup(const std::string& backupPath, const std::string& originalPath = std::string());

// ---- Names ----

// The backup names of song.mp3: song.orig.mp3, then song.orig-2.mp3, ...
std::string BackupName(const std::string& path, int number);
// song.mp3 for song.orig.mp3 or song.orig-7.mp3; empty for any other name.
std::string OriginalOfBackup(const std::string& backupPath);
// True for the name (no folder) of a temporary file of an edit:
// ".song.mp3.fileinfo-XXXXXX".
bool IsEditTempName(const std::string& name);
// The extended attribute that marks a temporary file as an edit's own. Its
// value is "copy", or "copy " followed by the name of the backup the edit
// made and its inode, while the edit has not yet replaced the file.
extern const char kEditMarkAttribute[];
// Removes what edits killed before they finished left in `folder`: their
// temporary files, and the backups they made of a file they never
// replaced. Only files of the same owner, with an edit's name and mark, that
// no running edit holds locked. Their count.
int RemoveStaleTempFiles(const std::string& folder);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_SAFEEDIT_H
