// Reading whole volumes in tests.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_

#include <cstdint>
#include <vector>

#include "IVolume.h"

// The whole volume, read front to back in `chunk`-byte reads; empty when a
// read fails or the volume ends early.
std::vector<uint8_t> ReadWholeVolume(IVolume& volume, size_t chunk = 4 * 1024 * 1024);

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
