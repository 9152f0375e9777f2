#include "MountTable.h"

#include <sys/sysmacros.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

bool IsOctalEscape(const std::string& field, size_t i) {
  if (field[i] != '\\' || i + 3 >= field.size()) return false;
  for (size_t k = i + 1; k <= i + 3; ++k)
    if (field[k] < '0' || field[k] > '7') return false;
  return true;
}

// One line: id, parent id, major:minor, root, mount point, options, any
// optional fields, "-", type, source, super options.
std::optional<MountEntry> ParseLine(const std::string& line) {
  std::istringstream fields(line);
  MountEntry entry;
  std::string number, field;
  if (!(fields >> entry.id >> entry.parentId >> number >> entry.root >> entry.mountPoint >> entry.options))
    return std::nullopt;
  while (fields >> field && field != "-") {
  }
  if (!(fields >> entry.type >> entry.source)) return std::nullopt;
  unsigned major = 0, minor = 0;
  if (std::sscanf(number.c_str(), "%u:%u", &major, &minor) != 2) return std::nullopt;
  entry.device = makedev(major, minor);
  entry.root = UnescapeMountField(entry.root);
  entry.mountPoint = UnescapeMountField(entry.mountPoint);
  entry.source = UnescapeMountField(entry.source);
  return entry;
}

}  // namespace

std::string UnescapeMountField(const std::string& field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (IsOctalEscape(field, i)) {
      text += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::vector<MountEntry> ReadMountTable() {
  std::vector<MountEntry> table;
  std::ifstream mountinfo("/proc/self/mountinfo");
  for (std::string line; std::getline(mountinfo, line);) {
    if (std::optional<MountEntry> entry = ParseLine(line)) table.push_back(std::move(*entry));
  }
  return table;
}

std::optional<MountEntry> TopMountAt(const std::vector<MountEntry>& table, const std::string& mountPoint) {
  // A mount over another at the same point has the one below as parent.
  for (const MountEntry& entry : table) {
    if (entry.mountPoint != mountPoint) continue;
    bool covered = false;
    for (const MountEntry& other : table)
      covered = covered || (other.mountPoint == mountPoint && other.parentId == entry.id);
    if (!covered) return entry;
  }
  return std::nullopt;
}

bool HasMount(const std::vector<MountEntry>& table, int id) {
  for (const MountEntry& entry : table)
    if (entry.id == id) return true;
  return false;
}
