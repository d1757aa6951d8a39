// The readings' readers: media::ReadMedia on the input's bytes, as a file
// (a memfd, read with positioned reads). A regular file always reads; the
// reading's size is the file's; its texts are UTF-8 as promised, a type is
// one of the known containers, and a judgement of the reading against the
// example device's list is consistent in itself.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "FrontEnd.h"
#include "JsonText.h"

namespace {

void CheckUtf8(const std::string& text, const char* what) {
    if (!fileinfo::IsUtf8(text)) fuzz::Broken(what, text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int fd = memfd_create("media", MFD_CLOEXEC);
    if (fd < 0) abort();
    if (size != 0 && write(fd, data, size) != static_cast<ssize_t>(size)) abort();
    lseek(fd, 0, SEEK_SET);
    fileinfo::media::Reading reading;
    const int error = fileinfo::media::ReadMedia(fd, reading);
    const off_t offset = lseek(fd, 0, SEEK_CUR);
    close(fd);
    if (error != 0) fuzz::Broken("a regular file did not read", std::to_string(error));
    if (offset != 0) fuzz::Broken("the reading moved the descriptor's offset");
    if (reading.size != size) fuzz::Broken("the reading's size is not the file's");
    static const char* const kTypes[] = {"", "MP3", "AAC", "WAV", "AIFF", "AIFC", "MP4", "M4A", "M4V", "MOV", "3GP"};
    bool known = false;
    for (const char* type : kTypes) known |= reading.type == type;
    if (!known) fuzz::Broken("an unknown container type", reading.type);
    if (!reading.Identified() && (reading.HasAudio() || reading.HasVideo())) fuzz::Broken("streams in an unidentified file");
    const fileinfo::media::Tags& t = reading.tags;
    for (const std::string* text : {&t.title, &t.artist, &t.album, &t.genre, &t.year, &t.comment, &t.composer})
        CheckUtf8(*text, "a tag is not UTF-8");
    for (const std::string* text : {&reading.audio_codec, &reading.video_codec, &reading.profile, &reading.aac_format})
        CheckUtf8(*text, "a name is not UTF-8");

    static const fileinfo::Device device = [] {
        fileinfo::Device d("");
        std::string ignored;
        fileinfo::Device::FromFile(FUZZ_DEVICE_CAPS, d, ignored);
        return d;
    }();
    const fileinfo::ReadingVerdict verdict = device.JudgeReading(reading);
    if (verdict.playable && (!verdict.refusedBy.empty() || !verdict.explanation.empty()))
        fuzz::Broken("a playable reading has a refusal", verdict.explanation);
    return 0;
}
