#include "util/MountTable.h"

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

bool IsReadOnlyMount(const std::vector<MountEntry>& table, int id) {
  for (const MountEntry& entry : table)
    if (entry.id == id) return entry.readOnly;
  return false;
}
