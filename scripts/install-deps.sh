#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with. Safe to run
# again: it installs only what is missing.
set -euo pipefail
packages=(
  cmake ninja-build g++ clang ccache pkg-config
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libconcurrentqueue-dev libspdlog-dev libcli11-dev
  g++-mingw-w64-x86-64-posix wine64
  iproute2
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
