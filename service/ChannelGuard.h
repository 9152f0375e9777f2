// Keeps the client channels' FIFOs the service's to give.
//
// Each channel path holds a FIFO owned by the user at the machine (root
// when nobody is logged in at it) with mode 0600, so that no other user can
// read a request, credential included, or write one.  The service makes the
// FIFOs itself, at start and whenever one is missing or replaced.  Anything
// else at a channel path (another user's FIFO, a FIFO others could open, a
// file, a link, a folder) is replaced in one step by a new FIFO, and logged
// in one line.  When another
// user logs in at the machine, the FIFOs are replaced by new ones of that
// user's, so that the previous user keeps no open end of them; the path
// never stands free meanwhile for anyone else to take.  A path that cannot
// be put right is tried again at the next check and logged once, until it
// is put right or fails for another reason.
#ifndef ZQ_SERVICE_CHANNELGUARD_H_
#define ZQ_SERVICE_CHANNELGUARD_H_

#include <sys/types.h>

#include <string>
#include <vector>

class ChannelGuard {
 public:
  explicit ChannelGuard(const std::vector<std::string>& paths);

  // Puts every channel path right; run at start and then once a second.
  void Check();

 private:
  struct Channel {
    std::string path;
    std::string failure;  // why it could not be put right last time, as logged; empty when it was
  };

  void Keep(Channel* channel, uid_t owner);

  std::vector<Channel> channels_;
};

#endif  // ZQ_SERVICE_CHANNELGUARD_H_
