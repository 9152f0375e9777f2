#include "ZqctlStatus.h"

#include <pwd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "ActivityLog.h"
#include "Platform.h"
#include "ZqctlAnswer.h"
#include "ZqctlMachine.h"
#include "ZqctlRequest.h"

namespace {

std::string LocalTime(time_t when) {
  struct tm local = {};
  localtime_r(&when, &local);
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

std::string UserName(uid_t uid) {
  const passwd* user = getpwuid(uid);
  return user != nullptr ? user->pw_name : "uid " + std::to_string(uid);
}

struct Volume {
  platform::MounterMount mount;
  std::string since;  // the time of the mounter's line for it; empty when not found
};

std::vector<Volume> MountedVolumes() {
  const std::vector<Activity> activities = ReadActivities(platform::ActivityLogPath());
  std::vector<Volume> volumes;
  for (const platform::MounterMount& mount : platform::MounterMounts()) {
    Volume volume{mount, ""};
    for (const Activity& activity : activities)
      if (activity.program == "zq-mounter" && activity.status == 0 && activity.device == mount.device &&
          activity.mountPoint == mount.mountPoint)
        volume.since = activity.time;
    volumes.push_back(volume);
  }
  return volumes;
}

}  // namespace

int PrintStatus(bool json) {
  const std::optional<pid_t> pid = ServicePid();
  const std::optional<time_t> started = pid ? platform::ProcessStartTime(*pid) : std::nullopt;
  const std::string since = started ? LocalTime(*started) : "";
  const uid_t user = platform::ConsoleUser();
  const std::vector<Volume> volumes = MountedVolumes();
  if (json) {
    std::string out = "{\"running\":" + std::string(pid ? "true" : "false");
    if (pid) out += ",\"pid\":" + std::to_string(*pid);
    if (!since.empty()) out += ",\"since\":" + JsonString(since);
    out += ",\"user\":{\"uid\":" + std::to_string(user) + ",\"name\":" + JsonString(UserName(user)) + "},\"volumes\":[";
    for (size_t i = 0; i < volumes.size(); ++i) {
      const Volume& volume = volumes[i];
      out += std::string(i == 0 ? "" : ",") + "{\"device\":" + JsonString(volume.mount.device) +
             ",\"mountPoint\":" + JsonString(volume.mount.mountPoint) +
             ",\"readOnly\":" + (volume.mount.readOnly ? "true" : "false");
      out += (volume.since.empty() ? "" : ",\"since\":" + JsonString(volume.since)) + "}";
    }
    std::printf("%s]}\n", out.c_str());
  } else {
    if (pid)
      std::printf("service: running, pid %d%s\n", static_cast<int>(*pid), since.empty() ? "" : (", since " + since).c_str());
    else
      std::printf("service: not running (%s)\n", ServiceStartHint().c_str());
    std::printf("serves: %s (uid %u), the user at the machine\n", UserName(user).c_str(), static_cast<unsigned>(user));
    std::printf("volumes mounted by the mounter:%s\n", volumes.empty() ? " none" : "");
    for (const Volume& volume : volumes)
      std::printf("  %s at %s: %s%s\n", volume.mount.device.c_str(), volume.mount.mountPoint.c_str(),
                  volume.mount.readOnly ? "read-only" : "read-write",
                  volume.since.empty() ? "" : (", since " + volume.since).c_str());
  }
  return pid ? kZqctlSuccess : kZqctlNoService;
}
