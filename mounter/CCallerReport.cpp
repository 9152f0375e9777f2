#include "mounter/CCallerReport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "bitlocker/MounterStatus.h"
#include "platform/Pipes.h"

namespace {

// The caller's side: the first byte is the status, the rest the message.
[[noreturn]] void WaitForReport(int fd) {
  std::string report;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got > 0) {
      report.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  if (report.empty()) {
    std::fprintf(stderr, "zq-mounter: the background process ended without a report\n");
    std::exit(kMounterMountFailed);
  }
  if (report.size() > 1) std::fprintf(stderr, "zq-mounter: %s\n", report.c_str() + 1);
  std::exit(static_cast<unsigned char>(report[0]));
}

void RedirectStandardStreams() {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0) return;
  for (int stream = 0; stream < 3; ++stream) dup2(null, stream);
  if (null > 2) close(null);
}

}  // namespace

CCallerReport CCallerReport::Detach() {
  int ends[2];
  if (const int error = platform::MakePipe(ends)) {
    errno = error;
    std::perror("zq-mounter: pipe");
    std::exit(kMounterMountFailed);
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    std::perror("zq-mounter: fork");
    std::exit(kMounterMountFailed);
  }
  if (child > 0) {
    close(ends[1]);
    WaitForReport(ends[0]);
  }
  close(ends[0]);
  setsid();
  if (chdir("/") != 0) std::perror("zq-mounter: chdir /");
  RedirectStandardStreams();
  return CCallerReport(ends[1]);
}

CCallerReport::~CCallerReport() {
  if (fd_ >= 0) close(fd_);
}

void CCallerReport::Send(int status, const std::string& message) {
  if (fd_ < 0) return;
  const std::string report = static_cast<char>(status) + message;
  size_t done = 0;
  while (done < report.size()) {
    const ssize_t wrote = write(fd_, report.data() + done, report.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) break;
    done += static_cast<size_t>(wrote);
  }
  close(fd_);
  fd_ = -1;
}
