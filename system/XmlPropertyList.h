// The XML form of a property list, as launchd and other property-list
// readers expect it, written the same way on every platform: keys in the
// order given, and only characters that XML carries.
#ifndef ZQ_SYSTEM_XMLPROPERTYLIST_H_
#define ZQ_SYSTEM_XMLPROPERTYLIST_H_

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

using PropertyValue = std::variant<std::string, bool, std::vector<std::string>>;
// A dictionary whose keys keep the order in which they were added.
using PropertyList = std::vector<std::pair<std::string, PropertyValue>>;

// The document for `list`: one dictionary whose keys keep their order.
// nullopt when a key or a string is not UTF-8 or holds a character that XML
// cannot carry (a control character other than tab, line feed and carriage
// return, U+FFFE or U+FFFF).
std::optional<std::string> XmlPropertyList(const PropertyList& list);

// Writes `list` as an XML property list to a temporary file in the same
// folder, with mode 0644, then renames it over `path`.  A failed write
// leaves any earlier file in place.
bool WritePropertyListAtomically(const std::string& path, const PropertyList& list);

#endif  // ZQ_SYSTEM_XMLPROPERTYLIST_H_
