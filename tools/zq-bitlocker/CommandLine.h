// The words zq-bitlocker is started with: a command, its options and its
// devices, and the usage text that describes them.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_COMMANDLINE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_COMMANDLINE_H_

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

struct Options {
  std::string command;               // info, verify, dump, list or create
  std::vector<std::string> devices;  // one, or for list any number
  std::string kind = "auto";         // of credential
  std::string output;                // dump's file; empty: standard output
  bool force = false;
  uint64_t offset = 0;  // where the volume starts in the device
  bool json = false;
  bool progressJson = false;
  // create
  uint64_t size = 0;  // of a new image file; 0 when not given
  std::string cipher = "xts-aes-128";
  std::string recoveryFile;
  std::optional<std::string> description;
  bool quick = false;
  std::string startupKeyDir;  // where the .BEK file goes; empty: no startup key
};

enum class Request { kRun, kHelp, kVersion, kUsageError };

// Parses argv.  On kUsageError *error says what is wrong, naming the word
// that is: "unknown option '--foo'".
Request ParseCommandLine(int argc, char** argv, Options* options, std::string* error);

void PrintUsage(std::ostream& out);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_COMMANDLINE_H_
