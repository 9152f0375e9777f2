#include "MounterHarness.h"

#include <dirent.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "FileContents.h"
#include "TestImages.h"

namespace {

std::string Unescaped(const std::string& field) {
  std::string plain;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      plain += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      plain += field[i];
    }
  }
  return plain;
}

struct Mount {
  std::string point;
  std::string source;
};

std::vector<Mount> Mounts() {
  std::vector<Mount> mounts;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string id, parent, number, root, point, field, type, source;
    fields >> id >> parent >> number >> root >> point;
    while (fields >> field && field != "-") {
    }
    fields >> type >> source;
    mounts.push_back({Unescaped(point), Unescaped(source)});
  }
  return mounts;
}

}  // namespace

std::string FuseUnavailable() {
  if (geteuid() != 0) return "FUSE mounts of other users' files need root";
  if (access("/dev/fuse", R_OK | W_OK) != 0) return "/dev/fuse is missing";
  return "";
}

bool MountedAt(const std::string& path) {
  for (const Mount& mount : Mounts())
    if (mount.point == path) return true;
  return false;
}

std::vector<std::string> MountPointsOfSource(const std::string& source) {
  std::vector<std::string> points;
  for (const Mount& mount : Mounts())
    if (mount.source == source) points.push_back(mount.point);
  return points;
}

std::vector<int> LiveProcessesWithWord(const std::string& text) {
  std::vector<int> found;
  std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
  if (!proc) return found;
  while (const dirent* entry = readdir(proc.get())) {
    const int pid = std::atoi(entry->d_name);
    if (pid <= 0 || pid == getpid()) continue;
    const std::string base = std::string("/proc/") + entry->d_name;
    const std::string stat = ReadFile(base + "/stat");
    const size_t close = stat.rfind(')');
    if (close == std::string::npos || close + 2 >= stat.size() || stat[close + 2] == 'Z') continue;
    std::istringstream words(ReadFile(base + "/cmdline"));
    for (std::string word; std::getline(words, word, '\0');) {
      if (word == text) {
        found.push_back(pid);
        break;
      }
    }
  }
  return found;
}

bool WaitUntilNoProcessWithWord(const std::string& text, int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!LiveProcessesWithWord(text).empty()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

std::vector<std::string> LoopDevicesBackedBy(const std::string& prefix) {
  std::vector<std::string> devices;
  std::unique_ptr<DIR, int (*)(DIR*)> block(opendir("/sys/block"), closedir);
  if (!block) return devices;
  while (const dirent* entry = readdir(block.get())) {
    const std::string name = entry->d_name;
    if (name.rfind("loop", 0) != 0) continue;
    std::string backing = ReadFile("/sys/block/" + name + "/loop/backing_file");
    if (!backing.empty() && backing.back() == '\n') backing.pop_back();
    if (!backing.empty() && backing.rfind(prefix, 0) == 0) devices.push_back("/dev/" + name);
  }
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
