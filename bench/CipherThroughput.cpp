#include "bench/CipherThroughput.h"

#include <openssl/rand.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "bench/Throughput.h"
#include "engine/CWorkerPool.h"
#include "engine/SectorCipher.h"

namespace {

constexpr uint64_t kBytes = 512 * 1024 * 1024;
constexpr size_t kPieceSize = 256 * 1024;

}  // namespace

std::optional<double> MeasureCipherThroughput(uint16_t method, uint32_t sectorSize, unsigned lanes,
                                              bool encrypt) {
  bitlocker::CSecureBuffer key(64);
  if (RAND_bytes(key.data(), static_cast<int>(key.size())) != 1) return std::nullopt;
  std::vector<std::unique_ptr<bitlocker::ISectorCipher>> ciphers;
  for (unsigned lane = 0; lane < lanes; ++lane) {
    ciphers.push_back(bitlocker::MakeSectorCipher(method, key, sectorSize));
    if (!ciphers.back()) return std::nullopt;
  }
  bitlocker::CWorkerPool pool(lanes);
  return MeasureReadThroughput(
      [&](uint64_t offset, void* buffer, size_t length) -> ssize_t {
        auto* bytes = static_cast<uint8_t*>(buffer);
        std::atomic<bool> ok{true};
        pool.Run((length + kPieceSize - 1) / kPieceSize, [&](size_t index, unsigned lane) {
          size_t start = index * kPieceSize;
          size_t count = std::min(kPieceSize, length - start) / sectorSize;
          auto& cipher = *ciphers[lane];
          uint8_t* piece = bytes + start;
          uint64_t at = offset + start;
          if (!(encrypt ? cipher.Encrypt(at, piece, count) : cipher.Decrypt(at, piece, count))) {
            ok = false;
          }
        });
        return ok.load() ? static_cast<ssize_t>(length) : -1;
      },
      kBytes);
}
