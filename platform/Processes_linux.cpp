// Processes on Linux: /proc for the process table, posix_spawn's closefrom
// for children, std::thread for background work.
#include "platform/Processes.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <thread>

extern char** environ;

namespace platform {

// The kernel keeps TASK_COMM_LEN (16) bytes, the last one the terminating zero.
const size_t kShortNameLength = 15;

namespace {

// The whole contents of a small kernel file; nullopt when it cannot be
// opened or read.
std::optional<std::string> ReadSmallFile(const std::string& path) {
  std::ifstream file(path);
  std::string contents((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.is_open() || file.bad()) return std::nullopt;
  return contents;
}

}  // namespace

int ListProcessIds(std::vector<pid_t>* ids) {
  ids->clear();
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return errno;
  while (const dirent* entry = readdir(proc)) {
    const char* name = entry->d_name;
    if (*name == '\0' || name[strspn(name, "0123456789")] != '\0') continue;
    ids->push_back(static_cast<pid_t>(std::stol(name)));
  }
  closedir(proc);
  return 0;
}

std::optional<std::string> ProcessShortName(pid_t pid) {
  std::optional<std::string> name = ReadSmallFile("/proc/" + std::to_string(pid) + "/comm");
  if (name && !name->empty() && name->back() == '\n') name->pop_back();
  return name;
}

// The status file's "Uid:" line holds the real, effective, saved and file
// system ids, in that order.
std::optional<uid_t> ProcessRealUser(pid_t pid) {
  const std::optional<std::string> status = ReadSmallFile("/proc/" + std::to_string(pid) + "/status");
  const size_t line = status ? status->find("\nUid:") : std::string::npos;
  if (line == std::string::npos) return std::nullopt;
  std::istringstream fields(status->substr(line + 5));
  unsigned long uid = 0;
  if (!(fields >> uid)) return std::nullopt;
  return static_cast<uid_t>(uid);
}

// The stat line's field 22 is the start in clock ticks after boot, and
// /proc/stat's btime the boot in seconds since the epoch.
std::optional<time_t> ProcessStartTime(pid_t pid) {
  const std::optional<std::string> stat = ReadSmallFile("/proc/" + std::to_string(pid) + "/stat");
  const std::optional<std::string> machine = ReadSmallFile("/proc/stat");
  const size_t nameEnd = stat ? stat->rfind(')') : std::string::npos;
  const size_t boot = machine ? machine->find("\nbtime ") : std::string::npos;
  if (nameEnd == std::string::npos || boot == std::string::npos) return std::nullopt;
  std::istringstream fields(stat->substr(nameEnd + 1));
  std::string field;
  for (int number = 3; number < 22 && fields >> field; ++number) {
  }
  unsigned long long ticks = 0;
  if (!(fields >> ticks)) return std::nullopt;
  const time_t bootTime = static_cast<time_t>(std::stoll(machine->substr(boot + 7)));
  return bootTime + static_cast<time_t>(ticks / static_cast<unsigned long long>(sysconf(_SC_CLK_TCK)));
}

// PATH is the shell's default search list when this process has none.
std::vector<std::string> ChildEnvironment(const std::string& bundlePrograms) {
  std::vector<std::string> environment;
  std::string path = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "PATH=", 5) == 0) {
      path = *entry;
    } else {
      environment.emplace_back(*entry);
    }
  }
  if (path.size() > 5 && path.back() != ':') path += ':';
  environment.push_back(path + bundlePrograms);
  return environment;
}

void CloseOtherDescriptorsInChild(posix_spawn_file_actions_t* actions, short*) {
  posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
}

void RunInBackground(std::function<void()> work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error&) {
    // No thread to be had: the work is still done, on the caller's time.
    work();
  }
}

}  // namespace platform
