#include "util/ShellQuoting.h"

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

std::string ShellWordText(const std::string& word) {
  std::string text;
  for (size_t i = 0; i < word.size(); ++i) text += word[i] == '\\' && i + 1 < word.size() ? word[++i] : word[i];
  return text;
}
