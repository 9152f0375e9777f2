#include "engine/KeyDerivation.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace bitlocker {
namespace {

constexpr size_t kRecoveryGroups = 8;
constexpr size_t kRecoveryGroupDigits = 6;
constexpr uint32_t kRecoveryGroupLimit = 720896;  // 65536 * 11

void AppendUnit(CSecureBuffer* out, size_t* at, uint16_t unit) {
  out->data()[(*at)++] = static_cast<uint8_t>(unit & 0xff);
  out->data()[(*at)++] = static_cast<uint8_t>(unit >> 8);
}

// Decodes one UTF-8 sequence at text[*i]; nullopt when it is not a valid,
// shortest-form encoding of a code point outside the surrogate range.
std::optional<uint32_t> NextCodePoint(std::string_view text, size_t* i) {
  auto byte = [&](size_t k) { return static_cast<uint8_t>(text[k]); };
  uint8_t lead = byte(*i);
  size_t length;
  uint32_t point;
  if (lead < 0x80) {
    ++*i;
    return lead;
  } else if ((lead & 0xe0) == 0xc0) {
    length = 2;
    point = lead & 0x1f;
  } else if ((lead & 0xf0) == 0xe0) {
    length = 3;
    point = lead & 0x0f;
  } else if ((lead & 0xf8) == 0xf0) {
    length = 4;
    point = lead & 0x07;
  } else {
    return std::nullopt;
  }
  if (text.size() - *i < length) return std::nullopt;
  for (size_t k = 1; k < length; ++k) {
    uint8_t next = byte(*i + k);
    if ((next & 0xc0) != 0x80) return std::nullopt;
    point = (point << 6) | (next & 0x3f);
  }
  static const uint32_t kShortest[5] = {0, 0, 0x80, 0x800, 0x10000};
  if (point < kShortest[length] || point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff)) {
    return std::nullopt;
  }
  *i += length;
  return point;
}

CSecureBuffer Sha256(const uint8_t* data, size_t size) {
  CSecureBuffer digest(SHA256_DIGEST_LENGTH);
  unsigned int length = 0;
  EVP_Digest(data, size, digest.data(), &length, EVP_sha256(), nullptr);
  return digest;
}

struct MdCtxFree {
  void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};
struct MdFree {
  void operator()(EVP_MD* md) const { EVP_MD_free(md); }
};

}  // namespace

std::optional<CSecureBuffer> Utf8ToUtf16Le(std::string_view utf8) {
  // Every code point takes at most as many UTF-16 bytes as UTF-8 bytes, 4.
  CSecureBuffer wide(utf8.size() * 2);
  size_t at = 0;
  for (size_t i = 0; i < utf8.size();) {
    auto point = NextCodePoint(utf8, &i);
    if (!point) return std::nullopt;
    if (*point < 0x10000) {
      AppendUnit(&wide, &at, static_cast<uint16_t>(*point));
    } else {
      uint32_t v = *point - 0x10000;
      AppendUnit(&wide, &at, static_cast<uint16_t>(0xd800 | (v >> 10)));
      AppendUnit(&wide, &at, static_cast<uint16_t>(0xdc00 | (v & 0x3ff)));
    }
  }
  return wide.Slice(0, at);
}

std::optional<CSecureBuffer> PasswordHash(std::string_view utf8Password) {
  auto wide = Utf8ToUtf16Le(utf8Password);
  if (!wide) return std::nullopt;
  CSecureBuffer once = Sha256(wide->data(), wide->size());
  return Sha256(once.data(), once.size());
}

bool HasRecoveryPasswordShape(std::string_view text) {
  const size_t unbroken = kRecoveryGroups * kRecoveryGroupDigits;
  const size_t dashed = unbroken + kRecoveryGroups - 1;
  if (text.size() != unbroken && text.size() != dashed) return false;
  bool withDashes = text.size() == dashed;
  for (size_t i = 0; i < text.size(); ++i) {
    bool dashPlace = withDashes && i % (kRecoveryGroupDigits + 1) == kRecoveryGroupDigits;
    if (dashPlace ? text[i] != '-' : (text[i] < '0' || text[i] > '9')) return false;
  }
  return true;
}

std::optional<CSecureBuffer> ParseRecoveryPassword(std::string_view text) {
  if (!HasRecoveryPasswordShape(text)) return std::nullopt;
  CSecureBuffer key(kRecoveryGroups * 2);
  size_t digit = 0;
  uint32_t group = 0;
  size_t groupIndex = 0;
  for (char c : text) {
    if (c == '-') continue;
    group = group * 10 + static_cast<uint32_t>(c - '0');
    if (++digit % kRecoveryGroupDigits != 0) continue;
    if (group % 11 != 0 || group >= kRecoveryGroupLimit) {
      group = 0;
      return std::nullopt;
    }
    uint16_t value = static_cast<uint16_t>(group / 11);
    key.data()[2 * groupIndex] = static_cast<uint8_t>(value & 0xff);
    key.data()[2 * groupIndex + 1] = static_cast<uint8_t>(value >> 8);
    ++groupIndex;
    group = 0;
  }
  return key;
}

std::string FormatRecoveryPassword(const CSecureBuffer& recoveryKey) {
  std::string text;
  for (size_t group = 0; group < kRecoveryGroups && 2 * group + 1 < recoveryKey.size(); ++group) {
    const uint32_t value = (recoveryKey.data()[2 * group] | (recoveryKey.data()[2 * group + 1] << 8)) * 11u;
    char digits[8];
    std::snprintf(digits, sizeof digits, "%06u", value);
    if (group > 0) text += '-';
    text += digits;
    std::memset(digits, 0, sizeof digits);
  }
  return text;
}

CSecureBuffer RecoveryPasswordHash(const CSecureBuffer& recoveryKey) {
  return Sha256(recoveryKey.data(), recoveryKey.size());
}

CSecureBuffer StretchKey(const CSecureBuffer& initialHash, const uint8_t* salt, uint64_t rounds) {
  constexpr size_t kHash = SHA256_DIGEST_LENGTH;
  // last hash | initial hash | salt | count
  CSecureBuffer record(kHash + kHash + kSaltSize + 8);
  uint8_t* last = record.data();
  std::memcpy(record.data() + kHash, initialHash.data(), std::min(initialHash.size(), kHash));
  std::memcpy(record.data() + 2 * kHash, salt, kSaltSize);
  uint8_t* count = record.data() + 2 * kHash + kSaltSize;

  std::unique_ptr<EVP_MD, MdFree> sha256(EVP_MD_fetch(nullptr, "SHA256", nullptr));
  std::unique_ptr<EVP_MD_CTX, MdCtxFree> ctx(EVP_MD_CTX_new());
  for (uint64_t round = 0; round < rounds; ++round) {
    for (int b = 0; b < 8; ++b) count[b] = static_cast<uint8_t>(round >> (8 * b));
    unsigned int length = 0;
    EVP_DigestInit_ex2(ctx.get(), sha256.get(), nullptr);
    EVP_DigestUpdate(ctx.get(), record.data(), record.size());
    EVP_DigestFinal_ex(ctx.get(), last, &length);
  }
  return record.Slice(0, kHash);
}

}  // namespace bitlocker
