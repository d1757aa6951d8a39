#include "detail/IlstItems.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "MediaFileInfoBase.h"

namespace fileinfo_detail {

namespace {

constexpr unsigned int kFourCc = 4;
constexpr unsigned int kItemNameOffset = 4;
constexpr unsigned int kItemHeaderSize = 8;
constexpr unsigned int kDataTypeOffset = 4;
constexpr unsigned int kDataHeaderSize = 16;
constexpr unsigned int kMinDataSize = 17;

}  // namespace

void WalkIlstItems(const unsigned char* items, unsigned int ilstSize, size_t readable,
                   const std::function<void(const char* name, const char* value)>& take) {
    // 64-bit, so a huge data size ends the walk instead of wrapping back.
    unsigned long long pos = 0;
    while (pos < ilstSize) {
        // Name, data size and the "data" type must be readable.
        if (pos + kItemHeaderSize + kDataTypeOffset + kFourCc > readable) break;
        const char* name = reinterpret_cast<const char*>(items + pos + kItemNameOffset);
        pos += kItemHeaderSize;
        const unsigned int dataSize = MediaFileInfoBase::ReadWord(const_cast<unsigned char*>(items + pos));
        if (dataSize < kMinDataSize || memcmp(items + pos + kDataTypeOffset, "data", kFourCc) != 0) break;
        pos += kDataHeaderSize;
        const unsigned long long valueSize = dataSize - kDataHeaderSize;
        // A value may announce more than was read: only its bytes inside what
        // was read count, the rest are zeroes. The text ends at its first
        // zero byte, so only the text is copied, never the announced size.
        const size_t inRead =
            pos >= readable ? 0 : static_cast<size_t>(std::min<unsigned long long>(valueSize, readable - pos));
        const size_t present = strnlen(reinterpret_cast<const char*>(items + pos), inRead);
        // Binary values (track and genre numbers, pictures) start with 0.
        if (present > 0) {
            char* value = static_cast<char*>(calloc(present + 1, 1));
            if (value != nullptr) {
                memcpy(value, items + pos, present);
                take(name, value);
                free(value);
            }
        }
        pos += valueSize;
    }
}

}  // namespace fileinfo_detail
