#include "tests/support/MounterHarness.h"

#include <dirent.h>
#include <mntent.h>
#include <sys/mount.h>
#include <unistd.h>

#include <memory>
#include <sstream>

#include "tests/support/FileContents.h"
#include "tests/support/TestImages.h"

namespace {

// Each mount's source and mount point, unescaped.
std::vector<std::pair<std::string, std::string>> Mounts() {
  std::vector<std::pair<std::string, std::string>> mounts;
  std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/self/mounts", "r"), endmntent);
  while (const mntent* entry = table ? getmntent(table.get()) : nullptr)
    mounts.emplace_back(entry->mnt_fsname, entry->mnt_dir);
  return mounts;
}

// The names in `folder`.
std::vector<std::string> Entries(const char* folder) {
  std::vector<std::string> names;
  std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder), closedir);
  while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) names.push_back(entry->d_name);
  return names;
}

}  // namespace

std::string FuseUnavailable() {
  if (geteuid() != 0) return "FUSE mounts of other users' files need root";
  if (access("/dev/fuse", R_OK | W_OK) != 0) return "/dev/fuse is missing";
  return "";
}

bool MountedAt(const std::string& path) {
  for (const auto& [source, point] : Mounts())
    if (point == path) return true;
  return false;
}

std::vector<std::string> MountPointsOfSource(const std::string& source) {
  std::vector<std::string> points;
  for (const auto& [from, point] : Mounts())
    if (from == source) points.push_back(point);
  return points;
}

std::vector<int> LiveProcessesWithWord(const std::string& text) {
  std::vector<int> found;
  for (const std::string& name : Entries("/proc")) {
    const int pid = std::atoi(name.c_str());
    const std::string stat = ReadFile("/proc/" + name + "/stat");
    const size_t close = stat.rfind(')');
    if (pid <= 0 || pid == getpid() || close == std::string::npos || stat.substr(close, 3) == ") Z") continue;
    std::istringstream words(ReadFile("/proc/" + name + "/cmdline"));
    bool holds = false;
    for (std::string word; !holds && std::getline(words, word, '\0');) holds = word == text;
    if (holds) found.push_back(pid);
  }
  return found;
}

bool WaitUntilNoProcessWithWord(const std::string& text, int seconds) {
  for (int i = 0; i < seconds * 20 && !LiveProcessesWithWord(text).empty(); ++i) usleep(50 * 1000);
  return LiveProcessesWithWord(text).empty();
}

std::vector<std::string> LoopDevicesBackedBy(const std::string& prefix) {
  std::vector<std::string> devices;
  for (const std::string& name : Entries("/sys/block"))
    if (name.rfind("loop", 0) == 0 && ReadFile("/sys/block/" + name + "/loop/backing_file").rfind(prefix, 0) == 0)
      devices.push_back("/dev/" + name);
  return devices;
}

std::string FileSha256(const std::string& path) {
  if (access(path.c_str(), R_OK) != 0) return "";
  const std::string bytes = ReadFile(path);
  return testimages::Sha256Hex(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

void ForceUnmount(const std::string& mountPoint) {
  for (int round = 0; round < 4 && MountedAt(mountPoint); ++round) umount2(mountPoint.c_str(), MNT_DETACH);
}
