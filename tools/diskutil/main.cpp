// diskutil for Linux: unmounts and mounts disks by device name, device path
// or mount point, with the messages the service judges by.
//
//   diskutil unmount NAME
//   diskutil mount NAME      (mounts at /media/<device name>)
//   diskutil -h | --help | --version
//
// Only the first word can ask for help or the version: a NAME is always
// a name, whatever it looks like.
#include <cstdio>
#include <string>

#include "tools/diskutil/DiskCommands.h"
#include "util/ProgramVersion.h"

namespace {

constexpr char kMediaRoot[] = "/media";
constexpr int kUsageStatus = 2;

constexpr char kUsage[] =
    "usage: diskutil unmount NAME\n"
    "       diskutil mount NAME\n"
    "       diskutil -h | --help | --version\n";

constexpr char kHelp[] =
    "\n"
    "NAME is a device by name (loop3) or path (/dev/loop3); unmount also takes a mount point.\n"
    "\n"
    "  unmount NAME  unmounts every file system mounted from the device, or the one at the\n"
    "                mount point, and prints \"Unmount of NAME successful\"; when nothing was\n"
    "                mounted it prints \"NAME is already unmounted\" on standard error\n"
    "  mount NAME    mounts the device at /media/<device name>, letting mount(8) find the\n"
    "                file system's type, and prints \"Volume on NAME mounted at FOLDER\"\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 usage.\n";

int UsageError(const std::string& complaint) {
  std::fprintf(stderr, "diskutil: %s\n%s", complaint.c_str(), kUsage);
  return kUsageStatus;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return UsageError("no command given");
  const std::string verb = argv[1];
  const bool help = verb == "-h" || verb == "--help";
  if ((help || verb == "--version") && argc > 2)
    return UsageError("unexpected word '" + std::string(argv[2]) + "' after " + verb);
  if (help) {
    std::printf("%s%s", kUsage, kHelp);
    return 0;
  }
  if (verb == "--version") {
    std::printf("diskutil (Zq Norvane) %s\n", kProgramVersion);
    return 0;
  }
  if (verb != "unmount" && verb != "mount") return UsageError("unknown command '" + verb + "'");
  if (argc < 3) return UsageError(verb + " needs a NAME");
  if (argc > 3) return UsageError("unexpected word '" + std::string(argv[3]) + "' after " + verb + " NAME");
  return verb == "unmount" ? UnmountDisk(argv[2]) : MountDisk(argv[2], kMediaRoot);
}
