#include "engine/CRangeLock.h"

#include <algorithm>

namespace bitlocker {

// Readers wait for writers, held or waiting; writers wait only for ranges
// held, never for others waiting, so no two requests wait for each other.
CRangeLock::Guard CRangeLock::Acquire(uint64_t first, uint64_t end, bool exclusive) {
  std::unique_lock<std::mutex> lock(mutex_);
  auto wanted = holders_.insert(holders_.end(), {first, end, exclusive, true});
  released_.wait(lock, [&] {
    return std::none_of(holders_.begin(), holders_.end(), [&](const Holder& other) {
      bool excludes = exclusive ? !other.waiting : other.exclusive;
      return excludes && &other != &*wanted && other.first < end && first < other.end;
    });
  });
  wanted->waiting = false;
  return Guard(this, wanted);
}

void CRangeLock::Release(std::list<Holder>::iterator holder) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    holders_.erase(holder);
  }
  released_.notify_all();
}

}  // namespace bitlocker
