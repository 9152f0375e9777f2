#include "platform/BootService.h"

namespace platform {

// launchd starts the service at boot from the launch daemon's item.
void EnableBootService(const std::string&, const std::string&) {}

void DisableBootService(const std::string&) {}

}  // namespace platform
