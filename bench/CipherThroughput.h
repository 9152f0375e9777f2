// Timing the engine's sector ciphers in memory, apart from any device.
#ifndef ZQ_BENCH_CIPHERTHROUGHPUT_H_
#define ZQ_BENCH_CIPHERTHROUGHPUT_H_

#include <cstdint>
#include <optional>

// MB/s of decrypting, or encrypting, sectors of `method` with a random key,
// shared out over `lanes` threads as a volume shares out a large read;
// nullopt when the engine has no such cipher.
std::optional<double> MeasureCipherThroughput(uint16_t method, uint32_t sectorSize, unsigned lanes,
                                              bool encrypt);

#endif  // ZQ_BENCH_CIPHERTHROUGHPUT_H_
