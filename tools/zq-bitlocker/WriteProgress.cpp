#include "tools/zq-bitlocker/WriteProgress.h"

#include <cstdio>

#include "tools/zq-bitlocker/SizeText.h"
#include "util/JsonWriter.h"

namespace {

constexpr auto kInterval = std::chrono::milliseconds(500);

double Rate(uint64_t bytes, double seconds) { return seconds > 0 ? static_cast<double>(bytes) / seconds : 0; }

}  // namespace

WriteProgress::WriteProgress(WriteWork work, uint64_t total, ProgressStyle style, std::ostream& out,
                             Clock::time_point start)
    : work_(work), total_(total), style_(style), out_(out), start_(start) {}

void WriteProgress::Update(uint64_t done, Clock::time_point now) {
  if (style_ == ProgressStyle::kSummary || (shown_ && now - *shown_ < kInterval)) return;
  shown_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  if (style_ == ProgressStyle::kTerminal) {
    ShowTerminal(done, seconds);
  } else {
    ShowJson(done, seconds, false);
  }
}

void WriteProgress::ShowTerminal(uint64_t done, double seconds) {
  const double rate = Rate(done, seconds);
  std::string line = SizeText(done) + " / " + SizeText(total_);
  char text[64];
  std::snprintf(text, sizeof(text), " (%u%%)  %.1f MB/s", total_ ? static_cast<unsigned>(done * 100 / total_) : 100,
                rate / 1e6);
  line += text;
  if (rate > 0) line += "  " + DurationText(static_cast<uint64_t>((total_ - done) / rate)) + " left";
  const size_t length = line.size();
  if (length < lineLength_) line.append(lineLength_ - length, ' ');
  lineLength_ = length;
  out_ << '\r' << line << std::flush;
}

void WriteProgress::ShowJson(uint64_t done, double seconds, bool last) {
  const double rate = Rate(done, seconds);
  JsonWriter json(out_);
  json.BeginObject().Key("phase").String(work_.phase).Key("done").Number(done).Key("total").Number(total_);
  json.Key("bytes_per_second").Number(static_cast<uint64_t>(rate));
  if (rate > 0 || done == total_) {
    json.Key("seconds_left").Number(done == total_ ? 0 : static_cast<uint64_t>((total_ - done) / rate));
  }
  if (last) json.Key("seconds").Decimal(seconds).Key("finished").Bool(done == total_);
  json.EndObject();
  out_ << std::endl;
}

void WriteProgress::Finish(uint64_t done, Clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - start_).count();
  if (style_ == ProgressStyle::kJson) return ShowJson(done, seconds, true);
  if (style_ == ProgressStyle::kTerminal && lineLength_ > 0) out_ << '\r' << std::string(lineLength_, ' ') << '\r';
  char text[128];
  std::snprintf(text, sizeof(text), "zq-bitlocker: %s %llu bytes in %.1f s, %.1f MB/s\n",
                done == total_ ? work_.verb : "stopped after",
                static_cast<unsigned long long>(done), seconds, Rate(done, seconds) / 1e6);
  out_ << text << std::flush;
}
