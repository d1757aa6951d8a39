// Shared by the front ends' fuzz targets: scan items, verdicts and readings
// whose every field comes from the input, and the checks the outputs made
// from them must pass.
#ifndef FILEINFO_FUZZ_FRONTEND_H
#define FILEINFO_FUZZ_FRONTEND_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzCommon.h"
#include "Scan.h"
#include "Verdict.h"
#include "media/Reading.h"

namespace fuzz {

[[noreturn]] inline void Broken(const char* what, const std::string& detail = std::string()) {
    fprintf(stderr, "broken: %s\n%s\n", what, detail.c_str());
    abort();
}

// A text of any bytes, NULs included, at most `most` long.
inline std::string AnyText(FuzzedDataProvider& in, size_t most = 64) { return in.ConsumeRandomLengthString(most); }

// A loaded item (or a skipped or failed one) with a record from the input.
inline fileinfo::ScanItem AnyItem(FuzzedDataProvider& in) {
    fileinfo::ScanItem item;
    item.path = AnyText(in, 96);
    item.named = in.ConsumeBool();
    item.outcome = static_cast<fileinfo::Outcome>(in.ConsumeIntegralInRange<int>(0, 2));
    item.skip = static_cast<fileinfo::SkipReason>(in.ConsumeIntegralInRange<int>(0, 5));
    item.error = in.ConsumeIntegralInRange<int>(0, 140);
    item.reason = AnyText(in, 32);
    item.status = in.ConsumeIntegralInRange<int>(-2, 12);
    item.isAudio = in.ConsumeBool();
    item.isVideo = in.ConsumeBool();
    item.hasTags = in.ConsumeBool();
    item.hasRecord = in.ConsumeBool();
    item.tempFileError = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 140) : 0;
    const std::string bytes = in.ConsumeBytesAsString(sizeof item.record);
    item.record = RecordFrom(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return item;
}

inline fileinfo::DeviceVerdict AnyVerdict(FuzzedDataProvider& in) {
    fileinfo::DeviceVerdict verdict;
    verdict.playable = in.ConsumeBool();
    verdict.refusedBy = AnyText(in, 32);
    verdict.explanation = AnyText(in, 64);
    return verdict;
}

inline fileinfo::media::Reading AnyReading(FuzzedDataProvider& in) {
    fileinfo::media::Reading r;
    r.type = AnyText(in, 8);
    r.aac_format = AnyText(in, 8);
    r.audio_codec = AnyText(in, 12);
    r.pcm_format = AnyText(in, 8);
    r.video_codec = AnyText(in, 16);
    r.duration_ms = in.ConsumeIntegral<uint64_t>();
    r.duration_estimated = in.ConsumeBool();
    r.sample_rate = in.ConsumeIntegral<uint32_t>();
    r.channels = in.ConsumeIntegral<uint32_t>();
    r.bits_per_sample = in.ConsumeIntegral<uint32_t>();
    r.bit_rate = in.ConsumeIntegral<uint64_t>();
    r.audio_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.vbr = in.ConsumeBool();
    r.width = in.ConsumeIntegral<uint32_t>();
    r.height = in.ConsumeIntegral<uint32_t>();
    r.frame_rate = in.ConsumeFloatingPoint<double>();
    r.video_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.video_peak_bit_rate = in.ConsumeIntegral<uint64_t>();
    r.profile = AnyText(in, 24);
    r.profile_id = in.ConsumeIntegral<uint32_t>();
    r.level = in.ConsumeIntegral<uint32_t>();
    r.size = in.ConsumeIntegral<uint64_t>();
    r.tags.title = AnyText(in, 32);
    r.tags.artist = AnyText(in, 32);
    r.tags.genre = AnyText(in, 16);
    r.tags.track = in.ConsumeIntegral<uint32_t>();
    return r;
}

}  // namespace fuzz

#endif  // FILEINFO_FUZZ_FRONTEND_H
