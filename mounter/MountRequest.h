// What the mounter is asked to do, read from its command line:
//
//   zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS < CREDENTIAL
//
// The credential is the first line of standard input, never a word of the
// command line, where every user could read it for as long as the mount
// lasts.
//
// OPTIONS is a comma-separated list, possibly empty:
//   raw         serve the unlocked volume as the one file MOUNT_POINT/volume
//               instead of mounting the file system inside it
//   ro          mount read-only even where the volume could be written
//               (without it, the mount is read-write wherever it can be)
//   uid=N       owner of what is served: the user at the machine, the
//               default, or root (0) when that user is root
//   gid=N       group of what is served: that user's group, the default,
//               or root's (0) when that user is root
//   umask=OOO   permission bits taken away, in octal (default 077: what is
//               served is the owner's alone)
#ifndef ZQ_MOUNTER_MOUNTREQUEST_H_
#define ZQ_MOUNTER_MOUNTREQUEST_H_

#include <sys/types.h>

#include <string>
#include <vector>

struct MountRequest {
  std::string rawDevice;
  std::string mountPoint;
  bool raw = false;
  bool readOnly = false;
  uid_t uid = 0;
  gid_t gid = 0;
  bool uidGiven = false;
  bool gidGiven = false;
  mode_t umask = 077;
};

// Reads the three words after the program name; the credential is left
// for the caller to read.  False with the reason in *error when they do not
// make a request.
bool ParseMountRequest(const std::vector<std::string>& words, MountRequest* request, std::string* error);

// Makes the user at the machine, `consoleUser` of group `consoleGroup`, the
// owner of what is served unless the options named one, and refuses an
// owner or group that is neither root's nor that user's: nobody may hand a
// volume to a third user.  Root's own (uid=0, gid=0) is refused too unless
// the user at the machine is root.  False with the reason in *error.
bool SettleOwner(uid_t consoleUser, gid_t consoleGroup, MountRequest* request, std::string* error);

#endif  // ZQ_MOUNTER_MOUNTREQUEST_H_
