// Processes on macOS: libproc for the process table, posix_spawn's
// close-on-exec default for children, libdispatch for background work.
#include "platform/Processes.h"

#include <dispatch/dispatch.h>
#include <libproc.h>
#include <sys/param.h>

#include <cerrno>
#include <cstring>
#include <memory>

extern char** environ;

namespace platform {

// Apple documents no length for the name libproc gives; its header declares
// pbi_comm as MAXCOMLEN bytes.  Every name here is cut at MAXCOMLEN - 1, so
// names compare equal whether or not the kernel fills the last byte.
const size_t kShortNameLength = MAXCOMLEN - 1;

namespace {

std::optional<proc_bsdinfo> BsdInfo(pid_t pid) {
  proc_bsdinfo info;
  std::memset(&info, 0, sizeof info);
  if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info) <= 0) return std::nullopt;
  return info;
}

void RunWork(void* context) {
  std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(context));
  (*work)();
}

}  // namespace

int ListProcessIds(std::vector<pid_t>* ids) {
  ids->clear();
  const int bytes = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  if (bytes <= 0) return errno;
  // Room for processes started between the two calls.
  ids->assign(static_cast<size_t>(bytes) / sizeof(pid_t) + 16, 0);
  const int filled = proc_listpids(PROC_ALL_PIDS, 0, ids->data(), static_cast<int>(ids->size() * sizeof(pid_t)));
  if (filled <= 0) {
    ids->clear();
    return errno;
  }
  ids->resize(static_cast<size_t>(filled) / sizeof(pid_t));
  return 0;
}

std::optional<std::string> ProcessShortName(pid_t pid) {
  const std::optional<proc_bsdinfo> info = BsdInfo(pid);
  if (!info) return std::nullopt;
  return std::string(info->pbi_comm, strnlen(info->pbi_comm, kShortNameLength));
}

std::optional<uid_t> ProcessRealUser(pid_t pid) {
  const std::optional<proc_bsdinfo> info = BsdInfo(pid);
  if (!info) return std::nullopt;
  return info->pbi_ruid;
}

std::optional<time_t> ProcessStartTime(pid_t pid) {
  const std::optional<proc_bsdinfo> info = BsdInfo(pid);
  if (!info) return std::nullopt;
  return static_cast<time_t>(info->pbi_start_tvsec);
}

// macOS has its own diskutil, so a child's PATH is left as it is.
std::vector<std::string> ChildEnvironment(const std::string&) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
  return environment;
}

void CloseOtherDescriptorsInChild(posix_spawn_file_actions_t*, short* spawnFlags) {
  *spawnFlags = static_cast<short>(*spawnFlags | POSIX_SPAWN_CLOEXEC_DEFAULT);
}

void RunInBackground(std::function<void()> work) {
  dispatch_async_f(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0),
                   new std::function<void()>(std::move(work)), RunWork);
}

}  // namespace platform
