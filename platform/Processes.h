// The processes of the machine, and what a child is given when it starts:
// /proc and posix_spawn's closefrom on Linux, libproc and posix_spawn's
// close-on-exec default on macOS.
#ifndef ZQ_PLATFORM_PROCESSES_H_
#define ZQ_PLATFORM_PROCESSES_H_

#include <spawn.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// The longest short command name the kernel keeps for a process (15
// characters on both platforms).
extern const size_t kShortNameLength;

// Every process id of the machine, in the kernel's listing order.  Returns
// 0, or an errno value with `ids` left empty.
int ListProcessIds(std::vector<pid_t>* ids);

// The short command name of one process; nullopt when it has gone or cannot
// be inspected.
std::optional<std::string> ProcessShortName(pid_t pid);

// The real user id of one process, whom it runs for; nullopt when it has
// gone or cannot be inspected.
std::optional<uid_t> ProcessRealUser(pid_t pid);

// When the process started, in seconds since the epoch; nullopt when it has
// gone or cannot be inspected.
std::optional<time_t> ProcessStartTime(pid_t pid);

// The environment of a child: this process's own.  On Linux its PATH ends
// with `bundlePrograms`, the main bundle's "Contents/MacOS" folder, so that
// the bundle's own "diskutil" is found where the system has none.
std::vector<std::string> ChildEnvironment(const std::string& bundlePrograms);

// Makes a posix_spawn with `actions` and the attribute flags `spawnFlags`
// close every descriptor of this process in the child that the actions do
// not give it.
void CloseOtherDescriptorsInChild(posix_spawn_file_actions_t* actions, short* spawnFlags);

// Runs `work` on a background thread that nobody waits for.
void RunInBackground(std::function<void()> work);

}  // namespace platform

#endif  // ZQ_PLATFORM_PROCESSES_H_
