// The machine's AES limit for a cipher, as `openssl speed -evp` reports it.
#ifndef ZQ_BENCH_OPENSSLSPEED_H_
#define ZQ_BENCH_OPENSSLSPEED_H_

#include <optional>
#include <string>

// Runs `openssl speed -evp <cipher> -bytes <blockBytes>` (with -decrypt
// and -multi when asked) and returns its figure in MB/s; nullopt when the
// openssl command is missing or prints nothing readable.
std::optional<double> OpensslSpeed(const std::string& cipher, bool decrypt, unsigned blockBytes,
                                   unsigned processes);

#endif  // ZQ_BENCH_OPENSSLSPEED_H_
