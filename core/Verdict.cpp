#include "Verdict.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "FileOps.h"
#include "JudgeInfo.h"
#include "RecordFields.h"
#include "Scan.h"

namespace fileinfo {

namespace {

// The record fields a requirement key is checked against, shown beside it:
// "width 400, height 300".
std::string CheckedFields(const std::string& key, const MediaFileInfo_st& r) {
    const char* fields = FileInfoRequirementFields(key.c_str());
    std::string shown;
    if (fields == nullptr) return shown;
    std::istringstream names(fields);
    std::string name;
    while (names >> name) shown += (shown.empty() ? "" : ", ") + ShowField(name.c_str(), r);
    return shown;
}

// Where the pairs of a file type's entry begin: just after its key; npos
// when the list does not name the type.
size_t EntryStart(const std::string& caps, const std::string& type) {
    const std::string needle = std::string(FileInfoFilter::KEY_BEGIN) + type + FileInfoFilter::KEY_END;
    const size_t at = caps.find(needle);
    return at == std::string::npos ? at : at + needle.size();
}

// Why the library refused the record. `judged` is the filter that gave the
// verdict: its cursor and depth are where the walk stopped. A fresh filter
// reads the same pairs from the type's key until it stands at that same
// place; the pair it read last is the one the judgement stopped on. The
// verdict itself is always the library's.
void ExplainRefusal(const std::string& caps, const MediaFileInfo_st& record, const FileInfoFilter& judged,
                    DeviceVerdict& verdict) {
    const std::string type = RecordText(record.fileType);
    // AdjudgeFile moves the cursor only once it has found the type's key.
    if (judged.m_pos == 0) {
        verdict.explanation = "the device lists no " + type + " type";
        return;
    }
    FileInfoFilter replay(caps);
    replay.m_pos = static_cast<unsigned int>(EntryStart(caps, type));
    KEY_VAR_st pair;
    bool reached = false;
    for (;;) {
        const unsigned int before = replay.m_pos;
        pair = replay.GetNextKeyVar();
        reached = replay.m_pos == judged.m_pos && replay.m_depth == judged.m_depth;
        if (reached || replay.m_pos == before || pair.key.empty()) break;
    }
    if (!reached) {
        verdict.explanation = "refused by the " + type + " entry";
    } else if (judged.m_depth < 1) {
        verdict.explanation = "the device's " + type + " entry is not a dictionary";
    } else {
        verdict.refusedBy = pair.key;
        verdict.explanation = "requirement " + pair.key + " = \"" + pair.value + "\" refuses it";
        const std::string fields = CheckedFields(pair.key, record);
        if (!fields.empty()) verdict.explanation += " (" + fields + ")";
    }
}

}  // namespace

Device::Device(std::string caps) : caps_(std::move(caps)) {}

std::string Device::CheckText(const std::string& caps) {
    if (caps.find("<dict>") == std::string::npos) return "holds no <dict>: not a capability list";
    return std::string();
}

bool Device::FromFile(const std::string& path, Device& device, std::string& error) {
    if (PathHoldsNul(path)) {
        error = kNulInPath;
        return false;
    }
    // Opened without blocking and checked before anything is read: a folder,
    // a FIFO or a device (/dev/zero never ends) is no capability list.
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    std::string text;
    error = ReadCapabilityFile(fd, text);
    close(fd);
    if (error.empty()) error = CheckText(text);
    if (!error.empty()) return false;
    device.caps_ = std::move(text);
    return true;
}

std::string Device::ReadCapabilityFile(int fd, std::string& text) {
    struct stat st;
    if (fstat(fd, &st) != 0) return std::strerror(errno);
    if (S_ISDIR(st.st_mode)) return "not a regular file (folder)";
    if (!S_ISREG(st.st_mode)) return std::string("not a regular file (") + SpecialFileKind(st.st_mode) + ")";
    const std::string tooLarge = "larger than the " + std::to_string(kLargestCapabilityFile >> 20) +
                                 " MiB a capability list may have";
    if (static_cast<unsigned long long>(st.st_size) > kLargestCapabilityFile) return tooLarge;
    // Read to its end, whatever fstat said: the file may be growing. One
    // byte more than the limit shows that it went past it.
    text.clear();
    char chunk[65536];
    for (;;) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::strerror(errno);
        if (n == 0) return std::string();
        if (text.size() + static_cast<size_t>(n) > kLargestCapabilityFile) return tooLarge;
        text.append(chunk, static_cast<size_t>(n));
    }
}

DeviceVerdict Device::Judge(const MediaFileInfo_st& record) const {
    DeviceVerdict verdict;
    MediaFileInfo_st copy = record;  // the filter takes a mutable record
    FileInfoFilter judged(caps_);    // one filter per judgement: it keeps the walk's state
    verdict.playable = judged.AdjudgeFile(&copy) == 1;
    if (!verdict.playable) ExplainRefusal(caps_, record, judged, verdict);
    return verdict;
}

DeviceVerdict Device::Judge(const ScanItem& item) const {
    if (item.outcome != Outcome::kLoaded || item.status != MFI_OK || !item.hasRecord) {
        DeviceVerdict verdict;
        verdict.explanation = "the file did not load";
        return verdict;
    }
    DeviceVerdict verdict = Judge(item.record);
    // The library refuses a record without a type as a type the list does
    // not name; say what it is instead of naming an empty type.
    if (!verdict.playable && item.record.fileType[0] == '\0') {
        verdict.explanation = item.Identified() ? "the file has no file type to look up (ADTS streams carry none)"
                                                : "the file was not identified";
    }
    return verdict;
}

long Device::Limit(const std::string& fileType, const std::string& key) const {
    const size_t start = EntryStart(caps_, fileType);
    if (start == std::string::npos) return -1;
    FileInfoFilter walk(caps_);
    walk.m_pos = static_cast<unsigned int>(start);
    for (;;) {
        const unsigned int before = walk.m_pos;
        const KEY_VAR_st pair = walk.GetNextKeyVar();
        if (pair.key.empty() || walk.m_pos == before) return -1;
        if (pair.key == key) {
            char* end = nullptr;
            const long value = std::strtol(pair.value.c_str(), &end, 10);
            return end == pair.value.c_str() ? -1 : value;
        }
    }
}

}  // namespace fileinfo
