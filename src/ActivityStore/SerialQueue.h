#pragma once

#include <condition_variable>
#include <cstdint>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "Base/Mutex.h"

namespace quorvane {

// Runs work one piece at a time, in the order it was submitted, from any number of threads. As
// dispatch_sync does on a serial queue, `sync` runs the work on the submitting thread once every
// earlier piece has finished, and returns its result or rethrows its exception there: the work is
// serialised without handing it to another thread and back, which on a busy machine costs more
// than the work itself. Work must not call `sync` on its own queue (that would wait forever; it
// is checked).
class SerialQueue {
 public:
  explicit SerialQueue(std::string label) : label_(std::move(label)) {}
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const { return label_; }

  template <typename Work>
  std::invoke_result_t<Work&> sync(Work&& work) {
    Turn turn(*this);
    return work();
  }

 private:
  // Waits for this caller's turn (first come, first served) and ends it when it goes.
  class Turn {
   public:
    explicit Turn(SerialQueue& queue);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    SerialQueue& queue_;
  };

  const std::string label_;
  Mutex mutex_;
  std::condition_variable_any turnEnded_;
  uint64_t nextTicket_ GUARDED_BY(mutex_) = 0;
  uint64_t serving_ GUARDED_BY(mutex_) = 0;
  std::thread::id runner_ GUARDED_BY(mutex_);  // the thread whose work runs now
};

}  // namespace quorvane
