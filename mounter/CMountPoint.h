// The folder a volume is mounted on, held open from the moment its path
// was checked, because the user at the machine owns the folder above it
// and may rename, remove or replace anything in it at any moment.  It is
// made when missing and handed to that user through its descriptor, and
// removed at the end only while its name still names it; its path is
// never looked up again.
#ifndef ZQ_MOUNTER_CMOUNTPOINT_H_
#define ZQ_MOUNTER_CMOUNTPOINT_H_

#include <sys/types.h>

#include <memory>
#include <string>

#include "platform/Mounts.h"

class CMountPoint {
 public:
  // Opens the folder `path` names in `parent`, the folder MountPointRefusal
  // walked to and left open (taken over here), making it for `consoleUser`
  // when it is missing.  Null with the reason in *error when the name no
  // longer leads to an empty folder of root's or that user's, or to the
  // folder just made.
  static std::unique_ptr<CMountPoint> Open(int parent, const std::string& path, uid_t consoleUser, std::string* error);

  ~CMountPoint();
  CMountPoint(const CMountPoint&) = delete;
  CMountPoint& operator=(const CMountPoint&) = delete;

  const platform::HeldFolder& held() const { return held_; }
  const std::string& path() const { return held_.path; }

  // Removes the folder if it was made here and its name in the held parent
  // still names it: a folder put there in its place is left alone.
  void RemoveIfMade();

 private:
  CMountPoint() = default;

  platform::HeldFolder held_;
  bool made_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

#endif  // ZQ_MOUNTER_CMOUNTPOINT_H_
