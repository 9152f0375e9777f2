// How zqctl tells a person (or a program, with --json) what the service
// answered.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_

#include <string>

#include "CommandData.h"
#include "ZqctlRequest.h"

struct ZqctlOutcome {
  int status;           // a ZqctlStatus
  std::string message;  // one line for a person
};

// Judges the answer record the service sent to `request`.
ZqctlOutcome DescribeAnswer(const ZqctlRequest& request, const CCommandDataWrapper<char>& answer);

// One JSON object for an answer or an outcome.
std::string AnswerJson(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer,
                       const ZqctlOutcome& outcome);

// One line describing a block the service sent unasked (listen).
std::string DescribeBlock(uint32_t msgId, const CCommandDataWrapper<char>& record, bool json);

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_
