// The tag reader on a file written from the input.
#include "FuzzCommon.h"
#include "Id3Info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = fuzz::WriteScratch("input.mp3", data, size);
    Id3Info tags;
    fuzz::CheckStatus(tags.LoadFile(path.c_str()));
    tags.GetId3Info();
    return 0;
}
