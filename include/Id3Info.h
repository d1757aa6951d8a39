// ID3 tags of MP3 and AAC files: reads ID3v1, ID3v2.2 and ID3v2.3 tags and
// writes ID3v1 and ID3v2.3 tags back in place.
#ifndef FILEINFO_ID3INFO_H
#define FILEINFO_ID3INFO_H

#include "MediaFileInfoBase.h"

// The nine tag fields. The readers copy pTitle..pComposer, in this order,
// into the record's eight consecutive tag texts, and nTrack into trackNumber.
struct ID3Info_st {
    char* pTitle;
    char* pArtist;
    char* pAlbum;
    char* pGenre;
    char* pLyrics;
    char* pYear;
    char* pComment;
    char* pComposer;
    int nTrack;
};

// One recognised ID3v2 frame: its id and its reduced text, both malloc'ed.
struct ID3FrameItem_st {
    char* pFrameID;
    char* pValue;
};

FILEINFO_API extern const char* const ID3V1TAG[1];
FILEINFO_API extern const char* const ID3V2Ver2_TAG[16];
FILEINFO_API extern const char* const ID3V2_TAG[74];

class FILEINFO_API Id3Info : public MediaFileInfoBase {
public:
    enum { kMaxFrames = 74, kGenreCount = 149, kNoGenre = 148 };

    Id3Info();
    ~Id3Info() override;

    // Reading.
    int LoadFile(const char* path) override;
    void Destory() override;
    ID3Info_st* GetId3Info();
    // Copies the eight tag texts (each when present) into the record's
    // eight tag fields from the title on, and the track into trackNumber:
    // what the MP3 and AAC readers take from their tags.
    void CopyTagsTo(MediaFileInfo_st* record);
    void UninitID3Info();
    int ReadId3v1Information(unsigned char* tag);
    int ReadId3v2Information(unsigned char* body, int size);
    int ReadId3v2Ver2Information(unsigned char* body, int size);
    void GetAnsiFromUnicode(char** text);
    int SaveId3Info(const char* id, const char* text);
    int RecordId3v2Info(const char* id, const char* text);

    // Writing.
    int SetId3Info(MediaFileInfo_st* info) override;
    int InitID3Info(MediaFileInfo_st* info);
    int WriteId3v1Information(unsigned char* buffer);
    int WriteId3v2Information();
    int MoveFile(int sizeChange);
    int WriteId3v2InfoToFile();

    // Steps of LoadFile: each returns its own status.
    int LoadId3v1();
    int LoadId3v2();
    // Allocates the zero-filled fields when none are held; false when that fails.
    bool EnsureId3Info();
    // Releases frame list entry `index` and empties its slot.
    void FreeFrame(int index);
    void CloseFile();
    // Steps of WriteId3v2Information: edits list entry `index` for the new
    // fields (adding to the size change and the seen-frames mask), and
    // appends the first missing frame.
    int EditFrame(int index, int* sizeChange, unsigned int* seen);
    void AppendMissingFrame(unsigned int seen, int* sizeChange);
    // The two directions of MoveFile, working in a 1024-byte block.
    int MoveUp(unsigned char* block, int sizeChange);
    int MoveDown(unsigned char* block, int shrink);

    // Genre names by index; 148 is "" and stands for no genre.
    static const char* m_arrMP3ID3v2Genre[kGenreCount];

    int m_nTagSize;
    int m_nFrameCount;
    int m_nVersion;
    int m_bHasV1;
    ID3FrameItem_st* m_arrFrames[kMaxFrames];
    ID3Info_st* m_pID3Info;
};

#endif  // FILEINFO_ID3INFO_H
