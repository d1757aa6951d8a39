// A capability file and the verdicts made with it: the input's text, read
// back from a file as the front ends read it, must come back whole; the
// verdict on a record from the input must be the library's own, and its
// explanation must say why whenever the file is not playable. The verdict
// on an arbitrary reading must be consistent in itself.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "FrontEnd.h"
#include "JudgeInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    fileinfo::ScanItem item = fuzz::AnyItem(in);
    const fileinfo::media::Reading reading = fuzz::AnyReading(in);
    const std::string caps = in.ConsumeRemainingBytesAsString();

    const int fd = memfd_create("caps", MFD_CLOEXEC);
    if (fd < 0) abort();
    if (!caps.empty() && write(fd, caps.data(), caps.size()) != static_cast<ssize_t>(caps.size())) abort();
    lseek(fd, 0, SEEK_SET);
    std::string text;
    const std::string error = fileinfo::Device::ReadCapabilityFile(fd, text);
    close(fd);
    if (!error.empty() || text != caps) fuzz::Broken("the capability file did not come back whole", error);

    const fileinfo::Device device(caps);
    MediaFileInfo_st copy = item.record;
    FileInfoFilter filter(caps);
    const bool library = filter.AdjudgeFile(&copy) == 1;
    const fileinfo::DeviceVerdict verdict = device.Judge(item.record);
    if (verdict.playable != library) fuzz::Broken("the verdict is not the library's");
    if (verdict.playable && (!verdict.explanation.empty() || !verdict.refusedBy.empty()))
        fuzz::Broken("a playable file has a refusal", verdict.explanation);
    if (!verdict.playable && verdict.explanation.empty()) fuzz::Broken("a refusal without an explanation");
    if (!verdict.refusedBy.empty() && verdict.explanation.find(verdict.refusedBy) == std::string::npos)
        fuzz::Broken("the explanation does not name the refusing key", verdict.explanation);

    item.outcome = fileinfo::Outcome::kLoaded;
    const fileinfo::DeviceVerdict itemVerdict = device.Judge(item);
    if (!itemVerdict.playable && itemVerdict.explanation.empty()) fuzz::Broken("an item's refusal without an explanation");
    if (itemVerdict.playable && !(item.status == MFI_OK && item.hasRecord && library))
        fuzz::Broken("an item the library refuses, or that did not load, is playable");

    const fileinfo::ReadingVerdict judged = device.JudgeReading(reading);
    if (judged.playable && (!judged.refusedBy.empty() || !judged.explanation.empty()))
        fuzz::Broken("a playable reading has a refusal", judged.explanation);
    for (const std::string& key : judged.refusedBy) {
        if (key.empty()) fuzz::Broken("a reading refused by an empty key");
        if (judged.explanation.empty()) fuzz::Broken("a reading refused without an explanation");
    }
    device.Limit(fuzz::AnyText(in, 8), "MaximumWidth");
    return 0;
}
