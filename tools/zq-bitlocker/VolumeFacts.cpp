#include "tools/zq-bitlocker/VolumeFacts.h"

#include <ctime>

#include "engine/Bytes.h"
#include "engine/Conversion.h"
#include "util/Utf8.h"

using namespace bitlocker;

namespace {

// A UTF-16LE string entry as UTF-8, up to its terminating zero.
std::string Utf16Text(const CSecureBuffer& value) {
  std::string text;
  for (size_t i = 0; i + 1 < value.size(); i += 2) {
    uint32_t unit = LoadLe16(value.data() + i);
    if (unit == 0) break;
    if (unit >= 0xd800 && unit <= 0xdbff && i + 3 < value.size()) {
      uint32_t low = LoadLe16(value.data() + i + 2);
      if (low >= 0xdc00 && low <= 0xdfff) {
        unit = 0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00);
        i += 2;
      }
    }
    AppendUtf8(unit, &text);
  }
  return text;
}

}  // namespace

std::string FileTimeText(uint64_t fileTime) {
  constexpr uint64_t kTicksPerSecond = 10000000;
  constexpr uint64_t kSecondsTo1970 = 11644473600ULL;
  uint64_t seconds = fileTime / kTicksPerSecond;
  if (fileTime == 0 || seconds < kSecondsTo1970) return "-";
  std::time_t unixTime = static_cast<std::time_t>(seconds - kSecondsTo1970);
  std::tm utc;
  gmtime_r(&unixTime, &utc);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
  return text;
}

std::string VolumeDescription(const FveMetadata& metadata) {
  for (const auto& entry : metadata.entries) {
    if (entry.type == kEntryDescription && entry.valueType == kValueUnicodeString) return Utf16Text(entry.value);
  }
  return "";
}

std::string ConversionText(const CBitlockerVolume& volume) {
  std::string why;
  Conversion conversion;
  Status status = ReadConversion(volume.header(), volume.metadata(), volume.deviceSize(),
                                 &conversion, &why);
  if (status != Status::kOk) return std::string("not readable: ") + why;
  return conversion.complete ? "complete" : "in progress";
}
