#include "tests/support/FileContents.h"

#include <fstream>
#include <sstream>

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}
