#include <CLI/CLI.hpp>

#include "agent/AgentProgram.h"

int main(int argc, char** argv) {
  CLI::App app{
      "quorvane-agent: the Quorvane SSH agent. Serves your keys to ssh, git and every program\n"
      "that reads SSH_AUTH_SOCK, asks you (or your rules) before each signature, and logs every\n"
      "request. Runs in the foreground; stop it with Ctrl-C or SIGTERM, reload with SIGHUP."};
  app.set_version_flag("--version", "quorvane-agent " QUORVANE_VERSION);
  quorvane::AgentProgramOptions options;
  app.add_option("--socket", options.agentSocket,
                 "agent socket (default ~/.ssh/quorvane/agent.sock)");
  app.add_option("--control-socket", options.controlSocket,
                 "control socket for the quorvane command (default ~/.ssh/quorvane/control.sock)");
  app.add_option(
      "--max-connections", options.maxConnections,
      "client connections held open at once; further clients are closed without an answer "
      "(default: as many as the open-file limit allows)");
  app.add_option("--pam-config-dir", options.pamConfigDirectory,
                 "read the PAM service \"quorvane\" for presence verification from this folder "
                 "instead of /etc/pam.d (for tests with a private PAM configuration)");
  app.add_option("--prompt-program", options.promptProgram,
                 "the desktop approval dialog to open when a request waits and nothing shows it "
                 "(default: quorvane-prompt beside this program)");
  bool foreground = true;
  app.add_flag("--foreground", foreground,
               "accepted for compatibility; the agent always runs in the foreground");
  CLI11_PARSE(app, argc, argv);
  return quorvane::runAgentProgram(options);
}
