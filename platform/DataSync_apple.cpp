#include "platform/DataSync.h"

#include <fcntl.h>
#include <unistd.h>

namespace platform {

// fsync leaves data in the drive's cache; F_FULLFSYNC asks the drive to
// write it out, and is refused by the few that cannot.
bool SyncDeviceData(int fd) { return ::fcntl(fd, F_FULLFSYNC) == 0 || ::fsync(fd) == 0; }

}  // namespace platform
