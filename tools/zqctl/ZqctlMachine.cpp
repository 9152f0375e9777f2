#include "tools/zqctl/ZqctlMachine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <map>
#include <set>

#include "bitlocker/DeviceNames.h"
#include "ipc/FifoOwner.h"
#include "platform/Folders.h"
#include "platform/Mounts.h"
#include "platform/Processes.h"
#include "system/CProcessManager.h"
#include "system/CStartupManager.h"
#include "system/MainBundle.h"
#include "tools/zqctl/ZqctlRequest.h"

namespace {

constexpr int kChannelWaitTenths = 20;

// How to start the service: the program of the bundle that lies beside
// zqctl (in the build) or beside its folder (installed, zqctl in
// PREFIX/bin), where there is one.
std::string ServiceProgram() {
  const std::string inBundle = "/Zq Norvane.app/Contents/MacOS/" + std::string(kServiceProcessName);
  for (const char* up : {"", "/.."}) {
    const std::string program = MainBundlePath() + up + inBundle;
    char resolved[PATH_MAX];
    if (access(program.c_str(), X_OK) == 0 && realpath(program.c_str(), resolved) != nullptr)
      return "'" + std::string(resolved) + "'";
  }
  return "BUNDLE/Contents/MacOS/" + std::string(kServiceProcessName);
}

// The mounter's staging mounts lie in its staging root, /run/zq-mounter
// (/private/var/run/zq-mounter on macOS).
bool IsStaging(const std::string& mountPoint) { return mountPoint.find("/zq-mounter/") != std::string::npos; }

std::optional<std::pair<ino_t, long long>> ItemState(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return std::make_pair(info.st_ino, static_cast<long long>(info.st_ctime));
}

}  // namespace

std::optional<pid_t> ServicePid() {
  const std::string name = std::string(kServiceProcessName).substr(0, platform::kShortNameLength);
  std::vector<ProcessRecord> processes;
  CProcessManager::GetBSDProcessList(&processes);
  for (const ProcessRecord& process : processes)
    if (process.shortName == name) return process.pid;
  return std::nullopt;
}

std::string ServiceStartHint() { return "start it with: sudo " + ServiceProgram(); }

std::optional<ChannelProblem> ChannelRefusal(const ClientChannel& channel) {
  const std::optional<pid_t> service = ServicePid();
  if (!service) return ChannelProblem{kZqctlNoService, "the service is not running (" + ServiceStartHint() + ")"};
  for (const auto& [path, mode] : {std::make_pair(channel.toClient, R_OK), std::make_pair(channel.toService, W_OK)}) {
    const std::string refusal = FifoOwnerRefusal(path);
    if (!refusal.empty()) return ChannelProblem{kZqctlPermission, "permission denied: " + refusal};
    struct stat info;
    for (int tenth = 0; stat(path, &info) != 0 && tenth < kChannelWaitTenths; ++tenth) usleep(100 * 1000);
    if (stat(path, &info) != 0)
      return ChannelProblem{kZqctlNoService, "the service (pid " + std::to_string(*service) +
                                                 ") has not made its channel " + path};
    if (access(path, mode) != 0)
      return ChannelProblem{kZqctlPermission, "permission denied: " + std::string(path) + " belongs to uid " +
                                                  std::to_string(info.st_uid) +
                                                  "; run zqctl as the user at the machine or as root"};
  }
  return std::nullopt;
}

std::vector<MounterVolume> MounterVolumes() {
  const std::vector<MountEntry> table = platform::ReadMountTable();
  std::map<std::string, Activity> newestMount;  // by mount point
  for (Activity& activity : ReadActivities(platform::ActivityLogPath()))
    if (activity.program == "zq-mounter" && activity.status == 0) newestMount[activity.mountPoint] = std::move(activity);
  std::set<std::string> staged;
  for (const MountEntry& mount : table)
    if (mount.mounterServes && IsStaging(mount.mountPoint)) staged.insert(mount.source);
  std::vector<MounterVolume> volumes;
  for (const MountEntry& mount : table) {
    const auto line = newestMount.find(mount.mountPoint);
    const bool logged = line != newestMount.end();
    if (mount.mounterServes && !IsStaging(mount.mountPoint)) {
      const bool same = logged && line->second.device == mount.source;
      volumes.push_back({mount.source, mount.mountPoint, mount.readOnly, same ? line->second.time : ""});
    } else if (!mount.mounterServes && logged && staged.count(line->second.device) != 0) {
      volumes.push_back({line->second.device, mount.mountPoint, mount.readOnly, line->second.time});
    }
  }
  return volumes;
}

std::vector<std::string> MountPointsOf(const std::string& name) {
  std::vector<std::string> points;
  if (std::optional<std::string> volume = platform::VolumeMountPath(name)) points.push_back(*volume);
  const std::string raw = RawDevicePath(BlockDevicePath(name).c_str());
  for (const MounterVolume& volume : MounterVolumes())
    if (volume.device == raw) points.push_back(volume.mountPoint);
  return points;
}

std::string DeviceMountedAt(const std::string& mountPoint) {
  std::string source;
  if (const std::optional<MounterVolume> volume = MounterVolumeAt(mountPoint)) {
    source = volume->device;
  } else if (const std::optional<MountEntry> top = TopMountAt(platform::ReadMountTable(), mountPoint)) {
    source = top->source;
  }
  if (source.rfind("/dev/", 0) != 0) return "";
  std::string name = source.substr(5);
  // A raw device's name (macOS's rdisk2s1) stands for its block device's.
  struct stat info;
  if (name[0] == 'r' && (stat(source.c_str(), &info) != 0 || !S_ISBLK(info.st_mode))) name.erase(0, 1);
  return name;
}

std::optional<MounterVolume> MounterVolumeAt(const std::string& mountPoint) {
  for (const MounterVolume& volume : MounterVolumes())
    if (volume.mountPoint == mountPoint) return volume;
  return std::nullopt;
}

std::optional<Activity> MounterActivity(const std::string& name, const std::string& mountPoint, long long offset) {
  const std::string raw = RawDevicePath(BlockDevicePath(name).c_str());
  std::optional<Activity> newest;
  for (Activity& activity : ReadActivities(platform::ActivityLogPath(), offset))
    if (activity.program == "zq-mounter" && activity.device == raw && activity.mountPoint == mountPoint)
      newest = std::move(activity);
  return newest;
}

StartupItemsState ReadStartupItems() {
  return {ItemState(CStartupManager::kLaunchDaemonFile), ItemState(CStartupManager::kLaunchAgentFile)};
}
