#include "util/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace {

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

}  // namespace

bool IsValidUtf8(std::string_view bytes) {
  const size_t size = bytes.size();
  size_t i = 0;
  while (i < size) {
    const unsigned char lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    uint32_t codePoint;
    uint32_t smallest;
    if ((lead & 0xE0) == 0xC0) {
      length = 2, codePoint = lead & 0x1F, smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, codePoint = lead & 0x0F, smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, codePoint = lead & 0x07, smallest = 0x10000;
    } else {
      return false;
    }
    if (size - i < length) return false;
    for (size_t k = 1; k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(bytes[i + k]);
      if (!IsContinuation(next)) return false;
      codePoint = (codePoint << 6) | (next & 0x3F);
    }
    if (codePoint < smallest || codePoint > 0x10FFFF) return false;
    if (codePoint >= 0xD800 && codePoint <= 0xDFFF) return false;
    i += length;
  }
  return true;
}

void AppendUtf8(char32_t point, std::string* text) {
  if (point < 0x80) {
    text->push_back(static_cast<char>(point));
  } else if (point < 0x800) {
    text->push_back(static_cast<char>(0xc0 | (point >> 6)));
    text->push_back(static_cast<char>(0x80 | (point & 0x3f)));
  } else if (point < 0x10000) {
    text->push_back(static_cast<char>(0xe0 | (point >> 12)));
    text->push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3f)));
    text->push_back(static_cast<char>(0x80 | (point & 0x3f)));
  } else {
    text->push_back(static_cast<char>(0xf0 | (point >> 18)));
    text->push_back(static_cast<char>(0x80 | ((point >> 12) & 0x3f)));
    text->push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3f)));
    text->push_back(static_cast<char>(0x80 | (point & 0x3f)));
  }
}
