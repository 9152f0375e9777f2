#include "tools/zq-bitlocker/VolumeList.h"

#include <cerrno>
#include <cstring>
#include <iostream>

#include "bitlocker/BitlockerStatus.h"
#include "platform/BlockDevices.h"
#include "platform/Mounts.h"
#include "tools/zq-bitlocker/SizeText.h"
#include "tools/zq-bitlocker/VolumeScan.h"
#include "util/JsonWriter.h"

namespace {

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

void PrintJson(const std::vector<FoundVolume>& volumes, std::ostream& out) {
  JsonWriter json(out);
  json.BeginObject().Key("volumes").BeginArray();
  for (const FoundVolume& volume : volumes) {
    json.BeginObject().Key("device").String(volume.device).Key("partition").Number(volume.partition);
    json.Key("offset").Number(volume.offset).Key("size").Number(volume.size).Key("kind").String(volume.kind);
    json.Key("description").String(volume.description).Key("protectors").BeginArray();
    for (const std::string& protector : volume.protectors) json.String(protector);
    json.EndArray().Key("mounted").Bool(volume.mounted);
    if (!volume.problem.empty()) json.Key("problem").String(volume.problem);
    json.EndObject();
  }
  json.EndArray().EndObject();
  out << "\n";
}

// Columns as wide as their widest cell; the description, which may hold
// blanks, last.
void PrintTable(const std::vector<FoundVolume>& volumes, std::ostream& out) {
  std::vector<std::vector<std::string>> rows = {
      {"DEVICE", "PART", "OFFSET", "SIZE", "KIND", "MOUNTED", "PROTECTORS", "DESCRIPTION"}};
  for (const FoundVolume& volume : volumes) {
    rows.push_back({volume.device, volume.partition ? std::to_string(volume.partition) : "-",
                    std::to_string(volume.offset), SizeText(volume.size), volume.kind, volume.mounted ? "yes" : "no",
                    volume.problem.empty() ? Joined(volume.protectors) : "(" + volume.problem + ")",
                    volume.description});
  }
  std::vector<size_t> widths(rows[0].size(), 0);
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
    }
    out << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
  }
}

}  // namespace

int ListVolumes(const std::vector<std::string>& paths, bool json, std::ostream& out) {
  std::vector<platform::BlockDevice> devices;
  for (const std::string& path : paths) devices.push_back({path, false});
  if (paths.empty()) devices = platform::ListBlockDevices();

  std::vector<std::string> sources;
  for (const MountEntry& mount : platform::ReadMountTable()) sources.push_back(mount.source);
  std::vector<FoundVolume> volumes;
  for (const platform::BlockDevice& device : devices) {
    const std::optional<Disk> disk = OpenDisk(device.path);
    if (!disk) {
      std::cerr << "zq-bitlocker: " << device.path << ": " << std::strerror(errno) << " (skipped)\n";
      continue;
    }
    for (FoundVolume& volume : FindVolumes(device.path, *disk, !device.partitioned)) {
      volume.mounted = volume.offset == 0 && IsMountedSource(device.path, sources);
      volumes.push_back(std::move(volume));
    }
  }
  if (json) {
    PrintJson(volumes, out);
  } else if (!volumes.empty()) {
    PrintTable(volumes, out);
  } else {
    std::cerr << "zq-bitlocker: no BitLocker volume found\n";
  }
  return volumes.empty() ? bitlocker::kNotBitlocker : 0;
}
