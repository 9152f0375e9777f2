// `zq-bitlocker dump`: the unlocked volume, byte for byte, into a file or
// down a pipe.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEDUMP_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEDUMP_H_

#include <string>

#include "engine/CUnlockedVolume.h"
#include "tools/zq-bitlocker/WriteProgress.h"

struct DumpTarget {
  std::string device;  // the volume's device or image, for messages and the check below
  std::string output;  // empty: standard output
  bool force = false;  // replace an existing output file
};

// Why a dump may not go where it is asked to, or the empty string.  Checked
// before anything is read or written: a dump must never destroy its own
// volume (the same file or device under any name, the file behind a loop
// device, the disk of a partition or a partition of the disk), another
// file unasked, or a terminal.
std::string DumpRefusal(const DumpTarget& target);

// Writes every byte of `volume` to the target, telling its progress on
// standard error in `style`.  A file output appears under its name only
// once whole.  SIGINT or SIGTERM stops the dump: it says after how many
// bytes and returns 130, leaving no file behind.  Returns 0, or the status
// it reported.
int DumpVolume(bitlocker::CUnlockedVolume& volume, const DumpTarget& target, ProgressStyle style);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMEDUMP_H_
