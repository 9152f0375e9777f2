// Feeds arbitrary received payloads to the record decoder.
#include <cstring>

#include "Include/CPipeDataWrapper.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  char payload[508] = {};
  std::memcpy(payload, data, size < sizeof payload ? size : sizeof payload);
  CPipeDataWrapper wrapper;
  if (wrapper.InitializeWithPipeMessage(payload)) {
    const CCommandDataWrapper<char>* record = wrapper.getCommandDataWrapper();
    const uint32_t length = CPipeDataWrapper::GetCommandDataLen(static_cast<COMMAND_TYPE>(record->type));
    if (length == 0 || std::memcmp(record, payload, length) != 0) __builtin_trap();
  }
  return 0;
}
