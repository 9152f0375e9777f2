#include "tools/zq-bitlocker/CommandLine.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace {

const char* const kKinds[] = {"auto", "password", "recovery", "startup-key", "clear-key"};
const char* const kCiphers[] = {"xts-aes-128", "xts-aes-256", "aes-cbc-128", "aes-cbc-256"};

// The commands each option applies to.
struct OptionRule {
  const char* name;
  bool takesValue;
  const char* commands;
};

const OptionRule kOptionRules[] = {
    {"--kind", true, " verify dump "},
    {"--output", true, " dump "},
    {"--force", false, " dump create "},
    {"--offset", true, " info verify dump "},
    {"--json", false, " info list "},
    {"--progress-json", false, " dump create "},
    {"--size", true, " create "},
    {"--cipher", true, " create "},
    {"--recovery-file", true, " create "},
    {"--description", true, " create "},
    {"--quick", false, " create "},
    {"--startup-key-dir", true, " create "},
};

// Decimal, or hexadecimal after "0x".
bool ParseByteCount(const std::string& text, uint64_t* value) {
  const bool hex = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
  const std::string digits = hex ? text.substr(2) : text;
  if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
    return false;
  errno = 0;
  *value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
  return errno == 0;
}

// A byte count, optionally followed by K, M, G or T for powers of 1024.
bool ParseSize(const std::string& text, uint64_t* value) {
  const std::string units = "KMGT";
  const size_t unit = text.empty() ? std::string::npos : units.find(text.back());
  if (!ParseByteCount(unit == std::string::npos ? text : text.substr(0, text.size() - 1), value)) return false;
  for (size_t i = 0; unit != std::string::npos && i <= unit; ++i) {
    if (*value > UINT64_MAX / 1024) return false;
    *value *= 1024;
  }
  return *value > 0;
}

bool Apply(const std::string& name, const std::string& value, Options* options, std::string* error) {
  if (name == "--kind") {
    for (const char* kind : kKinds) {
      if (value == kind) return options->kind = value, true;
    }
    *error = "unknown credential kind '" + value + "'";
    return false;
  }
  if (name == "--offset") {
    if (ParseByteCount(value, &options->offset)) return true;
    *error = "'" + value + "' is no byte offset for --offset";
    return false;
  }
  if (name == "--size") {
    if (ParseSize(value, &options->size)) return true;
    *error = "'" + value + "' is no size for --size";
    return false;
  }
  if (name == "--cipher") {
    for (const char* cipher : kCiphers) {
      if (value == cipher) return options->cipher = value, true;
    }
    *error = "unknown cipher '" + value + "'";
    return false;
  }
  if (name == "--recovery-file") options->recoveryFile = value;
  if (name == "--description") options->description = value;
  if (name == "--quick") options->quick = true;
  if (name == "--startup-key-dir") options->startupKeyDir = value;
  if (name == "--output") options->output = value;
  if (name == "--force") options->force = true;
  if (name == "--json") options->json = true;
  if (name == "--progress-json") options->progressJson = true;
  return true;
}

bool ParseWord(int argc, char** argv, int* i, Options* options, std::string* error) {
  const std::string word = argv[*i];
  if (word.size() < 2 || word[0] != '-') {
    options->devices.push_back(word);
    return true;
  }
  const size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  for (const OptionRule& rule : kOptionRules) {
    if (name != rule.name) continue;
    if (std::string(rule.commands).find(" " + options->command + " ") == std::string::npos) {
      *error = "'" + name + "' does not apply to " + options->command;
      return false;
    }
    if (!rule.takesValue) {
      if (equals == std::string::npos) return Apply(name, "", options, error);
      *error = "'" + word + "': " + name + " takes no value";
      return false;
    }
    if (equals != std::string::npos) return Apply(name, word.substr(equals + 1), options, error);
    if (*i + 1 >= argc) {
      *error = "'" + name + "' needs a value";
      return false;
    }
    return Apply(name, argv[++*i], options, error);
  }
  *error = "unknown option '" + word + "'";
  return false;
}

}  // namespace

Request ParseCommandLine(int argc, char** argv, Options* options, std::string* error) {
  error->clear();
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "-h" || word == "--help") return Request::kHelp;
    if (word == "--version") return Request::kVersion;
  }
  if (argc < 2) {
    *error = "no command given";
    return Request::kUsageError;
  }
  options->command = argv[1];
  if (options->command == "scan") options->command = "list";
  if (options->command != "info" && options->command != "verify" && options->command != "dump" &&
      options->command != "list" && options->command != "create") {
    *error = std::string(options->command[0] == '-' ? "unknown option '" : "unknown command '") + options->command + "'";
    return Request::kUsageError;
  }
  for (int i = 2; i < argc; ++i) {
    if (!ParseWord(argc, argv, &i, options, error)) return Request::kUsageError;
  }
  if (options->command != "list" && options->devices.size() > 1) {
    *error = "unexpected argument '" + options->devices[1] + "': " + options->command + " takes one DEVICE";
  } else if (options->command != "list" && options->devices.empty()) {
    *error = options->command + " needs a DEVICE";
  } else if (options->command == "dump" && options->force && options->output.empty()) {
    *error = "'--force' needs --output FILE";
  }
  return error->empty() ? Request::kRun : Request::kUsageError;
}

void PrintUsage(std::ostream& out) {
  out << "usage: zq-bitlocker info [--json] [--offset BYTES] DEVICE\n"
         "       zq-bitlocker verify [--kind KIND] [--offset BYTES] DEVICE\n"
         "       zq-bitlocker dump [--kind KIND] [--offset BYTES] [--output FILE [--force]]\n"
         "                         [--progress-json] DEVICE\n"
         "       zq-bitlocker list [--json] [IMAGE_OR_DEVICE...]      (alias: scan)\n"
         "       zq-bitlocker create [--size SIZE] [--cipher CIPHER] [--recovery-file FILE]\n"
         "                           [--startup-key-dir DIR] [--description TEXT] [--quick]\n"
         "                           [--force] [--progress-json] TARGET\n"
         "       zq-bitlocker --help | --version\n"
         "\n"
         "info describes a volume without any credential, with --json as one JSON\n"
         "object; verify checks a credential; dump writes the unlocked volume out.\n"
         "\n"
         "The credential is read from standard input, or asked for without echo on a\n"
         "terminal: a password, a 48-digit recovery password, or the path of a startup\n"
         "key (.BEK) file.  KIND says which it is instead of guessing: password,\n"
         "recovery, startup-key, or clear-key (nothing is read).\n"
         "\n"
         "--offset BYTES: the volume starts that many bytes into DEVICE (decimal, or hex\n"
         "after 0x), as list shows it; it ends where its partition does, or with DEVICE.\n"
         "\n"
         "dump writes to FILE, which must not exist yet (--force replaces it) and must\n"
         "not be DEVICE, or to standard output when that is no terminal.  It tells its\n"
         "progress on standard error when that is a terminal, and a summary at the end;\n"
         "--progress-json makes that one JSON object a line for programs.\n"
         "\n"
         "list shows the BitLocker volumes of the given disk images or devices, in their\n"
         "partitions (MBR or GPT) too, or of every disk device on this machine; it needs\n"
         "no credential, and skips with a note the devices it may not read.\n"
         "\n"
         "create makes a new BitLocker volume over all of TARGET, a block device or\n"
         "image file, or a new image file of --size SIZE (bytes, or with K, M, G or T).\n"
         "It asks for the password twice (once from standard input that is no\n"
         "terminal), generates a recovery password and prints it once on standard\n"
         "output, and with --recovery-file also writes it to FILE, which must not exist.\n"
         "--startup-key-dir adds a startup key that unlocks the volume on its own,\n"
         "written to a new file GUID.BEK (mode 0600) in the existing folder DIR.\n"
         "CIPHER: xts-aes-128 (the default), xts-aes-256, aes-cbc-128 or aes-cbc-256.\n"
         "Every sector is written encrypted, so TARGET's old contents are gone; --quick\n"
         "writes only the metadata and leaves them in place.  The wipe tells its progress\n"
         "as dump does, --progress-json too; Ctrl-C stops it and leaves TARGET with no\n"
         "header, so no volume.  A mounted TARGET is refused; so is one holding a\n"
         "BitLocker volume, a partition table or a file system unless --force.  The new\n"
         "volume holds no file system: mount it raw (zqctl mount DEVICE FOLDER raw)\n"
         "and make a FAT or NTFS file system on FOLDER/volume that ends within the\n"
         "BYTES create prints, e.g. mkfs.fat FOLDER/volume $((BYTES / 1024)).\n"
         "\n"
         "Exit status: 0 done, 1 not BitLocker (list: none found), 2 wrong credential,\n"
         "3 unsupported, 4 I/O error, 64 usage, 130 interrupted.\n";
}
