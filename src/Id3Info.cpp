// ID3 tags: reading ID3v1, ID3v2.2 and ID3v2.3 tags into nine fields and a
// list of recognised frames, and writing ID3v1 and ID3v2.3 tags back.
#include "Id3Info.h"

#include <cstdlib>
#include <cstring>

const char* const ID3V1TAG[1] = {"TAG"};

const char* const ID3V2Ver2_TAG[16] = {"TT2", "TP1", "TAL", "TRK", "TYE", "TCO", "COM", "TCM",
                                       "TEN", "TCR", "TLA", "WXX", "TOR", "TOA", "TT1", "TOT"};

// The ID3v2.3.0 frame list, in its own order (PRIV before PCNT, TYER before TXXX).
const char* const ID3V2_TAG[74] = {
    "AENC", "APIC", "COMM", "COMR", "ENCR", "EQUA", "ETCO", "GEOB", "GRID", "IPLS", "LINK",
    "MCDI", "MLLT", "OWNE", "PRIV", "PCNT", "POPM", "POSS", "RBUF", "RVAD", "RVRB", "SYLT",
    "SYTC", "TALB", "TBPM", "TCOM", "TCON", "TCOP", "TDAT", "TDLY", "TENC", "TEXT", "TFLT",
    "TIME", "TIT1", "TIT2", "TIT3", "TKEY", "TLAN", "TLEN", "TMED", "TOAL", "TOFN", "TOLY",
    "TOPE", "TORY", "TOWN", "TPE1", "TPE2", "TPE3", "TPE4", "TPOS", "TPUB", "TRCK", "TRDA",
    "TRSN", "TRSO", "TSIZ", "TSRC", "TSSE", "TYER", "TXXX", "UFID", "USER", "USLT", "WCOM",
    "WCOP", "WOAF", "WOAR", "WOAS", "WORS", "WPAY", "WPUB", "WXXX"};

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

// COMM and SYLT frames: their text is taken 6 bytes into the frame data,
// past the encoding byte, three language bytes and two more.
constexpr int kLanguageSkip = 6;

// Tag bodies are read in growing chunks so that a header announcing more
// bytes than the file holds never costs more memory than the file itself.
constexpr size_t kFirstBodyChunk = 64 * 1024;

// The ID3v2 size form used throughout: each byte is added as a signed
// 8-bit value and the sum shifted left 7 before the next one. On clean
// 7-bit bytes this is the sync-safe reading; a byte with its top bit set
// pulls the sum down. Unsigned arithmetic keeps the bits of the signed
// sum without its undefined shifts.
unsigned int SumSevenBitBytes(unsigned int start, const unsigned char* bytes, int count) {
    unsigned int sum = start;
    for (int k = 0; k < count; ++k) {
        if (k > 0) sum <<= 7;
        sum += static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(bytes[k])));
    }
    return sum;
}

int GenreIndexOfByte(unsigned char genre) {
    return genre > kLastGenreName ? static_cast<int>(Id3Info::kNoGenre) : genre;
}

// Frame layouts of the two ID3v2 versions read. The size field follows the
// id and is as many bytes long as the id.
struct FrameLayout {
    int idLength;
    int headerLength;
    const char* const* ids;
    int idCount;
    bool commentSkipsLanguage;  // COMM/SYLT text starts past the language
};

const FrameLayout kLayoutV23 = {4, 10, ID3V2_TAG, 74, true};
const FrameLayout kLayoutV22 = {3, 6, ID3V2Ver2_TAG, 16, false};

// The tag body as read: `size` bytes are announced, the first `avail` are
// in memory and the rest read as zero bytes (what a short read leaves in a
// zeroed buffer of the announced size).
struct TagBody {
    const unsigned char* bytes;
    int size;
    int avail;

    unsigned char At(long k) const { return k >= 0 && k < avail ? bytes[k] : 0; }
};

// True when the `length` bytes at p, taken as a string (a zero byte ends
// it), equal one of the ids.
bool IsKnownId(const TagBody& body, long p, const FrameLayout& layout, char* id) {
    for (int k = 0; k < layout.idLength; ++k) id[k] = static_cast<char>(body.At(p + k));
    id[layout.idLength] = '\0';
    for (int i = 0; i < layout.idCount; ++i) {
        if (strcmp(id, layout.ids[i]) == 0) return true;
    }
    return false;
}

// A frame's text: at most maxLength bytes from `start`, ending at the first
// zero byte. Sized to the text itself, not to the frame.
char* CopyFrameText(const TagBody& body, long start, long maxLength) {
    long inMemory = body.avail - start;
    if (inMemory < 0) inMemory = 0;
    const size_t limit = static_cast<size_t>(maxLength < inMemory ? maxLength : inMemory);
    const unsigned char* from = body.bytes + (limit > 0 ? start : 0);
    const void* zero = limit > 0 ? memchr(from, 0, limit) : nullptr;
    const size_t length = zero != nullptr ? static_cast<size_t>(static_cast<const unsigned char*>(zero) - from)
                                          : limit;
    char* text = static_cast<char*>(malloc(length + 1));
    if (text == nullptr) return nullptr;
    if (length > 0) memcpy(text, from, length);
    text[length] = '\0';
    return text;
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

// The frame scan shared by ID3v2.2 and ID3v2.3 tags. Fields go to the
// tag object through SaveId3Info; the result is 1 when the walk reached
// the end, 10 when a damaged frame size ended it.
int ScanFrames(Id3Info& tag, const TagBody& body, const FrameLayout& layout) {
    char id[5];
    long p = 0;
    while (p < body.size) {
        // Past the bytes in memory everything reads as zero and no id can
        // match: the walk would only step to the end.
        if (p >= body.avail) return MFI_OK;
        // Unknown ids, padding and even the data of unknown frames are
        // walked one byte at a time; a known id inside them is taken.
        if (!IsKnownId(body, p, layout, id)) {
            ++p;
            continue;
        }
        tag.m_hasId3 = 1;
        unsigned char sizeBytes[4];
        for (int k = 0; k < layout.idLength; ++k) sizeBytes[k] = body.At(p + layout.idLength + k);
        // ID3v2.2 and ID3v2.3 store plain sizes; they are read 7 bits a byte
        // all the same, so frames of 128 bytes or more come out mis-sized.
        // Hosts rely on the fields as read this way.
        const long frameSize = static_cast<int>(SumSevenBitBytes(0, sizeBytes, layout.idLength));
        if (frameSize <= 0 || frameSize > body.size - p - layout.headerLength) return MFI_NOT_THIS_FORMAT;

        const long data = p + layout.headerLength;
        char* text;
        if (layout.commentSkipsLanguage && (strcmp(id, "COMM") == 0 || strcmp(id, "SYLT") == 0)) {
            text = frameSize > kLanguageSkip ? CopyFrameText(body, data + kLanguageSkip, frameSize - kLanguageSkip)
                                             : CopyFrameText(body, data, 0);
        } else {
            // Past the encoding byte, which is not interpreted.
            text = CopyFrameText(body, data + 1, frameSize - 1);
        }
        if (text != nullptr) {
            tag.GetAnsiFromUnicode(&text);
            tag.SaveId3Info(id, text);
            free(text);
        }
        p += frameSize + layout.headerLength;
    }
    return MFI_OK;
}

}  // namespace

Id3Info::Id3Info() : m_nTagSize(0), m_nFrameCount(0), m_nVersion(3), m_bHasV1(0), m_pID3Info(nullptr) {
    memset(m_arrFrames, 0, sizeof m_arrFrames);
}

Id3Info::~Id3Info() { Id3Info::Destory(); }

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
    free(m_filePath);
    m_filePath = strdup(path);
    m_file = fopen(path, "rb");
    if (m_file == nullptr) return MFI_UNREADABLE;

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
    const TagBody body = {bytes, m_nTagSize, static_cast<int>(got)};
    const unsigned char version = header[kV2VersionOffset];
    const bool extended = (header[kV2FlagsOffset] & kV2ExtendedHeaderFlag) != 0;
    // ID3v2.4 tags and ID3v2.3 tags with an extended header are not read.
    if ((version == 3 && !extended) || version == 2) {
        m_nVersion = version;
        // Without an ID3v1 tag the fields were not allocated yet.
        EnsureId3Info();
        ScanFrames(*this, body, version == 3 ? kLayoutV23 : kLayoutV22);
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
    return ScanFrames(*this, {body, size, size}, kLayoutV23);
}

int Id3Info::ReadId3v2Ver2Information(unsigned char* body, int size) {
    if (body == nullptr) return MFI_BAD_ARGUMENT;
    return ScanFrames(*this, {body, size, size}, kLayoutV22);
}

void Id3Info::GetAnsiFromUnicode(char** text) {
    if (text == nullptr || *text == nullptr) return;
    unsigned char* t = reinterpret_cast<unsigned char*>(*text);
    // A little-endian UTF-16 byte-order mark empties the text; no character
    // set is converted, and a big-endian mark is left as it is.
    if (t[0] == 0xFF && t[1] == 0xFE) memset(t, 0, strlen(*text + 2) + 1);
}

namespace {

bool IsOneOf(const char* id, const char* a, const char* b) { return strcmp(id, a) == 0 || strcmp(id, b) == 0; }

void ReplaceText(char** field, const char* text) {
    free(*field);
    *field = strdup(text);
}

}  // namespace

int Id3Info::SaveId3Info(const char* id, const char* text) {
    if (id == nullptr || text == nullptr) return MFI_OK;
    if (EnsureId3Info()) {
        ID3Info_st* info = m_pID3Info;
        const unsigned char first = static_cast<unsigned char>(text[0]);
        if (IsOneOf(id, "TIT2", "TT2")) {
            ReplaceText(&info->pTitle, text);
        } else if (IsOneOf(id, "TPE1", "TP1")) {
            ReplaceText(&info->pArtist, text);
        } else if (IsOneOf(id, "TALB", "TAL")) {
            ReplaceText(&info->pAlbum, text);
        } else if (IsOneOf(id, "TYER", "TYE")) {
            ReplaceText(&info->pYear, text);
        } else if (IsOneOf(id, "TRCK", "TRK")) {
            // The first byte is the track: what the writer stores. A track
            // text "12" gives 49, and a track already read wins.
            if (info->nTrack == 0) info->nTrack = first;
        } else if (IsOneOf(id, "TCON", "TCO")) {
            // The first byte is the genre index, as the writer stores it; a
            // "(17)" text gives row 40.
            ReplaceText(&info->pGenre, m_arrMP3ID3v2Genre[GenreIndexOfByte(first)]);
        } else if (IsOneOf(id, "COMM", "COM")) {
            ReplaceText(&info->pComment, text);
        } else if (IsOneOf(id, "TCOM ", "TCM ")) {
            // Frame ids carry no blank: the composer is never read from a
            // tag, only set by the writer's caller.
            ReplaceText(&info->pComposer, text);
        } else if (strcmp(id, "USLT") == 0) {
            ReplaceText(&info->pLyrics, text);
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

// Writing comes next.
int Id3Info::SetId3Info(MediaFileInfo_st*) { return 0; }
int Id3Info::InitID3Info(MediaFileInfo_st*) { return 0; }
int Id3Info::WriteId3v1Information(unsigned char*) { return 0; }
int Id3Info::WriteId3v2Information() { return 0; }
int Id3Info::MoveFile(int) { return 0; }
int Id3Info::WriteId3v2InfoToFile() { return 0; }
