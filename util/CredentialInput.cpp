#include "util/CredentialInput.h"

#include <openssl/crypto.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

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

// The terminal's settings before the prompt, for a signal that ends the
// process while echo is off: the shell that started it may not restore
// them (dash does not).
termios beforePrompt;
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void RestoreAndEnd(int signal) {
  ::tcsetattr(STDIN_FILENO, TCSANOW, &beforePrompt);
  [[maybe_unused]] const ssize_t ended = ::write(STDERR_FILENO, "\n", 1);
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

}  // namespace

std::optional<std::string> ReadCredential(const char* prompt) {
  if (!::isatty(STDIN_FILENO)) return ReadLine(STDIN_FILENO);

  termios saved;
  bool restore = ::tcgetattr(STDIN_FILENO, &saved) == 0;
  struct sigaction ending = {}, previous[std::size(kEndingSignals)];
  if (restore) {
    beforePrompt = saved;
    ending.sa_handler = RestoreAndEnd;
    for (size_t i = 0; i < std::size(kEndingSignals); ++i) ::sigaction(kEndingSignals[i], &ending, &previous[i]);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  // Only once echo is off: what is typed on seeing the prompt is then
  // neither shown nor flushed away.
  std::fprintf(stderr, "%s", prompt);
  std::fflush(stderr);
  auto line = ReadLine(STDIN_FILENO);
  if (restore) {
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    for (size_t i = 0; i < std::size(kEndingSignals); ++i) ::sigaction(kEndingSignals[i], &previous[i], nullptr);
  }
  std::fprintf(stderr, "\n");
  return line;
}

void WipeCredential(std::string* text) {
  if (!text->empty()) OPENSSL_cleanse(&(*text)[0], text->size());
  text->clear();
}
