#include "tools/zqctl/ZqctlAnswer.h"

#include <cstdio>
#include <cstring>

#include "bitlocker/BitlockerStatus.h"
#include "bitlocker/CBitlockerExplorer.h"
#include "bitlocker/MounterStatus.h"
#include "util/JsonWriter.h"

namespace {

// What the mount command answers when the mounter could not be started, as
// a shell would.
constexpr uint32_t kMounterNotStarted = 127;

// How an answer reads: its exit status and its cause in words; a null
// cause is the status's own words from MounterStatus.h (mount) or
// BitlockerStatus.h (explore).  Results not listed are failures.
struct Wording {
  COMMAND_TYPE command;
  uint32_t result;
  int status;
  const char* cause;
};

constexpr Wording kWordings[] = {
    {eCOMMAND_CHECK_CONNECTION, kResultServiceThere, kZqctlSuccess, "the service is running"},
    {eCOMMAND_BITLOCKER_CHECK, kResultIsBitlocker, kZqctlSuccess, "BitLocker volume"},
    {eCOMMAND_BITLOCKER_CHECK, kResultIsNotBitlocker, kZqctlFailure, "not a BitLocker volume"},
    {eCOMMAND_BITLOCKER_MOUNT, bitlocker::kOk, kZqctlSuccess, nullptr},
    {eCOMMAND_BITLOCKER_MOUNT, kResultUnmountFailed, kZqctlFailure,
     "the device could not be had: it could not be unmounted first, or the service runs all the mounters "
     "and explorers it allows at once (see /tmp/zqlog.log)"},
    {eCOMMAND_BITLOCKER_MOUNT, kMounterNotStarted, kZqctlFailure, "the mounter could not be started"},
    {eCOMMAND_BITLOCKER_EXPLORER, bitlocker::kOk, kZqctlSuccess, "opened in the explorer"},
    {eCOMMAND_BITLOCKER_EXPLORER, kResultUnmountFailed, kZqctlFailure,
     "the device could not be had: it could not be unmounted first, or the service runs all the mounters "
     "and explorers it allows at once (see /tmp/zqlog.log)"},
    {eCOMMAND_BITLOCKER_EXPLORER, CBitlockerExplorer::kLibraryMissing, kZqctlFailure,
     "the BitLocker library is missing from the bundle"},
};

// A refused mount that the mounter never saw was refused by the service,
// which says why in its own log.
constexpr char kServiceRefusal[] = "the service refused the request: see /tmp/zqlog.log";

std::string TextOf(const CCommandDataWrapper<char>& answer) {
  return std::string(answer.reply.text, strnlen(answer.reply.text, sizeof answer.reply.text));
}

// nullopt for a result the command never answers.
std::optional<ZqctlOutcome> Worded(COMMAND_TYPE command, uint32_t result, const ZqctlObservation& seen) {
  for (const Wording& wording : kWordings)
    if (wording.command == command && wording.result == result && wording.cause != nullptr)
      return ZqctlOutcome{wording.status, wording.cause};
  const int status = static_cast<int>(result);
  if (command == eCOMMAND_BITLOCKER_MOUNT) {
    if (result == kMounterUsage && !seen.activity) return ZqctlOutcome{kZqctlFailure, kServiceRefusal};
    return ZqctlOutcome{result == bitlocker::kOk ? kZqctlSuccess : kZqctlFailure, DescribeMounterStatus(status)};
  }
  if (command == eCOMMAND_BITLOCKER_EXPLORER && bitlocker::StatusName(status) != nullptr)
    return ZqctlOutcome{kZqctlFailure, bitlocker::StatusName(status)};
  return std::nullopt;
}

// The mounter's sentence for a mount that worked: its own when it says how
// the volume is mounted, else what the mount table shows.
std::string MountedSentence(const ZqctlObservation& seen) {
  if (seen.activity && seen.activity->report.rfind("mounted ", 0) == 0) return seen.activity->report;
  if (!seen.readOnly) return DescribeMounterStatus(bitlocker::kOk);
  return *seen.readOnly ? "mounted read-only" : "mounted read-write";
}

std::string JoinedPaths(const std::vector<std::string>& paths) {
  std::string joined;
  for (const std::string& path : paths) joined += (joined.empty() ? "" : ", ") + path;
  return joined;
}

// unmount rides on check, whose service unmounts a BitLocker volume
// wherever it is mounted and leaves any other device alone.
ZqctlOutcome DescribeUnmount(const std::string& device, const ZqctlOutcome& checked, const ZqctlObservation& seen) {
  if (checked.status != kZqctlSuccess)
    return {kZqctlFailure, device + ": not unmounted: " + checked.message + ", and only those are unmounted"};
  if (!seen.stillMounted.empty())
    return {kZqctlFailure, device + ": still mounted at " + JoinedPaths(seen.stillMounted) +
                               " (something there is in use)" +
                               (seen.unmounted.empty() ? "" : "; unmounted from " + JoinedPaths(seen.unmounted))};
  if (seen.unmounted.empty()) return {kZqctlFailure, device + ": not unmounted: it was not mounted"};
  return {kZqctlSuccess, device + ": unmounted from " + JoinedPaths(seen.unmounted)};
}

}  // namespace

ZqctlOutcome DescribeAnswer(const ZqctlRequest& request, const CCommandDataWrapper<char>& answer,
                            const ZqctlObservation& seen) {
  const uint32_t result = answer.reply.result;
  const auto command = static_cast<COMMAND_TYPE>(request.record.type);
  const std::string code = " (" + std::to_string(result) + ")";
  const std::optional<ZqctlOutcome> found = Worded(command, result, seen);
  if (!found) return {kZqctlFailure, "unexpected answer" + code};
  const ZqctlOutcome& worded = *found;
  switch (command) {
    case eCOMMAND_BITLOCKER_CHECK:
      if (request.subcommand == "unmount") return DescribeUnmount(request.device, worded, seen);
      return {worded.status, TextOf(answer) + ": " + worded.message +
                                 (seen.unmounted.empty() ? "" : "; unmounted it from " + JoinedPaths(seen.unmounted))};
    case eCOMMAND_BITLOCKER_MOUNT: {
      const std::string where = request.device + " at " + request.mountPoint;
      if (worded.status == kZqctlSuccess) return {worded.status, where + ": " + MountedSentence(seen)};
      std::string report = seen.activity ? seen.activity->report : "";
      report.erase(report.find_last_not_of(" \n") + 1);  // a driver's output ends its lines
      return {worded.status, "mount of " + where + " failed: " + worded.message + code +
                                 (report.empty() || report == worded.message ? "" : "; the mounter said: " + report)};
    }
    case eCOMMAND_BITLOCKER_EXPLORER:
      if (worded.status == kZqctlSuccess) return {worded.status, request.device + ": " + worded.message};
      return {worded.status, "explore of " + request.device + " failed: " + worded.message + code};
    default:
      return worded;
  }
}

ZqctlOutcome DescribeStartup(bool on, bool bundleThere, const StartupItemsState& before,
                             const StartupItemsState& after) {
  if (!on) {
    if (after.daemon || after.agent) return {kZqctlFailure, "startup off: the startup items are still there", false};
    return {kZqctlSuccess, before.daemon || before.agent ? "startup off: startup items removed"
                                                         : "startup off: there were no startup items"};
  }
  if (!after.agent || after.agent == before.agent)
    return {kZqctlFailure, "startup on: the startup items did not change: see /tmp/zqlog.log", false};
  if (!bundleThere)
    return {kZqctlFailure, "startup on: the bundle is not there; the login item was written all the same and points "
                           "at nothing, no boot-time item was written (zqctl startup off removes it)"};
  if (after.daemon && after.daemon != before.daemon)
    return {kZqctlSuccess, "startup on: boot-time item and login item written"};
  return {kZqctlSuccess,
          "startup on: login item written; no boot-time item, as the bundle's service program is missing or not "
          "root's alone (see /tmp/zqlog.log)"};
}

std::string AnswerJson(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer,
                       const ZqctlObservation& seen, const ZqctlOutcome& outcome) {
  std::string json = "{\"subcommand\":" + JsonQuoted(request.subcommand) + ",\"client\":" +
                     JsonQuoted(request.channel.name);
  if (!request.device.empty()) json += ",\"device\":" + JsonQuoted(request.device);
  if (!request.mountPoint.empty()) json += ",\"mount_point\":" + JsonQuoted(request.mountPoint);
  if (answer != nullptr)
    json += ",\"result\":" + std::to_string(answer->reply.result) + ",\"text\":" + JsonQuoted(TextOf(*answer));
  json += ",\"ok\":" + std::string(outcome.status == kZqctlSuccess ? "true" : "false") +
          ",\"status\":" + std::to_string(outcome.status) + ",\"message\":" + JsonQuoted(outcome.message);
  if (seen.activity) json += ",\"report\":" + JsonQuoted(seen.activity->report);
  if (!seen.unmounted.empty()) {
    std::string paths;
    for (const std::string& path : seen.unmounted) paths += (paths.empty() ? "" : ",") + JsonQuoted(path);
    json += ",\"unmounted\":[" + paths + "]";
  }
  if (request.subcommand == "unmount" && !seen.stillMounted.empty()) {
    std::string paths;
    for (const std::string& path : seen.stillMounted) paths += (paths.empty() ? "" : ",") + JsonQuoted(path);
    json += ",\"still_mounted\":[" + paths + "]";
  }
  return json + "}";
}

std::string DescribeBlock(uint32_t msgId, const CCommandDataWrapper<char>& record, bool json) {
  std::string kind, detail;
  switch (record.type) {
    case eCOMMAND_TO_FILE_EXPLORER:
    case eCOMMAND_TO_MAIN_UI: {
      kind = record.type == eCOMMAND_TO_FILE_EXPLORER ? "to-explorer" : "to-main";
      const unsigned byte = record.simple.arg;
      detail = std::to_string(byte);
      break;
    }
    case eCOMMAND_RESULT:
      kind = "result";
      detail = std::to_string(record.reply.result);
      break;
    default:
      kind = "command " + std::to_string(record.type);
      break;
  }
  if (json) {
    std::string out = "{\"id\":" + std::to_string(msgId) + ",\"type\":" + std::to_string(record.type) +
                      ",\"kind\":" + JsonQuoted(kind);
    if (!detail.empty()) out += ",\"value\":" + detail;
    return out + "}";
  }
  return "block " + std::to_string(msgId) + ": " + kind + (detail.empty() ? "" : " " + detail);
}
