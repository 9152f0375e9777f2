// Questions about the processes of the machine: is a process of a given
// name running, and stop the process of a given name.
//
// Two name rules are used, each on purpose.  ProcessIsRunning compares a
// query, cut to the kernel's short-name length, exactly and with case.
// KillProcess (and FindOtherRootProcessNamedLike, which the single-copy
// check of the service shares with it) accepts a process whose short name
// is any leading part of the given name, in any mix of case, and looks
// only at root's processes: the service runs as root, so no other user's
// process is a copy of it, whatever its name.
#ifndef ZQ_SYSTEM_CPROCESSMANAGER_H_
#define ZQ_SYSTEM_CPROCESSMANAGER_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct ProcessRecord {
  pid_t pid;
  std::string shortName;  // the kernel's short command name
};

class CProcessManager {
 public:
  CProcessManager() = default;
  CProcessManager(const CProcessManager&) = delete;
  CProcessManager& operator=(const CProcessManager&) = delete;

  // Replaces the snapshot with a new one; returns 0 or the errno value of
  // the failed snapshot, which then leaves the snapshot empty.
  int UpdateProcessList();

  // A snapshot of every process with its short name: 0, or an errno value
  // with `list` left empty.
  static int GetBSDProcessList(std::vector<ProcessRecord>* list);

  // True when a process's short name equals `name` cut to the short-name
  // length, with case.  Takes a fresh snapshot first; null gives false.
  bool ProcessIsRunning(const char* name);

  // Sends SIGKILL to the first process, in the kernel's listing order, that
  // FindOtherRootProcessNamedLike(name) finds.  Never the calling process.
  void KillProcess(const char* name);

 private:
  std::vector<ProcessRecord> processes_;
};

// The first process, in the kernel's listing order, other than the calling
// one, whose real user is root and whose short name is not empty and is a
// leading part of `name` without regard to case; nullopt when there is none
// or `name` is null.
std::optional<pid_t> FindOtherRootProcessNamedLike(const char* name);

#endif  // ZQ_SYSTEM_CPROCESSMANAGER_H_
