#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace quorvane {

// One worker thread that runs submitted work one piece at a time, in the order submitted. `sync`
// hands work over and waits for it, from any thread: its result is returned and its exception
// rethrown in the caller. Work must not call `sync` on its own queue (that would wait forever; it
// is checked).
class SerialQueue {
 public:
  explicit SerialQueue(std::string label);
  // Runs the work already submitted, then stops the thread.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const { return label_; }

  template <typename Work>
  std::invoke_result_t<Work&> sync(Work&& work) {
    using Result = std::invoke_result_t<Work&>;
    if constexpr (std::is_void_v<Result>) {
      runAndWait([&] { work(); });
    } else {
      std::optional<Result> result;
      runAndWait([&] { result.emplace(work()); });
      return std::move(*result);
    }
  }

 private:
  void runAndWait(std::function<void()> body);
  void loop();

  const std::string label_;
  std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::deque<std::packaged_task<void()>*> pending_;  // guarded by mutex_
  bool stopping_ = false;                            // guarded by mutex_
  std::thread worker_;
};

}  // namespace quorvane
