// Reading a credential without it ever appearing on a command line, shared
// by the command-line tools.
#ifndef ZQ_UTIL_CREDENTIALINPUT_H_
#define ZQ_UTIL_CREDENTIALINPUT_H_

#include <optional>
#include <string>

// With a terminal on standard input, asks on standard error with `prompt`
// and echo off, turned back on should SIGINT, SIGTERM, SIGHUP or SIGQUIT
// end the process meanwhile; otherwise reads the first line of standard
// input.  The line
// end is dropped; an empty line is the empty credential.  nullopt when not
// even that could be read.
std::optional<std::string> ReadCredential(const char* prompt);

// Overwrites a credential's text before it is released.
void WipeCredential(std::string* text);

#endif  // ZQ_UTIL_CREDENTIALINPUT_H_
