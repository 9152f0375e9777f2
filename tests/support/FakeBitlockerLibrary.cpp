// A stand-in for the package's BitLocker library.  It records each call in
// "$ZQ_STUB_DIR/calls" in the format of record-args.sh, answers
// is_bitlocker_drive with yes when "$ZQ_STUB_DIR/is_bitlocker" exists, and
// opens with the status written in "$ZQ_STUB_DIR/open_status" (0 when
// missing), giving no volume when "$ZQ_STUB_DIR/open_no_volume" exists.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string>

#include "bitlocker/IVolume.h"

namespace {

std::string StubFile(const char* name) {
  const char* dir = std::getenv("ZQ_STUB_DIR");
  return std::string(dir ? dir : "/nonexistent") + "/" + name;
}

bool StubFileExists(const char* name) { return std::ifstream(StubFile(name)).good(); }

void Record(const char* function, std::initializer_list<std::string> arguments) {
  std::ofstream calls(StubFile("calls"), std::ios::app | std::ios::binary);
  calls << function << '\0' << arguments.size() << '\0';
  for (const std::string& argument : arguments) calls << argument << '\0';
}

class FakeVolume : public IVolume {
 public:
  ~FakeVolume() override { Record("volume-deleted", {}); }
  uint64_t Size() const override { return 0; }
  ssize_t Read(uint64_t, void*, size_t) override { return 0; }
  const char* ReadOnlyReason() const override { return "a stand-in volume"; }
  ssize_t Write(uint64_t, const void*, size_t) override {
    errno = EROFS;
    return -1;
  }
  int Flush() override { return 0; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) bool is_bitlocker_drive(const char* rawDevice) {
  Record("is_bitlocker_drive", {rawDevice});
  return StubFileExists("is_bitlocker");
}

extern "C" __attribute__((visibility("default"))) int open_bitlocker_device(const char* rawDevice,
                                                                             const char* credential,
                                                                             IVolume** volume) {
  Record("open_bitlocker_device", {rawDevice, credential});
  int status = 0;
  std::ifstream(StubFile("open_status")) >> status;
  if (!StubFileExists("open_no_volume")) {
    // A volume handed back with a failure is never the caller's to delete:
    // deleting this one would be caught as a bad free.
    static FakeVolume keptOnFailure;
    *volume = status == 0 ? new FakeVolume : &keptOnFailure;
  }
  return status;
}
