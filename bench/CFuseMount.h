// A reference reader's FUSE mount of a BitLocker image, for comparison: the
// tool is started on a fresh mount point and unmounted when this object goes.
#ifndef ZQ_BENCH_CFUSEMOUNT_H_
#define ZQ_BENCH_CFUSEMOUNT_H_

#include <memory>
#include <string>
#include <vector>

class CFuseMount {
 public:
  // Runs `argv` with the mount point appended and returns the mount, or
  // null when the tool is missing or fails.  `fileName` is the decrypted
  // volume's file inside the mount.
  static std::unique_ptr<CFuseMount> Start(std::vector<std::string> argv,
                                           const std::string& fileName);
  ~CFuseMount();

  CFuseMount(const CFuseMount&) = delete;
  CFuseMount& operator=(const CFuseMount&) = delete;

  const std::string& file() const { return file_; }

 private:
  explicit CFuseMount(std::string mountPoint) : mountPoint_(std::move(mountPoint)) {}

  std::string mountPoint_;
  std::string file_;
};

#endif  // ZQ_BENCH_CFUSEMOUNT_H_
