// Timing a whole-volume read.
#ifndef ZQ_BENCH_THROUGHPUT_H_
#define ZQ_BENCH_THROUGHPUT_H_

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>

// Reads bytes [0, size) through `read` in large chunks and returns MB/s
// (10^6 bytes per second); nullopt when a read fails or ends early.
using ReadFunction = std::function<ssize_t(uint64_t offset, void* buffer, size_t length)>;
std::optional<double> MeasureReadThroughput(const ReadFunction& read, uint64_t size);

#endif  // ZQ_BENCH_THROUGHPUT_H_
