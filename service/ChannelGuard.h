// Keeps the client channels' FIFOs the service's to give.
//
// Each channel path holds a FIFO owned by the user at the machine (root
// when nobody is logged in at it) with mode 0600, so that no other user can
// read a request, credential included, or write one.  The service makes the
// FIFOs itself, at start and whenever one is missing or replaced.  Anything
// else at a channel path (another user's FIFO, a file, a link, a folder) is
// taken away, logged in one line, and replaced.  When another user logs in
// at the machine, the FIFOs go to that user.
#ifndef ZQ_SERVICE_CHANNELGUARD_H_
#define ZQ_SERVICE_CHANNELGUARD_H_

#include <sys/types.h>

#include <string>
#include <vector>

class ChannelGuard {
 public:
  explicit ChannelGuard(std::vector<std::string> paths);

  // Puts every channel path right; run at start and then once a second.
  void Check();

 private:
  void Keep(const std::string& path, uid_t owner);

  std::vector<std::string> paths_;
};

#endif  // ZQ_SERVICE_CHANNELGUARD_H_
