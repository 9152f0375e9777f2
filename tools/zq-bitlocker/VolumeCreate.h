// `zq-bitlocker create`: a new BitLocker volume on a device or image file,
// protected by a password, a generated recovery password and optionally a
// startup key file.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMECREATE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMECREATE_H_

#include <string>

#include "tools/zq-bitlocker/CommandLine.h"
#include "tools/zq-bitlocker/WriteProgress.h"

// Why a volume may not be made as `options` ask, or the empty string.
// Checked before anything is written: --size only for a target that does
// not exist yet, a recovery file that does not exist yet, a startup key
// folder that does, a target that is
// no file or block device or is mounted (under any name: a partition of it,
// the loop device over it), and, unless --force, a target that holds a
// BitLocker volume, a partition table or a file system.
std::string CreateRefusal(const Options& options);

// Makes the volume: reads the password, writes the volume, telling the
// progress of the wipe in `style`, and tells the recovery password.  Ctrl-C
// stops the wipe; the target is then left without a header.  Returns the
// exit status.
int RunCreate(const Options& options, ProgressStyle style);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMECREATE_H_
