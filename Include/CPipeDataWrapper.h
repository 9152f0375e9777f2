// Turns a command record into the bytes put on a client channel, and the
// bytes received from one back into a record.
//
// A wrapper is made, filled once by one of the two initialisers, used and
// destroyed.  The record length is decided by the command number alone.
#ifndef ZQ_INCLUDE_CPIPEDATAWRAPPER_H_
#define ZQ_INCLUDE_CPIPEDATAWRAPPER_H_

#include <cstdint>

#include "Include/CommandData.h"

class CPipeDataWrapper {
 public:
  static constexpr unsigned kMessageSize = 513;

  CPipeDataWrapper();
  ~CPipeDataWrapper();
  CPipeDataWrapper(const CPipeDataWrapper&) = delete;
  CPipeDataWrapper& operator=(const CPipeDataWrapper&) = delete;

  // Sending side: copies the record and lays it out at the start of the
  // zeroed message buffer.  False, with no record, for an unknown number.
  bool InitializeWithCmdDataWrapper(CCommandDataWrapper<char>* pData);

  // Receiving side: copies the record found at the start of a received
  // payload.  False, with no record, for an unknown number.
  bool InitializeWithPipeMessage(char* message);

  // The length of a whole record of this type, header included; 0 for a
  // number that is not a command.
  static uint32_t GetCommandDataLen(COMMAND_TYPE type);

  char* getMessage() { return message_; }
  CCommandDataWrapper<char>* getCommandDataWrapper() const { return record_; }

 private:
  // Copies the record at `bytes`, sized by its type; false for an unknown
  // type.
  bool CopyRecord(const void* bytes);

  CCommandDataWrapper<char>* record_;
  char message_[kMessageSize];
};

#endif  // ZQ_INCLUDE_CPIPEDATAWRAPPER_H_
