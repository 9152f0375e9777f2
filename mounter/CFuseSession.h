// One FUSE mount and the libfuse 3 session that serves it: the same code
// on Linux and macOS, where only the backends to try differ
// (platform/Fuse.h).
#ifndef ZQ_MOUNTER_CFUSESESSION_H_
#define ZQ_MOUNTER_CFUSESESSION_H_

#include <memory>
#include <string>

struct fuse_lowlevel_ops;
struct fuse_session;

class CFuseSession {
 public:
  // Mounts at `mountPoint` with the comma-separated `options`, trying each
  // of the system's backends in turn, and makes the session that answers
  // with `operations`, passing them `userData`.  Null with the reason in
  // *error; nothing is left mounted then.
  static std::unique_ptr<CFuseSession> Mount(const std::string& mountPoint, const std::string& options,
                                           const fuse_lowlevel_ops& operations, void* userData, std::string* error);

  // Unmounts if still mounted.
  ~CFuseSession();
  CFuseSession(const CFuseSession&) = delete;
  CFuseSession& operator=(const CFuseSession&) = delete;

  // Serves requests on several threads until the mount goes away.  Returns
  // 0, or an error number when serving failed.
  int Serve();

 private:
  explicit CFuseSession(fuse_session* session) : session_(session) {}

  fuse_session* session_;
};

#endif  // ZQ_MOUNTER_CFUSESESSION_H_
