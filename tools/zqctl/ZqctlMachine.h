// What zqctl looks at on the machine itself, around a request: the
// service's process and channel, the mounts of a device, the startup items
// and the activity log.  The service's answers are bare numbers; these tell
// zqctl what they stood for.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLMACHINE_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLMACHINE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Include/ClientChannels.h"
#include "system/ActivityLog.h"

// The running service's process, found by its exact short name.
std::optional<pid_t> ServicePid();

// How to start the service: "start it with: sudo PROGRAM".
std::string ServiceStartHint();

// Why zqctl cannot use `channel`, with the exit status to end with: the
// service is not running (kZqctlNoService; also when it has not made its
// FIFOs within two seconds), or a FIFO is another user's or closed to this
// one (kZqctlPermission).  nullopt when the channel can be used.  zqctl
// never makes the FIFOs itself: the service does.
struct ChannelProblem {
  int status;
  std::string message;
};
std::optional<ChannelProblem> ChannelRefusal(const ClientChannel& channel);

// A volume the mounter serves.
struct MounterVolume {
  std::string device;      // the device the mounter was given: "/dev/loop3"
  std::string mountPoint;
  bool readOnly;
  std::string since;       // the time of the mounter's activity-log line; empty when there is none
};

// Every volume the mounter serves: its own FUSE mounts (the option raw),
// and each file system mounted from the file of one in its staging folder,
// which the mounter's activity-log line for that mount point traces back
// to the device, whatever driver mounted it.  Staging mounts themselves
// are left out.
std::vector<MounterVolume> MounterVolumes();

// Where anything of /dev/<name> is mounted: the volume itself, and what the
// mounter serves from it.
std::vector<std::string> MountPointsOf(const std::string& name);

// The name under /dev of the device whose volume is mounted at
// `mountPoint`, by the mounter or straight from the device; empty when
// none is.
std::string DeviceMountedAt(const std::string& mountPoint);

// The mounter's volume at `mountPoint`, if there is one.
std::optional<MounterVolume> MounterVolumeAt(const std::string& mountPoint);

// The newest line the mounter wrote for /dev/<name> at `mountPoint` in the
// activity log from byte `offset` on.
std::optional<Activity> MounterActivity(const std::string& name, const std::string& mountPoint, long long offset);

// The state of the launchd items, to be compared before and after a
// startup request.
struct StartupItemsState {
  std::optional<std::pair<ino_t, long long>> daemon, agent;  // inode and change time, when there
  bool operator==(const StartupItemsState& other) const { return daemon == other.daemon && agent == other.agent; }
};
StartupItemsState ReadStartupItems();

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLMACHINE_H_
