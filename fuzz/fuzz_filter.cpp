// The capability filter: the first 1836 bytes become the record, the rest
// the capability text.
#include <string>

#include "FuzzCommon.h"
#include "JudgeInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t recordBytes = size < sizeof(MediaFileInfo_st) ? size : sizeof(MediaFileInfo_st);
    MediaFileInfo_st record = fuzz::RecordFrom(data, recordBytes);
    FileInfoFilter filter(std::string(reinterpret_cast<const char*>(data) + recordBytes, size - recordBytes));
    const int verdict = filter.AdjudgeFile(&record);
    if (verdict != 0 && verdict != 1) abort();
    return 0;
}
