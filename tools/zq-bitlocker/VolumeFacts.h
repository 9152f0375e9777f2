// Facts about a locked volume in the words people read, shared by the
// reports of `info` (text and JSON) and `list`.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEFACTS_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEFACTS_H_

#include <cstdint>
#include <string>

#include "engine/CBitlockerVolume.h"

// FILETIME (100 ns ticks since 1601) as "2024-05-01 12:00:00 UTC"; "-" for
// none.
std::string FileTimeText(uint64_t fileTime);

// The description the volume was given when it was encrypted (usually the
// computer's name, drive letter and date), or empty.
std::string VolumeDescription(const bitlocker::FveMetadata& metadata);

// "complete", "in progress" or why the engine cannot read the conversion.
std::string ConversionText(const bitlocker::CBitlockerVolume& volume);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEFACTS_H_
