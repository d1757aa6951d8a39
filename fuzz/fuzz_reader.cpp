// One reader loading a file written from the input. FUZZ_READER names the
// reader class and FUZZ_EXTENSION the file's extension.
#include "AacInfo.h"
#include "AifInfo.h"
#include "FuzzCommon.h"
#include "Mp3Info.h"
#include "Mp4Info.h"
#include "WavInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = fuzz::WriteScratch(std::string("input") + FUZZ_EXTENSION, data, size);
    FUZZ_READER* reader = new FUZZ_READER();
    fuzz::CheckStatus(reader->LoadFile(path.c_str()));
    fuzz::CheckRecord(reader->GetFileInfo());
    delete reader;
    return 0;
}
