// zqctl's checks of what the user typed, made before anything is sent, so
// that a word the service would refuse is named here instead of ending as
// a bare answer code.  Each check returns false with a sentence in *error
// that names the wrong word.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLINPUT_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLINPUT_H_

#include <string>

// DEVICE as "loop3" or "/dev/loop3": a plain device name (ClientInputChecks)
// of a block device of this machine.  *name is the name without "/dev/".
bool CheckDevice(const std::string& word, std::string* name, std::string* error);

// `word` made absolute against the current folder, without "." components,
// doubled or trailing slashes.
std::string AbsolutePath(const std::string& word);

// MOUNT_POINT as the user types it, blanks and any script included: *path
// is its absolute form, which the mount point rule (MountPoint.h) must
// allow as the service would, and *word the one shell word that stands for
// it in the mount command.
bool CheckMountPoint(const std::string& typed, std::string* path, std::string* word, std::string* error);

// `path` as the one shell word the service takes: every character other
// than a letter, a digit, a character beyond ASCII or one of "._/,:=+@%-"
// behind a backslash.  `path` holds no line break.
std::string ShellWordOf(const std::string& path);

// OPTIONS: a comma-separated list of raw, ro, uid=N, gid=N and umask=OOO.
// A known option with a bad value is named as such.
bool CheckMountOptions(const std::string& options, std::string* error);

// The credential as the service is to get it: a startup key file named
// from the current folder becomes its absolute path, since the mounter
// and the explorer run elsewhere; any other credential stays as typed.
std::string CredentialForService(const std::string& typed);

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLINPUT_H_
