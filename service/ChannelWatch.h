// Tells the log when a channel's path holds something other than a FIFO
// (a planted link or file), once each time that starts.  The channel
// itself leaves such a path alone and keeps trying, as it does a path
// that does not exist yet.
#ifndef ZQ_SERVICE_CHANNELWATCH_H_
#define ZQ_SERVICE_CHANNELWATCH_H_

#include <string>
#include <vector>

class ChannelWatch {
 public:
  explicit ChannelWatch(std::vector<std::string> paths);
  void Check();

 private:
  struct Watched {
    std::string path;
    bool refused;
  };
  std::vector<Watched> watched_;
};

#endif  // ZQ_SERVICE_CHANNELWATCH_H_
