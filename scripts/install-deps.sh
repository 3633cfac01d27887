#!/usr/bin/env bash
# Installs the Debian packages that building and running Quorvane need; with --tests, also those
# that its tests, fuzzers and benchmarks need. Idempotent: apt-get runs only when a package is
# missing. Package scripts are kept from starting services while it runs (openssh-server would
# otherwise start a system-wide SSH server on port 22); the tests start their own sshd.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libssl-dev                          # OpenSSL 3
  nlohmann-json3-dev                  # JSON files
  libpcre2-dev                        # argument redaction patterns
  libsqlite3-dev                      # the activity log
  libcli11-dev                        # command-line parsing
  libpam0g-dev                        # presence verification through PAM
  libcurl4-openssl-dev                # HTTPS requests to the relay
  libtss2-dev                         # TPM 2.0 keys (tpm2-tss: ESYS, the TCTI loader)
  openssh-client                      # ssh and ssh-keygen, which the agent serves and Git signs with
  libboost-dev                        # Boost.Beast/Asio: the relay server's HTTP and TLS
  libhiredis-dev                      # the relay's shared store in Redis
  libgtk-4-dev                        # quorvane-prompt, the desktop approval dialog (GTK 4)
  libqrencode-dev                     # pairing codes as QR codes on a terminal
)
test_packages=(
  git                                 # Git signing end to end
  clang libclang-rt-14-dev            # fuzz targets (libFuzzer), ThreadSanitizer
  libgtest-dev libgmock-dev libbenchmark-dev
  openssl                             # the openssl program: reference results for the crypto tests
  sqlite3                             # the shell edits logs in tests
  openssh-server                      # sshd on a loopback port in the end-to-end tests
  valgrind                            # the constant-time check of ML-KEM (memcheck and its header)
  putty-tools                         # puttygen: PuTTY key files for the import tests
  python3-cryptography                # a second implementation checks the pairing test vectors
  swtpm swtpm-tools                   # software TPMs that the TPM tests start
  redis-server                        # the relay's Redis store, two relays sharing one server
  xvfb xdotool imagemagick            # the desktop dialog end to end: a virtual X display, clicks
                                      # and keys, a screenshot (import)
)
if [[ "${1:-}" == "--tests" ]]; then packages+=("${test_packages[@]}"); fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "Missing packages: ${missing[*]}" >&2
    echo "They need root to install, and sudo is not installed. As root, run:" >&2
    echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
    echo "then run this command again." >&2
    exit 1
  fi
  sudo=(sudo)
fi

echo "Installing: ${missing[*]}"
# Debian's invoke-rc.d asks /usr/sbin/policy-rc.d whether a package may start its service; 101
# means no. An existing policy (a container's, say) is left alone.
policy=/usr/sbin/policy-rc.d
own_policy=0
if [[ ! -e "$policy" ]]; then
  printf '#!/bin/sh\nexit 101\n' | "${sudo[@]}" tee "$policy" >/dev/null
  "${sudo[@]}" chmod 0755 "$policy"
  own_policy=1
fi
remove_policy() { if ((own_policy)); then "${sudo[@]}" rm -f "$policy"; fi; }
trap remove_policy EXIT

export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -q --no-install-recommends "${missing[@]}"
