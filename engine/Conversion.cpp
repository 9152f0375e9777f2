#include "engine/Conversion.h"

#include "engine/Bytes.h"

namespace bitlocker {
namespace {

bool KnownState(uint16_t state) { return state >= kStateDecrypted && state <= kStatePaused; }

std::string Number(uint64_t value) { return std::to_string(value); }

std::string StateText(uint16_t state) {
  return Number(state) + " (" + ConversionStateName(state) + ")";
}

}  // namespace

Status ReadConversion(const VolumeHeader& header, const FveMetadataBlock& block,
                      uint64_t volumeSize, Conversion* conversion, std::string* why) {
  Conversion result;
  result.state = block.state;
  result.nextState = block.nextState;
  result.encryptedSize = block.encryptedSize;
  result.complete = block.state == kStateEncrypted;

  if (!KnownState(block.state)) {
    *why = "unknown conversion state " + Number(block.state);
    return Status::kUnsupported;
  }
  if (!KnownState(block.nextState)) {
    *why = "unknown next conversion state " + Number(block.nextState);
    return Status::kUnsupported;
  }
  if (block.state == kStateEncryptOnWriteStarted) {
    *why = "conversion state " + StateText(block.state) +
           ", whose extent of encryption this engine does not know how to read";
    return Status::kUnsupported;
  }
  if (block.encryptedSize % header.bytesPerSector != 0) {
    *why = "the encrypted size " + Number(block.encryptedSize) + " is not a whole number of " +
           Number(header.bytesPerSector) + "-byte sectors";
    return Status::kUnsupported;
  }
  if (block.encryptedSize > volumeSize) {
    *why = "the metadata records " + Number(block.encryptedSize) +
           " bytes as encrypted, beyond the volume's " + Number(volumeSize);
    return Status::kUnsupported;
  }
  if (block.state == kStateDecrypted && block.encryptedSize != 0) {
    *why = "the conversion state says decrypted, yet " + Number(block.encryptedSize) +
           " bytes are recorded as encrypted";
    return Status::kUnsupported;
  }
  if (block.state == kStateEncrypted && block.encryptedSize == 0) {
    *why = "the conversion state says encrypted, yet no bytes are recorded as encrypted";
    return Status::kUnsupported;
  }
  const auto& eow = header.encryptOnWriteOffsets;
  if (header.identifier == HeaderIdentifier::kEncryptOnWrite && !result.complete &&
      (eow[0] != 0 || eow[1] != 0)) {
    *why = "an encrypt-on-write volume part way through its conversion (state " +
           StateText(block.state) + ", " + Number(block.encryptedSize) + " of " +
           Number(volumeSize) +
           " bytes encrypted): sectors written since it began may lie encrypted past that "
           "point, as recorded in the encrypt-on-write information at " +
           Hex(eow[0]) + " and " + Hex(eow[1]) + ", which this engine does not read";
    return Status::kUnsupported;
  }
  *conversion = result;
  return Status::kOk;
}

const char* ConversionStateName(uint16_t state) {
  switch (state) {
    case kStateDecrypted:
      return "decrypted";
    case kStateConverting:
      return "converting";
    case kStateEncryptOnWriteStarted:
      return "encrypt-on-write started";
    case kStateEncrypted:
      return "encrypted";
    case kStatePaused:
      return "conversion paused";
  }
  return "unknown";
}

}  // namespace bitlocker
