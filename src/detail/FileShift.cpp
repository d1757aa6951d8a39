#include "detail/FileShift.h"

#include <cstring>

#include "MediaFileInfoDefine.h"

namespace fileinfo_detail {

int ShiftTowardEnd(FILE* file, long tagSize, int grow, unsigned char* block) {
    fseek(file, 0, SEEK_END);
    const long length = ftell(file);
    if (fseek(file, -kShiftBlock, SEEK_END) != 0) return MFI_SEEK_FAILED;
    // From the end toward the start. The first block read, the file's last
    // one, lands one block beyond its shifted place, so the file grows by
    // the size change plus a block and the range just below the old end
    // keeps its old bytes. Kept so: hosts rely on files coming out this way.
    long destination = length + grow;
    long position = length;
    while (tagSize < position) {
        position = ftell(file) - kShiftBlock;
        memset(block, 0, kShiftBlock);
        if (fread(block, 1, kShiftBlock, file) < static_cast<size_t>(kShiftBlock)) return MFI_SHORT_FILE;
        if (fseek(file, destination, SEEK_SET) != 0) return MFI_SEEK_FAILED;
        if (fwrite(block, 1, kShiftBlock, file) < static_cast<size_t>(kShiftBlock)) return MFI_SHORT_WRITE;
        destination = position + grow;
        if (tagSize < position && fseek(file, position, SEEK_SET) != 0) return MFI_SEEK_FAILED;
    }
    // The rest, from the new tag size (the 10 header bytes not counted) up
    // to the last block moved. When the loop did not run this asks for
    // bytes past the end and nothing is written.
    fseek(file, tagSize, SEEK_SET);
    const long rest = position - tagSize + kShiftBlock;
    if (rest > 0 && fread(block, 1, static_cast<size_t>(rest), file) == static_cast<size_t>(rest)) {
        fseek(file, tagSize + grow, SEEK_SET);
        fwrite(block, 1, static_cast<size_t>(rest), file);
    }
    return MFI_OK;
}

int ShiftTowardStart(FILE* file, long tagSize, int shrink, unsigned char* block) {
    // Toward the start. The write position is set again after each block
    // instead of advancing, so every block lands at the same offset, and
    // the file keeps its length. Kept so: hosts rely on files coming out this way.
    const long source = tagSize;
    const long destination = tagSize - shrink;
    if (fseek(file, source, SEEK_SET) != 0) return MFI_SEEK_FAILED;
    for (;;) {
        if (feof(file)) return MFI_OK;
        memset(block, 0, kShiftBlock);
        const size_t got = fread(block, 1, kShiftBlock, file);
        // Nothing arrived: at the end this is the same finish one turn
        // early; on a read error it ends what would otherwise never end.
        if (got == 0) return feof(file) ? MFI_OK : MFI_SHORT_FILE;
        const long resume = ftell(file);
        if (fseek(file, destination, SEEK_SET) != 0) return MFI_SEEK_FAILED;
        if (fwrite(block, 1, got, file) < got) return MFI_SHORT_WRITE;
        // Failing to go back would read the moved bytes again, endlessly.
        if (fseek(file, resume, SEEK_SET) != 0) return MFI_SEEK_FAILED;
    }
}

}  // namespace fileinfo_detail
