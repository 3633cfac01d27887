#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, and starts the agent in the foreground.
# Safe to run again: the build is incremental.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
# The PAM service that presence verification uses; an existing one (perhaps edited) is kept.
if [[ ! -e /etc/pam.d/quorvane ]]; then
  if [[ $(id -u) -eq 0 ]]; then
    sudo=()
  elif command -v sudo >/dev/null; then
    sudo=(sudo)
  else
    echo "Presence verification needs /etc/pam.d/quorvane, which only root can install, and sudo" >&2
    echo "is not installed. As root, run:" >&2
    echo "  install -m 0644 $PWD/dist/pam.d/quorvane /etc/pam.d/quorvane" >&2
    exit 1
  fi
  echo "Installing /etc/pam.d/quorvane (presence verification asks for your login password)"
  "${sudo[@]}" install -m 0644 dist/pam.d/quorvane /etc/pam.d/quorvane
fi
# Only the programs: the tests, fuzzers and benchmarks are the test command's.
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_TESTS=OFF >/dev/null
cmake --build build

echo
echo "In another terminal: run the SSH_AUTH_SOCK line below, then make a key with"
echo "  build/src/cli/quorvane keys generate laptop"
echo "and answer signature requests with build/src/cli/quorvane watch."
echo
exec build/src/agent/quorvane-agent --foreground
