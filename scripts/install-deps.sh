#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing Quorvane need.
# Idempotent: apt-get runs only when a package is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev            # fuzz targets (libFuzzer) and sanitizers
  libssl-dev                          # OpenSSL 3
  nlohmann-json3-dev                  # JSON files
  libpcre2-dev                        # argument redaction patterns
  libsqlite3-dev sqlite3              # the activity log (the shell edits logs in tests)
  libcli11-dev                        # command-line parsing
  libpam0g-dev                        # presence verification through PAM
  libgtest-dev libgmock-dev libbenchmark-dev
  openssh-client                      # ssh-keygen and ssh-agent as real peers in tests
  openssh-server                      # sshd on a loopback port in the end-to-end tests
  valgrind                            # the constant-time check of ML-KEM (memcheck and its header)
  putty-tools                         # puttygen: PuTTY key files for the import tests
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo=()
if [[ $(id -u) -ne 0 ]]; then sudo=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
