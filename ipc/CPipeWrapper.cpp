#include "CPipeWrapper.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "PipeFlags.h"

namespace {

// Writes with SIGPIPE blocked in this thread, and takes back a SIGPIPE the
// write raised, so that a peer that went away costs an EPIPE, not the
// process.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t len) {
  sigset_t sigpipe, saved;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, &saved);
  sigset_t pendingBefore;
  sigpending(&pendingBefore);
  const bool alreadyPending = sigismember(&pendingBefore, SIGPIPE);

  const ssize_t written = write(fd, buffer, len);
  const int writeErrno = errno;
  if (written == -1 && writeErrno == EPIPE && !alreadyPending) {
    const timespec noWait = {0, 0};
    while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  errno = writeErrno;
  return written;
}

}  // namespace

CPipeWrapper::CPipeWrapper() : descriptor_(-1), flags_(0) { std::memset(path_, 0, sizeof path_); }

CPipeWrapper::~CPipeWrapper() { ClosePipe(); }

void CPipeWrapper::InitPipe(const char* name, int flags) {
  if (name == nullptr) return;
  std::strncpy(path_, name, sizeof path_ - 1);
  flags_ = flags;
}

int CPipeWrapper::OpenPipe() {
  if (flags_ & kPipeCreateFlag) mkfifo(path_, 0777);
  descriptor_ = open(path_, (flags_ & ~kPipeCreateFlag) | O_CLOEXEC | O_NOFOLLOW);
  struct stat info;
  if (descriptor_ != -1 && (fstat(descriptor_, &info) != 0 || !S_ISFIFO(info.st_mode))) {
    close(descriptor_);
    descriptor_ = -1;
    errno = EINVAL;
  }
  return descriptor_;
}

bool CPipeWrapper::StillOpenOnPath() const {
  struct stat onPath, open;
  if (descriptor_ == -1 || lstat(path_, &onPath) != 0 || fstat(descriptor_, &open) != 0) return true;
  return onPath.st_dev == open.st_dev && onPath.st_ino == open.st_ino;
}

int CPipeWrapper::ReopenPipe() {
  if (descriptor_ != -1) close(descriptor_);
  return OpenPipe();
}

long CPipeWrapper::ReadFromPipe(void* buffer, unsigned long len) {
  if (buffer == nullptr || descriptor_ == -1) return -1;
  std::memset(buffer, 0, len);
  // errno is judged whatever read returns, so an EAGAIN left over from an
  // earlier empty poll must not make a good read look like a failure.
  errno = 0;
  const ssize_t result = read(descriptor_, buffer, len);
  if (errno == EAGAIN) return -1;
  return result;
}

long CPipeWrapper::WriteToPipe(void* buffer, unsigned long len) {
  if (buffer == nullptr || descriptor_ == -1) return -1;
  return WriteWithoutSigpipe(descriptor_, buffer, len);
}

void CPipeWrapper::ClosePipe() {
  if (descriptor_ == -1) return;
  close(descriptor_);
  descriptor_ = -1;
  std::memset(path_, 0, sizeof path_);
}

int CPipeWrapper::DeletePipe() { return unlink(path_); }
