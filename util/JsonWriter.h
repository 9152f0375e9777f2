// Writes JSON text to a stream as it is built: objects, arrays, strings,
// numbers and booleans, on one line.  The caller nests the calls
// properly; the writer places the commas.
#ifndef ZQ_UTIL_JSONWRITER_H_
#define ZQ_UTIL_JSONWRITER_H_

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  // The name of the next member of the object being written.
  JsonWriter& Key(const std::string& name);
  JsonWriter& String(const std::string& value);
  JsonWriter& Number(uint64_t value);
  // A number with three decimals: seconds, say.
  JsonWriter& Decimal(double value);
  JsonWriter& Bool(bool value);

 private:
  void BeforeValue();

  std::ostream& out_;
  std::vector<bool> empty_;  // per open object or array: nothing in it yet
  bool afterKey_ = false;
};

// `text` as a quoted JSON string.  In text that is not valid UTF-8 (a device
// path can be any bytes) every byte above ASCII becomes U+FFFD, so that the
// output always parses.
std::string JsonQuoted(const std::string& text);

#endif  // ZQ_UTIL_JSONWRITER_H_
