// Shell words: quoting for the command lines that the service hands to
// /bin/sh, and the text of a word a client wrote.
#ifndef ZQ_UTIL_SHELLQUOTING_H_
#define ZQ_UTIL_SHELLQUOTING_H_

#include <string>

// `text` as one shell word that the shell passes on unchanged, whatever it
// holds: in single quotes, with each single quote inside written '"'"'.
std::string SingleQuoted(const std::string& text);

// The text the shell makes of one word written with nothing but backslash
// quoting (as a client writes a mount point: "/media/My\\ Disk"): each
// backslash dropped and the character after it kept.
std::string ShellWordText(const std::string& word);

#endif  // ZQ_UTIL_SHELLQUOTING_H_
