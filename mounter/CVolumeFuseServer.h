// Serves an unlocked volume through FUSE as a folder that holds one file,
// "volume", whose bytes are the volume's, read-only or read-write.
//
// Requests are served on several threads at once; each read is decrypted
// straight into the buffer that goes back to the kernel.  Each write goes
// through the volume to the device before the kernel hears that it is
// done, and nothing is cached here, so what a writer was told is written
// survives the server's death; flush, fsync and release make it durable.
// The file's size is the volume's and never changes: a write at or past
// its end fails with ENOSPC, as on a full device, one across it writes
// what fits, and a change of size (truncate, O_TRUNC) fails with EPERM.
#ifndef ZQ_MOUNTER_CVOLUMEFUSESERVER_H_
#define ZQ_MOUNTER_CVOLUMEFUSESERVER_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "bitlocker/IVolume.h"
#include "mounter/CFuseSession.h"

class CVolumeFuseServer {
 public:
  static constexpr const char kFileName[] = "volume";

  struct Options {
    std::string sourceName;    // the mount's source in the mount table
    bool allowOther = false;   // let users other than root in
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t fileMode = 0444;    // permission bits of the file
    bool writable = false;     // mount read-write; the volume must be writable
    // Reads and writes bypass the kernel's page cache: each read costs one
    // copy less, and nothing is read ahead or kept.
    bool directIo = false;
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

  // What the server answers for one of its two inodes: the folder (1) and
  // the file (2).  Used by the request handlers.
  struct stat Attributes(uint64_t inode) const;
  IVolume* volume() const { return volume_; }
  bool writable() const { return options_.writable; }
  bool directIo() const { return options_.directIo; }

  // Writes `size` bytes at `offset` through the volume.  Returns the count
  // written, short only where the volume ends, or -ENOSPC when `offset` lies
  // at or past its end, or minus the volume's error number.
  ssize_t Write(uint64_t offset, const char* data, size_t size);

  // Makes every write so far durable on the device (IVolume::Flush); at
  // once when nothing was written since the last time.  Returns 0 or an
  // error number.
  int FlushWrites();

 private:
  IVolume* volume_;
  Options options_;
  std::mutex flushing_;
  // Set after each write, before it is acknowledged; taken back, under
  // flushing_, just before the volume is flushed.
  std::atomic<bool> unflushed_{false};
  std::unique_ptr<CFuseSession> fuse_;
};

#endif  // ZQ_MOUNTER_CVOLUMEFUSESERVER_H_
