// One mount of an unlocked volume, from the moment it is made until
// MOUNT_POINT is unmounted.
//
// With "raw" the FUSE folder itself is mounted at MOUNT_POINT.  Otherwise
// the FUSE folder is mounted in a private staging folder (platform::kStagingRoot) and
// the file system inside the volume is mounted at MOUNT_POINT from its
// file; when MOUNT_POINT is unmounted the session lets go of the file and
// takes the staging mount away too, and the FUSE server ends once the
// driver has let go of the file.
#ifndef ZQ_MOUNTER_CMOUNTSESSION_H_
#define ZQ_MOUNTER_CMOUNTSESSION_H_

#include <sys/types.h>

#include <memory>
#include <string>
#include <thread>

#include "bitlocker/IVolume.h"
#include "mounter/CVolumeFuseServer.h"
#include "mounter/MountRequest.h"

class CMountSession {
 public:
  // `mountPoint` in the request must be the canonical path of a folder;
  // with `removeMountPoint` the session removes that folder when it ends.
  CMountSession(std::unique_ptr<IVolume> volume, const MountRequest& request, bool removeMountPoint);
  ~CMountSession();
  CMountSession(const CMountSession&) = delete;
  CMountSession& operator=(const CMountSession&) = delete;

  // Makes the mount, read-write unless the request asks for "ro" or the
  // volume can only be read.  Returns a MounterStatus and says in *message
  // what came of it: on success exactly "mounted read-write" or "mounted
  // read-only: " and why (kAskedReadOnly, the volume's ReadOnlyReason, or
  // that the file system inside would only mount read-only); on failure
  // why not, and nothing is left mounted then.
  int Start(std::string* message);

  // Blocks until MOUNT_POINT has been unmounted, the FUSE connection has
  // ended, or SIGTERM, SIGINT or SIGHUP arrived, then takes down whatever
  // is left.  Those signals must be blocked in every thread (BlockStopSignals)
  // before Start.
  void ServeUntilUnmounted();

  static void BlockStopSignals();

  static constexpr const char kAskedReadOnly[] = "asked for with ro";

 private:
  int StartRaw(std::string* message);
  int StartFilesystem(std::string* message);
  bool MountServer(const std::string& at, CVolumeFuseServer::Options options, std::string* message);
  // Unmounts `path` lazily if the mount visible there is `mountId`.
  static void DetachIfOurs(const std::string& path, int mountId);
  void TakeDown();

  std::unique_ptr<IVolume> volume_;
  MountRequest request_;
  std::string readOnlyReason_;  // empty while the mount is read-write
  // The folder the session made, to be removed when it ends: only that
  // folder, not one made anew at the same path in the meantime.
  bool removeMountPoint_;
  dev_t mountPointDevice_ = 0;
  ino_t mountPointInode_ = 0;
  std::unique_ptr<CVolumeFuseServer> server_;
  std::thread serving_;
  int servingEnded_[2] = {-1, -1};  // a pipe the serving thread writes to as it ends
  std::string stagingFolder_;   // empty in raw mode
  int serverMountId_ = -1;
  int mountPointMountId_ = -1;  // the mount that MOUNT_POINT shows
};

#endif  // ZQ_MOUNTER_CMOUNTSESSION_H_
