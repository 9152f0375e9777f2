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

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "bitlocker/IVolume.h"
#include "mounter/CMountPoint.h"
#include "mounter/CVolumeFuseServer.h"
#include "mounter/MountRequest.h"

class CMountSession {
 public:
  // Mounts on `mountPoint`, not on whatever the request's path names by
  // then, and removes it when the session ends if it was made for it.
  CMountSession(std::unique_ptr<IVolume> volume, const MountRequest& request, std::unique_ptr<CMountPoint> mountPoint);
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
  // Mounts the server at `at` and starts serving; `findMount` tells the
  // mount's id once it is made, -1 when it is not where it was meant to be.
  bool MountServer(const std::string& at, const std::function<int()>& findMount, CVolumeFuseServer::Options options,
                   std::string* message);
  // Unmounts the staging folder lazily if the mount visible there is `mountId`.
  void DetachStagingIfOurs(int mountId);
  static bool MakeStagingRoot(std::string* message);
  void TakeDown();

  std::unique_ptr<IVolume> volume_;
  MountRequest request_;
  std::string readOnlyReason_;  // empty while the mount is read-write
  // Declared before the server, whose FUSE session may name the mount
  // point by its descriptor until it ends.
  std::unique_ptr<CMountPoint> mountPoint_;
  std::unique_ptr<CVolumeFuseServer> server_;
  std::thread serving_;
  int servingEnded_[2] = {-1, -1};  // a pipe the serving thread writes to as it ends
  std::string stagingFolder_;   // empty in raw mode
  int serverMountId_ = -1;
  int mountPointMountId_ = -1;  // the mount that MOUNT_POINT shows
};

#endif  // ZQ_MOUNTER_CMOUNTSESSION_H_
