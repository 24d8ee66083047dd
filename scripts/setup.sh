#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need.
# Idempotent: only missing packages are installed (as root, with apt-get).
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config python3
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libopenimageio-dev openimageio-tools libcli11-dev nlohmann-json3-dev
  g++-mingw-w64-i686 g++-mingw-w64-x86-64 binutils-mingw-w64-i686 icoutils wine64 wine
  frei0r-plugins-dev ffmpeg melt
  libgegl-dev gegl
  clang libclang-rt-14-dev
  slurm-wlm munge
  emscripten node-acorn chromium node-ws
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "setup: missing packages (${missing[*]}); run as root to install them" >&2
    exit 1
  fi
  echo "setup: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
