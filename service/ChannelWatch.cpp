#include "ChannelWatch.h"

#include <sys/stat.h>

#include "CDevLogs.h"

ChannelWatch::ChannelWatch(std::vector<std::string> paths) {
  for (std::string& path : paths) watched_.push_back({std::move(path), false});
}

void ChannelWatch::Check() {
  for (Watched& channel : watched_) {
    struct stat info;
    const bool refused = lstat(channel.path.c_str(), &info) == 0 && !S_ISFIFO(info.st_mode);
    if (refused && !channel.refused)
      CDevLogs::Instance()->WriteLog("channel %s is not a FIFO; it is left alone until it is one", channel.path.c_str());
    channel.refused = refused;
  }
}
