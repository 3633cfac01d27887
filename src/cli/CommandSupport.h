#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "AgentState/SupportState.h"
#include "Base/Counted.h"
#include "Base/JSONReader.h"
#include "KeyStore/KeyRecord.h"

namespace quorvane::cli {

// A failure to report to the user: the message is printed as "quorvane: " + message, and the
// program exits with `exitCode` (1; 2 for a command line that cannot go on without a terminal).
struct CommandFailure : std::runtime_error {
  explicit CommandFailure(const std::string& message, int code = 1)
      : std::runtime_error(message), exitCode(code) {}
  int exitCode;
};

// The one rule for commands that change something: with --yes (`yes`) they go ahead; on a
// terminal they ask `question` and stop with `declined` unless the answer is yes; without a
// terminal they stop with exit 2 and say to add --yes to `action` ("delete a key").
void confirmChange(const std::string& question, bool yes, const std::string& action,
                   const std::string& declined = "nothing changed");

// Prints a JSON value for scripts (pretty, one value per run).
void printJSON(const JSON& value);

// Tells a running agent that keys, rules or pins changed. Says nothing when no agent runs.
void notifyAgentOfChange();

// Sends a message to the running agent and returns its answer; a missing agent or an answer with
// "ok": false is a CommandFailure.
JSON askAgent(const JSON& message);

// The key named `name` (its name, its fingerprint, or its id). Several keys with the name, or none:
// CommandFailure.
// Like askAgent, for messages that need the user's presence: the agent's verification prompts are
// answered on the terminal (or standard input).
JSON askAgentWithPresence(const JSON& message);

KeyRecord findKey(const std::vector<KeyRecord>& records, const std::string& name);

// Refuses, as a CommandFailure that says `wayOut`, a name that another key than `self` has:
// names are how every command finds a key, so two keys never share one.
void requireFreeName(const std::vector<KeyRecord>& records, const std::string& name,
                     const std::string& wayOut, const UUID* self = nullptr);

// Shorthand for a subcommand's `--json` flag.
void addJSONFlag(CLI::App* command, bool& json);

}  // namespace quorvane::cli
