// How zq-bitlocker reports a failure: one line on standard error, and the
// status as its exit status.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_FAILURE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_FAILURE_H_

#include <iostream>
#include <string>

#include "bitlocker/BitlockerStatus.h"

// "zq-bitlocker: WHAT: STATUS: WHY"; returns `status`.
inline int Fail(bitlocker::Status status, const std::string& what, const std::string& why) {
  std::cerr << "zq-bitlocker: " << what << ": " << bitlocker::StatusName(status);
  if (!why.empty()) std::cerr << ": " << why;
  std::cerr << "\n";
  return status;
}

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_FAILURE_H_
