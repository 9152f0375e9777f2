#include "CRangeLock.h"

#include <algorithm>

namespace bitlocker {

CRangeLock::Guard CRangeLock::Acquire(Holder wanted) {
  std::unique_lock<std::mutex> lock(mutex_);
  released_.wait(lock, [&] {
    return std::none_of(holders_.begin(), holders_.end(), [&](const Holder& held) {
      return (held.exclusive || wanted.exclusive) && held.first < wanted.end &&
             wanted.first < held.end;
    });
  });
  return Guard(this, holders_.insert(holders_.end(), wanted));
}

void CRangeLock::Release(std::list<Holder>::iterator holder) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    holders_.erase(holder);
  }
  released_.notify_all();
}

}  // namespace bitlocker
