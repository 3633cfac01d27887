#include "ActivityStore/SerialQueue.h"

#include <pthread.h>

#include "Crypto/Check.h"

namespace quorvane {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
  worker_ = std::thread([this] { loop(); });
  // Thread names are limited to 15 characters: the label's last component names it.
  std::string name = label_.substr(label_.rfind('.') + 1).substr(0, 15);
  pthread_setname_np(worker_.native_handle(), name.c_str());
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wakeUp_.notify_one();
  worker_.join();
}

void SerialQueue::runAndWait(std::function<void()> body) {
  QUORVANE_CHECK(std::this_thread::get_id() != worker_.get_id(),
                 "work on a serial queue must not wait for the same queue");
  std::packaged_task<void()> task(std::move(body));
  std::future<void> done = task.get_future();
  {
    std::lock_guard lock(mutex_);
    pending_.push_back(&task);
  }
  wakeUp_.notify_one();
  done.get();
}

void SerialQueue::loop() {
  for (;;) {
    std::packaged_task<void()>* task = nullptr;
    {
      std::unique_lock lock(mutex_);
      wakeUp_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
      if (pending_.empty()) return;
      task = pending_.front();
      pending_.pop_front();
    }
    (*task)();
  }
}

}  // namespace quorvane
