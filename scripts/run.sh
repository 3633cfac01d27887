#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, and starts the agent in the foreground.
# Safe to run again: the build is incremental.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build

echo
echo "In another terminal: run the SSH_AUTH_SOCK line below, then make a key with"
echo "  build/src/cli/quorvane keys generate laptop"
echo "and answer signature requests with build/src/cli/quorvane watch."
echo
exec build/src/agent/quorvane-agent --foreground
