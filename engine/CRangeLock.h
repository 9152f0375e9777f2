// Locks on ranges of sectors.  Readers of a range share it, a writer holds
// its range alone, and ranges that do not overlap never wait for each other,
// so a volume's reads and writes of different sectors run side by side
// while those of one sector take turns.  A waiting writer keeps new readers
// of its range out, so that a stream of reads cannot hold it off for ever.
#ifndef ZQ_ENGINE_CRANGELOCK_H_
#define ZQ_ENGINE_CRANGELOCK_H_

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>

namespace bitlocker {

class CRangeLock {
 private:
  struct Holder {
    uint64_t first;
    uint64_t end;
    bool exclusive;
    bool waiting;  // not yet holding its range
  };

 public:
  // Holds a range until it goes.
  class Guard {
   public:
    Guard(CRangeLock* lock, std::list<Holder>::iterator holder) : lock_(lock), holder_(holder) {}
    ~Guard() { lock_->Release(holder_); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    CRangeLock* lock_;
    std::list<Holder>::iterator holder_;
  };

  // Waits until [first, end) overlaps no range held in a way that excludes
  // this one, then holds it.
  Guard LockShared(uint64_t first, uint64_t end) { return Acquire(first, end, false); }
  Guard LockExclusive(uint64_t first, uint64_t end) { return Acquire(first, end, true); }

 private:
  Guard Acquire(uint64_t first, uint64_t end, bool exclusive);
  void Release(std::list<Holder>::iterator holder);

  std::mutex mutex_;
  std::condition_variable released_;
  std::list<Holder> holders_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CRANGELOCK_H_
