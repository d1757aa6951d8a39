#include "AiffTextChunks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "media/Source.h"

namespace fileinfo {

namespace {

using media::BigEndian32;

// The block the file moves in: the edit's memory whatever the file's size.
constexpr size_t kBlock = 1 << 20;
// As many chunks as the reading looks at; a file of more is refused rather
// than walked without end.
constexpr unsigned kMaxChunks = 4096;
// "FORM", its size and the form type.
constexpr size_t kFormHeaderSize = 12;

// The FORM's size is 32 bits.
constexpr uint64_t kMaxFormSize = 0xFFFFFFFFull;

struct Chunk {
    char id[4];
    uint64_t start = 0;  // its header
    uint64_t end = 0;    // after its body and pad byte
};

struct Layout {
    uint64_t fileSize = 0;
    uint64_t formEnd = 0;         // 8 + the FORM's size
    bool lastPadMissing = false;  // the last chunk is odd and ends the FORM without its pad byte
    std::vector<Chunk> chunks;
};

// `bytes` in place of the `length` bytes at `at` of the file as it was.
struct Replacement {
    uint64_t at = 0;
    uint64_t length = 0;
    std::string bytes;
};

TagWriteResult Refused(const std::string& reason) {
    TagWriteResult result;
    result.reason = reason;
    return result;
}

TagWriteResult Failed(int error) {
    TagWriteResult result;
    result.reason = "writing the AIFF text chunks into a copy failed";
    result.error = error != 0 ? error : EIO;
    return result;
}

// 0, or the errno of a failed read (EIO for one cut short by the file's end).
int ReadAt(int fd, uint64_t offset, void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd, static_cast<char*>(data) + done, size - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

int WriteAt(int fd, uint64_t offset, const void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n =
            pwrite(fd, static_cast<const char*>(data) + done, size - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return ENOSPC;  // a write that takes nothing is a full disk
        done += static_cast<size_t>(n);
    }
    return 0;
}

bool IdIs(const char* id, const char* name) { return std::memcmp(id, name, 4) == 0; }

bool IsTextChunk(const char* id) {
    return IdIs(id, "NAME") || IdIs(id, "AUTH") || IdIs(id, "ANNO") || IdIs(id, "(c) ");
}

// The chunks of the FORM, each bounded by it. An empty reason: the layout
// was read; else why it is refused (with `error` set for a failed read).
std::string ReadLayout(int fd, Layout& layout, int& error) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        error = errno;
        return "cannot read the copy's size";
    }
    layout.fileSize = static_cast<uint64_t>(st.st_size);
    uint8_t head[kFormHeaderSize];
    if (layout.fileSize < sizeof head) return "the file is too short for an AIFF FORM";
    if ((error = ReadAt(fd, 0, head, sizeof head)) != 0) return "reading the copy failed";
    if (std::memcmp(head, "FORM", 4) != 0 ||
        (std::memcmp(head + 8, "AIFF", 4) != 0 && std::memcmp(head + 8, "AIFC", 4) != 0))
        return "the file is not an AIFF FORM";
    layout.formEnd = 8 + static_cast<uint64_t>(BigEndian32(head + 4));
    if (layout.formEnd < sizeof head) return "the AIFF FORM's size is too small to hold its chunks";
    if (layout.formEnd > layout.fileSize) return "the AIFF FORM runs past the end of the file";
    uint64_t at = sizeof head;
    // Fewer than 8 bytes left in the FORM hold no chunk; they stay as they are.
    while (layout.formEnd - at >= 8) {
        if (layout.chunks.size() == kMaxChunks) return "the AIFF file has more chunks than fileinfo follows";
        uint8_t header[8];
        if ((error = ReadAt(fd, at, header, sizeof header)) != 0) return "reading the copy failed";
        Chunk chunk;
        std::memcpy(chunk.id, header, 4);
        chunk.start = at;
        const uint64_t size = BigEndian32(header + 4);
        const uint64_t body = at + 8;
        if (size > layout.formEnd - body) return "an AIFF chunk runs past the end of its FORM";
        chunk.end = body + size;
        if ((size & 1) != 0) {
            if (chunk.end == layout.formEnd) {
                layout.lastPadMissing = true;
            } else {
                uint8_t pad = 0;
                if ((error = ReadAt(fd, chunk.end, &pad, 1)) != 0) return "reading the copy failed";
                // A writer that left the pad byte out puts the next chunk's
                // id here; which it is cannot be known for sure.
                if (pad != 0) return "an AIFF chunk of odd size has no pad byte";
                chunk.end += 1;
            }
        }
        layout.chunks.push_back(chunk);
        at = chunk.end;
    }
    return std::string();
}

const char* ChunkIdOf(TagField field) {
    switch (field) {
        case TagField::Title: return "NAME";
        case TagField::Artist: return "AUTH";
        case TagField::Comment: return "ANNO";
        default: return nullptr;
    }
}

void AppendBigEndian32(std::string& out, uint32_t value) {
    out.push_back(static_cast<char>(value >> 24));
    out.push_back(static_cast<char>(value >> 16));
    out.push_back(static_cast<char>(value >> 8));
    out.push_back(static_cast<char>(value));
}

// A text chunk: its id, its size, the text. An odd text takes a NUL inside
// the chunk, as ffmpeg writes it, rather than a pad byte after it: every
// text chunk is then even, and a reader that does not skip pad bytes (the
// library's, for one) still finds the chunks after it. Readers end the
// text at the NUL.
std::string TextChunk(const char* id, const std::string& text) {
    const size_t size = text.size() + (text.size() & 1);
    std::string chunk(id, 4);
    AppendBigEndian32(chunk, static_cast<uint32_t>(size));
    chunk += text;
    chunk.resize(8 + size, '\0');
    return chunk;
}

// Where a new text chunk goes: after the last text chunk; without one,
// before SSND; without SSND, after the last chunk. That is the FORM's end
// but for a tail too short to be a chunk, which stays last: a chunk after
// it would be read from the wrong place.
uint64_t InsertionPoint(const Layout& layout) {
    for (auto it = layout.chunks.rbegin(); it != layout.chunks.rend(); ++it)
        if (IsTextChunk(it->id)) return it->end;
    for (const Chunk& chunk : layout.chunks)
        if (IdIs(chunk.id, "SSND")) return chunk.start;
    return layout.chunks.empty() ? kFormHeaderSize : layout.chunks.back().end;
}

// The replacements that put the values of `edits` into the text chunks.
std::vector<Replacement> Plan(const Layout& layout, const TagEdits& edits, bool addMissing) {
    // The last value given for a field counts, as with the other formats.
    std::map<TagField, std::string> values;
    for (const TagEdit& edit : edits.edits())
        if (AiffTextChunkHolds(edit.field)) values[edit.field] = GivenValue(edit);
    std::vector<Replacement> plan;
    std::string added;
    for (const TagField field : {TagField::Title, TagField::Artist, TagField::Comment}) {
        const auto value = values.find(field);
        if (value == values.end()) continue;
        const char* id = ChunkIdOf(field);
        bool first = true;
        for (const Chunk& chunk : layout.chunks) {
            if (!IdIs(chunk.id, id)) continue;
            // The first takes the value; the others go only with the field.
            if (first || value->second.empty())
                plan.push_back({chunk.start, chunk.end - chunk.start, value->second.empty() ? "" : TextChunk(id, value->second)});
            first = false;
        }
        if (first && addMissing && !value->second.empty()) added += TextChunk(id, value->second);
    }
    if (!added.empty()) {
        const uint64_t at = InsertionPoint(layout);
        // A last chunk whose pad byte is missing gets it before a chunk follows.
        const bool lastReplaced = std::any_of(plan.begin(), plan.end(),
                                              [&](const Replacement& r) { return r.at + r.length == layout.formEnd; });
        if (at == layout.formEnd && layout.lastPadMissing && !lastReplaced) added.insert(added.begin(), '\0');
        plan.push_back({at, 0, added});
    }
    std::stable_sort(plan.begin(), plan.end(),
                     [](const Replacement& a, const Replacement& b) { return a.at < b.at; });
    return plan;
}

bool AllZero(const std::vector<char>& block, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (block[i] != 0) return false;
    return true;
}

// Writes a block at `to`: a block of zeros becomes a hole where the file
// system makes one, so that a sparse copy stays sparse as it moves.
int PutBlock(int fd, uint64_t to, const std::vector<char>& block, size_t n) {
    if (AllZero(block, n) &&
        fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(to), static_cast<off_t>(n)) == 0)
        return 0;
    return WriteAt(fd, to, block.data(), n);
}

// Moves `length` bytes from `from` to `to` in blocks, in the order that
// reads every byte before the move writes over it.
int Move(int fd, uint64_t from, uint64_t to, uint64_t length, std::vector<char>& block) {
    if (from == to || length == 0) return 0;
    for (uint64_t done = 0; done < length;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(length - done, block.size()));
        // Forwards when moving towards the start, from the end when away.
        const uint64_t offset = to < from ? done : length - done - n;
        if (const int error = ReadAt(fd, from + offset, block.data(), n)) return error;
        if (const int error = PutBlock(fd, to + offset, block, n)) return error;
        done += n;
    }
    return 0;
}

struct Segment {
    uint64_t from;
    uint64_t to;
    uint64_t length;
};

// Carries out `plan` on the file: the bytes between the replacements move
// to their new places (each byte once), the new bytes go in, the FORM's
// size follows.
int Apply(int fd, const Layout& layout, const std::vector<Replacement>& plan, int64_t shift) {
    std::vector<Segment> segments;
    uint64_t from = 0;
    int64_t moved = 0;
    std::vector<uint64_t> pieces;  // where each replacement's bytes go
    for (const Replacement& r : plan) {
        segments.push_back({from, static_cast<uint64_t>(static_cast<int64_t>(from) + moved), r.at - from});
        pieces.push_back(static_cast<uint64_t>(static_cast<int64_t>(r.at) + moved));
        moved += static_cast<int64_t>(r.bytes.size()) - static_cast<int64_t>(r.length);
        from = r.at + r.length;
    }
    segments.push_back({from, static_cast<uint64_t>(static_cast<int64_t>(from) + moved), layout.fileSize - from});
    const uint64_t newSize = static_cast<uint64_t>(static_cast<int64_t>(layout.fileSize) + shift);
    // A grown file is grown first, as a hole: the moves then write inside it.
    if (newSize > layout.fileSize && ftruncate(fd, static_cast<off_t>(newSize)) != 0) return errno;
    std::vector<char> block(kBlock);
    // Segments moving towards the start go first, front to back: each lands
    // where earlier segments were, which have moved already. Then those
    // moving away, back to front, for the same reason.
    for (const Segment& s : segments)
        if (s.to < s.from)
            if (const int error = Move(fd, s.from, s.to, s.length, block)) return error;
    for (auto s = segments.rbegin(); s != segments.rend(); ++s)
        if (s->to > s->from)
            if (const int error = Move(fd, s->from, s->to, s->length, block)) return error;
    for (size_t i = 0; i < plan.size(); ++i)
        if (const int error = WriteAt(fd, pieces[i], plan[i].bytes.data(), plan[i].bytes.size())) return error;
    std::string formSize;
    AppendBigEndian32(formSize, static_cast<uint32_t>(layout.formEnd - 8 + static_cast<uint64_t>(shift)));
    if (const int error = WriteAt(fd, 4, formSize.data(), formSize.size())) return error;
    if (newSize < layout.fileSize && ftruncate(fd, static_cast<off_t>(newSize)) != 0) return errno;
    return 0;
}

}  // namespace

bool AiffTextChunkHolds(TagField field) { return ChunkIdOf(field) != nullptr; }

TagWriteResult WriteAiffTextChunks(int fd, const TagEdits& edits, bool addMissing) {
    Layout layout;
    int error = 0;
    const std::string refused = ReadLayout(fd, layout, error);
    if (error != 0) return Failed(error);
    if (!refused.empty()) return Refused(refused);
    const std::vector<Replacement> plan = Plan(layout, edits, addMissing);
    int64_t shift = 0;
    for (const Replacement& r : plan) shift += static_cast<int64_t>(r.bytes.size()) - static_cast<int64_t>(r.length);
    if (static_cast<int64_t>(layout.formEnd - 8) + shift > static_cast<int64_t>(kMaxFormSize))
        return Refused("the AIFF FORM would outgrow its 32-bit size");
    TagWriteResult result;
    if (!plan.empty()) {
        if (const int failed = Apply(fd, layout, plan, shift)) return Failed(failed);
    }
    result.written = true;
    return result;
}

}  // namespace fileinfo
