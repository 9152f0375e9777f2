#include "util/PropertyListReader.h"

#include <cctype>
#include <cstdlib>
#include <map>

#include "util/Utf8.h"

namespace {

using Kind = PropertyListNode::Kind;

const std::map<std::string, Kind> kTextKinds = {
    {"string", Kind::kString}, {"integer", Kind::kInteger}, {"real", Kind::kReal},
    {"date", Kind::kDate},     {"data", Kind::kData},
};

// Element by element through the document, failing at the first thing that
// does not fit.
class Reader {
 public:
  explicit Reader(const std::string& xml) : xml_(xml) {}

  std::optional<PropertyListNode> Document(std::string* error) {
    SkipProlog();
    std::optional<PropertyListNode> top;
    if (Tag tag = NextTag(); tag.name == "plist" && !tag.closing) {
      if (tag.empty) return Fail("an empty plist element", error);
      top = Value(NextTag());
      if (top && !Closes(NextTag(), "plist")) return Fail("more than one value in the plist element", error);
    } else {
      top = Value(tag);
    }
    if (!top) return Fail(problem_, error);
    SkipSpaceAndComments();
    if (at_ != xml_.size()) return Fail("text after the document's end", error);
    return top;
  }

 private:
  struct Tag {
    std::string name;
    bool closing = false;
    bool empty = false;  // <name/>
  };

  static std::optional<PropertyListNode> Fail(const std::string& what, std::string* error) {
    *error = what.empty() ? "not a property list" : what;
    return std::nullopt;
  }

  void SkipSpaceAndComments() {
    for (;;) {
      while (at_ < xml_.size() && std::isspace(static_cast<unsigned char>(xml_[at_]))) ++at_;
      if (xml_.compare(at_, 4, "<!--") != 0) return;
      const size_t end = xml_.find("-->", at_ + 4);
      at_ = end == std::string::npos ? xml_.size() : end + 3;
    }
  }

  // The XML declaration and the document type, whatever they say.
  void SkipProlog() {
    for (;;) {
      SkipSpaceAndComments();
      if (xml_.compare(at_, 2, "<?") != 0 && xml_.compare(at_, 2, "<!") != 0) return;
      const size_t end = xml_.find('>', at_);
      at_ = end == std::string::npos ? xml_.size() : end + 1;
    }
  }

  Tag NextTag() {
    SkipSpaceAndComments();
    Tag tag;
    if (at_ >= xml_.size() || xml_[at_] != '<') return tag;
    const size_t end = xml_.find('>', at_);
    if (end == std::string::npos) return tag;
    std::string inside = xml_.substr(at_ + 1, end - at_ - 1);
    at_ = end + 1;
    if (!inside.empty() && inside[0] == '/') {
      tag.closing = true;
      inside.erase(0, 1);
    }
    if (!inside.empty() && inside.back() == '/') {
      tag.empty = true;
      inside.pop_back();
    }
    // Attributes (plist's version) are not needed.
    tag.name = inside.substr(0, inside.find_first_of(" \t\r\n"));
    return tag;
  }

  static bool Closes(const Tag& tag, const std::string& name) { return tag.closing && tag.name == name; }

  std::optional<PropertyListNode> Value(const Tag& tag) {
    PropertyListNode node;
    if (tag.closing || tag.name.empty()) return Problem("a value was expected");
    if (tag.name == "true" || tag.name == "false") {
      node.kind = Kind::kBool;
      node.boolean = tag.name == "true";
      if (!tag.empty && !Closes(NextTag(), tag.name)) return Problem("<" + tag.name + "> is not closed");
      return node;
    }
    if (auto text = kTextKinds.find(tag.name); text != kTextKinds.end()) {
      node.kind = text->second;
      if (tag.empty) return node;
      std::optional<std::string> content = Text(tag.name);
      if (!content) return std::nullopt;
      node.text = *content;
      return node;
    }
    if (tag.name == "array") {
      node.kind = Kind::kArray;
      if (tag.empty) return node;
      for (Tag next = NextTag(); !Closes(next, "array"); next = NextTag()) {
        std::optional<PropertyListNode> item = Value(next);
        if (!item) return std::nullopt;
        node.items.push_back(std::move(*item));
      }
      return node;
    }
    if (tag.name == "dict") {
      node.kind = Kind::kDict;
      if (tag.empty) return node;
      for (Tag next = NextTag(); !Closes(next, "dict"); next = NextTag()) {
        if (next.name != "key" || next.closing || next.empty) return Problem("a dictionary holds a value without its key");
        std::optional<std::string> key = Text("key");
        if (!key) return std::nullopt;
        std::optional<PropertyListNode> value = Value(NextTag());
        if (!value) return std::nullopt;
        node.keyed.emplace_back(std::move(*key), std::move(*value));
      }
      return node;
    }
    return Problem("unknown element <" + tag.name + ">");
  }

  // The text up to </name>, with XML's entities and character references
  // replaced; nullopt for markup inside it or a reference it does not know.
  std::optional<std::string> Text(const std::string& name) {
    const std::string closing = "</" + name + ">";
    const size_t end = xml_.find(closing, at_);
    if (end == std::string::npos) return Problem("<" + name + "> is not closed");
    const std::string raw = xml_.substr(at_, end - at_);
    at_ = end + closing.size();
    if (raw.find('<') != std::string::npos) return Problem("markup inside <" + name + ">");
    std::string text;
    for (size_t i = 0; i < raw.size(); ++i) {
      if (raw[i] != '&') {
        text += raw[i];
        continue;
      }
      const size_t semicolon = raw.find(';', i);
      if (semicolon == std::string::npos) return Problem("an unfinished reference in <" + name + ">");
      const std::string entity = raw.substr(i + 1, semicolon - i - 1);
      static const std::map<std::string, char> kNamed = {
          {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
      if (auto named = kNamed.find(entity); named != kNamed.end()) {
        text += named->second;
      } else if (entity.size() > 1 && entity[0] == '#') {
        const bool hex = entity[1] == 'x';
        char* stop = nullptr;
        const unsigned long code = std::strtoul(entity.c_str() + (hex ? 2 : 1), &stop, hex ? 16 : 10);
        if (*stop != '\0' || code == 0 || code > 0x10FFFF) return Problem("a bad character reference in <" + name + ">");
        AppendUtf8(static_cast<char32_t>(code), &text);
      } else {
        return Problem("an unknown entity &" + entity + "; in <" + name + ">");
      }
      i = semicolon;
    }
    return text;
  }

  std::nullopt_t Problem(const std::string& what) {
    if (problem_.empty()) problem_ = what;
    return std::nullopt;
  }

  const std::string& xml_;
  size_t at_ = 0;
  std::string problem_;
};

}  // namespace

const PropertyListNode* PropertyListNode::Find(const std::string& key) const {
  for (const auto& [name, value] : keyed)
    if (name == key) return &value;
  return nullptr;
}

std::optional<PropertyListNode> ReadPropertyList(const std::string& xml, std::string* error) {
  return Reader(xml).Document(error);
}
