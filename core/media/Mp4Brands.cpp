// The file type from the brands of "ftyp": the major brand when it is one
// we know, else the first compatible brand that is.
#include <cstring>

#include "Mp4Walk.h"

namespace fileinfo {
namespace media {

namespace {

struct BrandType {
    const char* brand;  // four characters; a shorter one matches as a prefix
    const char* type;
};

const BrandType kBrands[] = {
    {"M4A ", "M4A"}, {"M4B ", "M4A"}, {"M4P ", "M4A"}, {"M4V ", "M4V"}, {"M4VH", "M4V"}, {"M4VP", "M4V"},
    {"qt  ", "MOV"}, {"3gp", "3GP"},  {"3g2", "3GP"},  {"isom", "MP4"}, {"iso", "MP4"},   {"mp41", "MP4"},
    {"mp42", "MP4"}, {"mp71", "MP4"}, {"avc1", "MP4"}, {"dash", "MP4"}, {"msdh", "MP4"}, {"msix", "MP4"},
    {"cmf", "MP4"},  {"f4v ", "MP4"}, {"F4V ", "MP4"}, {"MSNV", "MP4"}, {"mmp4", "MP4"},
};

const char* TypeOfBrand(const uint8_t* brand) {
    for (const BrandType& b : kBrands) {
        if (std::memcmp(brand, b.brand, std::strlen(b.brand)) == 0) return b.type;
    }
    return nullptr;
}

// Still images and raw photographs in the same boxes: no movie.
const char* const kImageBrands[] = {"heic", "heix", "heim", "heis", "mif1", "msf1",
                                     "avif", "avis", "crx ", "jp2 ", "jpx "};

bool IsImageBrand(const uint8_t* brand) {
    for (const char* image : kImageBrands) {
        if (std::memcmp(brand, image, 4) == 0) return true;
    }
    return false;
}

}  // namespace

// "ftyp": major brand (4), minor version (4), then compatible brands.
std::string TypeFromBrands(const uint8_t* body, size_t length) {
    if (length >= 4) {
        if (const char* type = TypeOfBrand(body)) return type;
        if (IsImageBrand(body)) return "";
    }
    for (size_t at = 8; at + 4 <= length; at += 4) {
        if (const char* type = TypeOfBrand(body + at)) return type;
    }
    // A brand of the family that we do not know by name.
    return "MP4";
}

}  // namespace media
}  // namespace fileinfo
