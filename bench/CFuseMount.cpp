#include "bench/CFuseMount.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "bench/BenchProgram.h"

std::unique_ptr<CFuseMount> CFuseMount::Start(std::vector<std::string> argv,
                                              const std::string& fileName) {
  char pattern[] = "/tmp/zq-bitlocker-bench-XXXXXX";
  if (!::mkdtemp(pattern)) return nullptr;
  std::unique_ptr<CFuseMount> mount(new CFuseMount(pattern));
  argv.push_back(pattern);
  if (!RunProgram(argv)) return nullptr;
  mount->file_ = mount->mountPoint_ + "/" + fileName;
  struct stat st;
  if (::stat(mount->file_.c_str(), &st) != 0) return nullptr;
  return mount;
}

CFuseMount::~CFuseMount() {
  if (!file_.empty()) RunProgram({"fusermount", "-u", "-q", mountPoint_});
  ::rmdir(mountPoint_.c_str());
}
