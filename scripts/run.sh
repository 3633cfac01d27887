#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, and starts the agent in the foreground.
# Safe to run again: the build is incremental.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build

agent=build/src/agent/quorvane-agent
if [[ ! -x "$agent" ]]; then
  echo
  echo "Quorvane is built, but the agent program (quorvane-agent) is not there yet:"
  echo "this version has the wire protocol and policy libraries only."
  exit 0
fi
exec "$agent" --foreground
