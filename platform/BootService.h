// Starting the service at boot through the machine's service manager.
#ifndef ZQ_PLATFORM_BOOTSERVICE_H_
#define ZQ_PLATFORM_BOOTSERVICE_H_

#include <string>

namespace platform {

// Has the machine's service manager start `program` as root at every boot,
// for the machine under `rootFolder` ("" for this machine).  On Linux this
// is the systemd unit "zq-norvane.service" in /etc/systemd/system, enabled
// by a link to it in multi-user.target.wants; each is made under a
// temporary name and renamed into place.  Nothing is written unless /etc,
// /etc/systemd and /etc/systemd/system exist and they and the wants folder
// are real folders of root's that no one else may write, nor for a program
// path that systemd would not start: not UTF-8, relative, or holding a
// control character, a quote or a backslash.  On macOS the launch daemon's
// item does this already, and nothing happens here.
void EnableBootService(const std::string& rootFolder, const std::string& program);

// Removes the link and the unit that EnableBootService writes, under the
// same checks of the folders.
void DisableBootService(const std::string& rootFolder);

}  // namespace platform

#endif  // ZQ_PLATFORM_BOOTSERVICE_H_
