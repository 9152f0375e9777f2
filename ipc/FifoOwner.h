// Whom a client may trust with its channel: a FIFO that anybody else made
// could be read by that user, so a client uses one only when it belongs to
// root, to the user at the machine, or to the client's own user.
#ifndef ZQ_IPC_FIFOOWNER_H_
#define ZQ_IPC_FIFOOWNER_H_

#include <string>

// Why a client may not use the FIFO at `path`, naming its owner, or the
// empty string when it may (a path that holds nothing yet included).
std::string FifoOwnerRefusal(const std::string& path);

#endif  // ZQ_IPC_FIFOOWNER_H_
