#include "agent/RunnerPool.h"

namespace quorvane {

RunnerPool::RunnerPool(size_t runners, size_t maxThreads, std::function<bool()> step)
    : runners_(runners), maxThreads_(std::max(runners, maxThreads)), step_(std::move(step)) {}

RunnerPool::~RunnerPool() { stopAndJoin(); }

void RunnerPool::start() {
  MutexLock lock(mutex_);
  while (running_ < runners_) {
    ++running_;
    threads_.emplace_back([this] { run(); });
  }
}

void RunnerPool::replenish() {
  if (stopping_ || running_ >= runners_) return;
  if (parked_ > wakeups_) {
    ++wakeups_;
    ++running_;
    unparked_.notify_one();
  } else if (threads_.size() < maxThreads_) {
    ++running_;
    threads_.emplace_back([this] { run(); });
  }
}

void RunnerPool::beginBlocking() {
  MutexLock lock(mutex_);
  --running_;
  replenish();
}

void RunnerPool::endBlocking() {
  MutexLock lock(mutex_);
  ++running_;
}

void RunnerPool::run() {
  for (;;) {
    {
      MutexLock lock(mutex_);
      if (running_ > runners_ && !stopping_) {
        --running_;
        ++parked_;
        unparked_.wait(mutex_, [&]() REQUIRES(mutex_) { return stopping_ || wakeups_ > 0; });
        --parked_;
        if (wakeups_ == 0) return;  // stopping
        --wakeups_;
      }
      if (stopping_) return;
    }
    if (!step_()) return;
  }
}

void RunnerPool::stopAndJoin() {
  std::vector<std::thread> threads;
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    unparked_.notify_all();
    threads = std::move(threads_);
  }
  for (std::thread& thread : threads) thread.join();
}

size_t RunnerPool::threadCount() const {
  MutexLock lock(mutex_);
  return threads_.size();
}

}  // namespace quorvane
