// What the service's end-to-end tests share: a record for a device, the
// result of an answer, and a service with its two clients.
#ifndef ZQ_TESTS_SERVICE_SERVICECLIENTS_H_
#define ZQ_TESTS_SERVICE_SERVICECLIENTS_H_

#include <cstring>

#include "tests/support/ServiceTestEnvironment.h"

// A check, mount or explorer record for `device`.  The mount point and the
// explorer's credential share `arg2`; `arg3` and `arg4` are the mount's
// options and credential.  A 32-byte device name fills its field unended.
inline CCommandDataWrapper<char> DeviceRecord(COMMAND_TYPE type, const std::string& device,
                                              const std::string& arg2 = "", const std::string& arg3 = "",
                                              const std::string& arg4 = "") {
  CCommandDataWrapper<char> record = MakeRecord(type);
  device.copy(record.mount.deviceName, sizeof record.mount.deviceName);
  arg2.copy(record.mount.mountArg2, sizeof record.mount.mountArg2 - 1);
  arg3.copy(record.mount.mountArg3, sizeof record.mount.mountArg3 - 1);
  arg4.copy(record.mount.mountArg4, sizeof record.mount.mountArg4 - 1);
  return record;
}

// The result `client` is answered for `record` within `seconds`, or nullopt.
inline std::optional<uint32_t> Result(RawClient& client, const CCommandDataWrapper<char>& record, int seconds) {
  const std::optional<Block> answer = client.Send(33, record) ? client.Receive(seconds) : std::nullopt;
  if (!answer) return std::nullopt;
  uint32_t result;  // behind the id and the record's 12-byte header
  std::memcpy(&result, answer->data() + 16, sizeof result);
  return result;
}

// The service on a stub bundle whose library calls every device BitLocker
// and whose diskutil unmounts it.
class ServiceClientTest : public ServiceTestBase {
 protected:
  // Starts the service with both clients present, waits until MainUI is
  // served and clears the record of calls.
  void StartWithClients() {
    bundle->Answer("is_bitlocker", "");
    bundle->Answer("diskutil-unmount.stdout", "Volume unmounted successfully\n");
    mainUI = std::make_unique<RawClient>(kMainUIChannel);
    explorer = std::make_unique<RawClient>(kFileExplorerChannel);
    service->Start();
    ASSERT_TRUE(Ping(*mainUI)) << "the service did not answer";
    bundle->ClearCalls();
  }

  static bool Ping(RawClient& client, int seconds = 5) {
    return Result(client, MakeRecord(eCOMMAND_CHECK_CONNECTION), seconds) == kResultServiceThere;
  }
  std::optional<uint32_t> Ask(const CCommandDataWrapper<char>& record) { return Result(*mainUI, record, 10); }

  std::unique_ptr<RawClient> mainUI, explorer;
};

#endif  // ZQ_TESTS_SERVICE_SERVICECLIENTS_H_
