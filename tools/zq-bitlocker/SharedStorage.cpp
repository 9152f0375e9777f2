#include "tools/zq-bitlocker/SharedStorage.h"

#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/Devices.h"

namespace {

// A file by its device and inode, a block device by its device number.
using Place = std::pair<char, std::pair<dev_t, ino_t>>;

Place PlaceOf(const struct stat& info) {
  if (S_ISBLK(info.st_mode)) return {'b', {info.st_rdev, 0}};
  return {'f', {info.st_dev, info.st_ino}};
}

// Where the bytes of a path lie: the path itself, the disk of a partition,
// and the file behind either.
std::set<Place> StorageOf(const struct stat& info) {
  std::set<Place> places{PlaceOf(info)};
  if (!S_ISBLK(info.st_mode)) return places;
  std::vector<dev_t> devices{info.st_rdev};
  if (const std::optional<dev_t> disk = platform::DiskOfPartition(info.st_rdev)) devices.push_back(*disk);
  for (const dev_t device : devices) {
    places.insert({'b', {device, 0}});
    if (const auto file = platform::BackingFileOf(device)) places.insert({'f', *file});
  }
  return places;
}

}  // namespace

// Two partitions of one disk share its storage without sharing bytes, so
// each path is looked for in the other's storage rather than the two
// storages compared.
bool SharesStorage(const struct stat& a, const struct stat& b) {
  return StorageOf(a).count(PlaceOf(b)) > 0 || StorageOf(b).count(PlaceOf(a)) > 0;
}
