#pragma once

#include <string>
#include <vector>

#include "ProcessContext/ProcessInfoEntry.h"

namespace quorvane {

// An AI coding agent, or an editor that hosts them, and how to recognise its processes.
struct KnownAgent {
  std::string id;  // stable
  std::string displayName;
  // True for autonomous coding agents, false for editors and IDEs that only host them.
  bool isCodingAgent = false;
  std::vector<std::string> executableNames;  // the last component of the executable path
  std::vector<std::string> bundleIDs;        // the code-signing identifier
  std::vector<std::string> pathMarkers;      // substrings of the executable path
  std::vector<std::string> argumentMarkers;  // substrings of any argument

  friend bool operator==(const KnownAgent&, const KnownAgent&) = default;
};

// The fixed table, in the order matching tries it: coding agents first, then editors. Built once;
// the reference stays valid for the life of the program.
const std::vector<KnownAgent>& knownAgents();

// Whether the process fits the row: its executable's file name is one of the executable names
// (exactly), or its signing identifier one of the bundle identifiers, or a path marker occurs in
// its path, or an argument marker in one of its arguments.
bool fits(const KnownAgent& agent, const ProcessInfoEntry& process);

// The agent behind a chain (peer first). Each process is matched with the first row it fits; the
// first coding agent up the chain wins; otherwise the first editor met; otherwise nothing. The
// pointer refers into knownAgents().
const KnownAgent* match(const std::vector<ProcessInfoEntry>& chain);

}  // namespace quorvane
