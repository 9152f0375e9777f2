#include "ZqctlMachine.h"

#include <sys/stat.h>
#include <unistd.h>

#include "CStartupManager.h"
#include "DeviceNames.h"
#include "FifoOwner.h"
#include "Platform.h"
#include "ZqctlRequest.h"

namespace {

constexpr int kChannelWaitTenths = 20;

// How to start the service: the program of the bundle that lies beside
// zqctl, where there is one.
std::string ServiceProgram() {
  const std::string beside = platform::MainBundlePath() + "/Zq Norvane.app/Contents/MacOS/" + kServiceProcessName;
  return access(beside.c_str(), X_OK) == 0 ? "'" + beside + "'" : "BUNDLE/Contents/MacOS/" + std::string(kServiceProcessName);
}

std::optional<std::pair<ino_t, long long>> ItemState(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return std::make_pair(info.st_ino, static_cast<long long>(info.st_ctime));
}

}  // namespace

std::optional<pid_t> ServicePid() {
  const std::string name = std::string(kServiceProcessName).substr(0, platform::kShortNameLength);
  std::vector<platform::ProcessRecord> processes;
  platform::SnapshotProcesses(&processes);
  for (const platform::ProcessRecord& process : processes)
    if (process.shortName == name) return process.pid;
  return std::nullopt;
}

std::string ServiceStartHint() { return "start it with: sudo " + ServiceProgram(); }

std::optional<ChannelProblem> ChannelRefusal(const ClientChannel& channel) {
  const std::optional<pid_t> service = ServicePid();
  if (!service) return ChannelProblem{kZqctlNoService, "the service is not running (" + ServiceStartHint() + ")"};
  for (const auto& [path, access] : {std::make_pair(channel.toClient, R_OK), std::make_pair(channel.toService, W_OK)}) {
    const std::string refusal = FifoOwnerRefusal(path);
    if (!refusal.empty()) return ChannelProblem{kZqctlPermission, "permission denied: " + refusal};
    struct stat info;
    for (int tenth = 0; stat(path, &info) != 0 && tenth < kChannelWaitTenths; ++tenth) usleep(100 * 1000);
    if (stat(path, &info) != 0)
      return ChannelProblem{kZqctlNoService, "the service (pid " + std::to_string(*service) +
                                                 ") has not made its channel " + path};
    if (::access(path, access) != 0)
      return ChannelProblem{kZqctlPermission, "permission denied: " + std::string(path) + " is open to its owner, uid " +
                                                  std::to_string(info.st_uid) + " (the user at the machine), and root"};
  }
  return std::nullopt;
}

std::vector<std::string> MountPointsOf(const std::string& name) {
  std::vector<std::string> points;
  if (std::optional<std::string> volume = platform::VolumeMountPath(name)) points.push_back(*volume);
  const std::string raw = RawDevicePath(BlockDevicePath(name).c_str());
  for (const platform::MounterMount& mount : platform::MounterMounts())
    if (mount.device == raw) points.push_back(mount.mountPoint);
  return points;
}

std::optional<platform::MounterMount> MounterMountAt(const std::string& mountPoint) {
  for (const platform::MounterMount& mount : platform::MounterMounts())
    if (mount.mountPoint == mountPoint) return mount;
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
