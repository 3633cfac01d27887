#include "prompt/DesktopNotice.h"

#include <gio/gio.h>

#include <cstdlib>

namespace quorvane::prompt {

struct DesktopNotice::State {
  std::function<void()> onClick;
  GDBusConnection* bus = nullptr;
  guint subscription = 0;
  guint32 id = 0;  // the notification shown now; 0 for none
};

namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";

}  // namespace

DesktopNotice::DesktopNotice(std::function<void()> onClick)
    : state_(new State{std::move(onClick)}) {
  // Only an existing session bus: connecting must never start one.
  if (std::getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) return;
  state_->bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (state_->bus == nullptr) return;
  state_->subscription = g_dbus_connection_signal_subscribe(
      state_->bus, kService, kService, "ActionInvoked", kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
         GVariant* parameters, gpointer data) {
        auto* state = static_cast<State*>(data);
        guint32 id = 0;
        const gchar* action = nullptr;
        g_variant_get(parameters, "(u&s)", &id, &action);
        if (id != 0 && id == state->id) state->onClick();
      },
      state_.get(), nullptr);
}

DesktopNotice::~DesktopNotice() {
  withdraw();
  if (state_->bus != nullptr) {
    g_dbus_connection_signal_unsubscribe(state_->bus, state_->subscription);
    g_object_unref(state_->bus);
  }
}

void DesktopNotice::show(const std::string& title, const std::string& body) {
  if (state_->bus == nullptr) return;
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&actions, "s", "default");
  g_variant_builder_add(&actions, "s", "Show");
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(2));
  GVariant* reply = g_dbus_connection_call_sync(
      state_->bus, kService, kPath, kService, "Notify",
      g_variant_new("(susssasa{sv}i)", "Quorvane", state_->id, "dialog-password", title.c_str(),
                    body.c_str(), &actions, &hints, -1),
      G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
  if (reply == nullptr) return;
  g_variant_get(reply, "(u)", &state_->id);
  g_variant_unref(reply);
}

void DesktopNotice::withdraw() {
  if (state_->bus == nullptr || state_->id == 0) return;
  g_dbus_connection_call(state_->bus, kService, kPath, kService, "CloseNotification",
                         g_variant_new("(u)", state_->id), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                         nullptr, nullptr, nullptr);
  state_->id = 0;
}

}  // namespace quorvane::prompt
