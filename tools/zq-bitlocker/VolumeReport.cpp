#include "tools/zq-bitlocker/VolumeReport.h"

#include <iomanip>
#include <string>

#include "engine/Bytes.h"
#include "engine/Conversion.h"
#include "engine/KeyProtector.h"
#include "engine/SectorCipher.h"
#include "tools/zq-bitlocker/VolumeFacts.h"

using namespace bitlocker;

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
  const std::string description = VolumeDescription(metadata);
  if (!description.empty()) out << "Description:       " << description << "\n";

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
