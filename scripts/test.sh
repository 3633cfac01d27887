#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors, runs every test, runs them again under
# AddressSanitizer and UndefinedBehaviorSanitizer, then fuzzes every parser for a bounded time.
# Exits non-zero on the first failure. Safe to run again: builds are incremental.
#
#   QUORVANE_FUZZ_SECONDS   seconds per fuzz target (default 5; 0 skips fuzzing; longer
#                           campaigns: scripts/fuzz.sh BUILD_DIR SECONDS)
set -euo pipefail
cd "$(dirname "$0")/.."

step() { printf '\n== %s\n' "$*"; }
jobs=$(nproc)

step "Installing missing packages"
./scripts/install-deps.sh --tests

# The tests run these programs as reference peers; one missing would fail dozens of unrelated tests.
for program in openssl ssh ssh-keygen ssh-agent ssh-add /usr/sbin/sshd git sqlite3 puttygen \
  valgrind clang++; do
  if ! command -v "$program" >/dev/null; then
    echo "The tests need the program $program, which is not installed; its package is listed in" >&2
    echo "scripts/install-deps.sh." >&2
    exit 1
  fi
done

# ccache, where it is installed, makes a second run cheap; nothing depends on it. The sloppiness
# lets it cache files compiled with the precompiled headers.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
fi
# The checking builds carry line tables only (-g1): enough for the sanitizers' stack traces, and
# much cheaper to compile and link than full debug information.

step "Checking the format (clang-format)"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run --Werror

step "Building (warnings are errors)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_TESTS=ON "${launcher[@]}" >/dev/null
cmake --build build

step "Running the tests"
ctest --test-dir build --output-on-failure -j "$jobs"

step "Building with AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 \
  -DQUORVANE_SANITIZE=ON -DQUORVANE_BENCH=OFF "${launcher[@]}" >/dev/null
cmake --build build-asan

step "Running the tests under the sanitizers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs"

step "Building the concurrency tests with ThreadSanitizer (clang, lock annotations checked)"
cmake -S . -B build-tsan -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DQUORVANE_TSAN=ON "${launcher[@]}" >/dev/null
cmake --build build-tsan --target agent_engine_tests agent_daemon_tests agent_presence_tests \
  agent_prompt_launch_tests activity_store_tests relayclient_tests remote_approval_tests tpm_tests

step "Running the concurrency tests under ThreadSanitizer"
# ThreadSanitizer of this clang cannot map its shadow memory with the kernel's full address-space
# randomisation, so the tests run without it.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  setarch "$(uname -m)" -R ctest --test-dir build-tsan --output-on-failure -j "$jobs"

fuzz_seconds=${QUORVANE_FUZZ_SECONDS:-5}
if [[ "$fuzz_seconds" != 0 ]]; then
  step "Building the fuzz targets (clang, libFuzzer)"
  cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DQUORVANE_FUZZ=ON "${launcher[@]}" >/dev/null
  cmake --build build-fuzz --target fuzzers

  step "Fuzzing each target for ${fuzz_seconds} s"
  ./scripts/fuzz.sh build-fuzz "$fuzz_seconds"
fi

step "All tests passed"
