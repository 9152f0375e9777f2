// Timing sequential writes of an unlocked volume through a mounted file.
#ifndef ZQ_BENCH_WRITETHROUGHPUT_H_
#define ZQ_BENCH_WRITETHROUGHPUT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The size of each write.
constexpr uint64_t kWriteChunk = 1024 * 1024;

// The offsets, in order, of the kWriteChunk-sized pieces of the unlocked
// volume on `image` that hold none of BitLocker's own areas (which the
// mounter refuses to write).  Empty, with the reason in *why, when the
// volume does not open with `credential`.
std::vector<uint64_t> WritableChunks(const std::string& image, const std::string& credential, std::string* why);

// Writes kWriteChunk bytes at each of `offsets` through `fd`, then makes
// them durable with fdatasync; returns MB/s (10^6 bytes per second) over
// the whole, or nullopt when a write fails.
std::optional<double> MeasureWriteThroughput(int fd, const std::vector<uint64_t>& offsets);

#endif  // ZQ_BENCH_WRITETHROUGHPUT_H_
