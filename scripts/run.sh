#!/usr/bin/env bash
# Installs what is missing, builds Quorvane, and starts the agent in the foreground.
# Safe to run again: the build is incremental.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
# The PAM service that presence verification uses; an existing one (perhaps edited) is kept.
if [[ ! -e /etc/pam.d/quorvane ]]; then
  if [[ $(id -u) -eq 0 ]]; then
    sudo=()
  elif command -v sudo >/dev/null; then
    sudo=(sudo)
  else
    echo "Presence verification needs /etc/pam.d/quorvane, which only root can install, and sudo" >&2
    echo "is not installed. As root, run:" >&2
    echo "  install -m 0644 $PWD/dist/pam.d/quorvane /etc/pam.d/quorvane" >&2
    exit 1
  fi
  echo "Installing /etc/pam.d/quorvane (presence verification asks for your login password)"
  "${sudo[@]}" install -m 0644 dist/pam.d/quorvane /etc/pam.d/quorvane
fi
# Only the programs: the tests, fuzzers and benchmarks are the test command's. They are installed
# into QUORVANE_PREFIX (default ~/.local), so that `quorvane` runs from any folder.
prefix=${QUORVANE_PREFIX:-$HOME/.local}
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX="$prefix" "${launcher[@]}" >/dev/null
cmake --build build
cmake --install build >/dev/null
if [[ -x "$prefix/bin/quorvane-prompt" ]]; then
  echo "Installed quorvane, quorvane-agent, quorvane-sign and quorvane-prompt in $prefix/bin."
else
  echo "Installed quorvane, quorvane-agent and quorvane-sign in $prefix/bin."
fi

# An account without a usable password (root in a container or a fresh virtual machine, often)
# could never verify its presence, so nothing could be approved: on a terminal, offer the way out.
checks=$("$prefix/bin/quorvane" doctor --json 2>/dev/null || true)
if [[ -t 0 && "$checks" == *"has no usable password"* ]]; then
  echo
  echo "Your account has no usable password, so you could never verify your presence to approve"
  echo "a request. Either set one (passwd) and keep verification on, or turn verification off:"
  echo "then any program running as you can approve requests, as with a plain SSH agent."
  read -r -p "Turn presence verification off? [y/N] " answer
  if [[ "$answer" == [yY]* ]]; then "$prefix/bin/quorvane" presence off; fi
fi

echo
case ":$PATH:" in
  *":$prefix/bin:"*) ;;
  *)
    echo "$prefix/bin is not on your PATH yet. Add it, in this shell and in ~/.profile:"
    echo "  export PATH=\"$prefix/bin:\$PATH\""
    echo "  echo 'export PATH=\"$prefix/bin:\$PATH\"' >> ~/.profile"
    echo
    ;;
esac
echo "In another terminal: run the SSH_AUTH_SOCK line below, then make a key with"
echo "  quorvane keys generate laptop"
echo "and answer signature requests with: quorvane watch"
echo
exec "$prefix/bin/quorvane-agent" --foreground
