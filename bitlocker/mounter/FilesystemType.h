// Which file system an unlocked volume holds, from its boot sector.
#ifndef ZQ_BITLOCKER_MOUNTER_FILESYSTEMTYPE_H_
#define ZQ_BITLOCKER_MOUNTER_FILESYSTEMTYPE_H_

#include "IVolume.h"

enum class FilesystemType { kUnknown, kNtfs, kExfat, kFat };

FilesystemType DetectFilesystem(IVolume* volume);

// "NTFS", "exFAT", "FAT" or "unknown".
const char* FilesystemName(FilesystemType type);

#endif  // ZQ_BITLOCKER_MOUNTER_FILESYSTEMTYPE_H_
