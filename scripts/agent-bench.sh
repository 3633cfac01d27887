#!/usr/bin/env bash
# Measures Quorvane's agent and OpenSSH's ssh-agent side by side with the same load client: a
# fresh connection per Ed25519 signature, every answer checked. Quorvane runs with an allow rule
# (no prompt) and logs every signature with its usual durability.
#
#   scripts/agent-bench.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
build=${1:-build}
seconds=${2:-10}
client="$build/bench/agent_load_client"
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait 2>/dev/null || true; [[ -n "${SSH_AGENT_PID:-}" ]] && kill "$SSH_AGENT_PID"; rm -rf "$work"' EXIT

export HOME="$work/home" XDG_DATA_HOME="$work/home/data"
mkdir -p "$HOME"
"$build/src/agent/quorvane-agent" >"$work/agent.log" 2>&1 &
for _ in $(seq 100); do [[ -S "$HOME/.ssh/quorvane/control.sock" ]] && break; sleep 0.1; done
"$build/src/cli/quorvane" keys generate bench >/dev/null
"$build/src/cli/quorvane" keys public bench >"$work/quorvane.pub"
"$build/src/cli/quorvane" rules add --name bench --decision allow --purpose signature:bench >/dev/null

ssh-keygen -q -t ed25519 -N '' -f "$work/openssh"
eval "$(ssh-agent -a "$work/ssh-agent.sock" -s)" >/dev/null
SSH_AUTH_SOCK="$work/ssh-agent.sock" ssh-add -q "$work/openssh"

for clients in 1 8; do
  echo "clients=$clients ssh-agent: $("$client" --socket "$work/ssh-agent.sock" --public-key "$work/openssh.pub" --clients $clients --seconds "$seconds")"
  echo "clients=$clients quorvane:  $("$client" --socket "$HOME/.ssh/quorvane/agent.sock" --public-key "$work/quorvane.pub" --clients $clients --seconds "$seconds")"
done
