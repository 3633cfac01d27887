#include "prompt/PromptWindow.h"

#include <cstdio>

#include "Base/DecodingError.h"
#include "PromptModel/PromptAgentLink.h"

namespace quorvane::prompt {
namespace {

// How long the dialog waits for the agent's waiting requests after it connects before it decides
// that nothing waits (the agent sends them at once).
constexpr guint kFirstRequestMilliseconds = 2000;
// How long after presenting itself the dialog checks whether it got the focus.
constexpr guint kFocusCheckMilliseconds = 800;

// A label of sentences, wrapped at about 70 characters.
GtkWidget* label(const std::string& text, const char* cssClass = nullptr) {
  GtkWidget* widget = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(widget), 0);
  gtk_label_set_wrap(GTK_LABEL(widget), TRUE);
  gtk_label_set_wrap_mode(GTK_LABEL(widget), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_width_chars(GTK_LABEL(widget), 50);
  gtk_label_set_max_width_chars(GTK_LABEL(widget), 70);
  if (cssClass != nullptr) gtk_widget_add_css_class(widget, cssClass);
  return widget;
}

// One line of a detail: a path or a fingerprint is cut in its middle when it is too long, and
// shown whole in its tooltip.
GtkWidget* detailText(const std::string& text, const char* cssClass = nullptr) {
  GtkWidget* widget = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(widget), 0);
  gtk_label_set_ellipsize(GTK_LABEL(widget), PANGO_ELLIPSIZE_MIDDLE);
  gtk_label_set_max_width_chars(GTK_LABEL(widget), 70);
  gtk_widget_set_tooltip_text(widget, text.c_str());
  if (cssClass != nullptr) gtk_widget_add_css_class(widget, cssClass);
  return widget;
}

template <typename Handler>
void onClicked(GtkWidget* button, Handler* self, void (*handler)(Handler*)) {
  struct Binding {
    Handler* self;
    void (*handler)(Handler*);
  };
  g_signal_connect_data(
      button, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
        auto* binding = static_cast<Binding*>(data);
        binding->handler(binding->self);
      }),
      new Binding{self, handler},
      [](gpointer data, GClosure*) { delete static_cast<Binding*>(data); }, GConnectFlags{});
}

}  // namespace

PromptWindow::PromptWindow(std::filesystem::path socket, std::function<void()> quit)
    : socket_(std::move(socket)), quit_(std::move(quit)), notice_([this] { present(); }) {
  build();
}

PromptWindow::~PromptWindow() {
  if (pendingReply_) pendingReply_->set_value(std::nullopt);
  pendingReply_.reset();
  stream_.reset();
  if (answering_.joinable()) answering_.join();
}

void PromptWindow::build() {
  window_ = gtk_window_new();
  gtk_window_set_title(GTK_WINDOW(window_), "Quorvane: approve a signature?");
  gtk_window_set_resizable(GTK_WINDOW(window_), FALSE);
  g_signal_connect(window_, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer self) -> gboolean {
                     // Closing the window answers like Escape: the request on screen is denied.
                     auto* window = static_cast<PromptWindow*>(self);
                     window->onKey(GDK_KEY_Escape);
                     return TRUE;
                   }),
                   this);

  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 10);
  for (auto margin : {gtk_widget_set_margin_top, gtk_widget_set_margin_bottom,
                      gtk_widget_set_margin_start, gtk_widget_set_margin_end})
    margin(box, 18);
  gtk_window_set_child(GTK_WINDOW(window_), box);

  count_ = label("", "dim-label");
  title_ = label("");
  offline_ = label(std::string(kRemoteOfflineText), "warning");
  details_ = gtk_grid_new();
  gtk_grid_set_column_spacing(GTK_GRID(details_), 12);
  gtk_grid_set_row_spacing(GTK_GRID(details_), 4);
  verification_ = label("");
  secret_ = gtk_password_entry_new();
  gtk_password_entry_set_show_peek_icon(GTK_PASSWORD_ENTRY(secret_), TRUE);
  visible_ = gtk_entry_new();
  status_ = label("");
  for (GtkWidget* widget :
       {count_, title_, offline_, details_, verification_, secret_, visible_, status_})
    gtk_box_append(GTK_BOX(box), widget);
  for (GtkWidget* entry : {secret_, visible_})
    g_signal_connect(entry, "activate", G_CALLBACK(+[](GtkWidget*, gpointer self) {
                       static_cast<PromptWindow*>(self)->submitTyped();
                     }),
                     this);

  GtkWidget* buttons = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
  gtk_widget_set_margin_top(buttons, 8);
  gtk_box_append(GTK_BOX(box), buttons);
  allowOnce_ = gtk_button_new_with_label("Allow once");
  allowWindow_ = gtk_button_new_with_label("Allow for");
  std::vector<const char*> lengths;
  for (const auto& window : promptWindows()) lengths.push_back(window.label.c_str());
  lengths.push_back(nullptr);
  windowLength_ = gtk_drop_down_new_from_strings(lengths.data());
  gtk_drop_down_set_selected(GTK_DROP_DOWN(windowLength_), kDefaultWindowIndex);
  deny_ = gtk_button_new_with_label("Deny");
  denyAndBlock_ = gtk_button_new_with_label("Deny and block");
  gtk_widget_add_css_class(denyAndBlock_, "destructive-action");
  gtk_widget_set_tooltip_text(denyAndBlock_,
                              "Deny, and count it towards blocking this program for this key");
  for (GtkWidget* widget : {allowOnce_, allowWindow_, windowLength_, deny_, denyAndBlock_})
    gtk_box_append(GTK_BOX(buttons), widget);
  onClicked<PromptWindow>(allowOnce_, this,
                          [](PromptWindow* self) { self->choose(PromptChoice::allowOnce()); });
  onClicked<PromptWindow>(allowWindow_, this, [](PromptWindow* self) {
    const guint index = gtk_drop_down_get_selected(GTK_DROP_DOWN(self->windowLength_));
    const auto& windows = promptWindows();
    self->choose(
        PromptChoice::allowWindow(windows.at(std::min<size_t>(index, windows.size() - 1)).seconds));
  });
  onClicked<PromptWindow>(deny_, this,
                          [](PromptWindow* self) { self->choose(PromptChoice::deny()); });
  onClicked<PromptWindow>(denyAndBlock_, this,
                          [](PromptWindow* self) { self->choose(PromptChoice::denyAndBlock()); });

  // Keys are seen before any widget: Escape denies, and Enter answers nothing (a stray Enter must
  // never approve); it only submits what is typed into a verification prompt.
  GtkEventController* keys = gtk_event_controller_key_new();
  gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
  g_signal_connect(keys, "key-pressed",
                   G_CALLBACK(+[](GtkEventControllerKey*, guint key, guint, GdkModifierType,
                                  gpointer self) -> gboolean {
                     return static_cast<PromptWindow*>(self)->onKey(key);
                   }),
                   this);
  gtk_widget_add_controller(window_, keys);
}

bool PromptWindow::start() {
  stream_ = AgentStream::open(
      socket_, [this](const JSON& line) { onLine(line); }, [this] { close(); });
  if (!stream_) return false;
  g_timeout_add_once(
      kFirstRequestMilliseconds,
      [](gpointer self) {
        auto* window = static_cast<PromptWindow*>(self);
        if (window->queue_.empty()) window->close();
      },
      this);
  return true;
}

void PromptWindow::onLine(const JSON& line) {
  if (closed_) return;
  PromptQueue::Change change;
  try {
    change = queue_.apply(line);
  } catch (const DecodingError& error) {
    std::fprintf(stderr, "quorvane-prompt: a request could not be read: %s\n", error.what());
    return;
  }
  if (!change.shownChanged) {
    // Another request waits behind the one on screen (or one of those ended): the count changes.
    gtk_label_set_text(GTK_LABEL(count_), queue_.countText().c_str());
    gtk_widget_set_visible(count_, queue_.count() > 1);
    // The request on screen announced again: whether it must be answered here may have changed.
    if (change.shownUpdated) gtk_widget_set_visible(offline_, queue_.shown()->remoteOffline);
    return;
  }
  std::string ended;
  // A request answered from here ends on the stream too, maybe before the answer's reply.
  const bool ownAnswer = busy_ && line.value("id", "") == answeringID_;
  if (change.shownEnded && !ownAnswer) ended = endingText(*change.shownEnded);
  if (change.shownEnded && pendingReply_) cancelTyped();
  show();
  if (!ended.empty() && !closed_)
    gtk_label_set_text(GTK_LABEL(status_), ("Previous request: " + ended).c_str());
}

void PromptWindow::show() {
  const PromptRequest* request = queue_.shown();
  if (request == nullptr) return close();
  gtk_label_set_text(GTK_LABEL(count_), queue_.countText().c_str());
  gtk_widget_set_visible(count_, queue_.count() > 1);
  char* title = g_markup_printf_escaped("<big><b>%s</b></big>", request->reason.c_str());
  gtk_label_set_markup(GTK_LABEL(title_), title);
  g_free(title);
  gtk_widget_set_visible(offline_, request->remoteOffline);

  while (GtkWidget* child = gtk_widget_get_first_child(details_))
    gtk_grid_remove(GTK_GRID(details_), child);
  int row = 0;
  for (const PromptDetail& detail : promptDetails(*request)) {
    gtk_grid_attach(GTK_GRID(details_), detailText(detail.label, "dim-label"), 0, row, 1, 1);
    GtkWidget* text = detailText(detail.text, detail.warning ? "error" : nullptr);
    gtk_widget_set_hexpand(text, TRUE);
    gtk_grid_attach(GTK_GRID(details_), text, 1, row++, 1, 1);
  }
  gtk_widget_set_visible(allowWindow_, request->windowAllowed);
  gtk_widget_set_visible(windowLength_, request->windowAllowed);
  gtk_label_set_text(GTK_LABEL(status_), "");
  gtk_widget_remove_css_class(status_, "error");
  setBusy(false);
  present();
}

void PromptWindow::present() {
  if (closed_) return;
  gtk_window_present(GTK_WINDOW(window_));
  // The focus starts on Deny, never on an Allow button (and stays in a verification's field).
  if (!pendingReply_) gtk_widget_grab_focus(deny_);
  g_timeout_add_once(
      kFocusCheckMilliseconds,
      [](gpointer self) {
        auto* window = static_cast<PromptWindow*>(self);
        if (window->closed_ || window->queue_.empty()) return;
        if (gtk_window_is_active(GTK_WINDOW(window->window_))) return;
        // The session kept the focus elsewhere: a notification brings the dialog forward.
        window->notice_.show("A signature waits for your approval", window->queue_.shown()->reason);
      },
      this);
}

void PromptWindow::close() {
  if (closed_) return;
  closed_ = true;
  if (pendingReply_) cancelTyped();
  notice_.withdraw();
  gtk_window_destroy(GTK_WINDOW(window_));
  quit_();
}

void PromptWindow::setBusy(bool busy) {
  busy_ = busy;
  for (GtkWidget* widget : {allowOnce_, allowWindow_, windowLength_, deny_, denyAndBlock_})
    gtk_widget_set_sensitive(widget, !busy);
  if (!busy) {
    for (GtkWidget* widget : {verification_, secret_, visible_})
      gtk_widget_set_visible(widget, FALSE);
  }
}

void PromptWindow::choose(PromptChoice choice) {
  const PromptRequest* request = queue_.shown();
  if (busy_ || request == nullptr || closed_) return;
  auto message = answerMessage(*request, choice);
  if (!message) return;
  answeringID_ = request->id;
  setBusy(true);
  const bool approves =
      choice.kind == PromptChoiceKind::allowOnce || choice.kind == PromptChoiceKind::allowWindow;
  gtk_label_set_text(GTK_LABEL(status_), approves ? "Checking that it is you…" : "");
  if (answering_.joinable()) answering_.join();
  answering_ = std::jthread([this, message = std::move(*message), id = request->id] {
    AnswerOutcome outcome =
        sendPromptAnswer(socket_, message, [this](const PresencePrompt& prompt) {
          auto reply = std::make_shared<std::promise<std::optional<SecureBytes>>>();
          auto typed = reply->get_future();
          onMainLoop([this, prompt, reply] { showVerificationPrompt(prompt, reply); });
          if (!prompt.asks()) return std::optional<SecureBytes>();
          return typed.get();
        });
    onMainLoop([this, id, outcome] { finishAnswer(id, outcome); });
  });
}

void PromptWindow::showVerificationPrompt(
    const PresencePrompt& prompt, std::shared_ptr<std::promise<std::optional<SecureBytes>>> reply) {
  if (closed_) {
    if (prompt.asks()) reply->set_value(std::nullopt);
    return;
  }
  gtk_label_set_text(GTK_LABEL(verification_), prompt.text.c_str());
  gtk_widget_set_visible(verification_, TRUE);
  if (prompt.style == PresencePrompt::Style::error)
    gtk_widget_add_css_class(verification_, "error");
  else
    gtk_widget_remove_css_class(verification_, "error");
  if (!prompt.asks()) return;
  GtkWidget* field = prompt.style == PresencePrompt::Style::secret ? secret_ : visible_;
  gtk_widget_set_visible(field, TRUE);
  gtk_widget_grab_focus(field);
  gtk_label_set_text(GTK_LABEL(status_), "");
  pendingReply_ = std::move(reply);
}

void PromptWindow::submitTyped() {
  if (!pendingReply_) return;
  GtkWidget* field = gtk_widget_get_visible(secret_) ? secret_ : visible_;
  const std::string_view text = gtk_editable_get_text(GTK_EDITABLE(field));
  SecureBytes typed(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  gtk_editable_set_text(GTK_EDITABLE(field), "");
  gtk_widget_set_visible(field, FALSE);
  pendingReply_->set_value(std::move(typed));
  pendingReply_.reset();
  gtk_label_set_text(GTK_LABEL(status_), "Checking…");
}

void PromptWindow::cancelTyped() {
  if (!pendingReply_) return;
  for (GtkWidget* field : {secret_, visible_}) {
    gtk_editable_set_text(GTK_EDITABLE(field), "");
    gtk_widget_set_visible(field, FALSE);
  }
  pendingReply_->set_value(std::nullopt);
  pendingReply_.reset();
}

void PromptWindow::finishAnswer(const std::string& id, const AnswerOutcome& outcome) {
  if (closed_) return;
  setBusy(false);
  answeringID_.clear();
  if (outcome.accepted) {
    if (queue_.forget(id).shownChanged) show();
    return;
  }
  // Refused (a wrong password, a cancelled verification): the request stays for another answer.
  gtk_label_set_text(GTK_LABEL(status_), outcome.text.c_str());
  gtk_widget_add_css_class(status_, "error");
}

bool PromptWindow::onKey(guint key) {
  GtkWidget* focus = gtk_root_get_focus(GTK_ROOT(window_));
  const bool typing = focus != nullptr && (gtk_widget_is_ancestor(focus, secret_) ||
                                           gtk_widget_is_ancestor(focus, visible_) ||
                                           focus == secret_ || focus == visible_);
  switch (key) {
    case GDK_KEY_Escape:
      if (pendingReply_)
        cancelTyped();
      else
        choose(PromptChoice{kEscapeChoice, std::nullopt});
      return true;
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
    case GDK_KEY_ISO_Enter: return !typing;
    default: return false;
  }
}

}  // namespace quorvane::prompt
