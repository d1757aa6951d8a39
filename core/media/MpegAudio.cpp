#include "Readers.h"

namespace fileinfo {
namespace media {

bool ReadMpegAudio(const Source&, Reading&) { return false; }  // to be written

}  // namespace media
}  // namespace fileinfo
