#!/usr/bin/env bash
# Measures a new user's first run: a fresh clone of this checkout's HEAD, then ./scripts/run.sh
# until the agent prints its SSH_AUTH_SOCK line. Packages are expected to be installed already
# (run it after scripts/install-deps.sh). Builds without ccache, into a temporary home and prefix,
# and stops the agent it started.
#
#   scripts/first-run-time.sh
set -euo pipefail
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'kill "${agent:-0}" 2>/dev/null || true; rm -rf "$work"' EXIT
git clone -q . "$work/quorvane"
mkdir -p "$work/home"

start=$(date +%s)
# run.sh ends by becoming the agent, so $! is the agent's process once the build is done.
(cd "$work/quorvane" && HOME="$work/home" QUORVANE_PREFIX="$work/prefix" CCACHE_DISABLE=1 \
   exec ./scripts/run.sh </dev/null >"$work/run.out" 2>&1) &
agent=$!
for _ in $(seq 1 1800); do
  if grep -q '^SSH_AUTH_SOCK=' "$work/run.out"; then break; fi
  if ! kill -0 "$agent" 2>/dev/null; then
    cat "$work/run.out" >&2
    echo "run.sh ended before the agent started" >&2
    exit 1
  fi
  sleep 1
done
seconds=$(($(date +%s) - start))
grep -q '^SSH_AUTH_SOCK=' "$work/run.out" || { echo "no SSH_AUTH_SOCK line in 30 minutes" >&2; exit 1; }
echo "first run: ${seconds} s from a fresh clone to the SSH_AUTH_SOCK line"
echo "compiled files: $(grep -c 'Building CXX' "$work/run.out" || true)"
