#include "platform/Folders.h"

namespace platform {

std::vector<std::string> VolumesFolders() { return {"/media", "/run/media", "/mnt"}; }

std::string ActivityLogPath() { return "/var/log/zq-norvane/activity.log"; }

const char kStagingRoot[] = "/run/zq-mounter";

}  // namespace platform
