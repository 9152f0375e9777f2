#include "ipc/CPipeWrapper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ipc/PipeFlags.h"
#include "platform/Pipes.h"

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
  return platform::WriteWithoutSigpipe(descriptor_, buffer, len);
}

void CPipeWrapper::ClosePipe() {
  if (descriptor_ == -1) return;
  close(descriptor_);
  descriptor_ = -1;
  std::memset(path_, 0, sizeof path_);
}

int CPipeWrapper::DeletePipe() { return unlink(path_); }
