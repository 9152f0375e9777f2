#include "VolumeReport.h"

#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

#include "Bytes.h"
#include "Conversion.h"
#include "KeyProtector.h"
#include "SectorCipher.h"

using namespace bitlocker;

namespace {

// FILETIME (100 ns ticks since 1601) as UTC text.
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
    if (unit < 0x80) {
      text.push_back(static_cast<char>(unit));
    } else if (unit < 0x800) {
      text.push_back(static_cast<char>(0xc0 | (unit >> 6)));
      text.push_back(static_cast<char>(0x80 | (unit & 0x3f)));
    } else if (unit < 0x10000) {
      text.push_back(static_cast<char>(0xe0 | (unit >> 12)));
      text.push_back(static_cast<char>(0x80 | ((unit >> 6) & 0x3f)));
      text.push_back(static_cast<char>(0x80 | (unit & 0x3f)));
    } else {
      text.push_back(static_cast<char>(0xf0 | (unit >> 18)));
      text.push_back(static_cast<char>(0x80 | ((unit >> 12) & 0x3f)));
      text.push_back(static_cast<char>(0x80 | ((unit >> 6) & 0x3f)));
      text.push_back(static_cast<char>(0x80 | (unit & 0x3f)));
    }
  }
  return text;
}

// Whether the engine reads the volume's conversion, and how far it has come.
std::string ConversionText(const CBitlockerVolume& volume) {
  std::string why;
  Conversion conversion;
  Status status = ReadConversion(volume.header(), volume.metadata(), volume.deviceSize(),
                                 &conversion, &why);
  if (status != Status::kOk) return std::string("not readable: ") + why;
  return conversion.complete ? "complete" : "in progress";
}

}  // namespace

void PrintVolumeReport(const CBitlockerVolume& volume, std::ostream& out) {
  const VolumeHeader& header = volume.header();
  const FveMetadataBlock& block = volume.metadata();
  const FveMetadata& metadata = block.metadata;

  out << "Volume:            " << VolumeKindName(header.kind) << "\n";
  if (header.kind != VolumeKind::kVista) {
    out << "Header identifier: " << header.guid.ToString() << " ("
        << HeaderIdentifierName(header.identifier) << ")\n";
  }
  if (header.identifier == HeaderIdentifier::kEncryptOnWrite) {
    out << "Encrypt-on-write information: " << Hex(header.encryptOnWriteOffsets[0]) << "  "
        << Hex(header.encryptOnWriteOffsets[1]) << "\n";
  }
  out << "Volume identifier: " << metadata.volumeId.ToString() << "\n";
  out << "Device size:       " << volume.deviceSize() << " bytes\n";
  out << "Bytes per sector:  " << header.bytesPerSector << "\n";
  out << "Encryption method: " << EncryptionMethodName(metadata.encryptionMethod) << "\n";
  out << "Created:           " << FileTimeText(metadata.creationTime) << "\n";
  out << "Metadata version:  " << block.version << "\n";
  out << "State:             " << ConversionStateName(block.state) << " (" << block.state << ")";
  if (block.version == 2) {
    out << ", next " << ConversionStateName(block.nextState) << " (" << block.nextState << ")\n";
    out << "Encrypted size:    " << block.encryptedSize << " bytes\n";
    out << "Conversion:        " << ConversionText(volume) << "\n";
  } else {
    out << "\n";
  }
  for (const auto& entry : metadata.entries) {
    if (entry.type == kEntryDescription && entry.valueType == kValueUnicodeString) {
      out << "Description:       " << Utf16Text(entry.value) << "\n";
    }
  }

  out << "Metadata copies:   " << volume.copies().blocks.size() << " usable";
  for (uint64_t offset : block.metadataOffsets) out << "  " << Hex(offset);
  out << "\n";
  if (!volume.copies().problems.empty()) out << volume.copies().problems;

  out << "Key protectors:\n";
  for (const auto& protector : ListKeyProtectors(metadata)) {
    out << "  " << protector.id.ToString() << "  " << std::left << std::setw(18)
        << ProtectionName(protector.protection) << std::right << "  modified "
        << FileTimeText(protector.modified) << "\n";
  }
}
