#include "EncryptOnWriteImage.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>

namespace testimages {
namespace {

const char kArchive[] = ZQ_SOURCE_DIR "/../shared/bitlocker-eow.tar.xz";
const char kSection[] = "[bitlk-aes-xts-128-eow]";

// The keys of the volume's section; the manifest holds that one section.
std::map<std::string, std::string> ReadSection(const std::string& path) {
  std::map<std::string, std::string> keys;
  std::ifstream in(path);
  std::string line;
  bool inSection = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] == '[') inSection = line.rfind(kSection, 0) == 0;
    size_t equals = line.find(" = ");
    if (inSection && equals != std::string::npos) keys[line.substr(0, equals)] = line.substr(equals + 3);
  }
  return keys;
}

struct Unpacked {
  Image image;
  std::string why;
  bool ok = false;
};

Unpacked Unpack() {
  Unpacked result;
  if (::access(kArchive, R_OK) != 0) {
    result.why = std::string("encrypt-on-write image not found at ") + kArchive;
    return result;
  }
  std::string folder = ScratchFolder() + "/eow";
  std::string command = "mkdir -p '" + folder + "' && tar -S -xJf '" + kArchive + "' -C '" + folder + "'";
  if (ScratchFolder().empty() || std::system(command.c_str()) != 0) {
    result.why = std::string("cannot unpack ") + kArchive;
    return result;
  }
  std::string root = folder + "/bitlocker-eow";
  auto keys = ReadSection(root + "/manifest.ini");
  if (keys["file"].empty() || keys["password"].empty() || keys["recovery_password"].empty()) {
    result.why = std::string("the manifest of ") + kArchive + " lacks the volume or its credentials";
    return result;
  }
  result.image.name = "bitlk-aes-xts-128-eow";
  result.image.path = root + "/" + keys["file"];
  result.image.password = keys["password"];
  result.image.recoveryPassword = keys["recovery_password"];
  result.image.cipher = keys["cipher"];
  result.image.volumeGuid = keys["volume_guid"];
  result.ok = true;
  return result;
}

}  // namespace

const Image* EncryptOnWriteImage(std::string* why) {
  static const Unpacked unpacked = Unpack();
  if (!unpacked.ok) {
    *why = unpacked.why;
    return nullptr;
  }
  return &unpacked.image;
}

}  // namespace testimages
