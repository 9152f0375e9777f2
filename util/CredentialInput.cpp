#include "util/CredentialInput.h"

#include <openssl/crypto.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

// Reads up to a newline or the end of input, byte by byte, so that nothing
// past the line is buffered away and no copy is left in a stream buffer.
// The room is reserved up front so that growing leaves no stray copies.
std::optional<std::string> ReadLine(int fd) {
  std::string line;
  line.reserve(1024);
  char c;
  bool readAny = false;
  for (;;) {
    ssize_t got = ::read(fd, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 || (got == 0 && !readAny)) return std::nullopt;
    readAny = true;
    if (got == 0 || c == '\n') break;
    line.push_back(c);
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

}  // namespace

std::optional<std::string> ReadCredential(const char* prompt) {
  if (!::isatty(STDIN_FILENO)) return ReadLine(STDIN_FILENO);

  std::fprintf(stderr, "%s", prompt);
  std::fflush(stderr);
  termios saved;
  bool restore = ::tcgetattr(STDIN_FILENO, &saved) == 0;
  if (restore) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  auto line = ReadLine(STDIN_FILENO);
  if (restore) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fprintf(stderr, "\n");
  return line;
}

void WipeCredential(std::string* text) {
  if (!text->empty()) OPENSSL_cleanse(&(*text)[0], text->size());
  text->clear();
}
