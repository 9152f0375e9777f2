#include "platform/Folders.h"

namespace platform {

std::vector<std::string> VolumesFolders() { return {"/Volumes"}; }

std::string ActivityLogPath() { return "/Library/Logs/Zq Norvane/activity.log"; }

const char kStagingRoot[] = "/var/run/zq-mounter";

}  // namespace platform
