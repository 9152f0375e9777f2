#include "engine/CWorkerPool.h"

namespace bitlocker {

CWorkerPool::CWorkerPool(unsigned lanes) {
  for (unsigned lane = 1; lane < lanes; ++lane) {
    helpers_.emplace_back([this, lane] { HelperLoop(lane); });
  }
}

CWorkerPool::~CWorkerPool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (auto& helper : helpers_) helper.join();
}

void CWorkerPool::Run(size_t count, const Task& task) {
  if (helpers_.empty() || count <= 1) {
    for (size_t i = 0; i < count; ++i) task(i, 0);
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    task_ = &task;
    count_ = count;
    next_.store(0);
    busyHelpers_ = static_cast<unsigned>(helpers_.size());
    ++generation_;
  }
  wake_.notify_all();
  Drain(0);
  std::unique_lock<std::mutex> lock(mutex_);
  finished_.wait(lock, [this] { return busyHelpers_ == 0; });
  task_ = nullptr;
}

void CWorkerPool::HelperLoop(unsigned lane) {
  uint64_t seen = 0;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
      if (stopping_) return;
      seen = generation_;
    }
    Drain(lane);
    std::lock_guard<std::mutex> lock(mutex_);
    if (--busyHelpers_ == 0) finished_.notify_one();
  }
}

void CWorkerPool::Drain(unsigned lane) {
  for (size_t i = next_.fetch_add(1); i < count_; i = next_.fetch_add(1)) (*task_)(i, lane);
}

}  // namespace bitlocker
