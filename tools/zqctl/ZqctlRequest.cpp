#include "ZqctlRequest.h"

#include <cstdlib>
#include <cstring>
#include <map>

#include "CPipeDataWrapper.h"

namespace {

struct Subcommand {
  COMMAND_TYPE type;
  size_t operands;
  const char* synopsis;
  const char* description;
};

const std::map<std::string, Subcommand>& Subcommands() {
  static const std::map<std::string, Subcommand> table = {
      {"ping", {eCOMMAND_CHECK_CONNECTION, 0, "ping", "Checks that the service answers."}},
      {"check", {eCOMMAND_BITLOCKER_CHECK, 1, "check DEVICE",
                 "Asks whether DEVICE (a name such as disk2s1 or loop3) holds a BitLocker volume;\n"
                 "a BitLocker volume is unmounted by the service."}},
      {"mount", {eCOMMAND_BITLOCKER_MOUNT, 3, "mount DEVICE MOUNT_POINT OPTIONS",
                 "Unmounts DEVICE and starts the mounter on it. MOUNT_POINT lies below /media,\n"
                 "/run/media or /mnt; write each blank in it as backslash-blank.\n"
                 "The credential is read from standard input (a no-echo prompt on a terminal)."}},
      {"explore", {eCOMMAND_BITLOCKER_EXPLORER, 1, "explore DEVICE",
                   "Unmounts DEVICE, opens it with the credential and starts the explorer on it.\n"
                   "The credential is read from standard input (a no-echo prompt on a terminal)."}},
      {"startup", {eCOMMAND_SET_STARTUP, 1, "startup on BUNDLE | startup off",
                   "Writes (on) or removes (off) the items that start the service at boot and\n"
                   "the main application at login. BUNDLE is the application bundle's path."}},
      {"to-explorer", {eCOMMAND_TO_FILE_EXPLORER, 1, "to-explorer BYTE",
                       "Passes BYTE (0-255, or one character) on to the FileExplorer client."}},
      {"to-main", {eCOMMAND_TO_MAIN_UI, 1, "to-main BYTE", "Passes BYTE (0-255, or one character) on to the MainUI client."}},
      {"exit", {eCOMMAND_EXIT, 0, "exit", "Asks the service to end."}},
      {"listen", {COMMAND_TYPE(0), 0, "listen", "Prints every block the service sends to this client until interrupted."}},
  };
  return table;
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
  switch (sub.type) {
    case eCOMMAND_BITLOCKER_CHECK:
      return CopyField(record.check.deviceName, operands[0], "DEVICE", error);
    case eCOMMAND_BITLOCKER_MOUNT:
      request->needsCredential = true;
      return CopyField(record.mount.deviceName, operands[0], "DEVICE", error) &&
             CopyField(record.mount.mountArg2, operands[1], "MOUNT_POINT", error) &&
             CopyField(record.mount.mountArg3, operands[2], "OPTIONS", error);
    case eCOMMAND_BITLOCKER_EXPLORER:
      request->needsCredential = true;
      return CopyField(record.explorer.deviceName, operands[0], "DEVICE", error);
    case eCOMMAND_SET_STARTUP:
      return true;
    case eCOMMAND_TO_FILE_EXPLORER:
    case eCOMMAND_TO_MAIN_UI:
      return ParseByte(operands[0], &record.simple.arg, error);
    default:
      return true;
  }
}

bool ParseStartup(ZqctlRequest* request, std::string* error) {
  std::vector<std::string>& operands = request->operands;
  if (operands.size() == 2 && operands[0] == "on") {
    request->record.startup.enable = 1;
    return CopyField(request->record.startup.bundlePath, operands[1], "BUNDLE", error);
  }
  if (operands.size() == 1 && operands[0] == "off") return true;
  *error = "usage: zqctl startup on BUNDLE | zqctl startup off";
  return false;
}

}  // namespace

bool ParseZqctlArguments(const std::vector<std::string>& arguments, ZqctlRequest* request, std::string* error) {
  size_t i = 0;
  for (; i < arguments.size() && arguments[i].rfind("--", 0) == 0; ++i) {
    const std::string& option = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    if (option == "--json") {
      request->json = true;
    } else if (option == "--help") {
      request->help = true;
    } else if (option == "--as" && hasValue) {
      const std::string& name = arguments[++i];
      if (name == kMainUIChannel.name) {
        request->channel = kMainUIChannel;
      } else if (name == kFileExplorerChannel.name) {
        request->channel = kFileExplorerChannel;
      } else {
        *error = "--as takes MainUI or FileExplorer, not '" + name + "'";
        return false;
      }
    } else if (option == "--timeout" && hasValue) {
      char* end = nullptr;
      const std::string& value = arguments[++i];
      const long seconds = std::strtol(value.c_str(), &end, 10);
      if (value.empty() || *end != '\0' || seconds < 1 || seconds > 3600) {
        *error = "--timeout takes a whole number of seconds from 1 to 3600, not '" + value + "'";
        return false;
      }
      request->timeout = static_cast<unsigned>(seconds);
    } else {
      *error = "unknown option '" + option + "'";
      return false;
    }
  }
  if (i == arguments.size()) {
    if (request->help) return true;
    *error = "no subcommand given; see zqctl --help";
    return false;
  }
  request->subcommand = arguments[i];
  request->operands.assign(arguments.begin() + static_cast<long>(i) + 1, arguments.end());
  const auto found = Subcommands().find(request->subcommand);
  if (found == Subcommands().end()) {
    *error = "unknown subcommand '" + request->subcommand + "'; see zqctl --help";
    return false;
  }
  if (!request->operands.empty() && request->operands.back() == "--help") request->help = true;
  if (request->help) return true;
  const Subcommand& sub = found->second;
  request->listen = request->subcommand == "listen";
  if (sub.type == eCOMMAND_SET_STARTUP) return FillRecord(sub, request, error) && ParseStartup(request, error);
  if (request->operands.size() != sub.operands) {
    *error = std::string("usage: zqctl ") + sub.synopsis;
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
  std::string text =
      "usage: zqctl [--as MainUI|FileExplorer] [--timeout SECONDS] [--json] SUBCOMMAND [ARGS]\n"
      "\nTalks to the Zq-NorvaneServices service as one of its client applications.\n\nSubcommands:\n";
  for (const auto& [name, sub] : Subcommands()) text += "  " + std::string(sub.synopsis) + "\n";
  text +=
      "\nOptions:\n"
      "  --as NAME         play the client MainUI (default) or FileExplorer\n"
      "  --timeout SECONDS how long to wait for the service (default 10)\n"
      "  --json            print each answer as one JSON object\n"
      "  --help            this text; 'zqctl SUBCOMMAND --help' for one subcommand\n"
      "\nExit status:\n"
      "  0  the service answered and the answer means success\n"
      "  1  the service answered with a failure (not BitLocker, a failed mount, ...)\n"
      "  2  bad command line or input; nothing was sent\n"
      "  3  no service: its channel could not be opened\n"
      "  4  timeout: the service did not answer in time\n";
  return text;
}
