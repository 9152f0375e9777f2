#include "ShellQuoting.h"

std::string EscapeBlanks(const std::string& path) {
  std::string word;
  word.reserve(path.size());
  for (char c : path) {
    if (c == ' ') word += '\\';
    word += c;
  }
  return word;
}

std::string SingleQuoted(const std::string& text) {
  std::string word = "'";
  for (char c : text) {
    if (c == '\'')
      word += "'\"'\"'";
    else
      word += c;
  }
  word += '\'';
  return word;
}
