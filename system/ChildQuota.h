// How many children of one kind the service lets run at once, so that a
// client sending request upon request cannot fill the machine with
// processes of root's: at most a fixed number, and at most one for each
// key (a device) that is given one.  A slot is taken before the child is
// started and given back once the last copy of it has gone, which the
// caller keeps until the child has ended.
#ifndef ZQ_SYSTEM_CHILDQUOTA_H_
#define ZQ_SYSTEM_CHILDQUOTA_H_

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <string>

class ChildQuota {
 public:
  using Slot = std::shared_ptr<void>;

  explicit ChildQuota(size_t limit);
  ChildQuota(const ChildQuota&) = delete;
  ChildQuota& operator=(const ChildQuota&) = delete;

  // A slot for one child working on `key` (none when empty); null when
  // the limit is reached or a child works on `key` already.  For a
  // refusal, *burstStarts tells whether it is the first since a slot was
  // last taken, so that a burst of them is told once.
  Slot Take(const std::string& key, bool* burstStarts);

 private:
  void Give(const std::string& key);

  const size_t limit_;
  std::mutex mutex_;  // guards the three below
  size_t running_ = 0;
  std::multiset<std::string> keys_;
  bool refusing_ = false;
};

#endif  // ZQ_SYSTEM_CHILDQUOTA_H_
