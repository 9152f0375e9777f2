// Key derivations checked against values built independently here with
// OpenSSL's SHA-256 and by hand, for what the images cannot show: text
// beyond ASCII, and text that must be refused.
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cstring>
#include <string>
#include <vector>

#include "KeyDerivation.h"

using namespace bitlocker;

namespace {

std::vector<uint8_t> Bytes(const CSecureBuffer& buffer) {
  return std::vector<uint8_t>(buffer.data(), buffer.data() + buffer.size());
}

std::vector<uint8_t> Sha256(const std::vector<uint8_t>& data) {
  std::vector<uint8_t> digest(SHA256_DIGEST_LENGTH);
  SHA256(data.data(), data.size(), digest.data());
  return digest;
}

TEST(Utf16, EncodesEveryPlaneAndRefusesTextThatIsNotUtf8) {
  // "a", e acute, the euro sign, and U+1F600 (a surrogate pair).
  auto wide = Utf8ToUtf16Le("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
  ASSERT_TRUE(wide);
  EXPECT_EQ(Bytes(*wide), (std::vector<uint8_t>{0x61, 0x00, 0xe9, 0x00, 0xac, 0x20, 0x3d, 0xd8, 0x00, 0xde}));
  ASSERT_TRUE(Utf8ToUtf16Le(""));
  EXPECT_TRUE(Utf8ToUtf16Le("")->empty());
  for (const char* bad : {"\xc0\xaf",          // overlong "/"
                          "\x80",              // a lone continuation byte
                          "\xed\xa0\x80",      // an encoded surrogate
                          "\xe2\x82",          // cut short
                          "\xf4\x90\x80\x80",  // beyond U+10FFFF
                          "ok\xff"}) {
    EXPECT_FALSE(Utf8ToUtf16Le(bad)) << bad;
  }
}

TEST(PasswordHash, IsSha256TwiceOverTheUtf16Text) {
  std::vector<uint8_t> utf16 = {'p', 0, 0xe4, 0, 's', 0, 's', 0, 0x3d, 0xd8, 0x00, 0xde};
  auto hash = PasswordHash("p\xc3\xa4ss\xf0\x9f\x98\x80");
  ASSERT_TRUE(hash);
  EXPECT_EQ(Bytes(*hash), Sha256(Sha256(utf16)));
  EXPECT_FALSE(PasswordHash("\xc3"));
}

TEST(RecoveryPassword, RefusesBadShapesAndBadGroups) {
  for (const char* shape : {"000011-000022-000033-000044-000055-000066-000077",         // seven groups
                            "000011-000022-000033-000044-000055-000066-000077-00008",   // short group
                            "0000110-00022-000033-000044-000055-000066-000077-000088",  // dash misplaced
                            "000011 000022 000033 000044 000055 000066 000077 000088",  // blanks
                            "00001a-000022-000033-000044-000055-000066-000077-000088"}) {
    EXPECT_FALSE(HasRecoveryPasswordShape(shape)) << shape;
    EXPECT_FALSE(ParseRecoveryPassword(shape)) << shape;
  }
  // Right shape, but a group that is not a multiple of 11, or is 65536 * 11.
  EXPECT_FALSE(ParseRecoveryPassword("000012-000022-000033-000044-000055-000066-000077-000088"));
  EXPECT_FALSE(ParseRecoveryPassword("000011-000022-000033-000044-000055-000066-000077-720896"));
  EXPECT_FALSE(ParseRecoveryPassword("000011-000022-000033-000044-000055-000066-000077-999999"));
}

}  // namespace
