#include "Platform/PAMPresenceVerifier.h"

#include <pwd.h>
#include <security/pam_appl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "Base/EnumNames.h"
#include "Platform/AccountPassword.h"

namespace quorvane {
namespace {

// What the C conversation function needs: where to relay, and whether an answer was missing.
struct Relay {
  PresenceConversation* conversation = nullptr;
  std::string user;
  bool unanswered = false;
};

// PAM's plain "Password: " does not say whose password it wants; the prompt may appear far from
// the program that asks, so it names the account.
std::string promptText(const char* text, const std::string& user) {
  const std::string given = text != nullptr ? text : "";
  if (given == "Password: " && !user.empty()) return "Password for " + user + ": ";
  return given;
}

void dropResponses(pam_response* responses, int count) {
  if (responses == nullptr) return;
  for (int i = 0; i < count; ++i) {
    if (responses[i].resp != nullptr) {
      secureWipe(responses[i].resp, std::strlen(responses[i].resp));
      std::free(responses[i].resp);
    }
  }
  std::free(responses);
}

std::optional<PresencePrompt::Style> styleOf(int pamStyle) {
  switch (pamStyle) {
    case PAM_PROMPT_ECHO_OFF: return PresencePrompt::Style::secret;
    case PAM_PROMPT_ECHO_ON: return PresencePrompt::Style::visible;
    case PAM_ERROR_MSG: return PresencePrompt::Style::error;
    case PAM_TEXT_INFO: return PresencePrompt::Style::info;
    default: return std::nullopt;  // binary and radio prompts have no frontend here
  }
}

// The PAM conversation: each message goes to the frontend; typed answers are handed to PAM in
// memory that PAM frees (and that is wiped here when the conversation fails half-way).
extern "C" int relayConversation(int count, const pam_message** messages, pam_response** responses,
                                 void* data) {
  auto* relay = static_cast<Relay*>(data);
  if (count <= 0 || count > PAM_MAX_NUM_MSG || messages == nullptr || responses == nullptr)
    return PAM_CONV_ERR;
  auto* answers =
      static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (answers == nullptr) return PAM_BUF_ERR;
  try {
    for (int i = 0; i < count; ++i) {
      auto style = styleOf(messages[i]->msg_style);
      if (!style) {
        dropResponses(answers, count);
        return PAM_CONV_ERR;
      }
      PresencePrompt prompt{*style, promptText(messages[i]->msg, relay->user)};
      std::optional<SecureBytes> answer = relay->conversation->exchange(prompt);
      if (!prompt.asks()) continue;
      const bool hasNUL =
          answer && !answer->empty() && std::memchr(answer->data(), 0, answer->size()) != nullptr;
      if (!answer || hasNUL) {
        relay->unanswered = !answer;
        dropResponses(answers, count);
        return PAM_CONV_ERR;
      }
      auto* text = static_cast<char*>(std::malloc(answer->size() + 1));
      if (text == nullptr) {
        dropResponses(answers, count);
        return PAM_BUF_ERR;
      }
      if (!answer->empty()) std::memcpy(text, answer->data(), answer->size());
      text[answer->size()] = '\0';
      answers[i].resp = text;
    }
  } catch (...) {
    relay->unanswered = true;
    dropResponses(answers, count);
    return PAM_CONV_ERR;
  }
  *responses = answers;
  return PAM_SUCCESS;
}

std::string pamText(pam_handle_t* handle, int status) {
  const char* text = ::pam_strerror(handle, status);
  return text != nullptr ? text : "PAM error " + std::to_string(status);
}

}  // namespace

namespace {

using Style = PresencePrompt::Style;

constexpr EnumNames<Style, 4> kStyleNames{"Style",
                                          {{{Style::secret, "secret"},
                                            {Style::visible, "visible"},
                                            {Style::info, "info"},
                                            {Style::error, "error"}}}};

}  // namespace

std::string_view rawValue(PresencePrompt::Style style) { return kStyleNames.name(style); }

std::optional<PresencePrompt::Style> presencePromptStyle(std::string_view text) {
  return kStyleNames.value(text);
}

PAMPresenceVerifier::PAMPresenceVerifier(std::string user, std::filesystem::path configDirectory)
    : user_(std::move(user)), configDirectory_(std::move(configDirectory)) {}

std::optional<std::string> PAMPresenceVerifier::unavailableReason() const {
  if (user_.empty()) return "this process runs as an account without a name";
  std::vector<std::filesystem::path> places;
  if (!configDirectory_.empty())
    places.push_back(configDirectory_);
  else
    places = {"/etc/pam.d", "/usr/lib/pam.d"};
  std::error_code error;
  for (const auto& place : places)
    if (std::filesystem::is_regular_file(place / kService, error)) return std::nullopt;
  return "no PAM service “" + std::string(kService) + "” in " + places.front().string() +
         " (install dist/pam.d/quorvane there, as scripts/run.sh does)";
}

PresenceResult PAMPresenceVerifier::verify(PresenceConversation& conversation) {
  std::lock_guard lock(mutex_);
  if (auto why = unavailableReason()) return {PresenceResult::Status::unavailable, *why};

  Relay relay{&conversation, user_};
  const pam_conv conv{relayConversation, &relay};
  pam_handle_t* handle = nullptr;
  const std::string service(kService);
  int status =
      ::pam_start_confdir(service.c_str(), user_.c_str(), &conv,
                          configDirectory_.empty() ? nullptr : configDirectory_.c_str(), &handle);
  if (status != PAM_SUCCESS || handle == nullptr) {
    if (handle != nullptr) ::pam_end(handle, status);
    return {PresenceResult::Status::unavailable, "PAM did not start: " + pamText(nullptr, status)};
  }
  status = ::pam_authenticate(handle, PAM_DISALLOW_NULL_AUTHTOK);
  if (status == PAM_SUCCESS) status = ::pam_acct_mgmt(handle, PAM_DISALLOW_NULL_AUTHTOK);
  PresenceResult result;
  if (status == PAM_SUCCESS)
    result = {PresenceResult::Status::verified, ""};
  else if (relay.unanswered)
    result = {PresenceResult::Status::cancelled, "no answer to the verification prompt"};
  else
    result = {PresenceResult::Status::failed, pamText(handle, status)};
  ::pam_end(handle, status);
  return result;
}

std::optional<std::string> PAMPresenceVerifier::currentUserName() {
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr || found->pw_name == nullptr)
    return std::nullopt;
  return std::string(found->pw_name);
}

bool PAMPresenceVerifier::accountCanNeverPass() const {
  return configDirectory_.empty() && accountPassword(user_) == AccountPassword::unusable;
}

}  // namespace quorvane
