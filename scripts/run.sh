#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, and starts the agent in the foreground.
# Safe to run again: the build is incremental.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
# The PAM service that presence verification uses; an existing one (perhaps edited) is kept.
if [[ ! -e /etc/pam.d/quorvane ]]; then
  echo "Installing /etc/pam.d/quorvane (presence verification asks for your login password)"
  sudo=()
  if [[ $(id -u) -ne 0 ]]; then sudo=(sudo); fi
  "${sudo[@]}" install -m 0644 dist/pam.d/quorvane /etc/pam.d/quorvane
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build

echo
echo "In another terminal: run the SSH_AUTH_SOCK line below, then make a key with"
echo "  build/src/cli/quorvane keys generate laptop"
echo "and answer signature requests with build/src/cli/quorvane watch."
echo
exec build/src/agent/quorvane-agent --foreground
