// Writing a whole file so that a reader never sees half of it: the text
// goes into a temporary file beside the destination, is synced, and the
// temporary file is renamed over the destination. A failed write leaves
// any old file as it was.
#ifndef FILEINFO_CORE_ATOMICWRITE_H
#define FILEINFO_CORE_ATOMICWRITE_H

#include <string>

namespace fileinfo {

// False with the system's reason in `error` when the file could not be
// written; the temporary file is then removed.
bool WriteFileAtomically(const std::string& path, const std::string& text, std::string& error);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_ATOMICWRITE_H
