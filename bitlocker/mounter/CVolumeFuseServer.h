// Serves an unlocked volume through FUSE as a folder that holds one
// read-only file, "volume", whose bytes are the volume's.
//
// Requests are served on several threads at once; each read is decrypted
// straight into the buffer that goes back to the kernel.  Nothing is ever
// written.
#ifndef ZQ_BITLOCKER_MOUNTER_CVOLUMEFUSESERVER_H_
#define ZQ_BITLOCKER_MOUNTER_CVOLUMEFUSESERVER_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

#include <string>

#include "IVolume.h"

struct FuseMount;

class CVolumeFuseServer {
 public:
  static constexpr const char kFileName[] = "volume";

  struct Options {
    std::string sourceName;    // the mount's source in the mount table
    bool allowOther = false;   // let users other than root in
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t fileMode = 0444;    // permission bits of the file
  };

  // `volume` must outlive the server.
  CVolumeFuseServer(IVolume* volume, Options options);
  ~CVolumeFuseServer();
  CVolumeFuseServer(const CVolumeFuseServer&) = delete;
  CVolumeFuseServer& operator=(const CVolumeFuseServer&) = delete;

  // Mounts the folder at `mountPoint`.  False with the reason in *error.
  bool Mount(const std::string& mountPoint, std::string* error);

  // Serves requests until the mount goes away; a lazy unmount of the mount
  // point ends it once nothing holds the file open any more.  Returns 0, or
  // an error number when serving failed.
  int Serve();

  // Tunes the kernel for this mount: reads ahead `kilobytes` at a time.
  bool SetReadAhead(unsigned kilobytes) const;

  const std::string& mountPoint() const { return mountPoint_; }

  // What the server answers for one of its two inodes: the folder (1) and
  // the file (2).  Used by the request handlers.
  struct stat Attributes(uint64_t inode) const;
  IVolume* volume() const { return volume_; }

 private:
  IVolume* volume_;
  Options options_;
  std::string mountPoint_;
  FuseMount* fuse_ = nullptr;
};

#endif  // ZQ_BITLOCKER_MOUNTER_CVOLUMEFUSESERVER_H_
