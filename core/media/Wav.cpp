#include "Readers.h"

namespace fileinfo {
namespace media {

bool ReadWav(const Source&, Reading&) { return false; }  // to be written

}  // namespace media
}  // namespace fileinfo
