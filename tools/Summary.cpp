#include "Summary.h"

#include <cstdio>
#include <cstring>

#include "JsonText.h"
#include "RecordDiffers.h"
#include "Views.h"

namespace fileinfo {

namespace {

std::string Bytes(unsigned long long n) {
    static const char* const kUnits[] = {"bytes", "KB", "MB", "GB", "TB"};
    double value = static_cast<double>(n);
    size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(kUnits)) {
        value /= 1000;
        ++unit;
    }
    char text[64];
    if (unit == 0) {
        snprintf(text, sizeof text, "%llu bytes", n);
    } else {
        snprintf(text, sizeof text, "%.1f %s (%llu bytes)", value, kUnits[unit], n);
    }
    return text;
}

unsigned long Total(const std::map<std::string, unsigned long>& counts) {
    unsigned long total = 0;
    for (const auto& [name, n] : counts) total += n;
    return total;
}

// "3 hidden, 1 special file"
std::string Counts(const std::map<std::string, unsigned long>& counts) {
    std::string text;
    for (const auto& [name, n] : counts) text += (text.empty() ? "" : ", ") + std::to_string(n) + " " + name;
    return ForTerminal(text);
}

void AppendCounts(std::string& out, const char* key, const std::map<std::string, unsigned long>& counts) {
    out += ",\"";
    out += key;
    out += "\":{";
    bool first = true;
    for (const auto& [name, n] : counts) {
        if (!first) out += ',';
        first = false;
        AppendJsonString(out, name);
        out += ':' + std::to_string(n);
    }
    out += '}';
}

}  // namespace

const char* SkipReasonText(SkipReason reason) {
    switch (reason) {
        case SkipReason::kExtension: return "extension not read";
        case SkipReason::kNotSelected: return "extension not selected";
        case SkipReason::kHidden: return "hidden";
        case SkipReason::kSpecialFile: return "special file";
        case SkipReason::kLinkedFolder: return "link to a folder";
        case SkipReason::kNone: break;
    }
    return "skipped";
}

void Summary::Count(const ScanItem& item, const DeviceVerdict* verdict, const ReadingVerdict* readingVerdict) {
    if (item.outcome == Outcome::kSkipped) {
        ++skipped[SkipReasonText(item.skip)];
        return;
    }
    if (item.outcome == Outcome::kError) {
        ++unreadable[item.reason];
        return;
    }
    if (byReading_) {
        CountReading(item, readingVerdict);
        return;
    }
    if (item.hasRecord) bytes += item.record.fileSize;
    if (item.Identified()) {
        ++loaded;
        TypeTotal& type = types[TypeLabel(item)];
        ++type.files;
        type.durationMs += item.record.durationMs;
    } else if (!item.LoadFailed()) {
        ++unidentified;
    } else {
        const std::string note = FailureNote(item);
        ++failed[note.empty() ? std::string(MediaFileStatusText(item.status)) : note];
    }
    if (verdict == nullptr) return;
    if (verdict->playable) {
        ++playable;
        return;
    }
    ++unplayable;
    ++refusals[verdict->refusedBy.empty() ? verdict->explanation : verdict->refusedBy];
}

void Summary::CountReading(const ScanItem& item, const ReadingVerdict* verdict) {
    const media::Reading& m = item.reading;
    if (item.readingError == 0) {
        bytes += m.size;
    } else if (item.hasRecord) {
        bytes += item.record.fileSize;
    }
    if (item.readingError == 0 && m.Identified()) {
        ++loaded;
        TypeTotal& type = types[m.type];
        ++type.files;
        type.durationMs += m.duration_ms;
    } else if (item.LoadFailed()) {
        const std::string note = FailureNote(item);
        ++failed[note.empty() ? std::string(MediaFileStatusText(item.status)) : note];
    } else if (item.readingError != 0) {
        ++failed[std::strerror(item.readingError)];
    } else {
        ++unidentified;
    }
    for (const RecordDifference& d : RecordDiffers(item)) ++differs[d.field];
    if (verdict == nullptr) return;
    if (verdict->playable) {
        ++playable;
        return;
    }
    ++unplayable;
    if (verdict->refusedBy.empty()) ++refusals[verdict->explanation.empty() ? "refused" : verdict->explanation];
    for (const std::string& key : verdict->refusedBy) ++refusals[key];
}

void Summary::WriteText(std::ostream& out, double seconds, bool device) const {
    out << (interrupted ? "summary (interrupted):\n" : "summary:\n");
    out << "  files:      " << loaded << " loaded, " << unidentified << " unidentified, " << Total(failed)
        << " failed, " << Total(skipped) << " skipped, " << Total(unreadable) << " unreadable\n";
    if (!failed.empty()) out << "  failed:     " << Counts(failed) << "\n";
    if (!skipped.empty()) out << "  skipped:    " << Counts(skipped) << "\n";
    if (!unreadable.empty()) out << "  unreadable: " << Counts(unreadable) << "\n";
    for (const auto& [type, total] : types) {
        out << "  type " << ForTerminal(type) << ": " << total.files << (total.files == 1 ? " file, " : " files, ")
            << HoursMinutesSeconds(static_cast<unsigned long>(total.durationMs)) << "\n";
    }
    out << "  size:       " << Bytes(bytes) << "\n";
    if (!differs.empty()) out << "  record differs: " << Counts(differs) << "\n";
    char time[32];
    snprintf(time, sizeof time, "%.2f s", seconds);
    out << "  time:       " << time << "\n";
    if (!device) return;
    out << "  device:     " << playable << " playable, " << unplayable << " unplayable\n";
    if (!refusals.empty()) out << "  refused by: " << Counts(refusals) << "\n";
}

void Summary::WriteJson(std::ostream& out, double seconds, bool device) const {
    std::string line = std::string("{\"summary\":{") + (interrupted ? "\"interrupted\":true," : "") +
                       "\"loaded\":" + std::to_string(loaded) +
                       ",\"unidentified\":" + std::to_string(unidentified);
    AppendCounts(line, "failed", failed);
    AppendCounts(line, "skipped", skipped);
    AppendCounts(line, "unreadable", unreadable);
    line += ",\"types\":{";
    bool first = true;
    for (const auto& [type, total] : types) {
        if (!first) line += ',';
        first = false;
        AppendJsonString(line, type);
        line += ":{\"files\":" + std::to_string(total.files) + ",\"duration_ms\":" + std::to_string(total.durationMs) + "}";
    }
    line += "},\"bytes\":" + std::to_string(bytes);
    if (byReading_) AppendCounts(line, "record_differs", differs);
    char time[32];
    snprintf(time, sizeof time, "%.3f", seconds);
    line += ",\"seconds\":";
    line += time;
    if (device) {
        line += ",\"playable\":" + std::to_string(playable) + ",\"unplayable\":" + std::to_string(unplayable);
        AppendCounts(line, "refused_by", refusals);
    }
    line += "}}\n";
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
}

}  // namespace fileinfo
