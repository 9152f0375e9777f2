// macFUSE 5.2 and later mount through one of two backends, chosen by the
// mount option backend=: its kernel extension, which an Apple-silicon Mac
// loads only after the user lowers the system's security in Recovery, or
// FSKit, in user space, from macOS 15.4 on.  macFUSE's documentation
// ("FUSE Backends") says FSKit mounts only in /Volumes and implements few
// of the kernel's mount options yet.  That costs nothing here: nosuid and
// nodev guard against files the server never serves (it serves one plain
// file and its folder), and the owner and permissions are the attributes
// the server answers with, not mount options.
#include <sys/sysctl.h>

#include <cstdio>

#include "platform/Fuse.h"

namespace platform {
namespace {

// kern.osproductversion is the release, "15.4.1"; FSKit came with 15.4.
bool SystemHasFskit() {
  char release[32] = {};
  size_t size = sizeof release - 1;
  unsigned major = 0, minor = 0;
  if (sysctlbyname("kern.osproductversion", release, &size, nullptr, 0) != 0 ||
      std::sscanf(release, "%u.%u", &major, &minor) < 1)
    return false;
  return major > 15 || (major == 15 && minor >= 4);
}

}  // namespace

std::vector<FuseBackend> FuseBackends(const std::string& mountPoint) {
  const FuseBackend kernel{"macFUSE's kernel extension", ""};
  // macFUSE 5.0's notes warned against FSKit mounts made as root; whether
  // 5.2's mounts over XPC lift that is not documented.  The kernel
  // extension is tried next in any case.
  if (SystemHasFskit() && mountPoint.rfind("/Volumes/", 0) == 0) return {{"macFUSE's FSKit backend", "backend=fskit"}, kernel};
  return {kernel};
}

std::string FuseMountAdvice() {
  return "install macFUSE 5.2 or later; on macOS 15.4 or later allow its file system extension (System Settings, "
         "General, Login Items & Extensions, File System Extensions), on earlier macOS its kernel extension "
         "(System Settings, Privacy & Security)";
}

// Apple documents no per-mount read-ahead setting, and macFUSE names none in
// its headers, so the kernel keeps its own.
bool SetFuseReadAhead(int, unsigned) { return false; }

}  // namespace platform
