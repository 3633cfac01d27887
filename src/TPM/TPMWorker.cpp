#include "TPM/TPMWorker.h"

#include "Base/Check.h"

namespace quorvane {

TPMWorker::TPMWorker() : thread_([this] { loop(); }) {}

TPMWorker::~TPMWorker() {
  {
    MutexLock lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void TPMWorker::run(const std::function<void()>& task) {
  QUORVANE_CHECK(std::this_thread::get_id() != thread_.get_id(), "a TPM task waits for another");
  Job job{&task, nullptr, false};
  {
    MutexLock lock(mutex_);
    jobs_.push_back(&job);
  }
  changed_.notify_all();
  {
    MutexLock lock(mutex_);
    changed_.wait(mutex_, [&]() REQUIRES(mutex_) { return job.done; });
  }
  if (job.error) std::rethrow_exception(job.error);
}

void TPMWorker::loop() {
  for (;;) {
    Job* job = nullptr;
    {
      MutexLock lock(mutex_);
      changed_.wait(mutex_, [&]() REQUIRES(mutex_) { return stopping_ || !jobs_.empty(); });
      if (jobs_.empty()) return;
      job = jobs_.front();
      jobs_.pop_front();
    }
    try {
      (*job->task)();
    } catch (...) {
      job->error = std::current_exception();
    }
    {
      MutexLock lock(mutex_);
      job->done = true;
    }
    changed_.notify_all();
  }
}

}  // namespace quorvane
