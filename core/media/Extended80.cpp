#include "Extended80.h"

#include "Source.h"

namespace fileinfo {
namespace media {

uint32_t Extended80ToUint32(const uint8_t* bytes) {
    const uint16_t signAndExponent = BigEndian16(bytes);
    const uint64_t significand = BigEndian64(bytes + 2);
    if ((signAndExponent & 0x8000) != 0) return 0;  // negative
    const int exponent = signAndExponent & 0x7FFF;
    // 0 holds zero and the denormals; 0x7FFF infinities and NaNs.
    if (exponent == 0 || exponent == 0x7FFF || significand == 0) return 0;
    // value = significand * 2^(exponent - 16383 - 63); from 2^32 on it
    // cannot fit, below 2^-1 it rounds to 0.
    const int power = exponent - 16383;
    if (power >= 32 || power < -1) return 0;
    const int shift = 63 - power;  // 32 to 64
    const uint64_t whole = shift >= 64 ? 0 : significand >> shift;
    const bool roundUp = ((significand >> (shift - 1)) & 1) != 0;
    const uint64_t rounded = whole + (roundUp ? 1 : 0);
    return rounded > 0xFFFFFFFFull ? 0 : static_cast<uint32_t>(rounded);
}

}  // namespace media
}  // namespace fileinfo
