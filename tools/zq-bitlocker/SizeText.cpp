#include "tools/zq-bitlocker/SizeText.h"

#include <cstdio>

std::string SizeText(uint64_t bytes) {
  static const char* const kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1000;
  size_t unit = 0;
  while (value >= 999.95 && unit + 1 < sizeof(kUnits) / sizeof(kUnits[0])) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof(text), unit >= 2 ? "%.2f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string DurationText(uint64_t seconds) {
  char text[32];
  if (seconds >= 3600) {
    std::snprintf(text, sizeof(text), "%llu:%02u:%02u", static_cast<unsigned long long>(seconds / 3600),
                  static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
  } else {
    std::snprintf(text, sizeof(text), "%u:%02u", static_cast<unsigned>(seconds / 60),
                  static_cast<unsigned>(seconds % 60));
  }
  return text;
}
