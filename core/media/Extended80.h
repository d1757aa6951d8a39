// The 80-bit extended numbers of IFF files (an AIFF sample rate): a sign
// bit, a 15-bit exponent biased by 16383 and a 64-bit significand whose top
// bit is the integer bit.
#ifndef FILEINFO_CORE_MEDIA_EXTENDED80_H
#define FILEINFO_CORE_MEDIA_EXTENDED80_H

#include <cstdint>

namespace fileinfo {
namespace media {

// The number in the 10 big-endian bytes at `bytes`, rounded to the nearest
// whole number, when it is a finite positive number that fits 32 bits;
// else 0 (zero, negative numbers, infinities, NaNs, denormals, numbers
// below 0.5 and numbers of 2^32 or more).
uint32_t Extended80ToUint32(const uint8_t* bytes);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_EXTENDED80_H
