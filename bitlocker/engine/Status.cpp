#include "Status.h"

namespace bitlocker {

const char* StatusName(Status status) {
  switch (status) {
    case Status::kOk:
      return "ok";
    case Status::kNotBitlocker:
      return "not a BitLocker volume";
    case Status::kWrongCredential:
      return "wrong credential";
    case Status::kUnsupported:
      return "unsupported volume";
    case Status::kIoError:
      return "I/O error";
  }
  return "unknown";
}

}  // namespace bitlocker
