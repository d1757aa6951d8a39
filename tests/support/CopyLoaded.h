// The decision the sync's tests judge with when they run without the
// readers: copy what the library loads.
#ifndef FILEINFO_TESTS_COPYLOADED_H
#define FILEINFO_TESTS_COPYLOADED_H

#include "MediaFileInfoDefine.h"
#include "sync/Plan.h"

namespace synctest {

// The decision the tests judge with: copy what the library loads.
inline fileinfo::sync::Decision CopyLoaded(const fileinfo::ScanItem& item) {
    fileinfo::sync::Decision d;
    if (item.status != MFI_OK || !item.hasRecord) {
        d.skip = fileinfo::sync::SkipKind::kNotLoaded;
        d.reason = "did not load";
        return d;
    }
    d.action = fileinfo::sync::Action::kCopy;
    d.bytes = item.record.fileSize;
    d.libraryPlayable = true;
    return d;
}

}  // namespace synctest

#endif  // FILEINFO_TESTS_COPYLOADED_H
