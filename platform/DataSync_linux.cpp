#include "platform/DataSync.h"

#include <unistd.h>

namespace platform {

bool SyncDeviceData(int fd) { return ::fdatasync(fd) == 0; }

}  // namespace platform
