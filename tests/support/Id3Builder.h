// ID3 tags for test files: the 128-byte ID3v1 trailer and ID3v2.2 / v2.3 /
// v2.4 tags with text frames, sizes written exactly as a tagger would.
#ifndef FILEINFO_TESTS_ID3BUILDER_H
#define FILEINFO_TESTS_ID3BUILDER_H

#include <initializer_list>
#include <string>
#include <vector>

#include "ByteWriter.h"

struct Id3v1Fields {
    std::string title, artist, album, year, comment;
    int track = 0;    // written at byte 126 when non-zero (ID3v1.1)
    int genre = 255;  // byte 127
};

inline Bytes BuildId3v1(const Id3v1Fields& s) {
    ByteWriter w;
    w.str("TAG").fixed(s.title, 30).fixed(s.artist, 30).fixed(s.album, 30).fixed(s.year, 4);
    if (s.track != 0) {
        w.fixed(s.comment, 28).u8(0).u8(static_cast<unsigned>(s.track));
    } else {
        w.fixed(s.comment, 30);
    }
    w.u8(static_cast<unsigned>(s.genre));
    return w.take();
}

// The 7-bits-a-byte (sync-safe) form of a 28-bit size.
inline void PutSyncSafe(ByteWriter& w, uint32_t size) {
    w.u8((size >> 21) & 0x7F).u8((size >> 14) & 0x7F).u8((size >> 7) & 0x7F).u8(size & 0x7F);
}

struct Id3Frame {
    std::string id;  // 3 characters for ID3v2.2, 4 otherwise
    Bytes data;      // the frame body, encoding byte included
    // When not negative, written as the frame's size instead of data.size().
    long long sizeField = -1;
};

// A text frame body: encoding byte 0, then the text, no terminator.
inline Id3Frame TextFrame(const std::string& id, const std::string& text) {
    Id3Frame f{id, {0}};
    f.data.insert(f.data.end(), text.begin(), text.end());
    return f;
}

// A comment or lyrics frame as taggers write it: encoding, language,
// empty description with its terminator, then the text.
inline Id3Frame CommentFrame(const std::string& id, const std::string& language, const std::string& text) {
    Id3Frame f{id, {0}};
    f.data.insert(f.data.end(), language.begin(), language.end());
    f.data.push_back(0);
    f.data.insert(f.data.end(), text.begin(), text.end());
    return f;
}

struct Id3v2Fields {
    int majorVersion = 3;  // 2, 3 or 4
    unsigned flags = 0;    // 0x40: extended header present
    std::vector<Id3Frame> frames;
    size_t padding = 0;    // zero bytes after the last frame
    // When set, written as the tag size instead of the real body size.
    bool overrideSize = false;
    uint32_t size = 0;
};

// Frame sizes follow each version's own rule: plain 24-bit (v2.2), plain
// 32-bit (v2.3), sync-safe (v2.4). The tag size is always sync-safe.
inline Bytes BuildId3v2(const Id3v2Fields& s) {
    ByteWriter body;
    for (const Id3Frame& f : s.frames) {
        body.str(f.id);
        const uint32_t n = static_cast<uint32_t>(f.sizeField >= 0 ? f.sizeField : static_cast<long long>(f.data.size()));
        if (s.majorVersion == 2) {
            body.be24(n);
        } else if (s.majorVersion == 3) {
            body.be32(n).be16(0);
        } else {
            PutSyncSafe(body, n);
            body.be16(0);
        }
        body.bytes(f.data);
    }
    body.fill(s.padding);
    ByteWriter w;
    w.str("ID3").u8(static_cast<unsigned>(s.majorVersion)).u8(0).u8(s.flags);
    PutSyncSafe(w, s.overrideSize ? s.size : static_cast<uint32_t>(body.size()));
    w.bytes(body.data());
    return w.take();
}

// A frame body of raw bytes (encoding byte included when it has one).
inline Id3Frame RawFrame(const std::string& id, const Bytes& data) { return Id3Frame{id, data}; }

// Stand-in audio: n bytes of a pattern above 0x7F, so that no frame id and
// no zero byte can appear in it by chance.
inline Bytes AudioBytes(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(0x80 + i % 97);
    return b;
}

// The parts of a file, one after the other.
inline Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

#endif  // FILEINFO_TESTS_ID3BUILDER_H
