// The human-readable description of a volume that `zq-bitlocker info` prints.
#ifndef ZQ_BITLOCKER_TOOL_VOLUMEREPORT_H_
#define ZQ_BITLOCKER_TOOL_VOLUMEREPORT_H_

#include <ostream>

#include "CBitlockerVolume.h"

void PrintVolumeReport(const bitlocker::CBitlockerVolume& volume, std::ostream& out);

#endif  // ZQ_BITLOCKER_TOOL_VOLUMEREPORT_H_
