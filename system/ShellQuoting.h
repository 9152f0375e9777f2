// Quoting for the command lines that the service hands to /bin/sh.
#ifndef ZQ_SYSTEM_SHELLQUOTING_H_
#define ZQ_SYSTEM_SHELLQUOTING_H_

#include <string>

// A path made one shell word by putting a backslash before each blank.
// Nothing else is escaped: quotes, dollar signs and the like still mean
// what they mean to the shell.
std::string EscapeBlanks(const std::string& path);

// `text` as one shell word that the shell passes on unchanged, whatever it
// holds: in single quotes, with each single quote inside written '"'"'.
std::string SingleQuoted(const std::string& text);

#endif  // ZQ_SYSTEM_SHELLQUOTING_H_
