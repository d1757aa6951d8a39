#include "detail/OwnedTags.h"

#include <new>

namespace fileinfo_detail {

bool LoadOwnedTags(Id3Info*& id3, const char* path, unsigned int& hasId3) {
    id3 = new (std::nothrow) Id3Info();
    if (id3 == nullptr) {
        hasId3 = 0;
        return false;
    }
    return id3->LoadFile(path) == MFI_OK && id3->HasId3Info() == 1;
}

}  // namespace fileinfo_detail
