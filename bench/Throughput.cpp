#include "bench/Throughput.h"

#include <chrono>
#include <vector>

namespace {

constexpr size_t kChunk = 8 * 1024 * 1024;

}  // namespace

std::optional<double> MeasureReadThroughput(const ReadFunction& read, uint64_t size) {
  std::vector<uint8_t> buffer(kChunk);
  auto start = std::chrono::steady_clock::now();
  for (uint64_t offset = 0; offset < size;) {
    ssize_t got = read(offset, buffer.data(), buffer.size());
    if (got <= 0) return std::nullopt;
    offset += static_cast<uint64_t>(got);
  }
  std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return static_cast<double>(size) / elapsed.count() / 1e6;
}
