#include "util/JsonWriter.h"

#include <cstdio>

#include "util/Utf8.h"

std::string JsonQuoted(const std::string& text) {
  const bool utf8 = IsValidUtf8(text);
  std::string quoted = "\"";
  for (const char byte : text) {
    const unsigned char c = static_cast<unsigned char>(byte);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += byte;
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (c < 0x20 || c == 0x7f) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", c);
      quoted += escape;
    } else if (c < 0x80 || utf8) {
      quoted += byte;
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
