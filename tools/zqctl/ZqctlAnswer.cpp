#include "ZqctlAnswer.h"

#include <cstdio>
#include <cstring>

#include "BitlockerStatus.h"
#include "MounterStatus.h"

namespace {

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

std::string TextOf(const CCommandDataWrapper<char>& answer) {
  return std::string(answer.reply.text, strnlen(answer.reply.text, sizeof answer.reply.text));
}

std::string WithCode(const std::string& text, uint32_t result) { return text + " (" + std::to_string(result) + ")"; }

// What a non-zero result of the mount or explorer command means: the
// service's own answers, else the mounter's or the library's status.
std::string FailureReason(uint32_t result, bool mount) {
  switch (result) {
    case kResultUnmountFailed: return "the device could not be unmounted first";
    case 127: return "the program could not be started";
    case 255: return "the BitLocker library or the shell is missing";
    default: break;
  }
  if (mount && result == kMounterUsage) return "the service refused the request: see /tmp/zqlog.log";
  const int status = static_cast<int>(result);
  const char* name = mount ? DescribeMounterStatus(status) : bitlocker::StatusName(status);
  return name != nullptr ? name : "the program ended with a failure";
}

}  // namespace

ZqctlOutcome DescribeAnswer(const ZqctlRequest& request, const CCommandDataWrapper<char>& answer) {
  const uint32_t result = answer.reply.result;
  const std::string& device = request.operands.empty() ? std::string() : request.operands[0];
  switch (request.record.type) {
    case eCOMMAND_CHECK_CONNECTION:
      if (result == kResultServiceThere) return {kZqctlSuccess, "the service is running"};
      break;
    case eCOMMAND_BITLOCKER_CHECK:
      if (result == kResultIsBitlocker) return {kZqctlSuccess, TextOf(answer) + ": BitLocker volume"};
      if (result == kResultIsNotBitlocker) return {kZqctlFailure, TextOf(answer) + ": not a BitLocker volume"};
      break;
    case eCOMMAND_BITLOCKER_MOUNT:
      if (result == 0) return {kZqctlSuccess, device + ": mounted at " + request.operands[1]};
      return {kZqctlFailure, WithCode("mount failed: " + FailureReason(result, true), result)};
    case eCOMMAND_BITLOCKER_EXPLORER:
      if (result == 0) return {kZqctlSuccess, device + ": opened in the explorer"};
      return {kZqctlFailure, WithCode("explore failed: " + FailureReason(result, false), result)};
    default:
      break;
  }
  return {kZqctlFailure, WithCode("unexpected answer", result)};
}

std::string AnswerJson(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer,
                       const ZqctlOutcome& outcome) {
  std::string json = "{\"subcommand\":" + JsonString(request.subcommand) + ",\"client\":" +
                     JsonString(request.channel.name);
  if (!request.operands.empty() && request.record.type != eCOMMAND_SET_STARTUP &&
      request.record.type != eCOMMAND_TO_FILE_EXPLORER && request.record.type != eCOMMAND_TO_MAIN_UI)
    json += ",\"device\":" + JsonString(request.operands[0]);
  if (answer != nullptr)
    json += ",\"result\":" + std::to_string(answer->reply.result) + ",\"text\":" + JsonString(TextOf(*answer));
  json += ",\"ok\":" + std::string(outcome.status == kZqctlSuccess ? "true" : "false") +
          ",\"status\":" + std::to_string(outcome.status) + ",\"message\":" + JsonString(outcome.message) + "}";
  return json;
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
                      ",\"kind\":" + JsonString(kind);
    if (!detail.empty()) out += ",\"value\":" + detail;
    return out + "}";
  }
  return "block " + std::to_string(msgId) + ": " + kind + (detail.empty() ? "" : " " + detail);
}
