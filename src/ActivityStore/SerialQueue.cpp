#include "ActivityStore/SerialQueue.h"

#include "Base/Check.h"

namespace quorvane {

SerialQueue::Turn::Turn(SerialQueue& queue) : queue_(queue) {
  std::unique_lock lock(queue_.mutex_);
  QUORVANE_CHECK(queue_.runner_ != std::this_thread::get_id(),
                 "work on a serial queue must not wait for the same queue");
  uint64_t ticket = queue_.nextTicket_++;
  queue_.turnEnded_.wait(lock, [&] { return queue_.serving_ == ticket; });
  queue_.runner_ = std::this_thread::get_id();
}

SerialQueue::Turn::~Turn() {
  {
    std::lock_guard lock(queue_.mutex_);
    queue_.runner_ = std::thread::id();
    ++queue_.serving_;
  }
  queue_.turnEnded_.notify_all();
}

}  // namespace quorvane
