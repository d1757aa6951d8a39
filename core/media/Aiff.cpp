#include "Readers.h"

namespace fileinfo {
namespace media {

bool ReadAiff(const Source&, Reading&) { return false; }  // to be written

}  // namespace media
}  // namespace fileinfo
