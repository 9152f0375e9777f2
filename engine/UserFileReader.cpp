#include "engine/UserFileReader.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <openssl/crypto.h>

#include <cerrno>
#include <vector>

#include "platform/Users.h"
#include "system/PrimaryGroup.h"

namespace bitlocker {
namespace {

// Reads the file into `out` as this process is; what the child reports.
UserRead ReadHere(const std::string& path, size_t maxSize, std::vector<uint8_t>* out) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat info;
  if (fd < 0) return UserRead::kRefused;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(fd);
    return UserRead::kRefused;
  }
  out->resize(maxSize + 1);
  size_t got = 0;
  while (got < out->size()) {
    const ssize_t n = read(fd, out->data() + got, out->size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close(fd);
      return UserRead::kIoError;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  out->resize(got);
  return got > maxSize ? UserRead::kTooLarge : UserRead::kRead;
}

bool WriteAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Forks a child that becomes `user` and reads the file; its outcome comes
// back as the exit status, the bytes through a pipe.  Only calls that are
// safe after fork in a process with threads are made in the child.
UserRead ReadAs(uid_t user, gid_t group, const std::string& path, size_t maxSize, std::vector<uint8_t>* out) {
  int channel[2];
  if (pipe(channel) != 0) return UserRead::kIoError;
  std::vector<uint8_t> buffer(maxSize + 1);
  const pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    if (setgroups(1, &group) != 0 || setgid(group) != 0 || setuid(user) != 0) _exit(static_cast<int>(UserRead::kRefused));
    UserRead read = ReadHere(path, maxSize, &buffer);
    if (read == UserRead::kRead && !WriteAll(channel[1], buffer.data(), buffer.size())) read = UserRead::kIoError;
    _exit(static_cast<int>(read));
  }
  close(channel[1]);
  if (child < 0) {
    close(channel[0]);
    return UserRead::kIoError;
  }
  size_t got = 0;
  for (;;) {
    const ssize_t n = read(channel[0], buffer.data() + got, buffer.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || (got += static_cast<size_t>(n)) == buffer.size()) break;
  }
  close(channel[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status)) return UserRead::kIoError;
  const auto read = static_cast<UserRead>(WEXITSTATUS(status));
  buffer.resize(got);
  *out = std::move(buffer);
  return read;
}

}  // namespace

UserRead ReadFileAsUser(const std::string& path, size_t maxSize, CSecureBuffer* contents) {
  std::vector<uint8_t> bytes;
  const uid_t user = geteuid() == 0 ? platform::ConsoleUser() : geteuid();
  const UserRead read =
      user == geteuid() ? ReadHere(path, maxSize, &bytes) : ReadAs(user, PrimaryGroupOf(user), path, maxSize, &bytes);
  if (read == UserRead::kRead) *contents = CSecureBuffer(bytes.data(), bytes.size());
  if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
  return read;
}

}  // namespace bitlocker
