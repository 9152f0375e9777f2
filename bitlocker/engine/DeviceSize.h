// The size of a disk device, the one question about devices whose answer
// differs between operating systems.  One implementation file per platform.
#ifndef ZQ_BITLOCKER_ENGINE_DEVICESIZE_H_
#define ZQ_BITLOCKER_ENGINE_DEVICESIZE_H_

#include <cstdint>
#include <optional>

namespace bitlocker {

// Size in bytes of the disk device open on `fd`; nullopt with errno set
// when the descriptor is not a disk that answers.
std::optional<uint64_t> BlockDeviceSize(int fd);

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_DEVICESIZE_H_
