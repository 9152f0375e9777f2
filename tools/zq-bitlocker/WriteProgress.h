// How far a long write has come (dump's copy, create's wipe), told on
// standard error: a line kept up to date in place on a terminal, JSON lines
// for programs, and a summary at the end.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_WRITEPROGRESS_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_WRITEPROGRESS_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

enum class ProgressStyle {
  kSummary,   // only the summary at the end
  kTerminal,  // "52.4 MB / 104.9 MB (50%)  131.0 MB/s  0:01 left", redrawn after a carriage return
  kJson,      // {"phase":"dump","done":N,"total":N,"bytes_per_second":N,"seconds_left":N} a line
};

// What is being written: the phase named in JSON lines and the verb of the
// summary ("zq-bitlocker: dumped 4096 bytes in ...").
struct WriteWork {
  const char* phase;
  const char* verb;
};
constexpr WriteWork kDumping{"dump", "dumped"};
constexpr WriteWork kWiping{"wipe", "wiped"};

class WriteProgress {
 public:
  using Clock = std::chrono::steady_clock;

  // Starts counting at `start` towards `total` bytes.
  WriteProgress(WriteWork work, uint64_t total, ProgressStyle style, std::ostream& out,
                Clock::time_point start = Clock::now());

  // `done` bytes are written by `now`.  Shows it when half a second has
  // passed since it last did.
  void Update(uint64_t done, Clock::time_point now = Clock::now());

  // The writing ended, after `done` bytes: the summary, or in JSON a last
  // line with "finished" (true when every byte was written) and "seconds".
  void Finish(uint64_t done, Clock::time_point now = Clock::now());

 private:
  void ShowTerminal(uint64_t done, double seconds);
  void ShowJson(uint64_t done, double seconds, bool last);

  const WriteWork work_;
  const uint64_t total_;
  const ProgressStyle style_;
  std::ostream& out_;
  const Clock::time_point start_;
  std::optional<Clock::time_point> shown_;
  size_t lineLength_ = 0;  // of the terminal line, to blank what a shorter one leaves
};

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_WRITEPROGRESS_H_
