// The facade on a file written from the input; the first byte picks one of
// the nine extensions, so every reader and every fallback path is reached.
#include "FuzzCommon.h"
#include "MediaFileInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kExtensions[] = {".mp3", ".aac", ".mp4", ".3gp", ".m4v",
                                              ".m4a", ".wav", ".aif", ".mov"};
    if (size == 0) return 0;
    const std::string name = std::string("input") + kExtensions[data[0] % 9];
    const std::string path = fuzz::WriteScratch(name, data + 1, size - 1);
    MediaFileInfo media;
    fuzz::CheckStatus(media.LoadFile(path.c_str()));
    fuzz::CheckRecord(media.GetFileInfo());
    media.IsAudio();
    media.IsVideo();
    media.HasId3Info();
    return 0;
}
