// Feeds whole 512-byte blocks to the service's command dispatcher, with
// the external programs and the BitLocker library replaced by recording
// stand-ins.  Run it in private mount namespaces: the startup commands
// write and remove the real items.
#include <cstdlib>
#include <cstring>

#include "service/CPipeServerEvent.h"
#include "system/MainBundle.h"
#include "tests/support/StubBundle.h"

namespace {

// A connection that keeps nothing of what is sent on it.
class NullConnector : public IIPCConnector {
 public:
  bool SendMsg_async(void* data, unsigned int len, unsigned int) override { return data != nullptr && len == 512; }
  bool SendMsg_sync(void*, unsigned int, void*, unsigned int, unsigned int) override { return false; }
  std::string GetName() override { return "MainUI"; }
};

StubBundle& Bundle() {
  static StubBundle bundle;
  static const bool ready = (SetMainBundlePath(bundle.bundlePath()),
                             bundle.Answer("diskutil-unmount.stdout", "successful\n"), true);
  (void)ready;
  return bundle;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bundle().ClearCalls();
  _MSG_DATA_PACKAGE package{};
  std::memcpy(&package, data, size < sizeof package ? size : sizeof package);
  CPipeServerEvent dispatcher;
  NullConnector connector;
  dispatcher.OnCommand_Reply(&connector, &package, 508);
  // Nothing the fuzzer writes may reach a shell as extra words.
  if (std::system("test -e /tmp/pwned") == 0) __builtin_trap();
  return 0;
}
