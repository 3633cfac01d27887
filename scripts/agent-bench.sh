#!/usr/bin/env bash
# Measures Quorvane's agent, OpenSSH's ssh-agent and a minimal single-threaded OpenSSL agent (the
# floor: bench/minimal_agent) side by side in one run, with the same load client: a fresh
# connection per Ed25519 signature, every answer checked. Quorvane runs with an allow rule (no
# prompt) and logs every signature with its usual durability.
#
#   scripts/agent-bench.sh [BUILD_DIR] [SECONDS] [CASE...]
#
# Cases (all by default):
#   sign-1      one client, one signature per connection
#   sign-8      eight clients at once
#   sign-1000   a thousand clients at once
#   idle-0      one client asking for identities and a signature per connection
#   idle-10000  the same while 10,000 other connections are held open and idle (not for the
#               minimal agent, which serves one connection at a time)
# Each line is the load client's JSON, with the agent's resident memory in MiB, sampled half-way
# through the case, added.
#
# QUORVANE_BASELINE_BUILD=DIR adds a fourth agent, the quorvane-agent of another build (an earlier
# commit's, say), as the column "baseline", so that a change is measured before and after in one
# run.
set -euo pipefail
build=${1:-build}
seconds=${2:-10}
shift $(($# < 2 ? $# : 2))
cases=("$@")
[[ ${#cases[@]} -gt 0 ]] || cases=(sign-1 sign-8 sign-1000 idle-0 idle-10000)

client="$build/bench/agent_load_client"
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
ulimit -n "$(ulimit -Hn)"

waitForSocket() {
  for _ in $(seq 100); do [[ -S "$1" ]] && return 0; sleep 0.1; done
  echo "no socket at $1" >&2
  exit 1
}

# Starts the quorvane-agent of build $1 in its own home $2 with a key and an allow rule; sets
# startedPID.
startQuorvane() {
  local agentBuild=$1 home=$2
  mkdir -p "$home"
  HOME="$home" XDG_DATA_HOME="$home/data" "$agentBuild/src/agent/quorvane-agent" \
    >"$home/agent.log" 2>&1 &
  startedPID=$!
  pids+=("$startedPID")
  waitForSocket "$home/.ssh/quorvane/control.sock"
  local cli=(env HOME="$home" XDG_DATA_HOME="$home/data" "$build/src/cli/quorvane")
  "${cli[@]}" keys generate bench >/dev/null
  "${cli[@]}" keys public bench >"$home/quorvane.pub"
  "${cli[@]}" rules add --name bench --decision allow --purpose signature:bench --allow-any \
    --yes >/dev/null
}

startQuorvane "$build" "$work/home"
quorvanePID=$startedPID
baseline=${QUORVANE_BASELINE_BUILD:-}
if [[ -n "$baseline" ]]; then
  startQuorvane "$baseline" "$work/baseline"
  baselinePID=$startedPID
fi

ssh-keygen -q -t ed25519 -N '' -f "$work/openssh"
ssh-agent -D -a "$work/ssh-agent.sock" >/dev/null 2>&1 &
sshAgentPID=$!
pids+=("$sshAgentPID")
waitForSocket "$work/ssh-agent.sock"
SSH_AUTH_SOCK="$work/ssh-agent.sock" ssh-add -q "$work/openssh"

"$build/bench/minimal_agent" --socket "$work/minimal.sock" --public-key-out "$work/minimal.pub" &
minimalPID=$!
pids+=("$minimalPID")
waitForSocket "$work/minimal.sock"

residentMiB() { awk '/^VmRSS:/ { printf "%.1f", $2 / 1024 }' "/proc/$1/status"; }

# One case against one agent: the load client's JSON with "residentMiB" added, sampled half-way.
measure() {
  local name=$1 socket=$2 key=$3 pid=$4 case=$5
  local arguments=(--socket "$socket" --public-key "$key" --seconds "$seconds")
  case $case in
    sign-1) arguments+=(--clients 1) ;;
    sign-8) arguments+=(--clients 8) ;;
    sign-1000) arguments+=(--clients 1000) ;;
    idle-0) arguments+=(--clients 1 --identities) ;;
    idle-10000) arguments+=(--clients 1 --identities --idle 10000) ;;
    *) echo "unknown case $case" >&2; exit 2 ;;
  esac
  (sleep "$(awk "BEGIN { print $seconds / 2 }")"; residentMiB "$pid" >"$work/memory") &
  local sampler=$!
  "$client" "${arguments[@]}" >"$work/result" || true
  wait "$sampler"
  printf '%-10s %-8s %s, "residentMiB": %s}\n' "$case" "$name" "$(sed 's/}$//' "$work/result")" \
    "$(cat "$work/memory")"
}

for case in "${cases[@]}"; do
  measure ssh-agent "$work/ssh-agent.sock" "$work/openssh.pub" "$sshAgentPID" "$case"
  if [[ -n "$baseline" ]]; then
    measure baseline "$work/baseline/.ssh/quorvane/agent.sock" "$work/baseline/quorvane.pub" \
      "$baselinePID" "$case"
  fi
  measure quorvane "$work/home/.ssh/quorvane/agent.sock" "$work/home/quorvane.pub" "$quorvanePID" \
    "$case"
  # The floor serves one connection at a time, so a connection held open stops it: it has no
  # figure with idle connections.
  [[ $case == idle-10000 ]] && continue
  measure minimal "$work/minimal.sock" "$work/minimal.pub" "$minimalPID" "$case"
done
