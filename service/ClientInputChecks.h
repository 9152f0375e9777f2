// What the service accepts from a client before it acts on it.
//
// The clients' fields end up in commands that root runs.  These checks let
// through everything a well-behaved client sends and nothing that would be
// read as more, or other, words than intended.
#ifndef ZQ_SERVICE_CLIENTINPUTCHECKS_H_
#define ZQ_SERVICE_CLIENTINPUTCHECKS_H_

#include <optional>
#include <string>

// A BSD device name such as disk2s1 or loop3: non-empty; letters, digits
// and "._-" only; not starting with a dot.
bool IsPlainDeviceName(const std::optional<std::string>& name);

// The mount point as the client writes it, one shell word that the
// mounter gets the text of (ShellWordText): empty, or one word in which
// each character is a letter, a digit, a character beyond ASCII, one of
// "._/,:=+@%-", or follows a backslash (a blank is written "\ ").
bool IsSingleShellWord(const std::optional<std::string>& word);

// The launch-daemon item runs "<bundle>/Contents/MacOS/Zq-NorvaneServices"
// as root at every boot, so it is written only for a program that exists
// and that, with every folder above it (along the path as given and as
// resolved), is owned by root and writable by no one else, and lies on a
// mount that root made for the machine (platform::IsOnSystemMount): on a
// user's disk anything may look root's.  A group whose members can become
// root anyway may write, and so may anyone in a sticky folder such as
// /tmp.  Returns why not, or nullptr when the program is safe.
const char* DaemonProgramRefusal(const std::string& bundlePath);

#endif  // ZQ_SERVICE_CLIENTINPUTCHECKS_H_
