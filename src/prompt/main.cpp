#include <gtk/gtk.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

#include "ControlProtocol/SocketPaths.h"
#include "prompt/PromptWindow.h"

#ifdef __SANITIZE_ADDRESS__
// GTK and the libraries under it keep some allocations until the process ends, on purpose; the
// leak checker of a sanitizer build looks at this program's own memory only.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libgtk-4.so\nleak:libgdk_pixbuf\nleak:libglib-2.0.so\nleak:libgobject-2.0.so\n"
         "leak:libgio-2.0.so\nleak:libfontconfig.so\nleak:libpango\nleak:libcairo.so\n"
         "leak:libX11.so\nleak:libharfbuzz.so\nleak:libepoxy.so\n";
}
#endif

int main(int argc, char** argv) {
  CLI::App app{
      "quorvane-prompt: the desktop approval dialog of the Quorvane SSH agent. Shows each\n"
      "signature request that waits for you (program, action, key, host, process chain, folder),\n"
      "one after another, and sends your answer: Allow once, Allow for a window of time, Deny, or\n"
      "Deny and block. Approving asks for your password or fingerprint in the same window.\n"
      "Escape denies; Enter never approves. The agent starts it by itself when a request waits\n"
      "and nothing else shows it (quorvane prompt off turns that off); it closes when nothing\n"
      "waits any more."};
  app.set_version_flag("--version", "quorvane-prompt " QUORVANE_VERSION);
  std::string socket = quorvane::controlSocketPath().string();
  app.add_option("--control-socket", socket, "the agent's control socket")
      ->default_str("~/.ssh/quorvane/control.sock");
  CLI11_PARSE(app, argc, argv);

  if (!gtk_init_check()) {
    const char* display = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    std::fprintf(stderr,
                 "quorvane-prompt: cannot open the graphical session (DISPLAY=%s, "
                 "WAYLAND_DISPLAY=%s)\n",
                 display ? display : "", wayland ? wayland : "");
    return 1;
  }
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  int status = 0;
  {
    quorvane::prompt::PromptWindow window(socket, [loop] { g_main_loop_quit(loop); });
    if (!window.start()) {
      std::fprintf(stderr, "quorvane-prompt: the agent is not running (no answer on %s)\n",
                   socket.c_str());
      status = 1;
    } else {
      g_main_loop_run(loop);
    }
  }
  g_main_loop_unref(loop);
  return status;
}
