// The MP4 walker's guard against walking in circles.
#ifndef FILEINFO_DETAIL_MP4LOOPMARK_H
#define FILEINFO_DETAIL_MP4LOOPMARK_H

#include <cstdio>

#include "Mp4Info.h"

namespace fileinfo_detail {

// A walk is deterministic: when the reader comes back to a state it was in
// before (every field, the record, the buffer and the file position), it
// would go round the same steps for ever. This notices it (Brent's method:
// a mark taken after 64, 128, 256 ... steps, compared at every step), so
// the walk can end as if the data had run out. Walks that end by themselves
// never repeat a state, so their results are untouched. The first mark waits
// for step 64: a cycle is found wherever the marks start, and the walk of an
// ordinary file ends before then without paying for a mark (each one asks
// the file for its position, a system call).
class LoopMark {
public:
    static constexpr unsigned long long kFirstMark = 64;

    explicit LoopMark(Mp4Info& reader) : reader_(reader) {}
    LoopMark(const LoopMark&) = delete;
    LoopMark& operator=(const LoopMark&) = delete;

    // Called before every step; true when this state was met before.
    bool Repeats();

private:
    struct Scalars {
        unsigned int cursor, bufferSize, hasIods, moovOpen, isQuickTime, useTempFile;
        unsigned int trackTimeScale, isVideo, isAudio, hasId3;
        double trackSeconds, movieEnd;
        unsigned char visualProfile;
        char handlerType[4], handlerName[4], videoEntryType[4], audioEntryType[4];
        Mp4Info::AtomHandler handler;
        FILE* file;
    };
    struct Mark {
        Scalars scalars;
        long filePosition;
        unsigned char record[sizeof(MediaFileInfo_st)];
        unsigned char buffer[Mp4Info::kReadSize];
    };

    Scalars Now() const;
    static bool Equal(const Scalars& a, const Scalars& b);
    long FilePosition() const;
    bool SameAsMark() const;
    void Take();

    Mp4Info& reader_;
    // On the stack, left unwritten until the first mark: most walks end
    // long before it, and then cost neither an allocation nor a copy.
    Mark mark_;
    unsigned long long steps_ = 0;
    unsigned long long nextMark_ = kFirstMark;
    bool marked_ = false;
};

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_MP4LOOPMARK_H
