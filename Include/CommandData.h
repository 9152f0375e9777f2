// The command record that the service and its client applications exchange.
//
// Every block on a client channel carries one record: a 12-byte header
// (type, reserved, length) followed by fixed-length data chosen by the
// command number.  Records are packed and in host byte order; strings are
// zero-terminated UTF-8 in fixed arrays.
#ifndef ZQ_INCLUDE_COMMANDDATA_H_
#define ZQ_INCLUDE_COMMANDDATA_H_

#include <cstddef>
#include <cstdint>

enum COMMAND_TYPE : uint32_t {
  eCOMMAND_SET_STARTUP = 1,
  eCOMMAND_BITLOCKER_CHECK = 3,
  eCOMMAND_BITLOCKER_MOUNT = 6,
  eCOMMAND_BITLOCKER_EXPLORER = 7,
  eCOMMAND_RESULT = 8,
  eCOMMAND_EXIT = 9,
  eCOMMAND_CHECK_CONNECTION = 10,
  eCOMMAND_TO_FILE_EXPLORER = 11,
  eCOMMAND_TO_MAIN_UI = 12,
};

// Values the service puts in the result of an eCOMMAND_RESULT record.
enum : uint32_t {
  kResultIsBitlocker = 49,       // "1"
  kResultIsNotBitlocker = 50,    // "2"
  kResultServiceThere = 55,      // "7"
  kResultUnmountFailed = 19,     // the device could not be unmounted first
};

#pragma pack(push, 1)

template <typename T>
struct CCommandDataWrapper {
  uint32_t type;      // a COMMAND_TYPE
  uint32_t reserved;  // 0 from every sender, never read
  uint32_t length;    // whole record length, header included; never read
  union {
    struct {
      uint8_t enable;  // 0: remove the startup items; otherwise install them
      T bundlePath[256];
    } startup;
    struct {
      T deviceName[32];
    } check;
    struct {
      T deviceName[32];
      T mountArg2[128];
      T mountArg3[64];
      T mountArg4[128];
    } mount;
    struct {
      T deviceName[32];
      T explorerArg2[128];  // the credential
    } explorer;
    struct {
      uint32_t result;
      uint32_t zero;
      T text[128];
    } reply;
    struct {
      uint8_t arg;  // carried, never interpreted
    } simple;
  };
};

#pragma pack(pop)

static_assert(sizeof(CCommandDataWrapper<char>) == 364, "the longest record is the mount command");
static_assert(offsetof(CCommandDataWrapper<char>, startup.bundlePath) == 13, "record layout");
static_assert(offsetof(CCommandDataWrapper<char>, mount.mountArg2) == 44, "record layout");
static_assert(offsetof(CCommandDataWrapper<char>, mount.mountArg3) == 172, "record layout");
static_assert(offsetof(CCommandDataWrapper<char>, mount.mountArg4) == 236, "record layout");
static_assert(offsetof(CCommandDataWrapper<char>, explorer.explorerArg2) == 44, "record layout");
static_assert(offsetof(CCommandDataWrapper<char>, reply.text) == 20, "record layout");

#endif  // ZQ_INCLUDE_COMMANDDATA_H_
