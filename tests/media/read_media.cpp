// Prints the reading of each path named as one JSON object per line, for
// the differential checks against other tools.
#include <cstdio>
#include <cstring>
#include <iostream>

#include <nlohmann/json.hpp>

#include "media/Reading.h"

int main(int argc, char** argv) {
    using fileinfo::media::Reading;
    for (int i = 1; i < argc; ++i) {
        Reading r;
        const int error = fileinfo::media::ReadMediaPath(argv[i], r);
        nlohmann::json line;
        line["path"] = argv[i];
        if (error != 0) {
            line["error"] = std::strerror(error);
        } else {
            line["type"] = r.type;
            line["aac_format"] = r.aac_format;
            line["audio_codec"] = r.audio_codec;
            line["pcm_format"] = r.pcm_format;
            line["video_codec"] = r.video_codec;
            line["duration_ms"] = r.duration_ms;
            line["duration_estimated"] = r.duration_estimated;
            line["sample_rate"] = r.sample_rate;
            line["channels"] = r.channels;
            line["bits_per_sample"] = r.bits_per_sample;
            line["bit_rate"] = r.bit_rate;
            line["audio_bit_rate"] = r.audio_bit_rate;
            line["vbr"] = r.vbr;
            line["width"] = r.width;
            line["height"] = r.height;
            line["frame_rate"] = r.frame_rate;
            line["video_bit_rate"] = r.video_bit_rate;
            line["video_peak_bit_rate"] = r.video_peak_bit_rate;
            line["profile"] = r.profile;
            line["profile_id"] = r.profile_id;
            line["level"] = r.level;
            line["size"] = r.size;
            const auto& t = r.tags;
            line["tags"] = {{"title", t.title},     {"artist", t.artist},   {"album", t.album},
                            {"genre", t.genre},     {"year", t.year},       {"comment", t.comment},
                            {"composer", t.composer}, {"track", t.track}, {"track_total", t.track_total}};
        }
        std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    }
    return 0;
}
