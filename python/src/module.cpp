// fileinfo._fileinfo: the library and its front ends' shared code, seen
// from Python. The pure-Python package (fileinfo/__init__.py) is the API;
// this module keeps to what needs C++: loads, the scan with the GIL
// released, records that decode their texts only when asked, the device
// verdict and the safe tag edit.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "DeviceLists.h"
#include "FileInfoVersion.h"
#include "FileOps.h"
#include "MediaFileInfo.h"
#include "ReadingFields.h"
#include "RecordDiffers.h"
#include "RecordFields.h"
#include "SafeEdit.h"
#include "Scan.h"
#include "Verdict.h"
#ifdef FILEINFO_PYTHON_WITH_TOOL
#include "Tool.h"
#endif


namespace py = pybind11;
using fileinfo::ScanItem;

// sync.cpp: fileinfo._fileinfo.sync.
void DefineSync(py::module_& m);

namespace {

// ---- The library's warning ----
//
// The library prints "ReadWord warning!" with C stdio on the process's
// standard output, where it would land between a script's own lines (and,
// as C's stdout is buffered apart from Python's, not even where it
// happened). While any load or scan of this module runs, C's `stdout`
// stream is pointed at `stderr`, as the fileinfo tool does with its
// descriptors. Python's own output does not go through C stdio, so
// print() and sys.stdout are untouched; only C code of other extensions
// that writes to C's stdout during a load would be moved to stderr too.
class QuietStdout {
public:
    QuietStdout() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (users_++ == 0) {
#ifdef __GLIBC__
            fflush(stdout);
            saved_ = stdout;
            stdout = stderr;
#endif
        }
    }
    ~QuietStdout() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (--users_ == 0) {
#ifdef __GLIBC__
            fflush(stderr);
            stdout = saved_;
#endif
        }
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    static std::mutex mutex_;
    static int users_;
    static FILE* saved_;
};

std::mutex QuietStdout::mutex_;
int QuietStdout::users_ = 0;
FILE* QuietStdout::saved_ = nullptr;

// ---- Paths and errors ----

py::object PathObject(const std::string& path) {
    PyObject* text = PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
    if (text == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(text);
}

// OSError(errno, reason, path): Python picks the subclass from the errno
// (FileNotFoundError for ENOENT, PermissionError for EACCES, ...).
py::object MakeOSError(int error, const std::string& reason, const std::string& path) {
    const std::string text = reason.empty() ? std::string(strerror(error)) : reason;
    return py::reinterpret_borrow<py::object>(PyExc_OSError)(error, text, PathObject(path));
}

[[noreturn]] void Raise(py::object error) {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

// A path the library would block on or cannot read as a file: the kind,
// for the message.
const char* SpecialKind(mode_t mode) {
    if (S_ISFIFO(mode)) return "FIFO";
    if (S_ISCHR(mode)) return "character device";
    if (S_ISBLK(mode)) return "block device";
    if (S_ISSOCK(mode)) return "socket";
    return "special file";
}

// Files that are not regular are not opened (a FIFO would block the load).
// EINVAL is the nearest errno; the message names the kind.
py::object NotRegularFile(mode_t mode, const std::string& path) {
    return MakeOSError(EINVAL, std::string("not a regular file (") + SpecialKind(mode) + ")", path);
}

// ---- Records ----

// One file's result as Python sees it: the scan's item, texts decoded on
// access. Immutable once made.
struct Record {
    ScanItem item;
    // With a device: its verdict on the reading, and the library's.
    bool judged = false;
    fileinfo::ReadingVerdict verdict;
    fileinfo::DeviceVerdict libraryVerdict;
};

// Judges a loaded record (called without the GIL).
void JudgeRecord(const fileinfo::Device* device, Record& record) {
    if (device == nullptr || record.item.outcome != fileinfo::Outcome::kLoaded) return;
    record.verdict = device->JudgeReading(record.item.reading);
    record.libraryVerdict = device->Judge(record.item);
    record.judged = true;
}

// ---- Readings ----

// What the file holds, as the reading found it: Record.media.
struct Media {
    fileinfo::media::Reading reading;
};

// Its tags: Media.tags.
struct MediaTags {
    fileinfo::media::Reading reading;
};

py::object Utf8Object(const std::string& text);

py::object ReadingObject(const fileinfo::ReadingValue& v) {
    if (!v.present) return py::none();
    switch (v.kind) {
        case fileinfo::ReadingKind::kNumber: return py::int_(v.number);
        case fileinfo::ReadingKind::kReal: return py::float_(v.real);
        case fileinfo::ReadingKind::kFlag: return py::bool_(v.flag);
        case fileinfo::ReadingKind::kText: break;
    }
    return Utf8Object(v.text);
}

py::dict TagsDict(const fileinfo::media::Reading& r) {
    py::dict d;
    for (const auto& f : fileinfo::kReadingFields)
        if (f.tag) d[f.name] = ReadingObject(f.get(r));
    return d;
}

py::dict MediaDict(const fileinfo::media::Reading& r) {
    py::dict d;
    for (const auto& f : fileinfo::kReadingFields)
        if (!f.tag) d[f.name] = ReadingObject(f.get(r));
    d["tags"] = TagsDict(r);
    return d;
}

std::string MediaRepr(const fileinfo::media::Reading& r) {
    std::string text = "Media(type=" + py::repr(ReadingObject(fileinfo::kReadingFields[0].get(r))).cast<std::string>();
    for (const char* name : {"audio_codec", "video_codec", "duration_ms", "sample_rate", "channels"}) {
        const fileinfo::ReadingValue v = fileinfo::FindReadingField(name)->get(r);
        if (v.present && !(v.kind == fileinfo::ReadingKind::kNumber && v.number == 0))
            text += std::string(", ") + name + "=" + py::repr(ReadingObject(v)).cast<std::string>();
    }
    if (!r.tags.title.empty()) text += ", title=" + py::repr(Utf8Object(r.tags.title)).cast<std::string>();
    return text + ", ...)";
}

// The reading as a tuple for pickling, and back: its fields in the
// table's order.
py::tuple ReadingState(const ScanItem& i) {
    const fileinfo::media::Reading& r = i.reading;
    return py::make_tuple(i.readingError, r.type, r.aac_format, r.audio_codec, r.pcm_format, r.video_codec,
                          r.duration_ms, r.duration_estimated, r.sample_rate, r.channels, r.bits_per_sample,
                          r.bit_rate, r.audio_bit_rate, r.vbr, r.width, r.height, r.frame_rate, r.video_bit_rate,
                          r.video_peak_bit_rate, r.profile, r.profile_id, r.level, r.size,
                          py::make_tuple(r.tags.title, r.tags.artist, r.tags.album, r.tags.genre, r.tags.year,
                                         r.tags.comment, r.tags.composer, r.tags.track, r.tags.track_total));
}

void SetReadingState(const py::tuple& t, ScanItem& i) {
    if (t.size() != 24) throw std::runtime_error("fileinfo.Record: bad pickled reading");
    fileinfo::media::Reading& r = i.reading;
    size_t k = 0;
    i.readingError = t[k++].cast<int>();
    r.type = t[k++].cast<std::string>();
    r.aac_format = t[k++].cast<std::string>();
    r.audio_codec = t[k++].cast<std::string>();
    r.pcm_format = t[k++].cast<std::string>();
    r.video_codec = t[k++].cast<std::string>();
    r.duration_ms = t[k++].cast<uint64_t>();
    r.duration_estimated = t[k++].cast<bool>();
    r.sample_rate = t[k++].cast<uint32_t>();
    r.channels = t[k++].cast<uint32_t>();
    r.bits_per_sample = t[k++].cast<uint32_t>();
    r.bit_rate = t[k++].cast<uint64_t>();
    r.audio_bit_rate = t[k++].cast<uint64_t>();
    r.vbr = t[k++].cast<bool>();
    r.width = t[k++].cast<uint32_t>();
    r.height = t[k++].cast<uint32_t>();
    r.frame_rate = t[k++].cast<double>();
    r.video_bit_rate = t[k++].cast<uint64_t>();
    r.video_peak_bit_rate = t[k++].cast<uint64_t>();
    r.profile = t[k++].cast<std::string>();
    r.profile_id = t[k++].cast<uint32_t>();
    r.level = t[k++].cast<uint32_t>();
    r.size = t[k++].cast<uint64_t>();
    const py::tuple tags = t[k++].cast<py::tuple>();
    if (tags.size() != 9) throw std::runtime_error("fileinfo.Record: bad pickled tags");
    r.tags.title = tags[0].cast<std::string>();
    r.tags.artist = tags[1].cast<std::string>();
    r.tags.album = tags[2].cast<std::string>();
    r.tags.genre = tags[3].cast<std::string>();
    r.tags.year = tags[4].cast<std::string>();
    r.tags.comment = tags[5].cast<std::string>();
    r.tags.composer = tags[6].cast<std::string>();
    r.tags.track = tags[7].cast<uint32_t>();
    r.tags.track_total = tags[8].cast<uint32_t>();
}

// A side of a difference: an int, a str or None.
py::object DiffObject(const fileinfo::DiffValue& v) {
    if (v.null) return py::none();
    if (v.isNumber) return py::int_(v.number);
    return Utf8Object(v.text);
}

py::object Latin1(const char* text) {
    PyObject* s = PyUnicode_DecodeLatin1(text, static_cast<Py_ssize_t>(strnlen(text, MEDIA_TEXT_SIZE)), nullptr);
    if (s == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(s);
}

// The names of the record's attributes, in the order of as_dict().
std::vector<std::string> FieldNames() {
    std::vector<std::string> names = {"path",     "status", "status_text", "is_audio",
                                      "is_video", "has_tags", "identified"};
    for (const auto& f : fileinfo::kNumberFields) names.emplace_back(f.name);
    for (const auto& f : fileinfo::kTextFields) names.emplace_back(f.name);
    return names;
}

py::dict AsDict(const Record& r) {
    py::dict d;
    const ScanItem& i = r.item;
    d["path"] = PathObject(i.path);
    d["status"] = i.status;
    d["status_text"] = MediaFileStatusText(i.status);
    d["is_audio"] = i.isAudio;
    d["is_video"] = i.isVideo;
    d["has_tags"] = i.hasTags;
    d["identified"] = i.Identified();
    for (const auto& f : fileinfo::kNumberFields)
        d[f.name] = i.hasRecord ? py::object(py::int_(f.get(i.record))) : py::object(py::none());
    for (const auto& f : fileinfo::kTextFields)
        d[f.name] = i.hasRecord ? Latin1(f.get(i.record)) : py::object(py::none());
    return d;
}

bool SameRecord(const Record& a, const Record& b) {
    const ScanItem& x = a.item;
    const ScanItem& y = b.item;
    if (x.path != y.path || x.status != y.status || x.isAudio != y.isAudio || x.isVideo != y.isVideo ||
        x.hasTags != y.hasTags || x.hasRecord != y.hasRecord)
        return false;
    if (!x.hasRecord) return true;
    for (const auto& f : fileinfo::kNumberFields)
        if (f.get(x.record) != f.get(y.record)) return false;
    for (const auto& f : fileinfo::kTextFields)
        if (strncmp(f.get(x.record), f.get(y.record), MEDIA_TEXT_SIZE) != 0) return false;
    return true;
}

// A record's pickled form: the item's flags and the record's bytes as they
// are (texts stay Latin-1; the layout is fixed).
py::tuple GetState(const Record& r) {
    const ScanItem& i = r.item;
    return py::make_tuple(py::bytes(i.path), i.status, i.isAudio, i.isVideo, i.hasTags, i.hasRecord,
                          py::bytes(reinterpret_cast<const char*>(&i.record), sizeof i.record), ReadingState(i),
                          i.tempFileError);
}

Record SetState(const py::tuple& t) {
    // Seven items from before records carried their readings, eight from
    // before they carried their warnings.
    if (t.size() < 7 || t.size() > 9) throw std::runtime_error("fileinfo.Record: bad pickled state");
    Record r;
    ScanItem& i = r.item;
    i.path = t[0].cast<std::string>();
    i.outcome = fileinfo::Outcome::kLoaded;
    i.status = t[1].cast<int>();
    i.isAudio = t[2].cast<bool>();
    i.isVideo = t[3].cast<bool>();
    i.hasTags = t[4].cast<bool>();
    i.hasRecord = t[5].cast<bool>();
    const std::string bytes = t[6].cast<std::string>();
    if (bytes.size() != sizeof i.record) throw std::runtime_error("fileinfo.Record: bad pickled record");
    memcpy(static_cast<void*>(&i.record), bytes.data(), sizeof i.record);
    if (t.size() >= 8) SetReadingState(t[7].cast<py::tuple>(), i);
    if (t.size() == 9) i.tempFileError = t[8].cast<int>();
    return r;
}

std::string Repr(const Record& r) {
    const ScanItem& i = r.item;
    std::string text = "Record(path=" + py::repr(PathObject(i.path)).cast<std::string>() +
                       ", status=" + std::to_string(i.status) + " (" + MediaFileStatusText(i.status) + ")";
    if (i.hasRecord) {
        text += ", fileType=" + py::repr(Latin1(i.record.fileType)).cast<std::string>();
        text += ", durationMs=" + std::to_string(i.record.durationMs);
        if (i.record.title[0] != '\0') text += ", title=" + py::repr(Latin1(i.record.title)).cast<std::string>();
    }
    return text + ", ...)";
}

// ---- Loads ----

// Called without the GIL: fills `record`, or the errno and reason of the
// failure (`special` for a file that is not regular, with its mode).
void LoadPath(const std::string& path, Record& record, int& error, mode_t& special,
              const fileinfo::Device* device = nullptr) {
    if (fileinfo::PathHoldsNul(path)) {
        error = EINVAL;
        record.item.reason = fileinfo::kNulInPath;
        return;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        error = errno;
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        error = EISDIR;
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        special = st.st_mode;
        return;
    }
    QuietStdout quiet;
    fileinfo::LoadInto(path, record.item);
    record.item.path = path;
    // Replaced by a special file since the look above: the load opened it
    // without blocking and left it alone.
    if (record.item.outcome == fileinfo::Outcome::kSkipped) error = EINVAL;
    if (record.item.status == MFI_OPEN_FAILED && record.item.error != 0) error = record.item.error;
    JudgeRecord(device, record);
}

Record Load(const std::string& path, const fileinfo::Device* device) {
    Record record;
    int error = 0;
    mode_t special = 0;
    {
        py::gil_scoped_release release;
        LoadPath(path, record, error, special, device);
    }
    if (record.item.outcome == fileinfo::Outcome::kSkipped) {
        Raise(MakeOSError(EINVAL, "not a regular file (" + record.item.reason + ")", path));
    }
    if (error != 0) Raise(MakeOSError(error, record.item.reason, path));
    if (special != 0) Raise(NotRegularFile(special, path));
    return record;
}

// ---- The scan ----

class PyScan {
public:
    PyScan(std::vector<std::string> roots, unsigned jobs, std::vector<std::string> extensions, bool hidden,
           py::object onError, const fileinfo::Device* device)
        : onError_(std::move(onError)), device_(device ? std::make_unique<fileinfo::Device>(*device) : nullptr) {
        fileinfo::ScanOptions options;
        options.jobs = jobs;
        options.extensions = std::move(extensions);
        options.hidden = hidden;
        if (jobs > kMostJobs) {
            throw py::value_error("jobs must be at most " + std::to_string(kMostJobs) + " (or None: one per core)");
        }
        quiet_ = std::make_unique<QuietStdout>();
        try {
            scan_ = std::make_unique<fileinfo::Scan>(std::move(roots), std::move(options));
        } catch (const std::system_error& e) {
            quiet_.reset();
            PyErr_SetObject(PyExc_OSError, py::make_tuple(e.code().value(), std::string("fileinfo.scan: cannot start "
                                                                                         "its loading threads: ") +
                                                                                 e.code().message())
                                               .ptr());
            throw py::error_already_set();
        }
    }

    // As many as the tool's --jobs takes.
    static constexpr unsigned kMostJobs = 1024;

    ~PyScan() { Close(); }

    // The next record; raises StopIteration at the end, or the OSError of a
    // path that could not be reached when no handler takes it.
    py::object Next() {
        for (;;) {
            if (next_ == batch_.size() && !Refill()) throw py::stop_iteration();
            std::unique_ptr<Record> record = std::move(batch_[next_++]);
            ScanItem& item = record->item;
            py::object error;
            switch (item.outcome) {
                case fileinfo::Outcome::kLoaded:
                    if (item.status == MFI_OPEN_FAILED && item.error != 0) {
                        error = MakeOSError(item.error, item.reason, item.path);
                    }
                    break;
                case fileinfo::Outcome::kError:
                    error = MakeOSError(item.error, item.reason, item.path);
                    break;
                case fileinfo::Outcome::kSkipped:
                    // Files found in a walk that no reader takes, hidden or
                    // not selected, and links to folders, are passed over
                    // as the tool does: counted in `skipped`, not listed. A
                    // FIFO, device or socket may have been meant to be
                    // read: reported like an unreachable path, as the tool
                    // reports it. A named file is answered for, like load().
                    if (!item.named) {
                        ++skipped_[SkipName(item.skip)];
                        if (item.skip != fileinfo::SkipReason::kSpecialFile) continue;
                    }
                    if (item.skip == fileinfo::SkipReason::kExtension) {
                        const std::string path = item.path;
                        py::gil_scoped_release release;
                        QuietStdout quiet;
                        fileinfo::LoadInto(path, item);
                        item.path = path;
                        JudgeRecord(device_.get(), *record);
                        break;
                    }
                    error = MakeOSError(EINVAL, "not a regular file (" + item.reason + ")", item.path);
                    break;
            }
            if (!error) return py::cast(std::move(record));
            if (onError_.is_none()) Raise(error);
            onError_(error);
        }
    }

    // Takes the next items out of the scan with the GIL released, a few at
    // a time: handing over the GIL costs more than a small file's load. The
    // batch grows from one item, so the first record comes as soon as it is
    // loaded. False once nothing is left. Called with the GIL held, which
    // guards scan_: only a holder of the GIL replaces it.
    bool Refill() {
        batch_.clear();
        next_ = 0;
        if (!scan_) return false;
        // Like a generator, the iterator serves one thread at a time.
        if (busy_) throw py::value_error("fileinfo.scan: the iterator is already in use by another thread");
        busy_ = true;
        bool ended = false;
        {
            py::gil_scoped_release release;
            while (batch_.size() < batchSize_) {
                auto record = std::make_unique<Record>();
                if (!scan_->Next(record->item)) {
                    ended = true;
                    break;
                }
                JudgeRecord(device_.get(), *record);
                batch_.push_back(std::move(record));
            }
        }
        busy_ = false;
        batchSize_ = std::min<size_t>(kLargestBatch, batchSize_ * 2);
        if (ended) Close();
        return !batch_.empty();
    }

    // close() from Python, with the GIL held: ends the iteration. A thread
    // waiting in Refill is woken, and closes the scan itself.
    void Stop() {
        if (busy_) {
            scan_->Cancel();
            return;
        }
        batch_.clear();
        next_ = 0;
        Close();
    }

    // Ends the scan (with the GIL held): the walk and the workers stop, and
    // the iterator is exhausted. They are joined without the GIL.
    void Close() {
        std::unique_ptr<fileinfo::Scan> ending = std::move(scan_);
        std::unique_ptr<QuietStdout> quiet = std::move(quiet_);  // kept until the workers stopped
        if (ending) {
            py::gil_scoped_release release;
            ending.reset();
        }
    }

    size_t Found() const { return scan_ ? scan_->Found() : 0; }
    const std::map<std::string, size_t>& Skipped() const { return skipped_; }

private:
    static constexpr size_t kLargestBatch = 64;

    // Paths a walk passed over, by reason, as the tool's summary counts them.
    static const char* SkipName(fileinfo::SkipReason reason) {
        switch (reason) {
            case fileinfo::SkipReason::kExtension: return "extension not read";
            case fileinfo::SkipReason::kNotSelected: return "extension not selected";
            case fileinfo::SkipReason::kHidden: return "hidden";
            case fileinfo::SkipReason::kSpecialFile: return "special file";
            case fileinfo::SkipReason::kLinkedFolder: return "link to a folder";
            case fileinfo::SkipReason::kNone: break;
        }
        return "skipped";
    }

    py::object onError_;
    std::unique_ptr<fileinfo::Device> device_;  // judges every record, when given
    std::map<std::string, size_t> skipped_;
    std::vector<std::unique_ptr<Record>> batch_;
    size_t next_ = 0;
    size_t batchSize_ = 1;
    bool busy_ = false;  // a thread is in Refill, without the GIL
    std::unique_ptr<QuietStdout> quiet_;
    std::unique_ptr<fileinfo::Scan> scan_;
};

// ---- The device ----

py::object OrNone(const std::string& text) { return text.empty() ? py::object(py::none()) : py::object(py::str(text)); }

// ---- The safe tag edit ----

py::str Utf8(const std::string& text) {
    // Values come from files and may hold any bytes: never fail on them.
    PyObject* s = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (s == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(s);
}

py::object Utf8Object(const std::string& text) { return Utf8(text); }

py::dict DifferenceDict(const fileinfo::Difference& d) {
    py::list fields, frames, mismatches;
    for (const auto& f : d.fields) fields.append(py::make_tuple(f.field, Utf8(f.before), Utf8(f.after)));
    for (const auto& f : d.frames) {
        const char* kind = f.kind == fileinfo::FrameChange::Dropped   ? "dropped"
                           : f.kind == fileinfo::FrameChange::Changed ? "changed"
                                                                      : "added";
        frames.append(py::make_tuple(kind, f.id, Utf8(f.before), Utf8(f.after)));
    }
    for (const auto& m : d.mismatches)
        mismatches.append(py::make_tuple(fileinfo::TagFieldName(m.field), Utf8(m.given), Utf8(m.readBack), m.why));
    py::dict out;
    out["fields"] = fields;
    out["frames"] = frames;
    out["mismatches"] = mismatches;
    out["text"] = Utf8(fileinfo::DescribeDifference(d));
    return out;
}

// Checks the FIELD=VALUE assignments, then edits. Returns a dict the
// package turns into its result; a mistake in the request raises
// ValueError before anything is touched.
py::dict SetTags(const std::string& path, const std::vector<std::string>& assignments, bool dryRun, bool force,
                 bool backup, const std::string& writerName, bool id3v23) {
    fileinfo::EditWriter writer = fileinfo::EditWriter::Fields;
    if (!fileinfo::ParseEditWriter(writerName, writer))
        throw py::value_error("writer must be \"fields\" or \"library\", not \"" + writerName + "\"");
    fileinfo::TagEdits edits(writer);
    std::string mistake;
    if (!fileinfo::ParseTagEdits(assignments, edits, mistake)) throw py::value_error(mistake);
    fileinfo::EditOptions options;
    options.dryRun = dryRun;
    options.force = force;
    options.backup = backup;
    options.id3v23 = id3v23;
    fileinfo::EditResult result;
    {
        py::gil_scoped_release release;
        QuietStdout quiet;
        result = fileinfo::EditTags(path, edits, options);
    }
    py::dict out;
    switch (result.status) {
        case fileinfo::EditStatus::Changed: out["status"] = "changed"; break;
        case fileinfo::EditStatus::WouldChange: out["status"] = "would_change"; break;
        case fileinfo::EditStatus::Refused: out["status"] = "refused"; break;
        case fileinfo::EditStatus::Failed: out["status"] = "failed"; break;
    }
    out["reason"] = result.reason;
    out["error"] = result.error;
    out["path"] = result.path.empty() ? PathObject(path) : PathObject(result.path);
    out["backup_path"] = result.backupPath.empty() ? py::object(py::none()) : PathObject(result.backupPath);
    out["touched"] = result.touched;
    out["difference"] = DifferenceDict(result.difference);
    out["goes_beyond"] = result.difference.GoesBeyond(edits);
    return out;
}

// Puts a backup back; the result as SetTags gives it.
py::dict RestoreBackup(const std::string& backupPath, const std::string& originalPath) {
    fileinfo::EditResult result;
    {
        py::gil_scoped_release release;
        result = fileinfo::RestoreBackup(backupPath, originalPath);
    }
    py::dict out;
    out["status"] = result.status == fileinfo::EditStatus::Changed  ? "changed"
                    : result.status == fileinfo::EditStatus::Refused ? "refused"
                                                                     : "failed";
    out["reason"] = result.reason;
    out["error"] = result.error;
    out["path"] = PathObject(result.path);
    out["touched"] = result.touched;
    return out;
}

#ifdef FILEINFO_PYTHON_WITH_TOOL
// `fileinfo ARGS...` in this process: the tool's own code, with the GIL
// released while it runs (it calls no Python). Arguments are bytes, as the
// program gets them. The tool moves the process's standard output
// descriptor while it runs, so runs from several threads take turns.
int RunTool(std::vector<std::string> args) {
    static std::mutex oneAtATime;
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> lock(oneAtATime);
    return fileinfo::RunTool(static_cast<int>(args.size()), argv.data());
}
#endif

}  // namespace

PYBIND11_MODULE(_fileinfo, m) {
    m.doc() = "libFileInfo's loads, scan, device verdict and tag edit; use the fileinfo package instead.";
    m.attr("__version__") = FileInfoVersion();
    m.attr("HEADER_VERSION") = FILEINFO_VERSION_STRING;

    m.def("status_text", &MediaFileStatusText, py::arg("status"), "The library's text for a status code.");
    m.def(
        "has_reader", [](const std::string& path) { return MediaFileHasReader(path.c_str()) != 0; }, py::arg("path"),
        "Whether a reader takes the path's extension.");
    m.def(
        "walk_takes", [](const std::string& path) { return fileinfo::WalkTakes(path); }, py::arg("path"),
        "Whether a scan's walk loads a regular file of this name (by its bytes, whatever the library reads).");

    py::list names;
    for (const std::string& n : FieldNames()) names.append(py::str(n));
    py::list numberNames, textNames;
    for (const auto& f : fileinfo::kNumberFields) numberNames.append(py::str(f.name));
    for (const auto& f : fileinfo::kTextFields) textNames.append(py::str(f.name));
    m.attr("FIELDS") = py::tuple(names);
    py::list readingNames, tagNames;
    for (const auto& f : fileinfo::kReadingFields) (f.tag ? tagNames : readingNames).append(py::str(f.name));
    m.attr("READING_FIELDS") = py::tuple(readingNames);
    m.attr("TAG_FIELDS") = py::tuple(tagNames);
    py::list differFields;
    for (const auto& rule : fileinfo::kRecordDiffRules) differFields.append(py::str(rule.field));
    m.attr("RECORD_DIFFERS_FIELDS") = py::tuple(differFields);
    // Declared before Record, whose properties return them.
    py::class_<Media> media(m, "Media",
                            R"(What a file really holds, read from its bytes by the package's own readers.

Immutable. The reading's fields under the names of the tool's JSON "media"
object: type, audio_codec, video_codec, duration_ms, sample_rate, channels,
bits_per_sample, bit_rate, width, height, frame_rate, profile, level, size,
... (texts as str, None when the file holds none; numbers as int, 0 when
not known), and its tags under `tags`.)");
    py::class_<MediaTags> tags(m, "Tags", "The tags a reading found, as UTF-8 texts (None when absent) and numbers.");
    m.attr("NUMBER_FIELDS") = py::tuple(numberNames);
    m.attr("TEXT_FIELDS") = py::tuple(textNames);

    py::class_<Record> record(m, "Record", R"(What the library read from one file.

Immutable. The 28 fields of the library's record under their own names
(numbers as int, texts as str decoded from Latin-1; None when the library
kept no record), and path, status, status_text, is_audio, is_video,
has_tags and identified.)");
    record.def_property_readonly("path", [](const Record& r) { return PathObject(r.item.path); })
        .def_property_readonly("status", [](const Record& r) { return r.item.status; })
        .def_property_readonly("status_text", [](const Record& r) { return MediaFileStatusText(r.item.status); })
        .def_property_readonly("is_audio", [](const Record& r) { return r.item.isAudio; })
        .def_property_readonly("is_video", [](const Record& r) { return r.item.isVideo; })
        .def_property_readonly("has_tags", [](const Record& r) { return r.item.hasTags; })
        .def_property_readonly("has_record", [](const Record& r) { return r.item.hasRecord; })
        .def_property_readonly("identified", [](const Record& r) { return r.item.Identified(); },
                               "Loaded with success, and some reader recognised the contents.")
        .def_property_readonly(
            "warnings",
            [](const Record& r) {
                py::list texts;
                for (const std::string& w : fileinfo::Warnings(r.item)) texts.append(Utf8(w));
                return py::tuple(texts);
            },
            "What the record alone does not show, as the fileinfo tool warns of it (a compressed movie "
            "header that could not be inflated, with the system's reason).");
    for (size_t k = 0; k < fileinfo::kNumberFieldCount; ++k) {
        const auto get = fileinfo::kNumberFields[k].get;
        record.def_property_readonly(fileinfo::kNumberFields[k].name, [get](const Record& r) -> py::object {
            if (!r.item.hasRecord) return py::none();
            return py::int_(get(r.item.record));
        });
    }
    for (size_t k = 0; k < fileinfo::kTextFieldCount; ++k) {
        const auto get = fileinfo::kTextFields[k].get;
        record.def_property_readonly(fileinfo::kTextFields[k].name, [get](const Record& r) -> py::object {
            if (!r.item.hasRecord) return py::none();
            return Latin1(get(r.item.record));
        });
    }
    record
        .def_property_readonly(
            "media",
            [](const Record& r) -> py::object {
                if (r.item.outcome != fileinfo::Outcome::kLoaded || r.item.readingError != 0) return py::none();
                return py::cast(Media{r.item.reading});
            },
            "What the file really holds, read from its bytes: a Media; None when the file could not be read.")
        .def_property_readonly(
            "reading_error",
            [](const Record& r) -> py::object {
                if (r.item.readingError == 0) return py::none();
                return py::str(std::strerror(r.item.readingError));
            },
            "Why the file could not be read for its reading, or None.")
        .def_property_readonly(
            "record_differs",
            [](const Record& r) -> py::object {
                if (!fileinfo::RecordComparable(r.item)) return py::none();
                py::object make = py::module_::import("fileinfo").attr("RecordDifference");
                py::list out;
                for (const fileinfo::RecordDifference& d : fileinfo::RecordDiffers(r.item))
                    out.append(make(d.field, DiffObject(d.record), DiffObject(d.reading)));
                return out;
            },
            "The record fields a person would read otherwise than the reading, as RecordDifference(field, "
            "record, reading); None when there is no record or no identified reading to compare.")
        .def_property_readonly(
            "verdict",
            [](const Record& r) -> py::object {
                if (!r.judged) return py::none();
                py::tuple keys(r.verdict.refusedBy.size());
                for (size_t k = 0; k < r.verdict.refusedBy.size(); ++k) keys[k] = py::str(r.verdict.refusedBy[k]);
                return py::module_::import("fileinfo").attr("ReadingVerdict")(r.verdict.playable, keys,
                                                                               r.verdict.explanation);
            },
            "With a device: its verdict on the reading (ReadingVerdict); else None.")
        .def_property_readonly(
            "library_verdict",
            [](const Record& r) -> py::object {
                if (!r.judged) return py::none();
                return py::module_::import("fileinfo").attr("Verdict")(
                    r.libraryVerdict.playable, OrNone(r.libraryVerdict.refusedBy), r.libraryVerdict.explanation);
            },
            "With a device: the library's own verdict on the record (Verdict); else None.");
    record.def("as_dict", &AsDict, "Every field by name, in a fixed order.")
        .def("__eq__", [](const Record& a, const py::object& b) -> py::object {
            if (!py::isinstance<Record>(b)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
            return py::bool_(SameRecord(a, b.cast<const Record&>()));
        })
        .def("__hash__", [](const Record& r) {
            return py::hash(py::make_tuple(py::bytes(r.item.path), r.item.status,
                                           r.item.hasRecord ? r.item.record.fileSize : 0u));
        })
        .def("__repr__", &Repr)
        .def("__copy__", [](const Record& r) { return r; })
        .def("__deepcopy__", [](const Record& r, py::dict) { return r; })
        .def(py::pickle(&GetState, &SetState));
    record.attr("_fields") = m.attr("FIELDS");
    record.attr("__match_args__") = m.attr("FIELDS");


    for (const auto& f : fileinfo::kReadingFields) {
        if (f.tag) continue;
        const auto get = f.get;
        media.def_property_readonly(f.name, [get](const Media& x) { return ReadingObject(get(x.reading)); });
    }
    media.def_property_readonly("tags", [](const Media& x) { return MediaTags{x.reading}; })
        .def("as_dict", [](const Media& x) { return MediaDict(x.reading); }, "Every field by name, tags as a dict.")
        .def("__eq__", [](const Media& a, const py::object& b) -> py::object {
            if (!py::isinstance<Media>(b)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
            return py::bool_(MediaDict(a.reading).equal(MediaDict(b.cast<const Media&>().reading)));
        })
        .def("__repr__", [](const Media& x) { return MediaRepr(x.reading); });
    tags.def("as_dict", [](const MediaTags& x) { return TagsDict(x.reading); }, "Every tag by name.")
        .def("__repr__", [](const MediaTags& x) { return "Tags(" + py::repr(TagsDict(x.reading)).cast<std::string>() + ")"; });
    for (const auto& f : fileinfo::kReadingFields) {
        if (!f.tag) continue;
        const auto get = f.get;
        tags.def_property_readonly(f.name, [get](const MediaTags& x) { return ReadingObject(get(x.reading)); });
    }

    m.def(
        "load",
        [](const std::string& path, const fileinfo::Device* device) { return Load(path, device); },
        py::arg("path"), py::arg("device") = nullptr, "Loads one file; see fileinfo.load.");

    py::class_<PyScan>(m, "Scan", "An iterator over the records of a scan; see fileinfo.scan.")
        .def(py::init<std::vector<std::string>, unsigned, std::vector<std::string>, bool, py::object,
                      const fileinfo::Device*>(),
             py::arg("roots"), py::arg("jobs") = 0, py::arg("extensions") = std::vector<std::string>(),
             py::arg("hidden") = false, py::arg("on_error") = py::none(), py::arg("device") = nullptr)
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &PyScan::Next)
        .def("close", &PyScan::Stop, "Stops the scan; the iterator ends.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](PyScan& s, py::args) {
            s.Stop();
            return false;
        })
        .def_property_readonly("found", &PyScan::Found, "Paths the walk found so far.")
        .def_property_readonly("skipped", &PyScan::Skipped,
                               "Paths a walk passed over so far, by reason ({'extension not read': 3, ...}).");

    py::class_<fileinfo::Device>(m, "Device")
        .def(py::init([](const py::bytes& text) {
                 const std::string caps = text;
                 const std::string error = fileinfo::Device::CheckText(caps);
                 if (!error.empty()) throw py::value_error("not a capability list: " + error);
                 return fileinfo::Device(caps);
             }),
             py::arg("caps"), "A device from its capability list's text (bytes).")
        .def("judge", [](const fileinfo::Device& d, const Record& r) {
            fileinfo::DeviceVerdict v;
            {
                py::gil_scoped_release release;
                v = d.Judge(r.item);
            }
            return py::make_tuple(v.playable, OrNone(v.refusedBy), v.explanation);
        })
        .def("judge_reading",
             [](const fileinfo::Device& d, const Record& r) {
                 fileinfo::ReadingVerdict v;
                 {
                     py::gil_scoped_release release;
                     v = d.JudgeReading(r.item.reading);
                 }
                 py::tuple keys(v.refusedBy.size());
                 for (size_t k = 0; k < v.refusedBy.size(); ++k) keys[k] = py::str(v.refusedBy[k]);
                 return py::make_tuple(v.playable, keys, v.explanation);
             })
        .def("limit", &fileinfo::Device::Limit, py::arg("file_type"), py::arg("key"))
        .def_property_readonly("text", [](const fileinfo::Device& d) { return py::bytes(d.Text()); });

    m.def(
        "find_device_list", [](const std::string& given) { return py::bytes(fileinfo::FindDeviceList(given)); },
        py::arg("name"), "The path of the device list a name or path gives, as fileinfo --device finds it.");
    m.def("set_tags", &SetTags, py::arg("path"), py::arg("assignments"), py::arg("dry_run"), py::arg("force"),
          py::arg("backup"), py::arg("writer"), py::arg("id3v23"));
    m.def("restore_backup", &RestoreBackup, py::arg("backup_path"), py::arg("original_path"));
    DefineSync(m);
#ifdef FILEINFO_PYTHON_WITH_TOOL
    m.def("run_tool", &RunTool, py::arg("argv"),
          "Runs the fileinfo command line (argv[0] first, bytes); returns its exit status.");
#endif
}
