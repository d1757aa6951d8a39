// Reader of the MPEG-4 / QuickTime family (.mp4 .m4a .m4v .mov .3gp): a flat,
// forward-only walk over the atoms of a 4096-byte buffer, steered by the
// handler of the atom kind expected next. Decodes the sample descriptions
// into codec, profile and level names, the sample-size tables into bit and
// frame rates, and the "ilst" item list into the record's tag fields. A
// compressed movie header ("cmov") is inflated into "/temp.bin" and walked
// again from there.
#ifndef FILEINFO_MP4INFO_H
#define FILEINFO_MP4INFO_H

#include <cstddef>
#include <cstdio>

#include "MediaFileInfoBase.h"

class FILEINFO_API Mp4Info : public MediaFileInfoBase {
public:
    // An atom handler: gets the atom under the cursor, advances the cursor,
    // may replace the current handler; 0 go on, 1 walk finished, -1 failure.
    typedef int (Mp4Info::*AtomHandler)(unsigned char* atom);

    // One row of the MPEG-4 visual profile table.
    struct VideoProfile {
        unsigned char profileLevel;
        const char* name;
    };

    enum {
        // Bytes read from the file per buffer.
        kReadSize = 4096,
        // Zero bytes kept after the read area. The handlers read fixed
        // offsets past the atom under the cursor without looking at the
        // buffer length (up to about 400 bytes for an MPEG-4 visual
        // configuration); the guard keeps every such read inside the buffer.
        kGuardSize = 512,
        // What a buffer handed to ReadFrame must hold.
        kBufferAllocation = kReadSize + kGuardSize,
        // When the cursor comes this close to the end of the valid bytes,
        // the buffer is refilled from the current atom on.
        kRefillMargin = 200,
        kTempPathSize = 1024,
        kFourCcText = 5,  // four characters and a terminator
    };

    Mp4Info();
    ~Mp4Info() override;

    int LoadFile(const char* path) override;
    void Destory() override;
    MediaFileInfo_st* GetFileInfo() override;

    // The walker loop over `buffer` (kBufferAllocation bytes, the first
    // m_bufferSize of them valid); a status code.
    int ReadFrame(unsigned char* buffer);

    // Atom handlers of the walk, in the order a movie meets them.
    int LoadFtyp(unsigned char* atom);
    int LoadMoov(unsigned char* atom);
    int LoadMvhd(unsigned char* atom);
    int LoadTrak(unsigned char* atom);
    int LoadTrakStruct(unsigned char* atom);
    int LoadMdiaStruct(unsigned char* atom);
    int LoadMinfStruct(unsigned char* atom);
    int LoadStblStruct(unsigned char* atom);
    int LoadMeta(unsigned char* atom);
    int LoadMetaStruct(unsigned char* atom);

    // Sample descriptions: codec names, profiles, levels, bit rates.
    char* GetType(char* entryType);
    int ReadBitRate(unsigned char* childType);
    int GetMp4vType(unsigned char* objectType);
    int GetMp4aType(unsigned char* objectType, int esdsSize);
    int GetAvcType(unsigned char* avcConfig);
    int GetAlacType(unsigned char* alacConfig);
    unsigned char GetProfileLevel(unsigned char* decoderInfo);
    char* GetProfileName(unsigned char profileLevel);
    unsigned int GetBitRate(unsigned char* stszFields);

    // Metadata items of an "ilst".
    int GetMp4MusicInfo(unsigned char* items, unsigned int ilstSize);
    void SaveMp4Id3Info(const char* itemName, const char* value);

    // Codec and profile vocabulary, rows exactly as hosts expect them.
    static const char* const AppleLosslessAudioFormat[1];
    static const unsigned char MpegAudioTypes[11];
    static const unsigned char MpegVideoTypes[11];
    static const char* const Mpeg4VideoFormat[11];
    static const char* const Mpeg4AudioFormat[27];
    static const VideoProfile VideoProfileName[58];
    static const char* const ILST_TAG[10];

    unsigned int m_hasIods;          // an "iods" atom was met
    unsigned int m_moovOpen;         // an uncompressed "moov" was entered
    unsigned int m_isQuickTime;      // "ftyp" major brand starts "qt"; recorded only
    unsigned int m_useTempFile;      // the movie header was inflated into m_tempPath
    unsigned int m_cursor;           // offset of the current atom in the buffer
    double m_trackSeconds;           // "mdhd" duration / time scale
    unsigned char m_visualProfile;   // byte 19 of "iods"
    double m_movieEnd;               // end of "moov", relative to the buffer
    unsigned int m_trackTimeScale;   // "mdhd" time scale of the current track
    char m_handlerType[kFourCcText];      // "vide", "soun", ...
    char m_handlerName[kFourCcText];      // first four characters of the hdlr name
    char m_videoEntryType[kFourCcText];   // "mp4v", "avc1", "s263", ...
    char m_audioEntryType[kFourCcText];   // "mp4a", "alac", "samr", "sawb", ...
    char m_tempPath[kTempPathSize];
    AtomHandler m_loadHandler;       // the handler the next atom goes to
    unsigned char* m_buffer;         // the buffer of the running walk
    long long m_fileEnd;             // size of the file m_file reads, -1 when not known

    // How much of a read of `want` bytes at m_file's position the file can
    // still give: fewer near m_fileEnd, `want` when the end is not known or
    // already reached (the read then finds the end itself).
    size_t ReadableAhead(size_t want) const;

private:
    // One row of a handler's table: an atom type (null: any other), the
    // action doing its work, the handler for the next atom (null: unchanged).
    struct AtomRule {
        const char* type;
        AtomHandler action;
        AtomHandler next;
    };
    template <size_t N>
    int Dispatch(unsigned char* atom, const AtomRule (&rules)[N]);

    // Actions moving the cursor.
    int Stay(unsigned char* atom);
    int Enter(unsigned char* atom);
    int EnterMeta(unsigned char* atom);
    int Skip(unsigned char* atom);
    int SkipOr4(unsigned char* atom);
    int SkipOrFail(unsigned char* atom);
    int SkipOrStepByte(unsigned char* atom);
    int StepByte(unsigned char* atom);
    int Finish(unsigned char* atom);
    // Actions reading one atom kind, then moving on.
    int ReadFtyp(unsigned char* atom);
    int ReadMoov(unsigned char* atom);
    int ReadMvhd(unsigned char* atom);
    int ReadIods(unsigned char* atom);
    int ReadHdlr(unsigned char* atom);
    int ReadMdhd(unsigned char* atom);
    int EnterStbl(unsigned char* atom);
    int ReadStsd(unsigned char* atom);
    int ReadStsz(unsigned char* atom);
    int ReadIlst(unsigned char* atom);

    // Bytes that may be read from p on: to the end of the walk's buffer
    // (guard included) when p lies in it, else `fallback` (memory the
    // caller handed in and answers for).
    size_t Readable(const unsigned char* p, size_t fallback) const;
    // The "cmov" branch of LoadMoov: inflates the movie header into the
    // temporary file and makes that the file walked.
    int InflateMovieHeader(unsigned char* atom);
    // Record writes of the sample descriptions and sizes per track kind.
    int ReadSampleDescription(unsigned char* stsd);
    void ReadSampleSizes(unsigned char* stsz);
    // Stores a descriptor's average bit rate into the field of the track kind.
    void StoreAverageBitRate(unsigned int bitRate);
    // Sum of the sample-size words of a table that runs out of the buffer,
    // read from the file in pieces; entries past the file's end are zeroes.
    unsigned int SumSizesFromFile(unsigned long long words);
    // Bytes between the file's position and its end.
    long long BytesLeftInFile() const;
};

#endif  // FILEINFO_MP4INFO_H
