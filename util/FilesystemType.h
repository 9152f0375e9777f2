// Which file system a volume holds, from its boot sector.
#ifndef ZQ_UTIL_FILESYSTEMTYPE_H_
#define ZQ_UTIL_FILESYSTEMTYPE_H_

#include <cstddef>

enum class FilesystemType { kUnknown, kNtfs, kExfat, kFat };

constexpr size_t kBootSectorSize = 512;

// The file system whose boot sector is `sector` (kBootSectorSize bytes).
FilesystemType DetectFilesystem(const unsigned char* sector);

// "NTFS", "exFAT", "FAT" or "unknown".
const char* FilesystemName(FilesystemType type);

#endif  // ZQ_UTIL_FILESYSTEMTYPE_H_
