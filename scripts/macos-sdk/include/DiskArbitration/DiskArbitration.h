// Darwin's DiskArbitration, as far as this project uses it: a disk's
// description by its BSD name.
#ifndef ZQ_MACOS_SDK_DISKARBITRATION_DISKARBITRATION_H_
#define ZQ_MACOS_SDK_DISKARBITRATION_DISKARBITRATION_H_

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

typedef struct __DASession* DASessionRef;
typedef struct __DADisk* DADiskRef;

extern const CFStringRef kDADiskDescriptionVolumePathKey;

DASessionRef DASessionCreate(CFAllocatorRef allocator);
DADiskRef DADiskCreateFromBSDName(CFAllocatorRef allocator, DASessionRef session, const char* name);
CFDictionaryRef DADiskCopyDescription(DADiskRef disk);

}

#endif  // ZQ_MACOS_SDK_DISKARBITRATION_DISKARBITRATION_H_
