#include "CPipeDataWrapper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<char> PayloadOfType(uint32_t type, char fill) {
  std::vector<char> payload(508, fill);
  std::memcpy(payload.data(), &type, sizeof type);
  return payload;
}

TEST(CommandLength, FollowsTheTable) {
  const std::pair<uint32_t, uint32_t> table[] = {{1, 269}, {3, 44}, {6, 364}, {7, 172}, {8, 148},
                                                 {9, 13},  {10, 13}, {11, 13}, {12, 13}};
  for (auto [type, length] : table)
    EXPECT_EQ(CPipeDataWrapper::GetCommandDataLen(static_cast<COMMAND_TYPE>(type)), length) << type;
  for (uint32_t unknown : {0u, 2u, 4u, 5u, 13u, 0xffffffffu})
    EXPECT_EQ(CPipeDataWrapper::GetCommandDataLen(static_cast<COMMAND_TYPE>(unknown)), 0u) << unknown;
}

TEST(UnknownNumber, GivesNoRecordAndLeavesTheMessageAlone) {
  for (uint32_t unknown : {0u, 2u, 13u, 1000u}) {
    std::vector<char> payload = PayloadOfType(unknown, 'x');
    CPipeDataWrapper received;
    EXPECT_FALSE(received.InitializeWithPipeMessage(payload.data())) << unknown;
    EXPECT_EQ(received.getCommandDataWrapper(), nullptr);

    CCommandDataWrapper<char> record{};
    record.type = unknown;
    CPipeDataWrapper outgoing;
    EXPECT_FALSE(outgoing.InitializeWithCmdDataWrapper(&record)) << unknown;
    EXPECT_EQ(outgoing.getCommandDataWrapper(), nullptr);
    EXPECT_EQ(std::string(outgoing.getMessage(), CPipeDataWrapper::kMessageSize),
              std::string(CPipeDataWrapper::kMessageSize, '\0'));
  }
}

TEST(ReceivedPayload, CopiesExactlyTheTableLength) {
  std::vector<char> payload = PayloadOfType(eCOMMAND_TO_FILE_EXPLORER, 0);
  payload[12] = 'q';
  payload[13] = 'z';  // beyond the 13-byte record: must not be carried
  uint32_t wrongLength = 400;
  std::memcpy(payload.data() + 8, &wrongLength, sizeof wrongLength);

  CPipeDataWrapper wrapper;
  ASSERT_TRUE(wrapper.InitializeWithPipeMessage(payload.data()));
  CCommandDataWrapper<char>* record = wrapper.getCommandDataWrapper();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->type, eCOMMAND_TO_FILE_EXPLORER);
  EXPECT_EQ(record->length, 400u);
  EXPECT_EQ(record->simple.arg, 'q');
  EXPECT_EQ(reinterpret_cast<char*>(record)[13], 0);
  // The receiving side leaves the outgoing message untouched.
  EXPECT_EQ(std::string(wrapper.getMessage(), CPipeDataWrapper::kMessageSize),
            std::string(CPipeDataWrapper::kMessageSize, '\0'));
}

TEST(ReceivedPayload, MountRecordKeepsItsFields) {
  std::vector<char> payload = PayloadOfType(eCOMMAND_BITLOCKER_MOUNT, 0);
  std::strcpy(payload.data() + 12, "disk2s1");
  std::strcpy(payload.data() + 44, "/Volumes/Secret\\ Disk");
  std::strcpy(payload.data() + 172, "rw,nobrowse");
  std::strcpy(payload.data() + 236, "it's secret");
  CPipeDataWrapper wrapper;
  ASSERT_TRUE(wrapper.InitializeWithPipeMessage(payload.data()));
  const auto& mount = wrapper.getCommandDataWrapper()->mount;
  EXPECT_STREQ(mount.deviceName, "disk2s1");
  EXPECT_STREQ(mount.mountArg2, "/Volumes/Secret\\ Disk");
  EXPECT_STREQ(mount.mountArg3, "rw,nobrowse");
  EXPECT_STREQ(mount.mountArg4, "it's secret");
}

TEST(OutgoingRecord, MessageIsTheRecordFollowedByZeros) {
  CCommandDataWrapper<char> record;
  std::memset(&record, 0x5a, sizeof record);  // bytes past the record must not leak out
  record.type = eCOMMAND_BITLOCKER_CHECK;
  record.reserved = 0;
  record.length = 44;
  std::memset(record.check.deviceName, 0, sizeof record.check.deviceName);
  std::strcpy(record.check.deviceName, "disk2s1");

  CPipeDataWrapper wrapper;
  ASSERT_TRUE(wrapper.InitializeWithCmdDataWrapper(&record));
  const char* message = wrapper.getMessage();
  EXPECT_EQ(std::memcmp(message, &record, 44), 0);
  EXPECT_EQ(std::string(message + 44, CPipeDataWrapper::kMessageSize - 44),
            std::string(CPipeDataWrapper::kMessageSize - 44, '\0'));
  EXPECT_EQ(std::memcmp(wrapper.getCommandDataWrapper(), &record, 44), 0);
}

}  // namespace
