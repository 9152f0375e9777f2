// The description of a locked volume that `zq-bitlocker info` prints: for
// people, or as one JSON object with the same facts for programs.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEREPORT_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEREPORT_H_

#include <ostream>

#include "engine/CBitlockerVolume.h"

void PrintVolumeReport(const bitlocker::CBitlockerVolume& volume, std::ostream& out);

// One line: {"volume":"BitLocker","volume_identifier":"…",
// "device_size":N,…,"key_protectors":[{"identifier":…,"protection":…}]}.
void PrintVolumeReportJson(const bitlocker::CBitlockerVolume& volume, std::ostream& out);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEREPORT_H_
