#include "tools/zqctl/ZqctlStatus.h"

#include <pwd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "platform/Processes.h"
#include "platform/Users.h"
#include "tools/zqctl/ZqctlAnswer.h"
#include "tools/zqctl/ZqctlMachine.h"
#include "tools/zqctl/ZqctlRequest.h"
#include "util/JsonWriter.h"

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

}  // namespace

int PrintStatus(bool json) {
  const std::optional<pid_t> pid = ServicePid();
  const std::optional<time_t> started = pid ? platform::ProcessStartTime(*pid) : std::nullopt;
  const std::string since = started ? LocalTime(*started) : "";
  const uid_t user = platform::ConsoleUser();
  const std::vector<MounterVolume> volumes = MounterVolumes();
  if (json) {
    std::string out = "{\"running\":" + std::string(pid ? "true" : "false");
    if (pid) out += ",\"pid\":" + std::to_string(*pid);
    if (!since.empty()) out += ",\"since\":" + JsonQuoted(since);
    out += ",\"user\":{\"uid\":" + std::to_string(user) + ",\"name\":" + JsonQuoted(UserName(user)) + "},\"volumes\":[";
    for (size_t i = 0; i < volumes.size(); ++i) {
      const MounterVolume& volume = volumes[i];
      out += std::string(i == 0 ? "" : ",") + "{\"device\":" + JsonQuoted(volume.device) +
             ",\"mount_point\":" + JsonQuoted(volume.mountPoint) +
             ",\"read_only\":" + (volume.readOnly ? "true" : "false");
      out += (volume.since.empty() ? "" : ",\"since\":" + JsonQuoted(volume.since)) + "}";
    }
    std::printf("%s]}\n", out.c_str());
  } else {
    if (pid)
      std::printf("service: running, pid %d%s\n", static_cast<int>(*pid), since.empty() ? "" : (", since " + since).c_str());
    else
      std::printf("service: not running (%s)\n", ServiceStartHint().c_str());
    std::printf("serves: %s (uid %u), the user at the machine\n", UserName(user).c_str(), static_cast<unsigned>(user));
    std::printf("volumes mounted by the mounter:%s\n", volumes.empty() ? " none" : "");
    for (const MounterVolume& volume : volumes)
      std::printf("  %s at %s: %s%s\n", volume.device.c_str(), volume.mountPoint.c_str(),
                  volume.readOnly ? "read-only" : "read-write",
                  volume.since.empty() ? "" : (", since " + volume.since).c_str());
  }
  return pid ? kZqctlSuccess : kZqctlNoService;
}
