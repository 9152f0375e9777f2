// Byte counts and durations as people read them.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_SIZETEXT_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_SIZETEXT_H_

#include <cstdint>
#include <string>

// "512 B", "104.9 MB", "2.00 TB": decimal units, as disks are sold.
std::string SizeText(uint64_t bytes);

// "0:07", "12:34", "1:02:03".
std::string DurationText(uint64_t seconds);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_SIZETEXT_H_
