#include "tools/zqctl/ZqctlRequest.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "Include/CPipeDataWrapper.h"
#include "tools/zqctl/ZqctlInput.h"
#include "tools/zqctl/ZqctlMachine.h"

namespace {

struct Subcommand {
  COMMAND_TYPE type;
  size_t operands;  // at most; at least `required`
  size_t required;
  const char* synopsis;
  const char* description;
};

const std::map<std::string, Subcommand>& Subcommands() {
  static const std::map<std::string, Subcommand> table = {
      {"ping", {eCOMMAND_CHECK_CONNECTION, 0, 0, "ping", "Checks that the service answers."}},
      {"status", {COMMAND_TYPE(0), 0, 0, "status",
                  "Tells whether the service runs (its pid and since when), whom it serves, and\n"
                  "every volume the mounter serves. Sends nothing; exits 3 when the service is not running."}},
      {"check", {eCOMMAND_BITLOCKER_CHECK, 1, 1, "check DEVICE",
                 "Asks whether DEVICE (loop3 or /dev/loop3, disk2s1 on macOS) holds a BitLocker\n"
                 "volume; the service unmounts a BitLocker volume, and zqctl says what it unmounted."}},
      {"unmount", {eCOMMAND_BITLOCKER_CHECK, 1, 1, "unmount DEVICE|MOUNT_POINT",
                   "Asks the service to unmount the BitLocker volume on DEVICE, or the one mounted at\n"
                   "MOUNT_POINT (a relative path is taken from the current folder), wherever it is\n"
                   "mounted, and says where it was unmounted from, or why it was not."}},
      {"mount", {eCOMMAND_BITLOCKER_MOUNT, 3, 2, "mount DEVICE MOUNT_POINT [OPTIONS]",
                 "Unmounts DEVICE and starts the mounter on it. MOUNT_POINT is a path below /media,\n"
                 "/run/media or /mnt (/Volumes on macOS), typed as it is: blanks and any script are\n"
                 "fine, and a relative path is taken from the current folder. OPTIONS: comma-separated\n"
                 "raw, ro, uid=N, gid=N, umask=OOO. The credential is read from standard input (a\n"
                 "no-echo prompt on a terminal). zqctl prints the mounter's own sentence."}},
      {"explore", {eCOMMAND_BITLOCKER_EXPLORER, 1, 1, "explore DEVICE",
                   "Unmounts DEVICE, opens it with the credential and starts the explorer on it.\n"
                   "The credential is read from standard input (a no-echo prompt on a terminal)."}},
      {"startup", {eCOMMAND_SET_STARTUP, 2, 1, "startup on BUNDLE | startup off",
                   "Writes (on) or removes (off) the items that start the service at boot and\n"
                   "the main application at login, and checks that they changed. BUNDLE is the\n"
                   "application bundle's path; a BUNDLE that is not there ends with status 1."}},
      {"to-explorer", {eCOMMAND_TO_FILE_EXPLORER, 1, 1, "to-explorer BYTE",
                       "Passes BYTE (0-255, or one character) on to the FileExplorer client."}},
      {"to-main", {eCOMMAND_TO_MAIN_UI, 1, 1, "to-main BYTE", "Passes BYTE (0-255, or one character) on to the MainUI client."}},
      {"exit", {eCOMMAND_EXIT, 0, 0, "exit", "Asks the service to end."}},
      {"listen", {COMMAND_TYPE(0), 0, 0, "listen", "Prints every block the service sends to this client until interrupted."}},
  };
  return table;
}

constexpr char kUsageLine[] =
    "usage: zqctl [--as MainUI|FileExplorer] [--timeout SECONDS] [--json] SUBCOMMAND [ARGS]";

// A usage error: what was wrong, then how the command line goes.
std::string Misused(const std::string& what, const std::string& subcommand = "") {
  const auto found = Subcommands().find(subcommand);
  if (found == Subcommands().end()) return what + "\n" + kUsageLine + " (see zqctl --help)";
  return what + "\nusage: zqctl [OPTIONS] " + found->second.synopsis;
}

template <size_t N>
bool CopyField(char (&field)[N], const std::string& value, const char* what, std::string* error) {
  if (value.size() >= N) {
    *error = std::string(what) + " is " + std::to_string(value.size()) + " bytes long; it may be at most " +
             std::to_string(N - 1) + " bytes";
    return false;
  }
  std::memcpy(field, value.c_str(), value.size() + 1);
  return true;
}

bool ParseByte(const std::string& text, uint8_t* byte, std::string* error) {
  if (text.size() == 1 && !(text[0] >= '0' && text[0] <= '9')) {
    *byte = static_cast<uint8_t>(text[0]);
    return true;
  }
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || value < 0 || value > 255) {
    *error = "BYTE must be a number from 0 to 255 or a single character, not '" + text + "'";
    return false;
  }
  *byte = static_cast<uint8_t>(value);
  return true;
}

bool FillRecord(const Subcommand& sub, ZqctlRequest* request, std::string* error) {
  CCommandDataWrapper<char>& record = request->record;
  std::memset(&record, 0, sizeof record);
  record.type = sub.type;
  record.length = CPipeDataWrapper::GetCommandDataLen(sub.type);
  const std::vector<std::string>& operands = request->operands;
  std::string word;
  switch (sub.type) {
    case eCOMMAND_BITLOCKER_CHECK:
      if (request->subcommand == "unmount" && !CheckDevice(operands[0], &request->device, &word)) {
        const std::string folder = AbsolutePath(operands[0]);
        request->device = DeviceMountedAt(folder);
        if (request->device.empty()) {
          *error = "'" + operands[0] + "' is neither a device on this machine nor a folder a device is mounted at";
          return false;
        }
      } else if (request->subcommand != "unmount" && !CheckDevice(operands[0], &request->device, error)) {
        return false;
      }
      return CopyField(record.check.deviceName, request->device, "DEVICE", error);
    case eCOMMAND_BITLOCKER_MOUNT:
      request->needsCredential = true;
      return CheckDevice(operands[0], &request->device, error) &&
             CheckMountPoint(operands[1], &request->mountPoint, &word, error) &&
             (operands.size() < 3 || CheckMountOptions(operands[2], error)) &&
             CopyField(record.mount.deviceName, request->device, "DEVICE", error) &&
             CopyField(record.mount.mountArg2, word, "MOUNT_POINT", error) &&
             CopyField(record.mount.mountArg3, operands.size() < 3 ? "" : operands[2], "OPTIONS", error);
    case eCOMMAND_BITLOCKER_EXPLORER:
      request->needsCredential = true;
      return CheckDevice(operands[0], &request->device, error) &&
             CopyField(record.explorer.deviceName, request->device, "DEVICE", error);
    case eCOMMAND_SET_STARTUP:
      if (operands[0] == "on" && operands.size() == 2) {
        record.startup.enable = 1;
        request->bundle = AbsolutePath(operands[1]);
        return CopyField(record.startup.bundlePath, request->bundle, "BUNDLE", error);
      }
      if (operands[0] == "off" && operands.size() == 1) return true;
      *error = Misused(operands[0] == "on"    ? "startup on: BUNDLE is missing"
                       : operands[0] == "off" ? "startup off: unexpected word '" + operands[1] + "'"
                                              : "startup: '" + operands[0] + "' is neither on nor off",
                       "startup");
      return false;
    case eCOMMAND_TO_FILE_EXPLORER:
    case eCOMMAND_TO_MAIN_UI:
      return ParseByte(operands[0], &record.simple.arg, error);
    default:
      return true;
  }
}

// The name of the first operand missing from the synopsis "check DEVICE".
std::string MissingOperand(const Subcommand& sub, size_t given) {
  std::istringstream words(sub.synopsis);
  std::string word;
  for (size_t i = 0; i <= given + 1 && words >> word; ++i) {
  }
  return word;
}

}  // namespace

bool ParseZqctlArguments(const std::vector<std::string>& arguments, ZqctlRequest* request, std::string* error) {
  // A usage error is told in JSON too when --json is among the options,
  // even after the word that is wrong.
  for (size_t j = 0; j < arguments.size() && arguments[j].rfind("-", 0) == 0; ++j)
    request->json = request->json || arguments[j] == "--json";
  size_t i = 0;
  for (; i < arguments.size() && arguments[i].size() > 1 && arguments[i][0] == '-'; ++i) {
    const std::string& option = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    if (option == "--json") {
      request->json = true;
    } else if (option == "-h" || option == "--help") {
      request->help = true;
    } else if (option == "--version") {
      request->version = true;
    } else if (option == "--as" && hasValue) {
      const std::string& name = arguments[++i];
      if (name == kMainUIChannel.name) {
        request->channel = kMainUIChannel;
      } else if (name == kFileExplorerChannel.name) {
        request->channel = kFileExplorerChannel;
      } else {
        *error = Misused("--as takes MainUI or FileExplorer, not '" + name + "'");
        return false;
      }
    } else if (option == "--timeout" && hasValue) {
      char* end = nullptr;
      const std::string& value = arguments[++i];
      const long seconds = std::strtol(value.c_str(), &end, 10);
      if (value.empty() || *end != '\0' || seconds < 1 || seconds > 3600) {
        *error = Misused("--timeout takes a whole number of seconds from 1 to 3600, not '" + value + "'");
        return false;
      }
      request->timeout = static_cast<unsigned>(seconds);
    } else {
      *error = Misused(option == "--as" || option == "--timeout" ? option + " needs a value"
                                                                 : "unknown option '" + option + "'");
      return false;
    }
  }
  if (i == arguments.size()) {
    if (request->help || request->version) return true;
    *error = Misused("no subcommand given");
    return false;
  }
  request->subcommand = arguments[i];
  request->operands.assign(arguments.begin() + static_cast<long>(i) + 1, arguments.end());
  const auto found = Subcommands().find(request->subcommand);
  if (found == Subcommands().end()) {
    *error = Misused("unknown subcommand '" + request->subcommand + "'");
    return false;
  }
  const std::vector<std::string>& operands = request->operands;
  if (!operands.empty() && (operands.back() == "--help" || operands.back() == "-h")) request->help = true;
  if (request->help || request->version) return true;
  const Subcommand& sub = found->second;
  request->listen = request->subcommand == "listen";
  request->status = request->subcommand == "status";
  if (operands.size() > sub.operands) {
    *error = Misused(request->subcommand + ": unexpected word '" + operands[sub.operands] + "'", request->subcommand);
    return false;
  }
  if (operands.size() < sub.required) {
    *error = Misused(request->subcommand + ": " + MissingOperand(sub, operands.size()) + " is missing",
                     request->subcommand);
    return false;
  }
  return FillRecord(sub, request, error);
}

bool SetCredential(const std::string& credential, ZqctlRequest* request, std::string* error) {
  CCommandDataWrapper<char>& record = request->record;
  if (record.type == eCOMMAND_BITLOCKER_MOUNT) return CopyField(record.mount.mountArg4, credential, "the credential", error);
  return CopyField(record.explorer.explorerArg2, credential, "the credential", error);
}

std::string ZqctlUsage(const std::string& subcommand) {
  const auto found = Subcommands().find(subcommand);
  if (found != Subcommands().end())
    return std::string("usage: zqctl [OPTIONS] ") + found->second.synopsis + "\n\n" + found->second.description + "\n";
  std::string text = std::string(kUsageLine) +
      "\n\nTalks to the Zq-NorvaneServices service as one of its client applications.\n\nSubcommands:\n";
  for (const auto& [name, sub] : Subcommands()) text += "  " + std::string(sub.synopsis) + "\n";
  text +=
      "\nOptions:\n"
      "  --as NAME         play the client MainUI (default) or FileExplorer\n"
      "  --timeout SECONDS how long to wait for the service (default 10)\n"
      "  --json            print each answer as one JSON object\n"
      "  -h, --help        this text; 'zqctl SUBCOMMAND --help' for one subcommand\n"
      "  --version         zqctl's version\n"
      "\nExit status:\n"
      "  0  the service answered and the answer means success\n"
      "  1  the service answered with a failure (not BitLocker, a failed mount, ...)\n"
      "  2  bad command line or input; nothing was sent\n"
      "  3  no service: it is not running\n"
      "  4  timeout: the service did not answer in time\n"
      "  5  permission denied: the service's channel is not this user's to use\n";
  return text;
}
