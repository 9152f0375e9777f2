#include <string>

#include "engine/Conversion.h"
#include "engine/KeyProtector.h"
#include "engine/SectorCipher.h"
#include "tools/zq-bitlocker/VolumeFacts.h"
#include "tools/zq-bitlocker/VolumeReport.h"
#include "util/JsonWriter.h"

using namespace bitlocker;

void PrintVolumeReportJson(const CBitlockerVolume& volume, std::ostream& out) {
  const VolumeHeader& header = volume.header();
  const FveMetadataBlock& block = volume.metadata();
  const FveMetadata& metadata = block.metadata;

  JsonWriter json(out);
  json.BeginObject().Key("volume").String(VolumeKindName(header.kind));
  if (header.kind != VolumeKind::kVista) {
    json.Key("header_identifier").String(header.guid.ToString());
    json.Key("header_identifier_kind").String(HeaderIdentifierName(header.identifier));
  }
  if (header.identifier == HeaderIdentifier::kEncryptOnWrite) {
    json.Key("encrypt_on_write_information").BeginArray();
    for (uint64_t offset : header.encryptOnWriteOffsets) json.Number(offset);
    json.EndArray();
  }
  json.Key("volume_identifier").String(metadata.volumeId.ToString());
  json.Key("device_size").Number(volume.deviceSize());
  json.Key("bytes_per_sector").Number(header.bytesPerSector);
  json.Key("encryption_method").String(EncryptionMethodName(metadata.encryptionMethod));
  json.Key("created").String(FileTimeText(metadata.creationTime));
  json.Key("metadata_version").Number(block.version);
  json.Key("state").String(ConversionStateName(block.state)).Key("state_number").Number(block.state);
  if (block.version == 2) {
    json.Key("next_state").String(ConversionStateName(block.nextState));
    json.Key("next_state_number").Number(block.nextState);
    json.Key("encrypted_size").Number(block.encryptedSize);
    json.Key("conversion").String(ConversionText(volume));
  }
  json.Key("description").String(VolumeDescription(metadata));

  json.Key("usable_metadata_copies").Number(volume.copies().blocks.size());
  json.Key("metadata_offsets").BeginArray();
  for (uint64_t offset : block.metadataOffsets) json.Number(offset);
  json.EndArray();
  json.Key("metadata_problems").String(volume.copies().problems);

  json.Key("key_protectors").BeginArray();
  for (const auto& protector : ListKeyProtectors(metadata)) {
    json.BeginObject().Key("identifier").String(protector.id.ToString());
    json.Key("protection").String(ProtectionName(protector.protection));
    json.Key("modified").String(FileTimeText(protector.modified)).EndObject();
  }
  json.EndArray().EndObject();
  out << "\n";
}
