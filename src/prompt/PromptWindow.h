#pragma once

#include <gtk/gtk.h>

#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "Base/SecureBytes.h"
#include "PromptModel/PromptAgentLink.h"
#include "PromptModel/PromptChoice.h"
#include "PromptModel/PromptQueue.h"
#include "prompt/AgentStream.h"
#include "prompt/DesktopNotice.h"

namespace quorvane::prompt {

// The dialog: one window that shows the waiting requests one after another, sends the answers,
// and holds the presence verification (PAM's messages and its password prompt) that an approval
// starts. It closes when nothing waits any more, and when the agent goes away.
class PromptWindow {
 public:
  // `quit` is called once the window has closed.
  PromptWindow(std::filesystem::path socket, std::function<void()> quit);
  ~PromptWindow();
  PromptWindow(const PromptWindow&) = delete;
  PromptWindow& operator=(const PromptWindow&) = delete;

  // Connects to the agent; false when no agent answers.
  bool start();

 private:
  void build();
  void onLine(const JSON& line);
  void show();
  void close();
  void choose(PromptChoice choice);
  void finishAnswer(const std::string& id, const AnswerOutcome& outcome);
  // A prompt of the verification, on the main loop; `reply` gets the typed answer (or nothing).
  void showVerificationPrompt(const PresencePrompt& prompt,
                              std::shared_ptr<std::promise<std::optional<SecureBytes>>> reply);
  void submitTyped();
  void cancelTyped();
  void setBusy(bool busy);
  bool onKey(guint key);
  void present();

  std::filesystem::path socket_;
  std::function<void()> quit_;
  PromptQueue queue_;
  std::unique_ptr<AgentStream> stream_;
  std::jthread answering_;
  bool busy_ = false;
  bool closed_ = false;
  std::string answeringID_;
  std::shared_ptr<std::promise<std::optional<SecureBytes>>> pendingReply_;
  DesktopNotice notice_;

  GtkWidget* window_ = nullptr;
  GtkWidget* count_ = nullptr;
  GtkWidget* title_ = nullptr;
  GtkWidget* offline_ = nullptr;
  GtkWidget* details_ = nullptr;
  GtkWidget* verification_ = nullptr;  // the message of the verification
  GtkWidget* secret_ = nullptr;        // a password prompt's field
  GtkWidget* visible_ = nullptr;       // a visible prompt's field
  GtkWidget* status_ = nullptr;
  GtkWidget* allowOnce_ = nullptr;
  GtkWidget* allowWindow_ = nullptr;
  GtkWidget* windowLength_ = nullptr;
  GtkWidget* deny_ = nullptr;
  GtkWidget* denyAndBlock_ = nullptr;
};

}  // namespace quorvane::prompt
