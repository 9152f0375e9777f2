// Key derivations checked against values built independently here with
// OpenSSL's SHA-256 and by hand.
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <algorithm>
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

TEST(Utf16, EncodesEveryPlaneWithSurrogatePairsBeyondTheFirst) {
  // "a", e acute, the euro sign, and U+1F600 (a surrogate pair).
  auto wide = Utf8ToUtf16Le("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
  ASSERT_TRUE(wide);
  EXPECT_EQ(Bytes(*wide),
            (std::vector<uint8_t>{0x61, 0x00, 0xe9, 0x00, 0xac, 0x20, 0x3d, 0xd8, 0x00, 0xde}));
  auto empty = Utf8ToUtf16Le("");
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
}

TEST(Utf16, RefusesTextThatIsNotUtf8) {
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

TEST(RecoveryPassword, AcceptsEightGroupsWithOrWithoutDashes) {
  const std::string dashed = "000011-000022-720885-000000-001100-011000-110000-000055";
  std::string plain = dashed;
  plain.erase(std::remove(plain.begin(), plain.end(), '-'), plain.end());
  EXPECT_TRUE(HasRecoveryPasswordShape(dashed));
  EXPECT_TRUE(HasRecoveryPasswordShape(plain));

  // Each group divided by 11, as a 16-bit little-endian value.
  const std::vector<uint8_t> expected = {1, 0, 2, 0, 0xff, 0xff, 0, 0, 100, 0, 0xe8, 0x03, 0x10, 0x27, 5, 0};
  auto fromDashed = ParseRecoveryPassword(dashed);
  auto fromPlain = ParseRecoveryPassword(plain);
  ASSERT_TRUE(fromDashed);
  ASSERT_TRUE(fromPlain);
  EXPECT_EQ(Bytes(*fromDashed), expected);
  EXPECT_EQ(Bytes(*fromPlain), expected);
  EXPECT_EQ(Bytes(RecoveryPasswordHash(*fromDashed)), Sha256(expected));
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

TEST(StretchKey, RepeatsSha256OverLastHashInitialHashSaltAndCount) {
  std::vector<uint8_t> initial(32), salt(16);
  for (size_t i = 0; i < initial.size(); ++i) initial[i] = static_cast<uint8_t>(3 * i + 1);
  for (size_t i = 0; i < salt.size(); ++i) salt[i] = static_cast<uint8_t>(0xa0 + i);

  for (uint64_t rounds : {1, 2, 5, 300}) {
    std::vector<uint8_t> last(32, 0);
    for (uint64_t count = 0; count < rounds; ++count) {
      std::vector<uint8_t> record = last;
      record.insert(record.end(), initial.begin(), initial.end());
      record.insert(record.end(), salt.begin(), salt.end());
      for (int b = 0; b < 8; ++b) record.push_back(static_cast<uint8_t>(count >> (8 * b)));
      last = Sha256(record);
    }
    CSecureBuffer hash(initial.data(), initial.size());
    EXPECT_EQ(Bytes(StretchKey(hash, salt.data(), rounds)), last) << rounds << " rounds";
  }
}

}  // namespace
