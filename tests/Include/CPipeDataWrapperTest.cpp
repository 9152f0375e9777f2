#include "Include/CPipeDataWrapper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

const std::string kZeros(CPipeDataWrapper::kMessageSize, '\0');

TEST(CommandLength, FollowsTheTable) {
  const std::pair<uint32_t, uint32_t> table[] = {{1, 269}, {3, 44},  {6, 364}, {7, 172}, {8, 148},
                                                 {9, 13},  {10, 13}, {11, 13}, {12, 13}, {0, 0},
                                                 {2, 0},   {4, 0},   {5, 0},   {13, 0},  {~0u, 0}};
  for (auto [type, length] : table)
    EXPECT_EQ(CPipeDataWrapper::GetCommandDataLen(static_cast<COMMAND_TYPE>(type)), length) << type;
}

TEST(ReceivedPayload, CopiesExactlyTheTableLength) {
  std::string payload(508, '\0');
  const uint32_t header[] = {eCOMMAND_TO_FILE_EXPLORER, 0, 400};  // the length field is never read
  std::memcpy(payload.data(), header, sizeof header);
  payload[12] = 'q';
  payload[13] = 'z';  // beyond the 13-byte record: must not be carried
  CPipeDataWrapper wrapper;
  ASSERT_TRUE(wrapper.InitializeWithPipeMessage(payload.data()));
  CCommandDataWrapper<char>* record = wrapper.getCommandDataWrapper();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(record), 14), payload.substr(0, 13) + '\0');
  EXPECT_EQ(std::string(wrapper.getMessage(), kZeros.size()), kZeros) << "the outgoing message is left alone";
}

TEST(OutgoingRecord, MessageIsTheRecordFollowedByZeros) {
  CCommandDataWrapper<char> record;
  std::memset(&record, 0x5a, sizeof record);  // bytes past the record must not leak out
  record.type = eCOMMAND_BITLOCKER_CHECK;
  CPipeDataWrapper wrapper;
  ASSERT_TRUE(wrapper.InitializeWithCmdDataWrapper(&record));
  EXPECT_EQ(std::string(wrapper.getMessage(), kZeros.size()),
            std::string(reinterpret_cast<char*>(&record), 44) + kZeros.substr(44));
  EXPECT_EQ(std::memcmp(wrapper.getCommandDataWrapper(), &record, 44), 0);
}

}  // namespace
