#!/usr/bin/env bash
# Measures one remote approval's machine time (request to the device, answer back to the agent's
# service): first over the in-memory relay, then over quorvane-relay on loopback with TLS and a
# throw-away CA, through the HTTPS client. Prints median and p99 of each. Fetching does not delete
# messages, so the relay is started with room for every round's messages in one mailbox.
#
#   scripts/remote-approval-bench.sh [BUILD_DIR] [ROUNDS]      (defaults: build 200)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
rounds=${2:-200}
relay="$build/src/relay/quorvane-relay"
bench="$build/bench/remote_approval_bench"
[[ -f "$build/CMakeCache.txt" ]] || { echo "configure $build first (see README)" >&2; exit 1; }
cmake --build "$build" --target quorvane-relay remote_approval_bench

work=$(mktemp -d)
relay_pid=""
cleanup() {
  [[ -n "$relay_pid" ]] && kill "$relay_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

echo "== $bench $rounds"
"$bench" "$rounds"

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ca.key" \
  -out "$work/ca.pem" -days 1 -subj "/CN=remote approval bench CA" 2>/dev/null
openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/server.key" \
  -out "$work/server.csr" -subj "/CN=127.0.0.1" 2>/dev/null
printf 'subjectAltName=IP:127.0.0.1\n' >"$work/ext"
openssl x509 -req -in "$work/server.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" \
  -CAcreateserial -out "$work/server.pem" -days 1 -extfile "$work/ext" 2>/dev/null

"$relay" --listen 127.0.0.1:0 --tls-cert "$work/server.pem" --tls-key "$work/server.key" \
  --db "$work/relay.sqlite" --creations-per-minute 0 --sends-per-minute 0 --max-messages 1000000 \
  >"$work/relay.out" 2>"$work/relay.log" &
relay_pid=$!
for _ in $(seq 100); do
  [[ -s "$work/relay.out" ]] && break
  sleep 0.05
done
url=$(sed -n 's/^quorvane-relay listening on //p' "$work/relay.out")
[[ -n "$url" ]] || { echo "the relay did not start:" >&2; cat "$work/relay.log" >&2; exit 1; }

echo
echo "== QUORVANE_BENCH_RELAY_URL=$url QUORVANE_BENCH_RELAY_CA=CA $bench $rounds"
QUORVANE_BENCH_RELAY_URL="$url" QUORVANE_BENCH_RELAY_CA="$work/ca.pem" "$bench" "$rounds"
