// What the mounter is asked to do, read from its command line:
//
//   zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS < CREDENTIAL
//
// The credential is the first line of standard input, never a word of the
// command line, where every user could read it for as long as the mount
// lasts.
// OPTIONS is a comma-separated list, possibly empty:
//   raw         serve the unlocked volume as the one file MOUNT_POINT/volume
//               instead of mounting the file system inside it
//   uid=N       owner of what is served (default 0)
//   gid=N       group of what is served (default 0)
//   umask=OOO   permission bits taken away, in octal (default 0222: every
//               user may read, nobody may write)
#ifndef ZQ_BITLOCKER_MOUNTER_MOUNTREQUEST_H_
#define ZQ_BITLOCKER_MOUNTER_MOUNTREQUEST_H_

#include <sys/types.h>

#include <string>
#include <vector>

struct MountRequest {
  std::string rawDevice;
  std::string mountPoint;
  bool raw = false;
  uid_t uid = 0;
  gid_t gid = 0;
  mode_t umask = 0222;
};

// Reads the three words after the program name; the credential is left
// for the caller to read.  False with the reason in *error when they do not
// make a request.
bool ParseMountRequest(const std::vector<std::string>& words, MountRequest* request, std::string* error);

#endif  // ZQ_BITLOCKER_MOUNTER_MOUNTREQUEST_H_
