#include "Readers.h"

namespace fileinfo {
namespace media {

bool ReadMp4(const Source&, Reading&) { return false; }  // to be written

}  // namespace media
}  // namespace fileinfo
