// What the tests of mounting programs share: looking at the mount table
// and the process table, and digests of files.
#ifndef ZQ_TESTS_SUPPORT_MOUNTERHARNESS_H_
#define ZQ_TESTS_SUPPORT_MOUNTERHARNESS_H_

#include <string>
#include <vector>

// Why FUSE mounts cannot be made here, or empty when they can.
std::string FuseUnavailable();

// Whether something is mounted at `path`.
bool MountedAt(const std::string& path);

// The mount points of every mount whose source is `source`.
std::vector<std::string> MountPointsOfSource(const std::string& source);

// Processes still alive (zombies do not count) whose command line holds
// `text` as one of its words.
std::vector<int> LiveProcessesWithWord(const std::string& text);

// Waits up to `seconds` for the processes with `text` on their command
// line to end; true when none is left.
bool WaitUntilNoProcessWithWord(const std::string& text, int seconds);

// Loop devices whose backing file's path starts with `prefix`.
std::vector<std::string> LoopDevicesBackedBy(const std::string& prefix);

// Lower-case hex SHA-256 of a whole file, or empty when it cannot be read.
std::string FileSha256(const std::string& path);

// Takes down whatever a test left mounted at `mountPoint`.
void ForceUnmount(const std::string& mountPoint);

#endif  // ZQ_TESTS_SUPPORT_MOUNTERHARNESS_H_
