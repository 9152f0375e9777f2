// `zq-bitlocker list`: the BitLocker volumes of the given files and devices,
// or of every disk device on the machine, as a table or as JSON.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMELIST_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMELIST_H_

#include <ostream>
#include <string>
#include <vector>

// Lists to `out`; a device that cannot be read is skipped with a note on
// standard error.  Returns 0 when it found a volume, 1 when none.
int ListVolumes(const std::vector<std::string>& paths, bool json, std::ostream& out);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMELIST_H_
