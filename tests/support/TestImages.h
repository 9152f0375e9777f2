// The real BitLocker images that the tests read: unpacked once per test
// process into a temporary folder, with the manifest that describes them.
#ifndef ZQ_TESTS_SUPPORT_TESTIMAGES_H_
#define ZQ_TESTS_SUPPORT_TESTIMAGES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace testimages {

struct Image {
  std::string name;  // the manifest section, e.g. "bitlk-aes-xts-128"
  std::string path;  // the unpacked image
  std::string password;
  std::string recoveryPassword;
  std::string startupKeyPath;  // empty when the image has none
  std::string cipher;
  std::string volumeGuid;
  std::string decryptedSha256;  // lower-case hex
};

// The images, or null when the archive is missing or cannot be unpacked
// (the reason is in *why).  The folder is removed when the process ends.
const std::vector<Image>* Images(std::string* why);

// The encrypt-on-write volume of ../shared/bitlocker-eow.tar.xz, which no
// digest describes; null when missing.
const Image* EncryptOnWriteImage(std::string* why);

// The image of that name, or null.
const Image* FindImage(const std::string& name, std::string* why);

// A folder of this process's own for scratch files, removed at exit.
const std::string& ScratchFolder();

// Writes `bytes` to a new file in the scratch folder and returns its path.
std::string WriteScratchFile(const std::string& name, const std::vector<uint8_t>& bytes);

// Lower-case hex SHA-256 of bytes.
std::string Sha256Hex(const uint8_t* data, size_t size);

}  // namespace testimages

// Skips the running test, with the reason, when the images are missing.
#define ZQ_REQUIRE_IMAGES(images)                       \
  std::string images##Why;                              \
  const auto* images = testimages::Images(&images##Why); \
  if (images == nullptr) GTEST_SKIP() << images##Why

#endif  // ZQ_TESTS_SUPPORT_TESTIMAGES_H_
