#include "system/CDevLogs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "system/OwnPath.h"

namespace {

constexpr char kLinePrefix[] = "[Zq Norvane]";
constexpr size_t kLineBufferSize = 8192;

}  // namespace

CDevLogs* CDevLogs::Instance() {
  static CDevLogs logs("/tmp/zqlog.log");
  return &logs;
}

namespace {

// The log file at `path` if it is one this process may append to: a regular
// file of this process's user with no other name.  Non-blocking, so that a
// FIFO planted at the path cannot hold the open.
int OpenOwnFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  struct stat info;
  if (fd >= 0 && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() && info.st_nlink == 1)
    return fd;
  if (fd >= 0) close(fd);
  return -1;
}

// Makes the file anew, mode 0644, in place of whatever lies at `path`.
int MakeAnew(const std::string& path) {
  int fd = -1;
  const int error = PutOwnFileAt(path, [&fd](int folder, const char* name) {
    fd = openat(folder, name, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return errno;
    if (fchmod(fd, 0644) == 0) return 0;
    const int failure = errno;
    close(fd);
    fd = -1;
    return failure;
  });
  if (error == 0) return fd;
  if (fd >= 0) close(fd);
  errno = error;
  return -1;
}

}  // namespace

int OpenOwnLogFile(const std::string& path) {
  int fd = OpenOwnFile(path);
  if (fd < 0) fd = MakeAnew(path);
  if (fd >= 0) fcntl(fd, F_SETFL, O_APPEND);
  return fd;
}

CDevLogs::CDevLogs(const std::string& path) : file_(nullptr), message_{} {
  const int fd = OpenOwnLogFile(path);
  if (fd >= 0) {
    file_ = fdopen(fd, "a");
    if (file_ == nullptr) close(fd);
  }
  if (file_ == nullptr) {
    std::fprintf(stderr, "%s: the log cannot be used (%s); its lines go to standard error\n", path.c_str(),
                 std::strerror(errno));
    file_ = stderr;
  }
  line_.reserve(kLineBufferSize);
}

CDevLogs::~CDevLogs() {
  if (file_ != stderr) std::fclose(file_);
}

void CDevLogs::WriteLog(const char* format, ...) {
  if (format == nullptr) return;
  std::lock_guard<std::mutex> lock(mutex_);

  va_list arguments;
  va_start(arguments, format);
  va_list measuring;
  va_copy(measuring, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);

  char* message = message_;
  std::unique_ptr<char[]> longMessage;
  if (length >= 0 && static_cast<size_t>(length) >= kMessageBufferSize) {
    longMessage.reset(new (std::nothrow) char[static_cast<size_t>(length) + 1]);
    message = longMessage.get();
  }
  if (length < 0 || message == nullptr) {
    va_end(arguments);
    return;
  }
  std::vsnprintf(message, static_cast<size_t>(length) + 1, format, arguments);
  va_end(arguments);

  FormatLine(message, static_cast<size_t>(length), &line_);
  std::fwrite(line_.data(), 1, line_.size(), file_);
  std::fflush(file_);
}

void CDevLogs::FormatLine(const char* message, size_t length, std::string* line) {
  line->assign(kLinePrefix);
  *line += CurrentTimeString();
  *line += "    ";
  line->append(message, length);
  *line += "\r\n";
}

std::string CDevLogs::CurrentTimeString() {
  const time_t now = time(nullptr);
  struct tm local = {};
  localtime_r(&now, &local);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return text;
}
