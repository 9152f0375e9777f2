#include "system/XmlPropertyList.h"

#include "system/AtomicFile.h"
#include "util/Utf8.h"

namespace {

constexpr char kHeader[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>\n";
constexpr char kFooter[] =
    "</dict>\n"
    "</plist>\n";

bool IsNonCharacter(const std::string& text, size_t i) {
  // U+FFFE and U+FFFF are EF BF BE and EF BF BF.
  return text.compare(i, 2, "\xEF\xBF") == 0 && i + 2 < text.size() &&
         (text[i + 2] == '\xBE' || text[i + 2] == '\xBF');
}

// Appends `text` as XML character data.  A carriage return is written as a
// character reference, since a reader turns a literal one into a line feed.
bool AppendEscaped(const std::string& text, std::string* out) {
  if (!IsValidUtf8(text)) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    switch (c) {
      case '&': *out += "&amp;"; break;
      case '<': *out += "&lt;"; break;
      case '>': *out += "&gt;"; break;
      case '\r': *out += "&#13;"; break;
      case '\t':
      case '\n': *out += c; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || IsNonCharacter(text, i)) return false;
        *out += c;
    }
  }
  return true;
}

bool AppendElement(const char* indent, const char* tag, const std::string& text, std::string* out) {
  *out += indent;
  *out += '<';
  *out += tag;
  *out += '>';
  if (!AppendEscaped(text, out)) return false;
  *out += "</";
  *out += tag;
  *out += ">\n";
  return true;
}

bool AppendValue(const PropertyValue& value, std::string* out) {
  if (const bool* flag = std::get_if<bool>(&value)) {
    *out += *flag ? "\t<true/>\n" : "\t<false/>\n";
    return true;
  }
  if (const std::string* text = std::get_if<std::string>(&value)) return AppendElement("\t", "string", *text, out);
  *out += "\t<array>\n";
  for (const std::string& item : std::get<std::vector<std::string>>(value))
    if (!AppendElement("\t\t", "string", item, out)) return false;
  *out += "\t</array>\n";
  return true;
}

}  // namespace

std::optional<std::string> XmlPropertyList(const PropertyList& list) {
  std::string document = kHeader;
  for (const auto& [key, value] : list)
    if (!AppendElement("\t", "key", key, &document) || !AppendValue(value, &document)) return std::nullopt;
  document += kFooter;
  return document;
}

// launchd refuses a property list that others than its owner may change.
bool WritePropertyListAtomically(const std::string& path, const PropertyList& list) {
  const std::optional<std::string> document = XmlPropertyList(list);
  return document && WriteFileAtomically(path, *document, 0644);
}
