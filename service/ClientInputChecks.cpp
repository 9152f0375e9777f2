#include "ClientInputChecks.h"

#include <cstring>

namespace {

bool IsAsciiAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

}  // namespace

bool IsPlainDeviceName(const std::optional<std::string>& name) {
  if (!name || name->empty() || (*name)[0] == '.') return false;
  for (char c : *name)
    if (!IsAsciiAlnum(c) && std::strchr("._-", c) == nullptr) return false;
  return true;
}

bool IsSingleShellWord(const std::optional<std::string>& word) {
  if (!word) return false;
  for (size_t i = 0; i < word->size(); ++i) {
    const char c = (*word)[i];
    if (c == '\\') {
      // A backslash quotes the next character, whatever it is, except a
      // line end, which the shell would swallow with it.
      if (++i == word->size() || (*word)[i] == '\n') return false;
      continue;
    }
    if (c == '\0' || (!IsAsciiAlnum(c) && std::strchr("._/,:=+@%-", c) == nullptr)) return false;
  }
  return true;
}

bool FitsInSingleQuotes(const std::optional<std::string>& text) {
  return text && text->find('\'') == std::string::npos;
}
