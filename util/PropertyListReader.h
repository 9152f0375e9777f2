// Reads the XML form of a property list, as the system's tools print it
// with -plist, into a tree.  Every value keeps its text; dictionaries keep
// their keys in the document's order.
#ifndef ZQ_UTIL_PROPERTYLISTREADER_H_
#define ZQ_UTIL_PROPERTYLISTREADER_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

struct PropertyListNode {
  // integer, real, date and data keep their element's text as it stands.
  enum class Kind { kString, kInteger, kReal, kDate, kData, kBool, kArray, kDict };

  Kind kind = Kind::kString;
  std::string text;                                             // kString .. kData
  bool boolean = false;                                         // kBool
  std::vector<PropertyListNode> items;                          // kArray
  std::vector<std::pair<std::string, PropertyListNode>> keyed;  // kDict

  // The value of `key` in a dictionary; null when there is none, or when
  // this is no dictionary.
  const PropertyListNode* Find(const std::string& key) const;
};

// The document's one top value; nullopt, with what is wrong in *error, when
// `xml` is not a well-formed property list.
std::optional<PropertyListNode> ReadPropertyList(const std::string& xml, std::string* error);

#endif  // ZQ_UTIL_PROPERTYLISTREADER_H_
