#!/usr/bin/env bash
# Runs every fuzz target of a fuzzing build for a bounded time, starting from its committed seeds.
# New inputs go to a scratch corpus, so the tree is not changed; a crash is saved under
# <build>/artifacts/ and fails the run.
#
#   scripts/fuzz.sh BUILD_DIR SECONDS_PER_TARGET
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:?usage: fuzz.sh BUILD_DIR SECONDS_PER_TARGET}
seconds=${2:?usage: fuzz.sh BUILD_DIR SECONDS_PER_TARGET}
artifacts="$build/artifacts"
mkdir -p "$artifacts"

status=0
for target in "$build"/fuzz/*_fuzzer; do
  name=$(basename "$target")
  scratch=$(mktemp -d)
  log="$artifacts/$name.log"
  if "$target" "$scratch" "fuzz/corpus/$name" -max_total_time="$seconds" -timeout=10 \
      -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$artifacts/$name-" >"$log" 2>&1; then
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo '?')
    printf '%-24s %3s s  %10s runs  no finding\n' "$name" "$seconds" "$runs"
  else
    printf '%-24s FAILED; the log follows (%s)\n' "$name" "$log"
    tail -n 60 "$log"
    status=1
  fi
  rm -rf "$scratch"
done
exit $status
