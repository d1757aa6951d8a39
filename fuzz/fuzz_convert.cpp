// A conversion target worked out from any capability list for a reading
// of any numbers: it never traps; a target found is one the device's list
// can hold (an extension, even picture sizes), and its text reads back as
// the same target. Any text read as a target reads back as itself.
#include <string>
#include <vector>

#include "FrontEnd.h"
#include "convert/Target.h"

namespace {

fileinfo::media::Reading PlausibleReading(FuzzedDataProvider& in) {
    static const char* const kKinds[][3] = {
        {"WAV", "PCM", ""},       {"AIFF", "PCM", ""},        {"AIFC", "PCM", ""},
        {"MP3", "MP3", ""},       {"MP3", "MP2", ""},         {"AAC", "AAC LC", ""},
        {"M4A", "AAC LC", ""},    {"M4A", "ALAC", ""},        {"M4A", "AAC Main", ""},
        {"MP4", "AAC LC", "H.264"}, {"MOV", "AAC LC", "H.264"}, {"M4V", "AAC LC", "MPEG-4 Visual"},
        {"3GP", "AAC LC", "H.263"}, {"MP4", "", "H.264"},      {"MP4", "MP2", ""},
    };
    const auto& kind = kKinds[in.ConsumeIntegralInRange<size_t>(0, sizeof kKinds / sizeof kKinds[0] - 1)];
    fileinfo::media::Reading r;
    r.type = kind[0];
    r.audio_codec = kind[1];
    r.video_codec = kind[2];
    if (r.type == "AAC") r.aac_format = "ADTS";
    r.duration_ms = in.ConsumeIntegral<uint64_t>();
    r.sample_rate = in.ConsumeIntegral<uint32_t>();
    r.channels = in.ConsumeIntegralInRange<uint32_t>(0, 64);
    r.bits_per_sample = in.ConsumeIntegralInRange<uint32_t>(0, 64);
    r.bit_rate = in.ConsumeIntegral<uint64_t>();
    r.audio_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.width = in.ConsumeIntegral<uint32_t>();
    r.height = in.ConsumeIntegral<uint32_t>();
    r.frame_rate = in.ConsumeFloatingPoint<double>();
    r.video_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.video_peak_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.profile = fuzz::AnyText(in, 12);
    r.profile_id = in.ConsumeIntegral<uint32_t>();
    r.level = in.ConsumeIntegral<uint32_t>();
    return r;
}

void CheckReadsBack(const fileinfo::convert::Target& target, const char* what) {
    fileinfo::convert::Target back;
    if (!fileinfo::convert::Target::Parse(target.Text(), back)) fuzz::Broken(what, target.Text());
    if (back.Text() != target.Text()) fuzz::Broken(what, target.Text() + " / " + back.Text());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const std::string text = fuzz::AnyText(in, 200);
    fileinfo::convert::Target parsed;
    if (fileinfo::convert::Target::Parse(text, parsed)) CheckReadsBack(parsed, "a parsed target does not read back");

    const fileinfo::media::Reading reading = PlausibleReading(in);
    const fileinfo::Device device(in.ConsumeRemainingBytesAsString());
    const fileinfo::ReadingVerdict verdict = device.JudgeReading(reading);
    if (verdict.playable) return 0;
    fileinfo::convert::Target target;
    std::string why;
    if (!fileinfo::convert::FindTarget(device, reading, verdict.refusedBy, target, why)) {
        if (why.empty()) fuzz::Broken("no target, and no reason");
        return 0;
    }
    if (target.extension.size() < 2 || target.extension[0] != '.') fuzz::Broken("a target without an extension");
    if (target.hasPicture && (target.picture.width == 0 || target.picture.height == 0 ||
                              target.picture.width % 2 != 0 || target.picture.height % 2 != 0))
        fuzz::Broken("a picture size that is zero or odd", target.Words());
    CheckReadsBack(target, "a target's text does not read back");
    if (target.Words().empty()) fuzz::Broken("a target without words");
    target.EstimateBytes(reading.duration_ms);
    return 0;
}
