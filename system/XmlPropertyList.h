// The XML form of a property list, as launchd and other property-list
// readers expect it, written the same way on every platform: keys in the
// order given, and only characters that XML carries.
#ifndef ZQ_SYSTEM_XMLPROPERTYLIST_H_
#define ZQ_SYSTEM_XMLPROPERTYLIST_H_

#include <optional>
#include <string>

#include "Platform.h"

// The document for `list`: one dictionary whose keys keep their order.
// nullopt when a key or a string is not UTF-8 or holds a character that XML
// cannot carry (a control character other than tab, line feed and carriage
// return, U+FFFE or U+FFFF).
std::optional<std::string> XmlPropertyList(const platform::PropertyList& list);

#endif  // ZQ_SYSTEM_XMLPROPERTYLIST_H_
