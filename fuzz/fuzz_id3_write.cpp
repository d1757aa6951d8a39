// The tag writer: the input's first half becomes a scratch file that is
// loaded, its second half the record whose tags are written into it.
#include "FuzzCommon.h"
#include "Id3Info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t fileSize = size / 2;
    const std::string path = fuzz::WriteScratch("input.mp3", data, fileSize);
    MediaFileInfo_st record = fuzz::RecordFrom(data + fileSize, size - fileSize);
    Id3Info tags;
    tags.LoadFile(path.c_str());
    fuzz::CheckStatus(tags.SetId3Info(&record));
    return 0;
}
