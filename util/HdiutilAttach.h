// What `hdiutil attach -plist` says it made.  hdiutil(1) asks programs to
// read that form rather than its usual output, which has no set format.
#ifndef ZQ_UTIL_HDIUTILATTACH_H_
#define ZQ_UTIL_HDIUTILATTACH_H_

#include <string>

// The whole disk made for an image: the one entry of "system-entities"
// whose "dev-entry" is a disk and not a slice of one (/dev/disk4, not
// /dev/disk4s1), wherever it stands among them.  Empty, with the reason in
// *error, when `plist` is no property list or names no such disk, or more
// than one.
std::string AttachedWholeDisk(const std::string& plist, std::string* error);

#endif  // ZQ_UTIL_HDIUTILATTACH_H_
