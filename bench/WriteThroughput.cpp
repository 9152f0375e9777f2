#include "bench/WriteThroughput.h"

#include <unistd.h>

#include <chrono>
#include <memory>

#include "engine/CBitlockerVolume.h"

std::vector<uint64_t> WritableChunks(const std::string& image, const std::string& credential, std::string* why) {
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  if (bitlocker::CBitlockerVolume::Open(image, &volume, why) != bitlocker::Status::kOk ||
      volume->Unlock(bitlocker::Credential::FromText(credential), &unlocked, why) != bitlocker::Status::kOk)
    return {};
  std::vector<uint64_t> chunks;
  for (uint64_t offset = 0; offset + kWriteChunk <= unlocked->Size(); offset += kWriteChunk) {
    bool touches = false;
    for (const bitlocker::Extent& area : unlocked->layout().hidden())
      touches |= area.offset < offset + kWriteChunk && offset < area.end();
    if (!touches) chunks.push_back(offset);
  }
  return chunks;
}

std::optional<double> MeasureWriteThroughput(int fd, const std::vector<uint64_t>& offsets) {
  std::vector<uint8_t> bytes(kWriteChunk);
  const auto start = std::chrono::steady_clock::now();
  bool written = true;
  for (size_t i = 0; written && i < offsets.size(); ++i) {
    // Every chunk its own bytes, so that nothing below can skip a write as unchanged.
    for (size_t at = 0; at < bytes.size(); at += 4096) bytes[at] = static_cast<uint8_t>(i + at / 4096);
    const ssize_t wrote = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offsets[i]));
    written = wrote == static_cast<ssize_t>(bytes.size());
  }
  written = written && fdatasync(fd) == 0;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!written || offsets.empty()) return std::nullopt;
  return static_cast<double>(offsets.size() * kWriteChunk) / elapsed.count() / 1e6;
}
