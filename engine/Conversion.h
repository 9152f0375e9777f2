// How far a volume's conversion has come, as its metadata records it.
//
// A volume is encrypted from its start up to the encrypted size and lies on
// the device as it is beyond that.  Encryption runs front to back and
// decryption back to front, so the rule holds in both directions and while
// a conversion is paused.
#ifndef ZQ_ENGINE_CONVERSION_H_
#define ZQ_ENGINE_CONVERSION_H_

#include <cstdint>
#include <string>

#include "bitlocker/BitlockerStatus.h"
#include "engine/FveMetadata.h"
#include "engine/VolumeHeader.h"

namespace bitlocker {

struct Conversion {
  uint16_t state = 0;
  uint16_t nextState = 0;
  uint64_t encryptedSize = 0;  // bytes from the volume's start, whole sectors
  bool complete = false;       // the state is "encrypted"
};

// Reads the conversion recorded in a version 2 metadata block of a volume
// of `volumeSize` bytes.  Refuses, with the reason, states it does not
// know, fields that contradict each other, and an encrypt-on-write volume
// caught part way whose header names the information that records sectors
// written encrypted past the encrypted size.
Status ReadConversion(const VolumeHeader& header, const FveMetadataBlock& block,
                      uint64_t volumeSize, Conversion* conversion, std::string* why);

const char* ConversionStateName(uint16_t state);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CONVERSION_H_
