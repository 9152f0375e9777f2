#include "TestImages.h"

#include <openssl/sha.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

namespace testimages {
namespace {

const char kArchive[] = ZQ_SOURCE_DIR "/../shared/bitlocker-images.tar.xz";

std::string ShellQuote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// Removes the scratch folder when the process ends.
class CScratch {
 public:
  CScratch() {
    char pattern[] = "/tmp/zq-bitlocker-test-XXXXXX";
    if (::mkdtemp(pattern)) path_ = pattern;
  }
  ~CScratch() {
    if (!path_.empty()) std::system(("rm -rf " + ShellQuote(path_)).c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string Trim(const std::string& text) {
  size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  size_t last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

// Sections of key = value lines; ';' starts a comment line.
std::map<std::string, std::map<std::string, std::string>> ReadIni(const std::string& path) {
  std::map<std::string, std::map<std::string, std::string>> sections;
  std::ifstream in(path);
  std::string line, section;
  while (std::getline(in, line)) {
    line = Trim(line);
    if (line.empty() || line[0] == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      sections[section];
      continue;
    }
    size_t equals = line.find('=');
    if (equals == std::string::npos || section.empty()) continue;
    sections[section][Trim(line.substr(0, equals))] = Trim(line.substr(equals + 1));
  }
  return sections;
}

struct Unpacked {
  std::vector<Image> images;
  std::string why;
  bool ok = false;
};

Unpacked Unpack() {
  Unpacked result;
  if (::access(kArchive, R_OK) != 0) {
    result.why = std::string("test images not found at ") + kArchive;
    return result;
  }
  std::string folder = ScratchFolder() + "/images";
  std::string command = "mkdir -p " + ShellQuote(folder) + " && tar -S -xJf " +
                        ShellQuote(kArchive) + " -C " + ShellQuote(folder);
  if (ScratchFolder().empty() || std::system(command.c_str()) != 0) {
    result.why = "cannot unpack " + std::string(kArchive);
    return result;
  }
  std::string root = folder + "/bitlocker-images";
  for (const auto& [name, keys] : ReadIni(root + "/manifest.ini")) {
    auto value = [&keys = keys](const char* key) {
      auto found = keys.find(key);
      return found == keys.end() ? std::string() : found->second;
    };
    Image image;
    image.name = name;
    image.path = root + "/" + value("file");
    image.password = value("password");
    image.recoveryPassword = value("recovery_password");
    if (!value("startup_key").empty()) image.startupKeyPath = root + "/" + value("startup_key");
    image.cipher = value("cipher");
    image.volumeGuid = value("volume_guid");
    image.decryptedSha256 = value("decrypted_sha256");
    result.images.push_back(image);
  }
  if (result.images.empty()) {
    result.why = "the manifest of " + std::string(kArchive) + " lists no images";
    return result;
  }
  result.ok = true;
  return result;
}

}  // namespace

const std::string& ScratchFolder() {
  static CScratch scratch;
  return scratch.path();
}

const std::vector<Image>* Images(std::string* why) {
  static const Unpacked unpacked = Unpack();
  if (!unpacked.ok) {
    *why = unpacked.why;
    return nullptr;
  }
  return &unpacked.images;
}

const Image* FindImage(const std::string& name, std::string* why) {
  const auto* images = Images(why);
  if (!images) return nullptr;
  for (const auto& image : *images) {
    if (image.name == name) return &image;
  }
  *why = "the manifest has no image " + name;
  return nullptr;
}

std::string WriteScratchFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  std::string path = ScratchFolder() + "/" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::string Sha256Hex(const uint8_t* data, size_t size) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(data, size, digest);
  std::string hex;
  char pair[3];
  for (unsigned char byte : digest) {
    std::snprintf(pair, sizeof(pair), "%02x", byte);
    hex += pair;
  }
  return hex;
}

}  // namespace testimages
