#include "system/ChildQuota.h"

ChildQuota::ChildQuota(size_t limit) : limit_(limit) {}

ChildQuota::Slot ChildQuota::Take(const std::string& key, bool* burstStarts) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (running_ >= limit_ || (!key.empty() && keys_.count(key) != 0)) {
    *burstStarts = !refusing_;
    refusing_ = true;
    return nullptr;
  }
  refusing_ = false;
  ++running_;
  keys_.insert(key);
  // The slot is only ever compared with null; its deleter is what counts.
  return Slot(this, [key](ChildQuota* quota) { quota->Give(key); });
}

void ChildQuota::Give(const std::string& key) {
  std::lock_guard<std::mutex> lock(mutex_);
  --running_;
  keys_.erase(keys_.find(key));
}
