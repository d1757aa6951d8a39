// ID3 tags: reading ID3v1, ID3v2.2 and ID3v2.3 tags into nine fields and a
// list of recognised frames, and writing ID3v1 and ID3v2.3 tags back.
#include "Id3Info.h"

#include <cstdlib>
#include <cstring>

#include "detail/FileShift.h"
#include "detail/Id3FrameScan.h"
#include "detail/Id3Size.h"
#include "detail/ReaderLoad.h"

const char* const ID3V1TAG[1] = {"TAG"};

// The ID3v1 genres with the Winamp extensions; row 148 means "no genre".
// The spellings are the table's own and are matched byte for byte.
const char* Id3Info::m_arrMP3ID3v2Genre[Id3Info::kGenreCount] = {
    "Blues", "Classic Rock", "Country", "Dance", "Disco", "Funk", "Grunge", "Hip-Hop", "Jazz",
    "Metal", "New Age", "Oldies", "Other", "Pop", "R&B", "Rap", "Reggae", "Rock", "Techno",
    "Industrial", "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack", "Euro-Techno",
    "Ambient", "Trip Hop", "Vocal", "Jazz Funk", "Fusion", "Trance", "Classical", "Instrumental",
    "Acid", "House", "Game", "Sound Clip", "Gospel", "Noise", "Alternative Rock", "Bass", "Soul",
    "Punk", "Space", "Meditative", "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic",
    "Darkwave", "Techno-Industrial", "Electronic", "Pop Folk", "Eurodance", "Dream",
    "Southern Rock", "Comedy", "Cult", "Gangsta", "Top 40", "Christian Rap", "Pop Funk", "Jungle",
    "Native American", "Cabaret", "New Wave", "Psychadelic", "Rave", "ShowTunes", "Trailer",
    "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz", "Polka", "Retro", "Musical", "Rock & Roll",
    "Hard Rock", "Folk", "Folk Rock", "National Folk", "Swing", "Fast Fusion", "Bebob", "Latin",
    "Revival", "Celtic", "Bluegrass", "Avantgarde", "Gothic Rock", "Progressive Rock",
    "Psychedelic Rock", "Symphonic Rock", "Slow Rock", "Big Band", "Chorus", "Easy Listening",
    "Acoustic", "Humour", "Speech", "Chanson", "Opera", "Chamber Music", "Sonata", "Symphony",
    "Booty Bass", "Primus", "Porn Groove", "Satire", "Slow Jam", "Club", "Tango", "Samba",
    "Folklore", "Ballad", "Power Ballad", "Rhytmic Soul", "Freestyle", "Duet", "Punk Rock",
    "Drum Solo", "A Capella", "Euro House", "Dance Hall", "Goa", "Drum & Bass", "Club House",
    "Hardcore", "Terror", "Indie", "BritPop", "Negerpunk", "Polsk Punk", "Beat",
    "Christian Gangsta Rap", "Heavy Metal", "Black Metal", "Crossover", "Contemporary Christian",
    "Christian Rock", "Merengue", "Salsa", "Trash Metal", "Anime", "JPop", "SynthPop", ""};

namespace {

// ID3v1: the last 128 bytes of the file.
constexpr int kV1Size = 128;
constexpr int kV1MagicSize = 3;
constexpr int kV1TitleOffset = 3;
constexpr int kV1ArtistOffset = 33;
constexpr int kV1AlbumOffset = 63;
constexpr int kV1YearOffset = 93;
constexpr int kV1CommentOffset = 97;
constexpr int kV1TrackOffset = 126;
constexpr int kV1GenreOffset = 127;
constexpr int kV1TextWidth = 30;
constexpr int kV1YearWidth = 4;

// ID3v2 tag header.
constexpr int kV2HeaderSize = 10;
constexpr int kV2VersionOffset = 3;
constexpr int kV2FlagsOffset = 5;
constexpr int kV2SizeOffset = 6;
constexpr int kV2SizeBytes = 4;
constexpr unsigned char kV2ExtendedHeaderFlag = 0x40;
const char kV2Magic[] = "ID3";

// The read-size field holds the tag size clipped to this; only a clipped
// size of zero matters (an empty tag stops the load).
constexpr int kV2ReadClip = 1024;

// Genre bytes above this name no genre. Rows 0..147 are names.
constexpr int kLastGenreName = 147;

// Tag bodies are read in growing chunks so that a header announcing more
// bytes than the file holds never costs more memory than the file itself.
constexpr size_t kFirstBodyChunk = 64 * 1024;

using fileinfo_detail::SumSevenBitBytes;

int GenreIndexOfByte(unsigned char genre) {
    return genre > kLastGenreName ? static_cast<int>(Id3Info::kNoGenre) : genre;
}

// Reads up to `limit` bytes from the current position. Returns the bytes
// (malloc'ed, possibly null when none arrived) and their count in *got.
unsigned char* ReadUpTo(FILE* file, size_t limit, size_t* got) {
    *got = 0;
    unsigned char* data = nullptr;
    size_t capacity = 0;
    while (*got < limit) {
        size_t want = capacity == 0 ? kFirstBodyChunk : capacity;  // double each time
        if (want > limit - *got) want = limit - *got;
        unsigned char* grown = static_cast<unsigned char*>(realloc(data, *got + want));
        if (grown == nullptr) break;
        data = grown;
        capacity = *got + want;
        const size_t n = fread(data + *got, 1, want, file);
        *got += n;
        if (n < want) break;
    }
    return data;
}

}  // namespace

Id3Info::Id3Info() : m_nTagSize(0), m_nFrameCount(0), m_nVersion(3), m_bHasV1(0), m_pID3Info(nullptr) {
    memset(m_arrFrames, 0, sizeof m_arrFrames);
}

Id3Info::~Id3Info() { Id3Info::Destory(); }

void Id3Info::CopyTagsTo(MediaFileInfo_st* record) {
    if (record == nullptr || m_pID3Info == nullptr) return;
    const ID3Info_st& tags = *m_pID3Info;
    const char* const texts[] = {tags.pTitle,  tags.pArtist, tags.pAlbum,   tags.pGenre,
                                 tags.pLyrics, tags.pYear,   tags.pComment, tags.pComposer};
    char* const fields[] = {record->title,  record->artist, record->album,   record->genre,
                            record->lyrics, record->year,   record->comment, record->composer};
    for (size_t k = 0; k < sizeof texts / sizeof texts[0]; ++k) {
        if (texts[k] != nullptr) CopyField(fields[k], texts[k]);
    }
    record->trackNumber = static_cast<unsigned short>(tags.nTrack);
}

ID3Info_st* Id3Info::GetId3Info() { return m_pID3Info; }

bool Id3Info::EnsureId3Info() {
    if (m_pID3Info == nullptr) m_pID3Info = static_cast<ID3Info_st*>(calloc(1, sizeof(ID3Info_st)));
    return m_pID3Info != nullptr;
}

void Id3Info::CloseFile() {
    if (m_file != nullptr) fclose(m_file);
    m_file = nullptr;
}

int Id3Info::LoadFile(const char* path) {
    // A null path is an ID3v2 failure; the ID3v1 step never ran, so 0.
    if (path == nullptr) return MFI_UNREADABLE;
    if (m_pID3Info != nullptr) Destory();

    // Destory runs only after a load that filled the fields; a path from
    // any other earlier load is released here.
    if (!fileinfo_detail::OpenForLoad(*this, path)) return MFI_UNREADABLE;

    const int v1Status = LoadId3v1();
    const int v2Status = LoadId3v2();
    CloseFile();
    // An ID3v2 tag of size zero outweighs the ID3v1 result. The other ID3v2
    // outcomes are not reported: the call answers for the ID3v1 tag.
    if (v2Status == MFI_NOT_THIS_FORMAT) return MFI_NOT_THIS_FORMAT;
    return v1Status;
}

int Id3Info::LoadId3v1() {
    if (fseek(m_file, -kV1Size, SEEK_END) != 0) return MFI_SEEK_FAILED;
    unsigned char* tag = static_cast<unsigned char*>(malloc(kV1Size));
    if (tag == nullptr || !EnsureId3Info()) {
        free(tag);
        return MFI_NO_MEMORY;
    }
    memset(tag, 0, kV1Size);
    const int status = fread(tag, 1, kV1Size, m_file) < static_cast<size_t>(kV1Size)
                           ? MFI_SHORT_FILE
                           : ReadId3v1Information(tag);
    free(tag);
    return status;
}

int Id3Info::LoadId3v2() {
    unsigned char header[kV2HeaderSize];
    if (fseek(m_file, 0, SEEK_SET) != 0) return MFI_SEEK_FAILED;
    if (fread(header, 1, kV2HeaderSize, m_file) < static_cast<size_t>(kV2HeaderSize)) return MFI_SHORT_FILE;
    if (memcmp(header, kV2Magic, 3) != 0) return MFI_UNREADABLE;

    // The sum starts from the size already held, so a second load on the
    // same object builds on the first one's size.
    m_nTagSize = static_cast<int>(
        SumSevenBitBytes(static_cast<unsigned int>(m_nTagSize), header + kV2SizeOffset, kV2SizeBytes));
    const int clipped = m_nTagSize < kV2ReadClip ? m_nTagSize : kV2ReadClip;
    m_bufferSize = static_cast<unsigned int>(clipped);
    if (clipped == 0) return MFI_NOT_THIS_FORMAT;
    // No buffer holds a negative size.
    if (m_nTagSize < 0) return MFI_NO_MEMORY;

    size_t got = 0;
    unsigned char* bytes = ReadUpTo(m_file, static_cast<size_t>(m_nTagSize), &got);
    if (got == 0) {
        free(bytes);
        return MFI_SHORT_FILE;
    }
    // Bytes the file did not hold read as zero: the scan walks over them
    // like over padding.
    const unsigned char version = header[kV2VersionOffset];
    const bool extended = (header[kV2FlagsOffset] & kV2ExtendedHeaderFlag) != 0;
    // ID3v2.4 tags and ID3v2.3 tags with an extended header are not read.
    if ((version == 3 && !extended) || version == 2) {
        m_nVersion = version;
        // Without an ID3v1 tag the fields were not allocated yet.
        EnsureId3Info();
        fileinfo_detail::ScanId3v2Frames(*this, {bytes, m_nTagSize, static_cast<int>(got)}, version == 3);
    }
    free(bytes);
    return MFI_OK;
}

int Id3Info::ReadId3v1Information(unsigned char* tag) {
    if (tag == nullptr) return MFI_BAD_ARGUMENT;
    if (memcmp(tag, ID3V1TAG[0], kV1MagicSize) != 0) return MFI_UNREADABLE;
    if (!EnsureId3Info()) return MFI_NO_MEMORY;

    struct Field {
        char** target;
        int offset;
        int width;
    };
    const Field fields[] = {{&m_pID3Info->pTitle, kV1TitleOffset, kV1TextWidth},
                            {&m_pID3Info->pArtist, kV1ArtistOffset, kV1TextWidth},
                            {&m_pID3Info->pAlbum, kV1AlbumOffset, kV1TextWidth},
                            {&m_pID3Info->pYear, kV1YearOffset, kV1YearWidth},
                            {&m_pID3Info->pComment, kV1CommentOffset, kV1TextWidth}};
    // Each field ends at its first zero byte or at its full width.
    char scratch[kV1TextWidth + 1];
    for (const Field& f : fields) {
        memset(scratch, 0, sizeof scratch);
        strncpy(scratch, reinterpret_cast<const char*>(tag + f.offset), static_cast<size_t>(f.width));
        free(*f.target);
        *f.target = strdup(scratch);
    }
    // The track byte is taken whether or not byte 125 is zero, so a full
    // 30-character comment gives its last character as the track.
    m_pID3Info->nTrack = static_cast<signed char>(tag[kV1TrackOffset]);
    // Signed genre byte: 128..255 are negative and mean no genre, so genres
    // 128..147 never come from an ID3v1 tag.
    const int genre = static_cast<signed char>(tag[kV1GenreOffset]);
    free(m_pID3Info->pGenre);
    m_pID3Info->pGenre = strdup(m_arrMP3ID3v2Genre[genre < 0 ? static_cast<int>(kNoGenre) : genre]);

    m_bHasV1 = 1;
    m_hasId3 = 1;
    return MFI_OK;
}

int Id3Info::ReadId3v2Information(unsigned char* body, int size) {
    if (body == nullptr) return MFI_BAD_ARGUMENT;
    return fileinfo_detail::ScanId3v2Frames(*this, {body, size, size}, true);
}

int Id3Info::ReadId3v2Ver2Information(unsigned char* body, int size) {
    if (body == nullptr) return MFI_BAD_ARGUMENT;
    return fileinfo_detail::ScanId3v2Frames(*this, {body, size, size}, false);
}

void Id3Info::GetAnsiFromUnicode(char** text) {
    if (text == nullptr || *text == nullptr) return;
    unsigned char* t = reinterpret_cast<unsigned char*>(*text);
    // A little-endian UTF-16 byte-order mark empties the text; no character
    // set is converted, and a big-endian mark is left as it is.
    if (t[0] == 0xFF && t[1] == 0xFE) memset(t, 0, strlen(*text + 2) + 1);
}

namespace {

// What a frame's text stands for in the tag fields.
enum class FrameKind {
    kText,   // the text is the field
    kGenre,  // the first byte is a genre row, as the writer stores it
    kTrack,  // the first byte is the track number, as the writer stores it
};

// The frames that carry a tag field: one row per frame, read by the frame
// scan (SaveId3Info), the editor of a write (EditFrame) and the appender
// (AppendMissingFrame). The rows stand in the order in which a write
// considers appending a missing frame; the bits are the writer's mask of
// the frames it has seen.
struct FrameField {
    const char* id;            // ID3v2.3 id; also the id of an appended frame
    const char* id22;          // ID3v2.2 id; null: the frame has none
    char* ID3Info_st::*field;  // null for the track, which is a number
    unsigned int bit;
    FrameKind kind;
    // The reader looks the frame up by its ids followed by a blank. Frame
    // ids carry no blank: the composer is never read from a tag, only set
    // by the writer's caller.
    bool readWithBlank;
};

const FrameField kFrameFields[] = {
    {"TIT2", "TT2", &ID3Info_st::pTitle, 1, FrameKind::kText, false},
    {"TPE1", "TP1", &ID3Info_st::pArtist, 2, FrameKind::kText, false},
    {"TALB", "TAL", &ID3Info_st::pAlbum, 4, FrameKind::kText, false},
    {"TCON", "TCO", &ID3Info_st::pGenre, 8, FrameKind::kGenre, false},
    {"USLT", nullptr, &ID3Info_st::pLyrics, 16, FrameKind::kText, false},
    {"TYER", "TYE", &ID3Info_st::pYear, 32, FrameKind::kText, false},
    {"COMM", "COM", &ID3Info_st::pComment, 64, FrameKind::kText, false},
    {"TRCK", "TRK", nullptr, 128, FrameKind::kTrack, false},
    {"TCOM", "TCM", &ID3Info_st::pComposer, 256, FrameKind::kText, true},
};

// Whether id is frameId followed by one blank.
bool IsIdWithBlank(const char* id, const char* frameId) {
    const size_t n = strlen(frameId);
    return strncmp(id, frameId, n) == 0 && id[n] == ' ' && id[n + 1] == '\0';
}

bool IsIdOf(const char* id, const FrameField& row, bool reading) {
    if (reading && row.readWithBlank) {
        return IsIdWithBlank(id, row.id) || (row.id22 != nullptr && IsIdWithBlank(id, row.id22));
    }
    return strcmp(id, row.id) == 0 || (row.id22 != nullptr && strcmp(id, row.id22) == 0);
}

// The row of a frame id, or null for a frame that carries no tag field.
const FrameField* FrameFieldOf(const char* id, bool reading) {
    for (const FrameField& row : kFrameFields) {
        if (IsIdOf(id, row, reading)) return &row;
    }
    return nullptr;
}

void ReplaceText(char** field, const char* text) {
    free(*field);
    *field = strdup(text);
}

}  // namespace

int Id3Info::SaveId3Info(const char* id, const char* text) {
    if (id == nullptr || text == nullptr) return MFI_OK;
    const FrameField* row = EnsureId3Info() ? FrameFieldOf(id, true) : nullptr;
    if (row != nullptr) {
        ID3Info_st* info = m_pID3Info;
        const unsigned char first = static_cast<unsigned char>(text[0]);
        switch (row->kind) {
            case FrameKind::kText:
                ReplaceText(&(info->*row->field), text);
                break;
            case FrameKind::kTrack:
                // The first byte is the track: what the writer stores. A
                // track text "12" gives 49, and a track already read wins.
                if (info->nTrack == 0) info->nTrack = first;
                break;
            case FrameKind::kGenre:
                // The first byte is the genre index, as the writer stores
                // it; a "(17)" text gives row 40.
                ReplaceText(&(info->*row->field), m_arrMP3ID3v2Genre[GenreIndexOfByte(first)]);
                break;
        }
    }
    RecordId3v2Info(id, text);
    return MFI_OK;
}

int Id3Info::RecordId3v2Info(const char* id, const char* text) {
    // The list has kMaxFrames slots; frames beyond them are not kept.
    if (m_nFrameCount < 0 || m_nFrameCount >= kMaxFrames) return MFI_OK;
    ID3FrameItem_st* item = static_cast<ID3FrameItem_st*>(malloc(sizeof(ID3FrameItem_st)));
    if (item != nullptr) {
        item->pFrameID = id != nullptr ? strdup(id) : nullptr;
        item->pValue = text != nullptr ? strdup(text) : nullptr;
    }
    // A failed entry stays null and still takes its slot.
    m_arrFrames[m_nFrameCount++] = item;
    return MFI_OK;
}

void Id3Info::UninitID3Info() {
    if (m_pID3Info == nullptr) return;
    ID3Info_st* info = m_pID3Info;
    char* texts[] = {info->pTitle, info->pArtist, info->pAlbum,   info->pGenre,
                     info->pLyrics, info->pYear,  info->pComment, info->pComposer};
    for (char* t : texts) free(t);
    free(info);
    m_pID3Info = nullptr;
}

void Id3Info::FreeFrame(int index) {
    ID3FrameItem_st* item = m_arrFrames[index];
    if (item == nullptr) return;
    free(item->pFrameID);
    free(item->pValue);
    free(item);
    m_arrFrames[index] = nullptr;
}

void Id3Info::Destory() {
    UninitID3Info();
    for (int i = 0; i < kMaxFrames; ++i) FreeFrame(i);
    // m_nFrameCount and m_nTagSize stay: a later load appends after the
    // emptied slots and sums its tag size onto the old one.
    MediaFileInfoBase::Destory();
    m_nVersion = 0;
    m_bHasV1 = 0;
    m_hasId3 = 0;
}

// --- writing -----------------------------------------------------------------

namespace {

// ID3v1 as written: 29-byte texts, a 3-byte year, and the comment at the
// year's offset, so that a comment (even an empty one) replaces the year.
constexpr int kV1WrittenTextWidth = 29;
constexpr int kV1WrittenYearWidth = 3;
constexpr int kV1WrittenCommentOffset = 93;

// ID3v2.3 as written: version 3.0, no flags; frames with an 11-byte header
// (10 bytes, then the encoding byte 0 for ISO-8859-1).
constexpr unsigned char kWrittenMajorVersion = 3;
constexpr int kWrittenFrameHeaderSize = 11;
constexpr int kWrittenIdLength = 4;
constexpr int kWrittenSizeOffset = 4;

// Size-change contributions of an appended frame: its header and the text
// (ID3v2.3), or 4 bytes less when the list came from an ID3v2.2 tag. The
// genre and track frames count one text byte.
constexpr int kAppendCostV23 = 11;
constexpr int kAppendCostV22 = 7;
constexpr int kOneByteText = 1;

// The size form the writer uses for the tag and for frames: the last byte
// is the value mod 128, the others the low 8 bits of value/128, /16384 and
// /2097152 (signed division). Not masked to 7 bits, so bits 14, 21 and 28
// land in the top bit of a byte and read back differently.
void PutWrittenSize(unsigned char* out, int value) {
    out[3] = static_cast<unsigned char>(value % 128);
    out[2] = static_cast<unsigned char>(value / 128);
    out[1] = static_cast<unsigned char>(value / 16384);
    out[0] = static_cast<unsigned char>(value / 2097152);
}

// Index of the first genre row 0..last equal to name, or -1.
int FindGenre(const char* name, int last) {
    for (int i = 0; i <= last; ++i) {
        if (strcmp(Id3Info::m_arrMP3ID3v2Genre[i], name) == 0) return i;
    }
    return -1;
}

// A one-byte value as a one-character text; a zero byte makes it empty.
char* OneByteText(unsigned int value) {
    char* text = static_cast<char*>(malloc(2));
    if (text == nullptr) return nullptr;
    text[0] = static_cast<char>(value & 0xFF);
    text[1] = '\0';
    return text;
}

// An appended genre or track frame takes as its text the bytes of the value
// as a big-endian 32-bit number, read as a string: for every value below
// 2^24 the first byte is zero and the text is empty. Built byte by byte so
// every host gets the same text.
void BigEndianText(unsigned int value, char out[5]) {
    out[0] = static_cast<char>(value >> 24);
    out[1] = static_cast<char>(value >> 16);
    out[2] = static_cast<char>(value >> 8);
    out[3] = static_cast<char>(value);
    out[4] = '\0';
}

int TextLength(const char* s) { return static_cast<int>(strlen(s)); }

// A record text as a new string, bounded by the field's 128 bytes.
char* CopyRecordText(const char* field) {
    const size_t n = strnlen(field, MEDIA_TEXT_SIZE);
    char* text = static_cast<char*>(malloc(n + 1));
    if (text == nullptr) return nullptr;
    memcpy(text, field, n);
    text[n] = '\0';
    return text;
}

}  // namespace

int Id3Info::SetId3Info(MediaFileInfo_st* info) {
    if (info == nullptr) return MFI_BAD_ARGUMENT;
    UninitID3Info();
    if (!EnsureId3Info()) return MFI_NO_MEMORY;
    if (InitID3Info(info) != MFI_OK) return MFI_UNREADABLE;

    // Taken before the file is opened; without it the ID3v1 step is skipped.
    unsigned char* v1Tag = static_cast<unsigned char*>(malloc(kV1Size));
    if (m_filePath == nullptr || (m_file = fopen(m_filePath, "rb+")) == nullptr) {
        free(v1Tag);
        return MFI_OPEN_FAILED;
    }
    // Over the old ID3v1 tag, or appended. Its result is not reported.
    const int seek = m_bHasV1 != 0 ? fseek(m_file, -kV1Size, SEEK_END) : fseek(m_file, 0, SEEK_END);
    if (seek == 0 && v1Tag != nullptr) WriteId3v1Information(v1Tag);
    free(v1Tag);

    // Also a file without an ID3v2 tag gets one.
    const int status = fseek(m_file, 0, SEEK_SET) != 0 ? MFI_SEEK_FAILED : WriteId3v2Information();
    CloseFile();
    return status;
}

int Id3Info::InitID3Info(MediaFileInfo_st* info) {
    if (m_pID3Info == nullptr || info == nullptr) return MFI_BAD_ARGUMENT;
    struct Copy {
        char** target;
        const char* source;
    };
    const Copy copies[] = {{&m_pID3Info->pAlbum, info->album},     {&m_pID3Info->pArtist, info->artist},
                           {&m_pID3Info->pTitle, info->title},     {&m_pID3Info->pGenre, info->genre},
                           {&m_pID3Info->pComment, info->comment}, {&m_pID3Info->pComposer, info->composer},
                           {&m_pID3Info->pLyrics, info->lyrics},   {&m_pID3Info->pYear, info->year}};
    int result = MFI_OK;
    // An empty record field gives an empty text, never a null one.
    for (const Copy& c : copies) {
        free(*c.target);
        *c.target = CopyRecordText(c.source);
        if (*c.target == nullptr) result = MFI_NO_MEMORY;
    }
    m_pID3Info->nTrack = info->trackNumber;
    return result;
}

int Id3Info::WriteId3v1Information(unsigned char* buffer) {
    if (buffer == nullptr || m_pID3Info == nullptr) return MFI_BAD_ARGUMENT;
    memset(buffer, 0, kV1Size);
    if (m_file == nullptr) return MFI_UNREADABLE;

    char* tag = reinterpret_cast<char*>(buffer);
    const ID3Info_st* info = m_pID3Info;
    memcpy(tag, ID3V1TAG[0], kV1MagicSize);
    if (info->pTitle != nullptr) strncpy(tag + kV1TitleOffset, info->pTitle, kV1WrittenTextWidth);
    if (info->pArtist != nullptr) strncpy(tag + kV1ArtistOffset, info->pArtist, kV1WrittenTextWidth);
    if (info->pAlbum != nullptr) strncpy(tag + kV1AlbumOffset, info->pAlbum, kV1WrittenTextWidth);
    if (info->pYear != nullptr) strncpy(tag + kV1YearOffset, info->pYear, kV1WrittenYearWidth);
    // Written after the year and at the year's offset: the comment and its
    // zero padding replace the year. Readers take the year from the
    // comment's first four characters.
    if (info->pComment != nullptr) strncpy(tag + kV1WrittenCommentOffset, info->pComment, kV1WrittenTextWidth);
    buffer[kV1TrackOffset] = static_cast<unsigned char>(info->nTrack & 0xFF);
    // Unknown and empty genres alike are written as 148.
    const int genre = info->pGenre != nullptr ? FindGenre(info->pGenre, kNoGenre) : -1;
    buffer[kV1GenreOffset] = static_cast<unsigned char>(genre < 0 ? static_cast<int>(kNoGenre) : genre);

    // The success test is inverted, and kept: a tag that was written
    // answers 7. The caller does not look at the result.
    if (fwrite(buffer, 1, kV1Size, m_file) != 0) return MFI_SHORT_WRITE;
    fflush(m_file);
    return MFI_OK;
}

int Id3Info::WriteId3v2Information() {
    if (m_pID3Info == nullptr) return MFI_BAD_ARGUMENT;
    int sizeChange = 0;
    unsigned int seen = 0;
    const int frameCount = m_nFrameCount < kMaxFrames ? m_nFrameCount : kMaxFrames;
    for (int i = 0; i < frameCount; ++i) {
        const int status = EditFrame(i, &sizeChange, &seen);
        if (status != MFI_OK) return status;
    }
    AppendMissingFrame(seen, &sizeChange);

    // Summed in unsigned: a size built up by repeated loads may be near the
    // edge of the int range.
    m_nTagSize = static_cast<int>(static_cast<unsigned int>(m_nTagSize) + static_cast<unsigned int>(sizeChange));
    const int status = MoveFile(sizeChange);
    return status == MFI_OK ? WriteId3v2InfoToFile() : status;
}

int Id3Info::EditFrame(int index, int* sizeChange, unsigned int* seen) {
    ID3FrameItem_st* item = m_arrFrames[index];
    if (item == nullptr || item->pFrameID == nullptr || item->pValue == nullptr) return MFI_OK;
    const FrameField* row = FrameFieldOf(item->pFrameID, false);
    if (row == nullptr) return MFI_OK;  // other frames are written back as read
    *seen |= row->bit;
    const char* old = item->pValue;

    const char* newValue = nullptr;  // a field's text to copy
    unsigned int oneByte = 0;        // or a one-byte value
    const bool useOneByte = row->kind != FrameKind::kText;
    bool keep = false;
    switch (row->kind) {
        case FrameKind::kText:
            // When the field is set the frame takes it, else the frame goes.
            newValue = m_pID3Info->*row->field;
            keep = newValue != nullptr;
            break;
        case FrameKind::kGenre: {
            // The frame's own text is looked up, not the record's genre: a
            // raw byte from an earlier write names no genre and the frame goes.
            const int genre = FindGenre(old, kLastGenreName);
            keep = genre >= 0;
            oneByte = static_cast<unsigned int>(genre);
            break;
        }
        case FrameKind::kTrack:
            keep = m_pID3Info->nTrack != 0;
            oneByte = static_cast<unsigned int>(m_pID3Info->nTrack);
            break;
    }
    if (!keep) {
        FreeFrame(index);
        return MFI_OK;
    }
    char* text = useOneByte ? OneByteText(oneByte) : strdup(newValue);
    if (text == nullptr) return MFI_NO_MEMORY;
    // A one-byte value counts one byte even when it is zero (and the text
    // therefore empty).
    *sizeChange += (useOneByte ? kOneByteText : TextLength(newValue)) - TextLength(old);
    free(item->pValue);
    item->pValue = text;
    return MFI_OK;
}

void Id3Info::AppendMissingFrame(unsigned int seen, int* sizeChange) {
    for (const FrameField& row : kFrameFields) {
        if ((seen & row.bit) != 0) continue;
        // Only the first missing frame is considered, appended or not. A
        // full list takes no more frames.
        if (m_nFrameCount >= kMaxFrames) return;
        const int headerCost = m_nVersion == 3 ? kAppendCostV23 : kAppendCostV22;
        char numberText[5];
        switch (row.kind) {
            case FrameKind::kText: {
                const char* value = m_pID3Info->*row.field;
                if (value == nullptr) return;
                RecordId3v2Info(row.id, value);
                *sizeChange += headerCost + TextLength(value);
                return;
            }
            case FrameKind::kGenre: {
                if (m_pID3Info->pGenre == nullptr) return;
                const int genre = FindGenre(m_pID3Info->pGenre, kLastGenreName);
                BigEndianText(static_cast<unsigned int>(genre < 0 ? static_cast<int>(kNoGenre) : genre), numberText);
                break;
            }
            case FrameKind::kTrack:
                if (m_pID3Info->nTrack == 0) return;
                BigEndianText(static_cast<unsigned int>(m_pID3Info->nTrack), numberText);
                break;
        }
        RecordId3v2Info(row.id, numberText);
        *sizeChange += headerCost + kOneByteText;
        return;
    }
}

int Id3Info::MoveFile(int sizeChange) {
    if (m_file == nullptr) return MFI_OPEN_FAILED;
    if (sizeChange == 0) return MFI_OK;
    unsigned char* block = static_cast<unsigned char*>(malloc(fileinfo_detail::kShiftBlock));
    // Without a buffer nothing is moved and the tag is written all the same.
    if (block == nullptr) return MFI_OK;
    const int status = sizeChange > 0 ? MoveUp(block, sizeChange) : MoveDown(block, -sizeChange);
    free(block);
    return status;
}

int Id3Info::MoveUp(unsigned char* block, int sizeChange) {
    return fileinfo_detail::ShiftTowardEnd(m_file, m_nTagSize, sizeChange, block);
}

int Id3Info::MoveDown(unsigned char* block, int shrink) {
    return fileinfo_detail::ShiftTowardStart(m_file, m_nTagSize, shrink, block);
}

int Id3Info::WriteId3v2InfoToFile() {
    if (m_file == nullptr || fseek(m_file, 0, SEEK_SET) != 0) return MFI_SEEK_FAILED;
    unsigned char header[kV2HeaderSize] = {0};
    memcpy(header, kV2Magic, 3);
    header[kV2VersionOffset] = kWrittenMajorVersion;
    PutWrittenSize(header + kV2SizeOffset, m_nTagSize);
    if (fwrite(header, 1, kV2HeaderSize, m_file) < static_cast<size_t>(kV2HeaderSize)) return MFI_SHORT_WRITE;

    int result = MFI_UNREADABLE;
    const int frameCount = m_nFrameCount < kMaxFrames ? m_nFrameCount : kMaxFrames;
    for (int i = 0; i < frameCount; ++i) {
        const ID3FrameItem_st* item = m_arrFrames[i];
        if (item == nullptr || item->pFrameID == nullptr || item->pValue == nullptr) continue;
        // A 3-letter ID3v2.2 id is written with a zero fourth byte.
        unsigned char frameHeader[kWrittenFrameHeaderSize] = {0};
        strncpy(reinterpret_cast<char*>(frameHeader), item->pFrameID, kWrittenIdLength);
        const size_t length = strlen(item->pValue);
        PutWrittenSize(frameHeader + kWrittenSizeOffset, static_cast<int>(length) + 1);
        if (fwrite(frameHeader, 1, kWrittenFrameHeaderSize, m_file) < static_cast<size_t>(kWrittenFrameHeaderSize)) {
            continue;
        }
        if (fwrite(item->pValue, 1, length, m_file) < length) return MFI_SHORT_WRITE;
        result = MFI_OK;
    }
    return result;
}
