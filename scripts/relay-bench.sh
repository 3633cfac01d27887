#!/usr/bin/env bash
# Measures quorvane-relay under load on loopback, over TLS with a throw-away CA: FETCHES waiting
# fetches (one connection and one mailbox each), then one message per mailbox at RATE messages a
# second; prints the delivery latency, the messages not delivered and the relay's memory per
# waiting fetch. Runs once with one relay on SQLite, then with two relays sharing a redis-server
# (fetches waiting on both, messages sent through both).
#
#   scripts/relay-bench.sh [BUILD_DIR] [FETCHES] [RATE]      (defaults: build 10000 1000)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
fetches=${2:-10000}
rate=${3:-1000}
relay="$build/src/relay/quorvane-relay"
client="$build/bench/relay_load_client"
[[ -f "$build/CMakeCache.txt" ]] || { echo "configure $build first (see README)" >&2; exit 1; }
cmake --build "$build" --target quorvane-relay relay_load_client

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# A CA and a certificate for 127.0.0.1.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ca.key" \
  -out "$work/ca.pem" -days 1 -subj "/CN=relay bench CA" 2>/dev/null
openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/server.key" \
  -out "$work/server.csr" -subj "/CN=127.0.0.1" 2>/dev/null
printf 'subjectAltName=IP:127.0.0.1\n' >"$work/ext"
openssl x509 -req -in "$work/server.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" \
  -CAcreateserial -out "$work/server.pem" -days 1 -extfile "$work/ext" 2>/dev/null

# Starts a relay with the given store options; sets $url and $pid.
start_relay() {
  local name=$1
  shift
  "$relay" --listen 127.0.0.1:0 --tls-cert "$work/server.pem" --tls-key "$work/server.key" \
    --max-wait 35 --creations-per-minute 0 --sends-per-minute 0 "$@" \
    >"$work/$name.out" 2>"$work/$name.log" &
  pid=$!
  pids+=("$pid")
  for _ in $(seq 100); do
    [[ -s "$work/$name.out" ]] && break
    sleep 0.05
  done
  url=$(sed -n 's/^quorvane-relay listening on //p' "$work/$name.out")
  [[ -n "$url" ]] || { echo "relay $name did not start:" >&2; cat "$work/$name.log" >&2; exit 1; }
}

echo "== One relay, SQLite: $fetches waiting fetches, $rate messages/s"
echo "   $client --ca-file CA --wait-url URL --fetches $fetches --rate $rate --relay-pid PID"
start_relay sqlite --db "$work/relay.sqlite"
"$client" --ca-file "$work/ca.pem" --wait-url "$url" --fetches "$fetches" --rate "$rate" \
  --relay-pid "$pid" || echo "(the run above lost messages or sends)"
kill "$pid"
wait "$pid" || true

if ! command -v redis-server >/dev/null; then
  echo "redis-server is not installed: the run with two relays is skipped" >&2
  exit 0
fi
echo
echo "== Two relays sharing one redis-server: $fetches waiting fetches, $rate messages/s"
redis_port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
redis-server --port "$redis_port" --bind 127.0.0.1 --save "" --appendonly no --dir "$work" \
  --loglevel warning >"$work/redis.log" 2>&1 &
pids+=("$!")
for _ in $(seq 100); do
  redis-cli -p "$redis_port" ping >/dev/null 2>&1 && break
  sleep 0.05
done
start_relay first --redis "redis://127.0.0.1:$redis_port"
first_url=$url first_pid=$pid
start_relay second --redis "redis://127.0.0.1:$redis_port"
"$client" --ca-file "$work/ca.pem" --wait-url "$first_url" --wait-url "$url" \
  --send-url "$url" --send-url "$first_url" --fetches "$fetches" --rate "$rate" \
  --relay-pid "$first_pid" --relay-pid "$pid" || echo "(the run above lost messages or sends)"
