// Whether two paths store their bytes in the same place: the same file or
// device under any name, the file behind a loop device, the disk of a
// partition or a partition of the disk.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_SHAREDSTORAGE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_SHAREDSTORAGE_H_

#include <sys/stat.h>

bool SharesStorage(const struct stat& a, const struct stat& b);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_SHAREDSTORAGE_H_
