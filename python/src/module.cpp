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
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "FileInfoVersion.h"
#include "FileOps.h"
#include "MediaFileInfo.h"
#include "RecordFields.h"
#include "SafeEdit.h"
#include "Scan.h"
#include "Verdict.h"


namespace py = pybind11;
using fileinfo::ScanItem;

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
};

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
                          py::bytes(reinterpret_cast<const char*>(&i.record), sizeof i.record), i.tempFileError);
}

Record SetState(const py::tuple& t) {
    // Seven items from before records carried their warnings.
    if (t.size() != 7 && t.size() != 8) throw std::runtime_error("fileinfo.Record: bad pickled state");
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
    if (t.size() == 8) i.tempFileError = t[7].cast<int>();
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
void LoadPath(const std::string& path, Record& record, int& error, mode_t& special) {
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
}

Record Load(const std::string& path) {
    Record record;
    int error = 0;
    mode_t special = 0;
    {
        py::gil_scoped_release release;
        LoadPath(path, record, error, special);
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
           py::object onError)
        : onError_(std::move(onError)) {
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
                    // not selected are no media files: not listed. A named
                    // file is answered for, like load() would.
                    if (!item.named) continue;
                    if (item.skip == fileinfo::SkipReason::kExtension) {
                        const std::string path = item.path;
                        py::gil_scoped_release release;
                        QuietStdout quiet;
                        fileinfo::LoadInto(path, item);
                        item.path = path;
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

private:
    static constexpr size_t kLargestBatch = 64;

    py::object onError_;
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
                 bool backup) {
    fileinfo::TagEdits edits;
    std::string mistake;
    if (!fileinfo::ParseTagEdits(assignments, edits, mistake)) throw py::value_error(mistake);
    fileinfo::EditOptions options;
    options.dryRun = dryRun;
    options.force = force;
    options.backup = backup;
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

}  // namespace

PYBIND11_MODULE(_fileinfo, m) {
    m.doc() = "libFileInfo's loads, scan, device verdict and tag edit; use the fileinfo package instead.";
    m.attr("__version__") = FileInfoVersion();
    m.attr("HEADER_VERSION") = FILEINFO_VERSION_STRING;

    m.def("status_text", &MediaFileStatusText, py::arg("status"), "The library's text for a status code.");
    m.def(
        "has_reader", [](const std::string& path) { return MediaFileHasReader(path.c_str()) != 0; }, py::arg("path"),
        "Whether a reader takes the path's extension.");

    py::list names;
    for (const std::string& n : FieldNames()) names.append(py::str(n));
    py::list numberNames, textNames;
    for (const auto& f : fileinfo::kNumberFields) numberNames.append(py::str(f.name));
    for (const auto& f : fileinfo::kTextFields) textNames.append(py::str(f.name));
    m.attr("FIELDS") = py::tuple(names);
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

    m.def("load", &Load, py::arg("path"), "Loads one file; see fileinfo.load.");

    py::class_<PyScan>(m, "Scan", "An iterator over the records of a scan; see fileinfo.scan.")
        .def(py::init<std::vector<std::string>, unsigned, std::vector<std::string>, bool, py::object>(),
             py::arg("roots"), py::arg("jobs") = 0, py::arg("extensions") = std::vector<std::string>(),
             py::arg("hidden") = false, py::arg("on_error") = py::none())
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &PyScan::Next)
        .def("close", &PyScan::Stop, "Stops the scan; the iterator ends.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](PyScan& s, py::args) {
            s.Stop();
            return false;
        })
        .def_property_readonly("found", &PyScan::Found, "Paths the walk found so far.");

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
        .def("limit", &fileinfo::Device::Limit, py::arg("file_type"), py::arg("key"))
        .def_property_readonly("text", [](const fileinfo::Device& d) { return py::bytes(d.Text()); });

    m.def("set_tags", &SetTags, py::arg("path"), py::arg("assignments"), py::arg("dry_run"), py::arg("force"),
          py::arg("backup"));
    m.def("restore_backup", &RestoreBackup, py::arg("backup_path"), py::arg("original_path"));
}
