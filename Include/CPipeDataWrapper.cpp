#include "Include/CPipeDataWrapper.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Null input is a programming error in the caller: stop the process the way
// assert() does, in every build type.
#define ZQ_REQUIRE(expr)                                                                   \
  do {                                                                                     \
    if (!(expr)) {                                                                         \
      std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", __FILE__, __LINE__,     \
                   __func__, #expr);                                                       \
      std::abort();                                                                        \
    }                                                                                      \
  } while (0)

namespace {

uint32_t ReadType(const void* bytes) {
  uint32_t type;
  std::memcpy(&type, bytes, sizeof type);
  return type;
}

}  // namespace

CPipeDataWrapper::CPipeDataWrapper() : record_(nullptr) { std::memset(message_, 0, sizeof message_); }

CPipeDataWrapper::~CPipeDataWrapper() {
  std::free(record_);
  record_ = nullptr;
}

uint32_t CPipeDataWrapper::GetCommandDataLen(COMMAND_TYPE type) {
  switch (type) {
    case eCOMMAND_SET_STARTUP: return 269;
    case eCOMMAND_BITLOCKER_CHECK: return 44;
    case eCOMMAND_BITLOCKER_MOUNT: return 364;
    case eCOMMAND_BITLOCKER_EXPLORER: return 172;
    case eCOMMAND_RESULT: return 148;
    case eCOMMAND_EXIT:
    case eCOMMAND_CHECK_CONNECTION:
    case eCOMMAND_TO_FILE_EXPLORER:
    case eCOMMAND_TO_MAIN_UI: return 13;
  }
  return 0;
}

bool CPipeDataWrapper::InitializeWithCmdDataWrapper(CCommandDataWrapper<char>* pData) {
  ZQ_REQUIRE(pData);
  if (!CopyRecord(pData)) return false;
  std::memset(message_, 0, sizeof message_);
  std::memcpy(message_, pData, GetCommandDataLen(static_cast<COMMAND_TYPE>(record_->type)));
  return true;
}

bool CPipeDataWrapper::InitializeWithPipeMessage(char* message) {
  ZQ_REQUIRE(message);
  return CopyRecord(message);
}

bool CPipeDataWrapper::CopyRecord(const void* bytes) {
  const uint32_t length = GetCommandDataLen(static_cast<COMMAND_TYPE>(ReadType(bytes)));
  if (length == 0) {
    record_ = nullptr;
    return false;
  }
  // The whole record type is allocated, zero behind the command's own
  // length, so that no field read runs past the copy.
  record_ = static_cast<CCommandDataWrapper<char>*>(std::calloc(1, sizeof(CCommandDataWrapper<char>)));
  std::memcpy(record_, bytes, length);
  return true;
}
