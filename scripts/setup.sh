#!/usr/bin/env bash
# Installs the Debian packages one job needs, by profile:
#
#   scripts/setup.sh PROFILE... [PACKAGE...]
#
#   main      build and run tarvo-ripple (scripts/demo.sh)
#   test      everything the test suite needs: the union of every profile
#   windows   the MinGW-w64 cross builds and wine (scripts/windows.sh)
#   sanitize  the suite under the sanitizers (scripts/sanitize.sh)
#   fuzz      the clang fuzzer build (scripts/fuzz.sh)
#   bench     the benchmarks (scripts/bench.sh)
#   studio    the WebAssembly build and its browser test
#   gegl      the GEGL operation and the gegl command
#   farm      the one-machine Slurm cluster (scripts/slurm-local.sh)
#
# Other words are extra package names. Without a profile: test.
# Idempotent: only missing packages are installed (as root, with apt-get).
set -euo pipefail

declare -A profile
profile[main]="g++ cmake ninja-build pkg-config python3 libopenimageio-dev libcli11-dev"
# The GoogleTest programs and the command-line tests.
units="libgtest-dev libgmock-dev googletest openimageio-tools"
profile[windows]="${profile[main]} $units g++-mingw-w64-i686 g++-mingw-w64-x86-64 binutils-mingw-w64-i686 icoutils wine64 wine"
profile[sanitize]="${profile[main]} $units frei0r-plugins-dev"
profile[fuzz]="${profile[main]} $units clang libclang-rt-14-dev"
profile[bench]="${profile[main]} libbenchmark-dev hyperfine"
profile[studio]="${profile[main]} emscripten node-acorn chromium node-ws"
profile[gegl]="${profile[main]} libgegl-dev gegl"
profile[farm]="${profile[main]} slurm-wlm munge"
profile[test]="$units frei0r-plugins-dev ffmpeg melt"
for p in windows sanitize fuzz bench studio gegl farm; do profile[test]+=" ${profile[$p]}"; done

packages=()
chosen=0
for word in "$@"; do
  if [[ -n ${profile[$word]+set} ]]; then
    read -ra more <<<"${profile[$word]}"
    packages+=("${more[@]}")
    chosen=1
  else
    packages+=("$word")
  fi
done
if ((!chosen)); then
  read -ra more <<<"${profile[test]}"
  packages+=("${more[@]}")
fi

missing=()
for p in $(printf '%s\n' "${packages[@]}" | sort -u); do
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
