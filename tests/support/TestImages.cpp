#include "tests/support/TestImages.h"

#include <openssl/sha.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"

namespace testimages {
namespace {

const std::string kShared = ZQ_SOURCE_DIR "/../shared/";

using Manifest = std::map<std::string, std::map<std::string, std::string>>;

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Sections of "key = value" lines; ';' starts a comment line.
Manifest ReadManifest(const std::string& path) {
  Manifest sections;
  std::ifstream in(path);
  std::string section;
  for (std::string line; std::getline(in, line);) {
    line = Trim(line);
    const size_t equals = line.find('=');
    if (line.size() > 1 && line.front() == '[' && line.back() == ']')
      section = line.substr(1, line.size() - 2);
    else if (!section.empty() && line[0] != ';' && equals != std::string::npos)
      sections[section][Trim(line.substr(0, equals))] = Trim(line.substr(equals + 1));
  }
  return sections;
}

struct Unpacked {
  std::vector<Image> images;
  std::string why;  // empty when the images are there
};

// The images of ../shared/<name>.tar.xz, which unpacks into <name>/.
Unpacked Unpack(const std::string& name) {
  const std::string archive = kShared + name + ".tar.xz";
  if (access(archive.c_str(), R_OK) != 0) return {{}, "test images not found at " + archive};
  const std::string folder = ScratchFolder() + "/" + name;
  if (RunShell("mkdir -p '" + folder + "' && tar -S -xJf '" + archive + "' -C '" + folder + "'") != 0)
    return {{}, "cannot unpack " + archive};
  const std::string root = folder + "/" + name + "/";
  Manifest manifest = ReadManifest(root + "manifest.ini");
  Unpacked result;
  for (auto& [name, keys] : manifest) {
    const std::string startupKey = keys["startup_key"];
    result.images.push_back({name, root + keys["file"], keys["password"], keys["recovery_password"],
                             startupKey.empty() ? "" : root + startupKey, keys["cipher"], keys["volume_guid"],
                             keys["decrypted_sha256"]});
  }
  if (result.images.empty()) result.why = "the manifest of " + archive + " lists no images";
  return result;
}

}  // namespace

const std::string& ScratchFolder() {
  static const TempDir scratch;
  return scratch.path();
}

const std::vector<Image>* Images(std::string* why) {
  static const Unpacked unpacked = Unpack("bitlocker-images");
  *why = unpacked.why;
  return unpacked.why.empty() ? &unpacked.images : nullptr;
}

const Image* EncryptOnWriteImage(std::string* why) {
  static const Unpacked unpacked = Unpack("bitlocker-eow");
  *why = unpacked.why;
  return unpacked.why.empty() ? &unpacked.images.front() : nullptr;
}

const Image* FindImage(const std::string& name, std::string* why) {
  const auto* images = Images(why);
  if (!images) return nullptr;
  for (const auto& image : *images)
    if (image.name == name) return &image;
  *why = "the manifest has no image " + name;
  return nullptr;
}

std::string WriteScratchFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  const std::string path = ScratchFolder() + "/" + name;
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::string Sha256Hex(const uint8_t* data, size_t size) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(data, size, digest);
  std::string hex;
  for (unsigned char byte : digest) hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return hex;
}

}  // namespace testimages
