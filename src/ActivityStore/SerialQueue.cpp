#include "ActivityStore/SerialQueue.h"

#include "Base/Check.h"

namespace quorvane {

SerialQueue::Turn::Turn(SerialQueue& queue) : queue_(queue) {
  MutexLock lock(queue_.mutex_);
  QUORVANE_CHECK(queue_.runner_ != std::this_thread::get_id(),
                 "work on a serial queue must not wait for the same queue");
  uint64_t ticket = queue_.nextTicket_++;
  queue_.turnEnded_.wait(queue_.mutex_,
                         [&]() REQUIRES(queue_.mutex_) { return queue_.serving_ == ticket; });
  queue_.runner_ = std::this_thread::get_id();
}

SerialQueue::Turn::~Turn() {
  {
    MutexLock lock(queue_.mutex_);
    queue_.runner_ = std::thread::id();
    ++queue_.serving_;
  }
  queue_.turnEnded_.notify_all();
}

}  // namespace quorvane
