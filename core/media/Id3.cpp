#include "Id3.h"

namespace fileinfo {
namespace media {

// To be written.
uint64_t Id3v2TagSize(const uint8_t*, size_t) { return 0; }
bool ParseId3v2(const uint8_t*, size_t, Tags&) { return false; }
bool ParseId3v1(const uint8_t*, size_t, Tags&) { return false; }
const char* Id3GenreName(unsigned) { return nullptr; }

}  // namespace media
}  // namespace fileinfo
