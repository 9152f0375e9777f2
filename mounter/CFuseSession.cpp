#include "mounter/CFuseSession.h"

#include <fuse_lowlevel.h>

#include "platform/Fuse.h"

namespace {

constexpr unsigned kMostThreads = 16;

}  // namespace

std::unique_ptr<CFuseSession> CFuseSession::Mount(const std::string& mountPoint, const std::string& options,
                                              const fuse_lowlevel_ops& operations, void* userData, std::string* error) {
  std::string tried;
  for (const platform::FuseBackend& backend : platform::FuseBackends(mountPoint)) {
    const std::string all = backend.options.empty() ? options : options + "," + backend.options;
    const char* argv[] = {"zq-mounter", "-o", all.c_str()};
    fuse_args arguments = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
    fuse_session* session = fuse_session_new(&arguments, &operations, sizeof operations, userData);
    // Reading the options replaced them with copies of the library's own.
    fuse_opt_free_args(&arguments);
    if (session == nullptr) {
      *error = "the FUSE session could not be made for " + backend.name;
      return nullptr;
    }
    if (fuse_session_mount(session, mountPoint.c_str()) == 0) return std::unique_ptr<CFuseSession>(new CFuseSession(session));
    fuse_session_destroy(session);
    tried += (tried.empty() ? "" : ", ") + backend.name;
  }
  *error = "FUSE could not mount " + mountPoint + " (tried " + tried + "): " + platform::FuseMountAdvice();
  return nullptr;
}

CFuseSession::~CFuseSession() {
  fuse_session_unmount(session_);
  fuse_session_destroy(session_);
}

int CFuseSession::Serve() {
  fuse_loop_config* config = fuse_loop_cfg_create();
  fuse_loop_cfg_set_max_threads(config, kMostThreads);
  const int result = fuse_session_loop_mt(session_, config);
  fuse_loop_cfg_destroy(config);
  return result < 0 ? -result : 0;
}
