// Deterministic corruption of test media and the invariants every load must
// keep, shared by the mutation tests of all readers.
#ifndef FILEINFO_TESTS_MUTATION_H
#define FILEINFO_TESTS_MUTATION_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <random>

#include "ByteWriter.h"
#include "MediaFileInfoDefine.h"

// One corrupted copy of seed: bytes flipped, 32-bit words zeroed or made
// huge, the file cut short or grown with junk. Same (seed, n) -> same copy.
inline Bytes Mutate(const Bytes& seed, uint32_t n) {
    std::mt19937 rng(n * 2654435761u + 12345u);
    Bytes b = seed;
    const int edits = 1 + static_cast<int>(rng() % 8);
    for (int e = 0; e < edits && !b.empty(); ++e) {
        const size_t at = rng() % b.size();
        switch (rng() % 7) {
            case 0: b[at] = static_cast<uint8_t>(rng()); break;
            case 1: b[at] ^= static_cast<uint8_t>(1u << (rng() % 8)); break;
            case 2:  // a 32-bit size or field zeroed
                for (size_t k = at; k < at + 4 && k < b.size(); ++k) b[k] = 0;
                break;
            case 3: {  // a 32-bit size or field made huge
                const uint8_t v[4][4] = {{0xFF, 0xFF, 0xFF, 0xFF}, {0x7F, 0xFF, 0xFF, 0xFF},
                                         {0x80, 0x00, 0x00, 0x00}, {0x00, 0x10, 0x00, 0x00}};
                const uint8_t* pick = v[rng() % 4];
                for (size_t k = 0; k < 4 && at + k < b.size(); ++k) b[at + k] = pick[k];
                break;
            }
            case 4: b.resize(at); break;  // truncated
            case 5: b.insert(b.end(), rng() % 5000, static_cast<uint8_t>(rng())); break;
            default: {  // a region repeated elsewhere
                const size_t len = std::min<size_t>(rng() % 64 + 1, b.size() - at);
                const size_t to = rng() % b.size();
                for (size_t k = 0; k < len && to + k < b.size(); ++k) b[to + k] = b[at + k];
            }
        }
    }
    return b;
}

// A status is known when the library has a text of its own for it.
inline bool IsKnownStatus(int status) {
    return strcmp(MediaFileStatusText(status), MediaFileStatusText(-1)) != 0;
}

// Every text field of the record holds its terminator within 128 bytes.
inline void ExpectTextsTerminated(const MediaFileInfo_st* r) {
    if (r == nullptr) return;
    const char* texts = reinterpret_cast<const char*>(r) + offsetof(MediaFileInfo_st, fileType);
    for (int field = 0; field < 14; ++field) {
        EXPECT_NE(memchr(texts + field * MEDIA_TEXT_SIZE, 0, MEDIA_TEXT_SIZE), nullptr)
            << "text field " << field << " is not terminated";
    }
}

#endif  // FILEINFO_TESTS_MUTATION_H
