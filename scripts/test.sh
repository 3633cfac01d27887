#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors, runs every test, runs them again under
# AddressSanitizer and UndefinedBehaviorSanitizer, then fuzzes every parser for a bounded time.
# Exits non-zero on the first failure. Safe to run again: builds are incremental.
#
#   QUORVANE_FUZZ_SECONDS   seconds per fuzz target (default 20; 0 skips fuzzing)
set -euo pipefail
cd "$(dirname "$0")/.."

step() { printf '\n== %s\n' "$*"; }
jobs=$(nproc)

step "Installing missing packages"
./scripts/install-deps.sh

step "Building (warnings are errors)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build

step "Running the tests"
ctest --test-dir build --output-on-failure -j "$jobs"

step "Building with AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORVANE_SANITIZE=ON \
  -DQUORVANE_BENCH=OFF >/dev/null
cmake --build build-asan

step "Running the tests under the sanitizers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs"

fuzz_seconds=${QUORVANE_FUZZ_SECONDS:-20}
if [[ "$fuzz_seconds" != 0 ]]; then
  step "Building the fuzz targets (clang, libFuzzer)"
  cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUORVANE_FUZZ=ON >/dev/null
  cmake --build build-fuzz

  step "Fuzzing each target for ${fuzz_seconds} s"
  ./scripts/fuzz.sh build-fuzz "$fuzz_seconds"
fi

step "All tests passed"
