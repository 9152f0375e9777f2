#include "service/CPipeServerEvent.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "Include/CPipeDataWrapper.h"
#include "bitlocker/CBitlockerChecker.h"
#include "bitlocker/CNorvane.h"
#include "bitlocker/MountPoint.h"
#include "bitlocker/MounterStatus.h"
#include "ipc/IIPCConnector.h"
#include "platform/Users.h"
#include "service/CPipeServerWrapper.h"
#include "service/ClientInputChecks.h"
#include "system/CDevLogs.h"
#include "system/ChildQuota.h"
#include "system/CStartupManager.h"
#include "util/ShellQuoting.h"
#include "util/Utf8.h"

namespace {

// At most this many mounters run at once, one at the most on each device,
// and this many explorers, however many requests arrive.
constexpr size_t kMaxMounters = 4;
constexpr size_t kMaxExplorers = 4;

ChildQuota& Mounters() {
  static ChildQuota quota(kMaxMounters);
  return quota;
}

ChildQuota& Explorers() {
  static ChildQuota quota(kMaxExplorers);
  return quota;
}

// A string field of a record: UTF-8 text up to its zero byte, never past
// the end of its array.  Text that is not UTF-8 gives no string.
template <size_t N>
std::optional<std::string> FieldText(const char (&field)[N]) {
  std::string text(field, strnlen(field, N));
  if (!IsValidUtf8(text)) return std::nullopt;
  return text;
}

// The answer record, sent as the first 512 bytes of a zeroed area that
// starts with it, carrying the request's message id.
class Answer {
 public:
  explicit Answer(uint32_t result) {
    std::memset(area_, 0, sizeof area_);
    record()->type = eCOMMAND_RESULT;
    record()->length = CPipeDataWrapper::GetCommandDataLen(eCOMMAND_RESULT);
    record()->reply.result = result;
  }
  void SetText(const char* text, size_t length) {
    std::memcpy(record()->reply.text, text, std::min(length, sizeof record()->reply.text - 1));
  }
  void SendOn(IIPCConnector* connector, uint32_t msgId) { connector->SendMsg_async(area_, kBlockSize, msgId); }

 private:
  CCommandDataWrapper<char>* record() { return reinterpret_cast<CCommandDataWrapper<char>*>(area_); }
  alignas(CCommandDataWrapper<char>) char area_[kBlockSize];
};

void SetStartup(const CCommandDataWrapper<char>& record) {
  if (record.startup.enable == 0) {
    CStartupManager::GetInstance()->CancelStartup();
    return;
  }
  const std::optional<std::string> bundlePath = FieldText(record.startup.bundlePath);
  if (!bundlePath) {
    CDevLogs::Instance()->WriteLog("refused eCOMMAND_SET_STARTUP: the bundle path is not UTF-8 text");
  } else if (const char* reason = DaemonProgramRefusal(*bundlePath)) {
    // The boot-time item would start that program as root: only the login
    // item is written.
    CDevLogs::Instance()->WriteLog("eCOMMAND_SET_STARTUP: no boot-time item: %s", reason);
    CStartupManager::GetInstance()->CreateLaunchAgent(*bundlePath);
  } else {
    CStartupManager::GetInstance()->SetStartup(*bundlePath);
  }
}

void CheckBitlocker(const CCommandDataWrapper<char>& record, IIPCConnector* connector, uint32_t msgId) {
  CDevLogs::Instance()->WriteLog("serverEvent - eCOMMAND_BITLOCKER_CHECK");
  char deviceName[sizeof record.check.deviceName + 1] = {};
  std::memcpy(deviceName, record.check.deviceName, sizeof record.check.deviceName);
  bool isBitlocker = false;
  if (IsPlainDeviceName(FieldText(record.check.deviceName))) {
    CBitlockerChecker checker;
    isBitlocker = checker.IsBitlocker(deviceName);
    // Nothing the system mounted from a BitLocker device stays mounted
    // while the client goes on; the answer stands whatever the unmount says.
    if (isBitlocker) CNorvane().Unmount(std::string(deviceName));
  } else {
    CDevLogs::Instance()->WriteLog("refused eCOMMAND_BITLOCKER_CHECK: the device name is not a plain device name");
  }
  Answer answer(isBitlocker ? kResultIsBitlocker : kResultIsNotBitlocker);
  answer.SetText(deviceName, std::strlen(deviceName));
  answer.SendOn(connector, msgId);
  CDevLogs::Instance()->WriteLog("serverEvent - eCOMMAND_BITLOCKER_CHECK_OVER");
}

// Why a mount command may not go ahead, or the empty string when it may.
// Nothing has been unmounted, made or started when it may not.
std::string MountRefusal(const CCommandDataWrapper<char>& record) {
  const auto& mount = record.mount;
  if (!IsPlainDeviceName(FieldText(mount.deviceName))) return "the device name is not a plain device name";
  const std::optional<std::string> mountPoint = FieldText(mount.mountArg2);
  if (!IsSingleShellWord(mountPoint)) return "the mount point is not one plain shell word";
  return MountPointRefusal(ShellWordText(*mountPoint), platform::ConsoleUser(), MountedFolder::kReleasedFirst);
}

void Refuse(const char* command, const std::string& reason, uint32_t answer, IIPCConnector* connector,
            uint32_t msgId) {
  CDevLogs::Instance()->WriteLog("refused %s: %s", command, reason.c_str());
  Answer(answer).SendOn(connector, msgId);
}

// Answers a request for which no child may start now as one whose device
// could not be had.  Only the first refusal of a burst is logged.
void RefuseBusy(const char* command, const std::string& reason, bool burstStarts, IIPCConnector* connector,
                uint32_t msgId) {
  if (burstStarts) {
    CDevLogs::Instance()->WriteLog("refused %s, and the like until one can start again: %s", command,
                                   reason.c_str());
  }
  Answer(kResultUnmountFailed).SendOn(connector, msgId);
}

void MountBitlocker(const CCommandDataWrapper<char>& record, IIPCConnector* connector, uint32_t msgId) {
  const std::string refusal = MountRefusal(record);
  if (!refusal.empty()) return Refuse("eCOMMAND_BITLOCKER_MOUNT", refusal, kMounterUsage, connector, msgId);
  const auto& mount = record.mount;
  bool burstStarts = false;
  const ChildQuota::Slot slot = Mounters().Take(*FieldText(mount.deviceName), &burstStarts);
  if (!slot) {
    return RefuseBusy("eCOMMAND_BITLOCKER_MOUNT",
                      "a mounter runs on the device, or " + std::to_string(kMaxMounters) + " mounters run",
                      burstStarts, connector, msgId);
  }
  CNorvane norvane;
  const int result = norvane.Bitlocker_Mount(FieldText(mount.deviceName), FieldText(mount.mountArg2),
                                             FieldText(mount.mountArg3), FieldText(mount.mountArg4));
  Answer(static_cast<uint32_t>(result)).SendOn(connector, msgId);
}

void OpenExplorer(const CCommandDataWrapper<char>& record, IIPCConnector* connector, uint32_t msgId) {
  if (!IsPlainDeviceName(FieldText(record.explorer.deviceName))) {
    return Refuse("eCOMMAND_BITLOCKER_EXPLORER", "the device name is not a plain device name", bitlocker::kUnsupported,
                  connector, msgId);
  }
  bool burstStarts = false;
  ChildQuota::Slot slot = Explorers().Take(std::string(), &burstStarts);
  if (!slot) {
    return RefuseBusy("eCOMMAND_BITLOCKER_EXPLORER", std::to_string(kMaxExplorers) + " explorers run", burstStarts,
                      connector, msgId);
  }
  CNorvane norvane;
  const int result = norvane.Bitlocker_Explorer(FieldText(record.explorer.deviceName),
                                                FieldText(record.explorer.explorerArg2), std::move(slot));
  Answer(static_cast<uint32_t>(result)).SendOn(connector, msgId);
}

}  // namespace

void CPipeServerEvent::OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int) {
  CPipeDataWrapper wrapper;
  wrapper.InitializeWithPipeMessage(reinterpret_cast<char*>(package->payload));
  CCommandDataWrapper<char>* record = wrapper.getCommandDataWrapper();
  if (record == nullptr) return;
  const uint32_t msgId = package->msgId;

  switch (record->type) {
    case eCOMMAND_SET_STARTUP:
      SetStartup(*record);
      break;
    case eCOMMAND_BITLOCKER_CHECK:
      CheckBitlocker(*record, connector, msgId);
      break;
    case eCOMMAND_BITLOCKER_MOUNT:
      MountBitlocker(*record, connector, msgId);
      break;
    case eCOMMAND_BITLOCKER_EXPLORER:
      OpenExplorer(*record, connector, msgId);
      break;
    case eCOMMAND_EXIT:
      CDevLogs::Instance()->WriteLog("serverEvent - eCOMMAND_EXIT");
      CPipeServerWrapper::getInstance()->running = false;
      break;
    case eCOMMAND_CHECK_CONNECTION:
      CDevLogs::Instance()->WriteLog("serverEvent - eCOMMAND_CHECK_CONNECTION");
      Answer(kResultServiceThere).SendOn(connector, msgId);
      break;
    case eCOMMAND_TO_FILE_EXPLORER:
      CPipeServerWrapper::getInstance()->SendCmd_async("FileExplorer", record);
      break;
    case eCOMMAND_TO_MAIN_UI:
      CPipeServerWrapper::getInstance()->SendCmd_async("MainUI", record);
      break;
    default:
      break;
  }
}
