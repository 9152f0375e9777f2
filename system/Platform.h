// Everything that differs between the operating systems the service runs on.
//
// Each function here has one implementation per platform: Platform_linux.cpp
// on Linux and Platform_apple.cpp on macOS.  Nothing outside those two files
// asks which platform it runs on.  The property-list writer is the one
// exception: it is the same on both (XmlPropertyList.cpp).
#ifndef ZQ_SYSTEM_PLATFORM_H_
#define ZQ_SYSTEM_PLATFORM_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

// ---- Process table ----------------------------------------------------

// The longest short command name this seam reports for a process
// (15 characters on both platforms).
extern const size_t kShortNameLength;

struct ProcessRecord {
  pid_t pid;
  std::string shortName;  // the kernel's short command name
};

// A snapshot of every process with its short command name.  Returns 0, or an
// errno value with `records` left empty.
int SnapshotProcesses(std::vector<ProcessRecord>* records);

// Every process id of the machine, in the kernel's listing order.
std::vector<pid_t> ListProcessIds();

// The short command name of one process; nullopt when it has gone or cannot
// be inspected.
std::optional<std::string> ProcessShortName(pid_t pid);

// When the process started, in seconds since the epoch; nullopt when it has
// gone or cannot be inspected.
std::optional<time_t> ProcessStartTime(pid_t pid);

// ---- Child processes --------------------------------------------------

// Makes a pipe whose two ends are close-on-exec from the start and lie above
// the three standard streams.  Returns 0 or an errno value.
int MakePipe(int fds[2]);

// Starts the program at `path` with `arguments` (the program name first) and
// this process's environment, with SIGPIPE at its default action and no
// signal blocked.  On Linux the child's PATH ends with the main bundle's
// "Contents/MacOS" folder, so that the bundle's own "diskutil" is found
// where the system has none.  `streams` become the child's standard input,
// output and error; no other descriptor of this process reaches the child.  Returns 0
// with the child's id in `pid`, or an errno value when the program cannot be
// started.
int SpawnProcess(const std::string& path, const std::vector<std::string>& arguments, const int streams[3],
                 pid_t* pid);

// Writes like write(2), except that a reader that has gone away costs
// EPIPE and never a SIGPIPE for this process.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length);

// ---- Disks ------------------------------------------------------------

// The name, under /dev, of the raw (character) device that belongs to the
// block device with this device number; empty when there is none.  On Linux
// a disk has no separate raw device, so this is the block device's own name.
std::string RawDeviceName(dev_t blockDevice);

// The device's logical block size from the disk ioctl, or nullopt when the
// descriptor is not a disk that answers it with a size above zero.
std::optional<uint32_t> DeviceBlockSize(int fd);

// Where the volume on /dev/<bsdName> is mounted; nullopt when it is not.
std::optional<std::string> VolumeMountPath(const std::string& bsdName);

// The folders below which volumes are mounted: /Volumes on macOS; /media,
// /run/media and /mnt on Linux.
std::vector<std::string> VolumesFolders();

// One mount of the mount table.
struct VolumeMount {
  std::string source;      // what the table names: "/dev/loop3", an image file, a driver's name
  std::string mountPoint;
  bool readOnly;
  bool mounterServes;      // a FUSE mount of zq-mounter, whose source is the device it was given
};

// Every mount: of this process's mount namespace on Linux, of the machine
// on macOS.
std::vector<VolumeMount> ListMounts();

// ---- Users -----------------------------------------------------------

// The user at the machine (root when nobody is logged in at it): on macOS
// the owner of /dev/console; on Linux the user of the active session of
// seat0 as systemd-logind reports it, else the owner of /dev/console.
uid_t ConsoleUser();

// Whether the members of this group can already become root, so that a
// file only they may change is as safe as one only root may change: the
// group wheel (gid 0), and on macOS the group admin (gid 80), which owns
// /Applications.
bool GroupCanBecomeRoot(gid_t group);

// ---- Application bundle ----------------------------------------------

// The application bundle that holds the running executable: the folder
// above "Contents" when the executable lies in "<bundle>/Contents/MacOS",
// otherwise the executable's own folder.
std::string MainBundlePath();

// Makes MainBundlePath() answer `path` from now on (tests and tools that run
// outside a bundle).
void SetMainBundlePath(const std::string& path);

// ---- Starting the service at boot --------------------------------------

// Has the machine's service manager start `program` as root at every boot,
// for the machine under `rootFolder` ("" for this machine).  On Linux this
// is the systemd unit "zq-norvane.service" in /etc/systemd/system, enabled
// by a link to it in multi-user.target.wants; each is made under a
// temporary name and renamed into place.  Nothing is written unless /etc,
// /etc/systemd and /etc/systemd/system exist and they and the wants folder
// are real folders of root's that no one else may write, nor for a program
// path that systemd would not start: not UTF-8, relative, or holding a
// control character, a quote or a backslash.  On macOS the launch daemon's
// item does this already, and nothing happens here.
void EnableBootService(const std::string& rootFolder, const std::string& program);

// Removes the link and the unit that EnableBootService writes, under the
// same checks of the folders.
void DisableBootService(const std::string& rootFolder);

// ---- Logs ---------------------------------------------------------------

// The activity log of the mounter and the explorer, in a folder of root's
// outside /tmp: /var/log/zq-norvane/activity.log on Linux,
// "/Library/Logs/Zq Norvane/activity.log" on macOS.
std::string ActivityLogPath();

// ---- Background work --------------------------------------------------

// Runs `work` on a background thread that nobody waits for.
void RunInBackground(std::function<void()> work);

// ---- Property lists ---------------------------------------------------

using PropertyValue = std::variant<std::string, bool, std::vector<std::string>>;
// A dictionary whose keys keep the order in which they were added.
using PropertyList = std::vector<std::pair<std::string, PropertyValue>>;

// Writes `list` as an XML property list to a temporary file in the same
// folder, with mode 0644, then renames it over `path`.  A failed write
// leaves any earlier file in place.
bool WritePropertyListAtomically(const std::string& path, const PropertyList& list);

}  // namespace platform

#endif  // ZQ_SYSTEM_PLATFORM_H_
