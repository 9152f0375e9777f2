// How zqctl tells a person (or a program, with --json) what the service
// answered, and what the answer stood for on the machine.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_

#include <optional>
#include <string>
#include <vector>

#include "Include/CommandData.h"
#include "system/ActivityLog.h"
#include "tools/zqctl/ZqctlMachine.h"
#include "tools/zqctl/ZqctlRequest.h"

struct ZqctlOutcome {
  int status;           // a ZqctlStatus
  std::string message;  // one line for a person
  bool settled = true;  // startup: false while the items may still change
};

// What zqctl saw on the machine around a request.
struct ZqctlObservation {
  std::optional<Activity> activity;     // mount: the mounter's line for this request
  std::optional<bool> readOnly;         // mount: how the mount point is mounted now
  std::vector<std::string> unmounted;   // check: mount points of the device gone since the request
  std::vector<std::string> stillMounted;  // check: mount points of the device after the answer
};

// Judges the answer record the service sent to `request`: the answer code
// in words (one table; the status words come from MounterStatus.h and
// BitlockerStatus.h), with the program's own sentence where there is one.
ZqctlOutcome DescribeAnswer(const ZqctlRequest& request, const CCommandDataWrapper<char>& answer,
                            const ZqctlObservation& seen);

// Judges a startup request by its items before and after: `on` must have
// written the login item anew, `off` left neither item.  `on` for a bundle
// that is not there fails, saying what was written all the same.
ZqctlOutcome DescribeStartup(bool on, bool bundleThere, const StartupItemsState& before,
                             const StartupItemsState& after);

// One JSON object for an answer or an outcome.
std::string AnswerJson(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer,
                       const ZqctlObservation& seen, const ZqctlOutcome& outcome);

// One line describing a block the service sent unasked (listen).
std::string DescribeBlock(uint32_t msgId, const CCommandDataWrapper<char>& record, bool json);

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLANSWER_H_
