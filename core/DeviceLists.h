// Device capability lists by name: `--device player-caps` finds
// player-caps.plist among the lists installed with the tool, so a user
// need not know where they lie.
//
// A name is looked up, in this order:
//   1. as a path, when a file of that name exists or it holds a slash;
//   2. in each folder of $FILEINFO_DEVICES (colon-separated);
//   3. in share/fileinfo/devices of the prefix the program or module was
//      installed into (the nearest folder above it that has one), so a
//      moved prefix works;
//   4. in the install prefix's share/fileinfo/devices, as configured;
//   5. in the source tree's devices/, only for a program or module that
//      runs from the build tree it was built in.
// In a folder, NAME and NAME.plist are tried.
#ifndef FILEINFO_CORE_DEVICELISTS_H
#define FILEINFO_CORE_DEVICELISTS_H

#include <string>
#include <vector>

namespace fileinfo {

// The folders searched for device lists, in order, existing or not.
std::vector<std::string> DeviceListFolders();

// The path of the list `given` names: `given` itself when it is a path (or
// when no list of that name is found, so that the caller reports the
// system's reason for it).
std::string FindDeviceList(const std::string& given);

// The names of the lists in the folders, without .plist, sorted, for the
// message about a name that was not found.
std::vector<std::string> DeviceListNames();

class Device;

// Finds the list `given` names and reads it into `device`. False with the
// reason in `error`; for a name that is no file and no known list, the
// reason names the lists there are ("No such file or directory; device
// lists by name: player-caps").
bool LoadDeviceList(const std::string& given, Device& device, std::string& error);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_DEVICELISTS_H
