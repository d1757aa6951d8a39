// Whether a device plays a file: the library's own judgement against the
// device's capability list, and the requirement that refused the file.
#ifndef FILEINFO_CORE_VERDICT_H
#define FILEINFO_CORE_VERDICT_H

#include <string>
#include <vector>

#include "MediaFileInfoDefine.h"
#include "media/Reading.h"

namespace fileinfo {

struct ScanItem;

struct DeviceVerdict {
    bool playable = false;
    std::string refusedBy;    // the requirement key that refused the file, if one did
    std::string explanation;  // why not, in words; empty when playable
};

// Whether a device plays a file, judged on the reading of what the file
// holds: every requirement key the filter checks, with its plain meaning.
struct ReadingVerdict {
    bool playable = false;
    // Every requirement key that refuses the file, in the list's order; a
    // file the list has no entry for is refused with no key.
    std::vector<std::string> refusedBy;
    // Each refusal in words, "; " between them ("sample rate 96 kHz is above
    // the device's 48 kHz"); empty when playable.
    std::string explanation;
};

// The name a reading's file type has in a capability list: "AAC" for an
// ADTS stream, "MP2" for MPEG Layer II sound, "AIFF" for AIFF-C, a movie's
// video codec ("H.264", "MPEG-4", "H.263"), a sound-only MP4's codec
// ("AAC", "AppleLossless", "AMR", "AMR-WB"); empty when not identified.
std::string ReadingLookupType(const media::Reading& reading);

class Device {
public:
    // The capability list's text.
    explicit Device(std::string caps);

    // The largest capability list read from a file: 64 MiB, far above any
    // device's (a few kB), and small enough to hold in memory.
    static constexpr unsigned long long kLargestCapabilityFile = 64ull << 20;

    // Reads a capability list from a file. False, with the reason in
    // `error`, when it cannot be read, is not a regular file (a folder, a
    // FIFO, a device: refused before anything is read), is larger than
    // kLargestCapabilityFile, or holds no <dict> (it is then no property
    // list, and would refuse every file).
    static bool FromFile(const std::string& path, Device& device, std::string& error);
    // The reading itself, from an open descriptor: the text, or the reason
    // it cannot be had. Kept apart for the fuzz target.
    static std::string ReadCapabilityFile(int fd, std::string& text);
    // The same check for a text: an empty error when it is usable.
    static std::string CheckText(const std::string& caps);

    // The verdict on one loaded record. A fresh filter judges every record:
    // a filter keeps the state its walk left.
    DeviceVerdict Judge(const MediaFileInfo_st& record) const;
    // The verdict on a scanned item: files that did not load, or that no
    // reader identified, are never playable and say so.
    DeviceVerdict Judge(const ScanItem& item) const;

    // The verdict on what the file holds. The type is looked up by the
    // reading's own: an ADTS stream is "AAC", a movie by its video codec's
    // name in the list ("H.264", "MPEG-4", "H.263"), a sound-only MP4 by its
    // audio codec's ("AAC", "AppleLossless", "AMR"). Requirement keys the
    // filter does not check stay unchecked.
    ReadingVerdict JudgeReading(const media::Reading& reading) const;

    // The number a requirement key gives under a file type ("MaximumWidth"
    // under "H.264"), or -1 when the list does not give it.
    long Limit(const std::string& fileType, const std::string& key) const;

    const std::string& Text() const { return caps_; }

private:
    Device() = default;

    std::string caps_;
};

}  // namespace fileinfo

#endif  // FILEINFO_CORE_VERDICT_H
