#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/SecureBytes.h"

namespace quorvane {

// One message of a presence verification, shown to the person at a frontend.
struct PresencePrompt {
  enum class Style {
    secret,   // asks for an answer that is not shown while typed (a password)
    visible,  // asks for an answer that may be shown
    info,     // tells something ("Place your finger on the reader")
    error,    // tells that something went wrong
  };
  Style style = Style::info;
  std::string text;

  bool asks() const { return style == Style::secret || style == Style::visible; }
  friend bool operator==(const PresencePrompt&, const PresencePrompt&) = default;
};

// "secret", "visible", "info", "error".
std::string_view rawValue(PresencePrompt::Style style);
std::optional<PresencePrompt::Style> presencePromptStyle(std::string_view text);

// The way to the person being verified: a frontend that shows prompts and sends back answers.
class PresenceConversation {
 public:
  virtual ~PresenceConversation() = default;
  // Shows `prompt`. For a prompt that asks, returns what the person typed, or nothing when no
  // answer came (they cancelled, hung up or did not answer in time); the verification then fails.
  // For info and error prompts the value returned is ignored.
  virtual std::optional<SecureBytes> exchange(const PresencePrompt& prompt) = 0;
};

// How a verification ended.
struct PresenceResult {
  enum class Status {
    verified,     // the person proved to be the user
    failed,       // the proof was refused (wrong password, no finger, account problem)
    cancelled,    // the conversation ended without an answer
    unavailable,  // no verification can run here (no configuration for it)
  };
  Status status = Status::failed;
  std::string detail;  // what happened, for the log; never anything the person typed

  bool verified() const { return status == Status::verified; }
};

// Proves that the user is present at this machine (the Linux counterpart of a Touch ID prompt).
// Every outcome but `verified` is a refusal; nothing here ever allows by default.
class PresenceVerifier {
 public:
  virtual ~PresenceVerifier() = default;
  // Runs one verification, talking to the person through `conversation`. Blocks until it ends.
  virtual PresenceResult verify(PresenceConversation& conversation) = 0;
  // Why no verification can run at all, or nothing when one can.
  virtual std::optional<std::string> unavailableReason() const = 0;
  // Whether a verification runs but can never succeed for this account (one without a usable
  // password, checked by the system's password stack).
  virtual bool accountCanNeverPass() const { return false; }
};

// A verifier with a fixed answer that asks nothing; counts its calls. For tests of the layers
// above.
class FixedPresenceVerifier final : public PresenceVerifier {
 public:
  explicit FixedPresenceVerifier(PresenceResult::Status status) : status_(status) {}
  PresenceResult verify(PresenceConversation&) override {
    ++calls_;
    return {status_, status_ == PresenceResult::Status::verified ? "" : "fixed refusal"};
  }
  std::optional<std::string> unavailableReason() const override {
    if (status_ == PresenceResult::Status::unavailable) return "fixed: unavailable";
    return std::nullopt;
  }
  int calls() const { return calls_; }

 private:
  PresenceResult::Status status_;
  int calls_ = 0;
};

}  // namespace quorvane
