#include "bench/OpensslSpeed.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

constexpr int kSeconds = 2;

}  // namespace

std::optional<double> OpensslSpeed(const std::string& cipher, bool decrypt, unsigned blockBytes,
                                   unsigned processes) {
  std::ostringstream command;
  command << "openssl speed -evp " << cipher << " -bytes " << blockBytes << " -seconds " << kSeconds;
  if (decrypt) command << " -decrypt";
  if (processes > 1) command << " -multi " << processes;
  command << " 2>/dev/null";
  FILE* pipe = ::popen(command.str().c_str(), "r");
  if (!pipe) return std::nullopt;

  // The result line starts with the cipher's name (any case, or "evp" with
  // -multi) and ends with the figure in thousands of bytes per second.
  std::optional<double> result;
  char line[512];
  while (std::fgets(line, sizeof(line), pipe)) {
    std::istringstream words(line);
    std::string name, figure;
    words >> name >> figure;
    if (figure.empty() || figure.back() != 'k') continue;
    char* end = nullptr;
    double thousands = std::strtod(figure.c_str(), &end);
    if (end != figure.c_str() + figure.size() - 1) continue;
    result = thousands * 1000 / 1e6;
  }
  ::pclose(pipe);
  return result;
}
