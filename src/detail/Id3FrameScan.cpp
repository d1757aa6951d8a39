#include "detail/Id3FrameScan.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "detail/Id3Size.h"

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

namespace fileinfo_detail {

namespace {

// COMM and SYLT frames: their text is taken 6 bytes into the frame data,
// past the encoding byte, three language bytes and two more.
constexpr int kLanguageSkip = 6;

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

// The ids of a table packed into integers (first character most
// significant) and sorted, for a binary search. Every id of both tables has
// exactly idLength characters, so comparing the packed bytes at a position
// is the same as comparing them as a string: a zero byte inside them can
// match no id either way.
struct PackedIds {
    std::vector<uint32_t> sorted;
    // Whether any id starts with this byte: most positions of padding and
    // unknown data are refused on their first byte alone.
    bool leads[256] = {};

    explicit PackedIds(const FrameLayout& layout) {
        for (int i = 0; i < layout.idCount; ++i) {
            const unsigned char* id = reinterpret_cast<const unsigned char*>(layout.ids[i]);
            sorted.push_back(Pack(id, layout.idLength));
            leads[id[0]] = true;
        }
        std::sort(sorted.begin(), sorted.end());
    }

    static uint32_t Pack(const unsigned char* bytes, int length) {
        uint32_t key = 0;
        for (int k = 0; k < length; ++k) key = (key << 8) | bytes[k];
        return key;
    }

    bool Contains(uint32_t key) const { return std::binary_search(sorted.begin(), sorted.end(), key); }
};

const PackedIds& IdsOf(const FrameLayout& layout) {
    static const PackedIds v23(kLayoutV23);
    static const PackedIds v22(kLayoutV22);
    return layout.idLength == kLayoutV23.idLength ? v23 : v22;
}

// True when the `length` bytes at p, taken as a string (a zero byte ends
// it), equal one of the ids. The scan asks this at every byte of padding
// and unknown data, so it is a table look-up.
bool IsKnownId(const TagBody& body, long p, const FrameLayout& layout, char* id) {
    const PackedIds& ids = IdsOf(layout);
    if (!ids.leads[body.At(p)]) return false;
    unsigned char bytes[4];
    for (int k = 0; k < layout.idLength; ++k) bytes[k] = body.At(p + k);
    if (!ids.Contains(PackedIds::Pack(bytes, layout.idLength))) return false;
    memcpy(id, bytes, static_cast<size_t>(layout.idLength));
    id[layout.idLength] = '\0';
    return true;
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

// The first position from p on, short of end, whose byte can start an id;
// end when there is none. Padding is mostly zeros: one table look-up a byte.
long NextPossibleId(const TagBody& body, long p, long end, const PackedIds& ids) {
    while (p < end && !ids.leads[body.bytes[p]]) ++p;
    return p;
}

// The frame scan shared by ID3v2.2 and ID3v2.3 tags. Fields go to the
// tag object through SaveId3Info; the result is 1 when the walk reached
// the end, 10 when a damaged frame size ended it.
}  // namespace

int ScanId3v2Frames(Id3Info& tag, const TagBody& body, bool v23) {
    const FrameLayout& layout = v23 ? kLayoutV23 : kLayoutV22;
    const PackedIds& ids = IdsOf(layout);
    // Past the bytes in memory everything reads as zero and no id can
    // match: the walk would only step to the end.
    const long inMemory = body.avail < body.size ? body.avail : body.size;
    char id[5];
    long p = 0;
    while (p < body.size) {
        // Unknown ids, padding and even the data of unknown frames are
        // walked one byte at a time; a known id inside them is taken.
        p = NextPossibleId(body, p, inMemory, ids);
        if (p >= inMemory) return MFI_OK;
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
        const long frameSize = static_cast<int>(fileinfo_detail::SumSevenBitBytes(0, sizeBytes, layout.idLength));
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

}  // namespace fileinfo_detail
