#pragma once

#include <functional>
#include <memory>
#include <string>

namespace quorvane::prompt {

// A desktop notification (the freedesktop Notifications service on the session bus) for when the
// session refuses the dialog the focus: clicking it calls `onClick`, which brings the dialog
// forward. Does nothing without a session bus or a notification service.
class DesktopNotice {
 public:
  explicit DesktopNotice(std::function<void()> onClick);
  ~DesktopNotice();
  DesktopNotice(const DesktopNotice&) = delete;
  DesktopNotice& operator=(const DesktopNotice&) = delete;

  void show(const std::string& title, const std::string& body);
  void withdraw();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quorvane::prompt
