#include "system/CProcessManager.h"

#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <string>

#include "platform/Processes.h"

int CProcessManager::UpdateProcessList() {
  processes_.clear();
  return GetBSDProcessList(&processes_);
}

int CProcessManager::GetBSDProcessList(std::vector<ProcessRecord>* list) {
  list->clear();
  std::vector<pid_t> ids;
  if (const int error = platform::ListProcessIds(&ids)) return error;
  for (pid_t pid : ids) {
    // A process that ended since the listing is simply left out.
    if (std::optional<std::string> name = platform::ProcessShortName(pid)) list->push_back({pid, std::move(*name)});
  }
  return 0;
}

bool CProcessManager::ProcessIsRunning(const char* name) {
  if (name == nullptr) return false;
  // The kernel keeps only the first characters of a long name; cutting the
  // query the same way lets a long application name match.
  const std::string shortName = std::string(name).substr(0, platform::kShortNameLength);
  if (UpdateProcessList() != 0) return false;
  for (const ProcessRecord& process : processes_)
    if (process.shortName == shortName) return true;
  return false;
}

void CProcessManager::KillProcess(const char* name) {
  if (const std::optional<pid_t> pid = FindOtherRootProcessNamedLike(name)) kill(*pid, SIGKILL);
}

std::optional<pid_t> FindOtherRootProcessNamedLike(const char* name) {
  if (name == nullptr) return std::nullopt;
  const pid_t self = getpid();
  std::vector<pid_t> ids;
  platform::ListProcessIds(&ids);
  for (pid_t pid : ids) {
    if (pid == 0 || pid == self) continue;
    const std::optional<std::string> shortName = platform::ProcessShortName(pid);
    if (!shortName || shortName->empty()) continue;
    if (strncasecmp(shortName->c_str(), name, shortName->size()) != 0) continue;
    if (platform::ProcessRealUser(pid) == std::optional<uid_t>(0)) return pid;
  }
  return std::nullopt;
}
