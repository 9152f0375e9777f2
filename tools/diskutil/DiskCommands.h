// The two commands of diskutil.  Each prints what the service judges it by
// and returns the exit status.
//
//   unmount NAME   every file system mounted from the device NAME, after
//                  those mounted from files on them, or the one mounted at
//                  the folder NAME, is unmounted.  Prints
//                  "Unmount of NAME successful" on standard output when
//                  something was unmounted, "NAME is already unmounted" on
//                  standard error when nothing was mounted.
//   mount NAME     mounts the device NAME at MEDIA_ROOT/<device name>,
//                  letting mount(8) find the file system's type.  Prints
//                  "Volume on NAME mounted at FOLDER" on standard output
//                  when it is mounted (also when it already was).
#ifndef ZQ_TOOLS_DISKUTIL_DISKCOMMANDS_H_
#define ZQ_TOOLS_DISKUTIL_DISKCOMMANDS_H_

#include <string>

int UnmountDisk(const std::string& name);
int MountDisk(const std::string& name, const std::string& mediaRoot);

#endif  // ZQ_TOOLS_DISKUTIL_DISKCOMMANDS_H_
