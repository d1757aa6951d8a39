// fileinfo._fileinfo.sync: the sync of core/sync seen from Python, with the
// GIL released while it walks, loads and writes. Ctrl-C (a pending
// KeyboardInterrupt) stops it after the files in flight, and is raised
// once the device is consistent.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <string>
#include <vector>

#include "Verdict.h"
#include "convert/Converter.h"
#include "convert/Target.h"
#include "sync/Sync.h"

namespace py = pybind11;

namespace {

py::object Path(const std::string& path) {
    PyObject* text = PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
    if (text == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(text);
}

py::object Text(const std::string& text) {
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

// What a file is converted to, as the tool's JSON "conversion" gives it.
py::dict Conversion(const fileinfo::convert::Target& t) {
    py::dict d;
    d["type"] = t.type;
    d["container"] = t.container;
    d["extension"] = t.extension;
    d["words"] = Text(t.Words());
    if (t.hasSound) {
        py::dict a;
        a["codec"] = t.sound.codec == "aac" ? "AAC LC" : t.sound.codec == "mp3" ? "MP3" : "PCM";
        a["sample_rate"] = t.sound.sampleRate;
        a["channels"] = t.sound.channels;
        a["bits_per_sample"] = t.sound.bitsPerSample;
        a["bit_rate"] = t.sound.bitRate;
        a["silent"] = t.silentSound;
        d["audio"] = a;
    }
    if (t.hasPicture) {
        py::dict v;
        v["codec"] = t.picture.codec == "h264" ? "H.264" : "MPEG-4 Visual";
        v["width"] = t.picture.width;
        v["height"] = t.picture.height;
        v["frame_rate"] = t.picture.frameRateMilli / 1000.0;
        v["profile"] = t.picture.profile;
        v["level"] = t.picture.level;
        v["bit_rate"] = t.picture.bitRate;
        v["peak_bit_rate"] = t.picture.peakBitRate;
        d["video"] = v;
    }
    return d;
}

py::dict Entry(const fileinfo::sync::PlanEntry& e) {
    py::dict d;
    d["action"] = fileinfo::sync::ActionName(e.action);
    d["source"] = Path(e.source);
    d["device_path"] = e.devicePath.empty() ? py::object(py::none()) : Path(e.devicePath);
    d["reason"] = Text(e.reason);
    d["bytes"] = e.bytes;
    if (!e.replaces.empty()) {
        d["replaces"] = Path(e.replaces);
        d["replaced_bytes"] = e.replacedBytes;
    }
    d["refused_by"] = e.refusedBy.empty() ? py::object(py::none()) : Text(e.refusedBy);
    d["library_playable"] = e.loaded ? py::object(py::bool_(e.libraryPlayable)) : py::object(py::none());
    d["target"] = e.target.empty() ? py::object(py::none()) : Text(e.target);
    if (e.playlist) d["playlist_dropped"] = e.playlistDropped;
    fileinfo::convert::Target target;
    if (!e.playlist && fileinfo::convert::Target::Parse(e.target, target)) d["conversion"] = Conversion(target);
    return d;
}

py::dict Totals(const fileinfo::sync::Plan& plan) {
    const fileinfo::sync::PlanTotals& t = plan.totals;
    py::dict actions, skipped, d;
    for (int a = 0; a < fileinfo::sync::kActionCount; ++a) {
        actions[fileinfo::sync::ActionName(static_cast<fileinfo::sync::Action>(a))] = py::make_tuple(t.count[a], t.bytes[a]);
    }
    for (int k = 1; k < fileinfo::sync::kSkipKindCount; ++k) {
        if (t.skipped[k] != 0) skipped[fileinfo::sync::SkipKindName(static_cast<fileinfo::sync::SkipKind>(k))] = t.skipped[k];
    }
    d["actions"] = actions;
    d["skipped"] = skipped;
    d["playlist_entries_dropped"] = t.playlistDropped;
    d["needed_bytes"] = t.needed;
    d["freed_bytes"] = t.freed;
    d["free_bytes"] = t.available;
    d["fits"] = t.fits;
    d["short_by"] = t.shortBy;
    d["loaded"] = t.loads;
    d["fat"] = plan.fat;
    d["device_folder"] = Path(plan.deviceFolder);
    return d;
}

const char* StatusName(fileinfo::sync::SyncStatus status) {
    switch (status) {
        case fileinfo::sync::SyncStatus::kOk: return "ok";
        case fileinfo::sync::SyncStatus::kUsage: return "usage";
        case fileinfo::sync::SyncStatus::kLocked: return "locked";
        case fileinfo::sync::SyncStatus::kNewer: return "newer";
        case fileinfo::sync::SyncStatus::kError: return "error";
        case fileinfo::sync::SyncStatus::kNoRoom: return "no room";
    }
    return "error";
}

py::dict Sync(const std::vector<std::string>& sources, const std::string& to, const fileinfo::Device& device,
              bool dryRun, unsigned jobs, const std::vector<std::string>& extensions, bool hidden, bool keepRemoved,
              bool fatNames, bool convert, const std::string& ffmpeg) {
    fileinfo::sync::SyncRequest request;
    request.sources = sources;
    request.deviceFolder = to;
    request.device = &device;
    request.dryRun = dryRun;
    request.plan.jobs = jobs;
    request.plan.extensions = extensions;
    request.plan.hidden = hidden;
    request.plan.keepRemoved = keepRemoved;
    request.plan.fatNames = fatNames;
    fileinfo::convert::ConvertOptions convertOptions;
    convertOptions.enabled = convert;
    convertOptions.program = ffmpeg;
    convertOptions.jobs = jobs;
    fileinfo::convert::Converter converter(device, convertOptions);
    converter.Attach(request);
    bool interrupted = false;
    request.execute.stopRequested = [&interrupted] {
        if (interrupted) return true;
        py::gil_scoped_acquire gil;
        if (PyErr_CheckSignals() != 0) interrupted = true;  // the exception stays set
        return interrupted;
    };
    fileinfo::sync::SyncOutcome out;
    {
        py::gil_scoped_release release;
        out = fileinfo::sync::RunSync(request, nullptr);
        converter.Stop();
    }
    if (interrupted) throw py::error_already_set();
    py::dict d;
    d["status"] = StatusName(out.status);
    d["error"] = out.error;
    py::list entries;
    for (size_t k = 0; k < out.plan.entries.size(); ++k) {
        py::dict e = Entry(out.plan.entries[k]);
        if (out.ran) {
            const fileinfo::sync::EntryResult r = out.run.results[k];
            e["result"] = r == fileinfo::sync::EntryResult::kDone ? "done"
                          : r == fileinfo::sync::EntryResult::kFailed ? "failed"
                                                                     : "not run";
        }
        entries.append(e);
    }
    for (const auto& failure : out.run.failures) entries[failure.first]["error"] = Text(failure.second);
    d["plan"] = entries;
    d["totals"] = Totals(out.plan);
    d["converter"] = converter.Enabled() && !converter.Program().empty() ? py::object(Path(converter.Program()))
                                                                          : py::object(py::none());
    if (out.ran) {
        py::dict r;
        const auto done = [&out](fileinfo::sync::Action a) { return out.run.done[static_cast<int>(a)]; };
        r["copied"] = done(fileinfo::sync::Action::kCopy);
        r["converted"] = done(fileinfo::sync::Action::kConvert);
        r["updated"] = done(fileinfo::sync::Action::kUpdate);
        r["kept"] = done(fileinfo::sync::Action::kKeep);
        r["removed"] = done(fileinfo::sync::Action::kRemove);
        r["skipped"] = out.run.skipped;
        r["failed"] = out.run.failed;
        r["bytes_written"] = out.run.bytesWritten;
        r["seconds"] = out.run.seconds;
        r["device_failed"] = out.run.deviceFailed;
        r["device_error"] = Text(out.run.deviceError);
        d["result"] = r;
    } else {
        d["result"] = py::none();
    }
    return d;
}

}  // namespace

void DefineSync(py::module_& m) {
    m.def("sync", &Sync, py::arg("sources"), py::arg("to"), py::arg("device"), py::arg("dry_run"), py::arg("jobs"),
          py::arg("extensions"), py::arg("hidden"), py::arg("keep_removed"), py::arg("fat_names"), py::arg("convert"),
          py::arg("ffmpeg"),
          "Plans and runs a sync; see fileinfo.sync.");
}
