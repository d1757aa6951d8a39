// The ID3v2 size form, read 7 bits a byte.
#ifndef FILEINFO_DETAIL_ID3SIZE_H
#define FILEINFO_DETAIL_ID3SIZE_H

namespace fileinfo_detail {

// Each byte is added as a signed 8-bit value and the sum shifted left 7
// before the next one, starting from `start`. On clean 7-bit bytes this is
// the sync-safe reading; a byte with its top bit set pulls the sum down.
// Unsigned arithmetic keeps the bits of the signed sum without its
// undefined shifts.
inline unsigned int SumSevenBitBytes(unsigned int start, const unsigned char* bytes, int count) {
    unsigned int sum = start;
    for (int k = 0; k < count; ++k) {
        if (k > 0) sum <<= 7;
        sum += static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(bytes[k])));
    }
    return sum;
}

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_ID3SIZE_H
