// A few threads that share out the pieces of one large job with the thread
// that asks for it.
#ifndef ZQ_ENGINE_CWORKERPOOL_H_
#define ZQ_ENGINE_CWORKERPOOL_H_

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace bitlocker {

class CWorkerPool {
 public:
  // `lanes` workers in all: the calling thread and lanes - 1 helpers.
  explicit CWorkerPool(unsigned lanes);
  ~CWorkerPool();

  CWorkerPool(const CWorkerPool&) = delete;
  CWorkerPool& operator=(const CWorkerPool&) = delete;

  unsigned lanes() const { return static_cast<unsigned>(helpers_.size()) + 1; }

  // Runs task(index, lane) for every index below `count` and returns when
  // all have run.  The caller works as lane 0, each helper as its own lane,
  // so a lane can own state that must not be shared.  Calls must not
  // overlap.
  using Task = std::function<void(size_t index, unsigned lane)>;
  void Run(size_t count, const Task& task);

 private:
  void HelperLoop(unsigned lane);
  void Drain(unsigned lane);

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable finished_;
  const Task* task_ = nullptr;
  size_t count_ = 0;
  std::atomic<size_t> next_{0};
  unsigned busyHelpers_ = 0;
  uint64_t generation_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> helpers_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CWORKERPOOL_H_
