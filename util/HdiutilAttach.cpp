#include "util/HdiutilAttach.h"

#include <optional>
#include <vector>

#include "util/PropertyListReader.h"

namespace {

bool IsWholeDisk(const std::string& device) {
  const std::string prefix = "/dev/disk";
  if (device.compare(0, prefix.size(), prefix) != 0 || device.size() == prefix.size()) return false;
  for (size_t i = prefix.size(); i < device.size(); ++i)
    if (device[i] < '0' || device[i] > '9') return false;
  return true;
}

}  // namespace

std::string AttachedWholeDisk(const std::string& plist, std::string* error) {
  const std::optional<PropertyListNode> top = ReadPropertyList(plist, error);
  if (!top) return "";
  const PropertyListNode* entities = top->Find("system-entities");
  if (entities == nullptr || entities->kind != PropertyListNode::Kind::kArray) {
    *error = "hdiutil named no system-entities";
    return "";
  }
  std::vector<std::string> disks;
  for (const PropertyListNode& entity : entities->items) {
    const PropertyListNode* device = entity.Find("dev-entry");
    if (device != nullptr && device->kind == PropertyListNode::Kind::kString && IsWholeDisk(device->text))
      disks.push_back(device->text);
  }
  if (disks.size() == 1) return disks.front();
  *error = disks.empty() ? "hdiutil named no whole disk" : "hdiutil named more than one whole disk";
  return "";
}
