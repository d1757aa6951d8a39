#include "detail/Mp4LoopMark.h"

#include <cstring>

namespace fileinfo_detail {

bool LoopMark::Repeats() {
    if (marked_ && SameAsMark()) return true;
    if (++steps_ == nextMark_) {
        Take();
        marked_ = true;
        nextMark_ *= 2;
    }
    return false;
}

LoopMark::Scalars LoopMark::Now() const {
    const Mp4Info& r = reader_;
    Scalars s{};
    s.cursor = r.m_cursor;
    s.bufferSize = r.m_bufferSize;
    s.hasIods = r.m_hasIods;
    s.moovOpen = r.m_moovOpen;
    s.isQuickTime = r.m_isQuickTime;
    s.useTempFile = r.m_useTempFile;
    s.trackTimeScale = r.m_trackTimeScale;
    s.isVideo = r.m_isVideo;
    s.isAudio = r.m_isAudio;
    s.hasId3 = r.m_hasId3;
    s.trackSeconds = r.m_trackSeconds;
    // Movie end only counts while "moov" is open and it lies ahead; once
    // at or below 0 it can only fall further, and then it no longer matters.
    s.movieEnd = (r.m_moovOpen != 0 && r.m_movieEnd > 0) ? r.m_movieEnd : 0;
    s.visualProfile = r.m_visualProfile;
    memcpy(s.handlerType, r.m_handlerType, 4);
    memcpy(s.handlerName, r.m_handlerName, 4);
    memcpy(s.videoEntryType, r.m_videoEntryType, 4);
    memcpy(s.audioEntryType, r.m_audioEntryType, 4);
    s.handler = r.m_loadHandler;
    s.file = r.m_file;
    return s;
}

bool LoopMark::Equal(const Scalars& a, const Scalars& b) {
    return a.cursor == b.cursor && a.handler == b.handler && a.bufferSize == b.bufferSize &&
           a.file == b.file && a.hasIods == b.hasIods && a.moovOpen == b.moovOpen &&
           a.isQuickTime == b.isQuickTime && a.useTempFile == b.useTempFile &&
           a.trackTimeScale == b.trackTimeScale && a.isVideo == b.isVideo &&
           a.isAudio == b.isAudio && a.hasId3 == b.hasId3 &&
           a.trackSeconds == b.trackSeconds && a.movieEnd == b.movieEnd &&
           a.visualProfile == b.visualProfile &&
           memcmp(a.handlerType, b.handlerType, 4) == 0 &&
           memcmp(a.handlerName, b.handlerName, 4) == 0 &&
           memcmp(a.videoEntryType, b.videoEntryType, 4) == 0 &&
           memcmp(a.audioEntryType, b.audioEntryType, 4) == 0;
}

long LoopMark::FilePosition() const { return reader_.m_file == nullptr ? 0 : ftell(reader_.m_file); }

bool LoopMark::SameAsMark() const {
    if (!Equal(Now(), mark_.scalars)) return false;
    if (FilePosition() != mark_.filePosition) return false;
    if (reader_.m_fileInfo != nullptr &&
        memcmp(mark_.record, reader_.m_fileInfo, sizeof(MediaFileInfo_st)) != 0) {
        return false;
    }
    return memcmp(mark_.buffer, reader_.m_buffer, Mp4Info::kReadSize) == 0;
}

void LoopMark::Take() {
    mark_.scalars = Now();
    mark_.filePosition = FilePosition();
    if (reader_.m_fileInfo != nullptr) {
        memcpy(mark_.record, reader_.m_fileInfo, sizeof(MediaFileInfo_st));
    }
    memcpy(mark_.buffer, reader_.m_buffer, Mp4Info::kReadSize);
}

}  // namespace fileinfo_detail
