#include "JsonWriter.h"

#include <cstdio>

namespace {

// The length of the valid UTF-8 sequence at `at`, or 0.
size_t Utf8SequenceLength(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  size_t length = 0;
  uint32_t point = 0;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2, point = lead & 0x1f;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3, point = lead & 0x0f;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4, point = lead & 0x07;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xc0) != 0x80) return 0;
    point = (point << 6) | (byte(at + i) & 0x3f);
  }
  const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
  const bool surrogate = point >= 0xd800 && point <= 0xdfff;
  return overlong || surrogate || point > 0x10ffff ? 0 : length;
}

}  // namespace

std::string JsonQuoted(const std::string& text) {
  std::string quoted = "\"";
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", c);
      quoted += escape;
    } else if (c < 0x80) {
      quoted += static_cast<char>(c);
    } else if (const size_t length = Utf8SequenceLength(text, i)) {
      quoted.append(text, i, length);
      i += length - 1;
    } else {
      quoted += "\\ufffd";
    }
  }
  return quoted + "\"";
}

void JsonWriter::BeforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!empty_.empty()) {
    if (!empty_.back()) out_ << ',';
    empty_.back() = false;
  }
}

JsonWriter& JsonWriter::BeginObject() {
  BeforeValue();
  out_ << '{';
  empty_.push_back(true);
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  out_ << '}';
  empty_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::BeginArray() {
  BeforeValue();
  out_ << '[';
  empty_.push_back(true);
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  out_ << ']';
  empty_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::Key(const std::string& name) {
  BeforeValue();
  out_ << JsonQuoted(name) << ':';
  afterKey_ = true;
  return *this;
}

JsonWriter& JsonWriter::String(const std::string& value) {
  BeforeValue();
  out_ << JsonQuoted(value);
  return *this;
}

JsonWriter& JsonWriter::Number(uint64_t value) {
  BeforeValue();
  out_ << value;
  return *this;
}

JsonWriter& JsonWriter::Decimal(double value) {
  BeforeValue();
  char text[40];
  std::snprintf(text, sizeof(text), "%.3f", value);
  out_ << text;
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  BeforeValue();
  out_ << (value ? "true" : "false");
  return *this;
}
