#!/usr/bin/env bash
# Builds the studio page (the plug-in and a slim host as WebAssembly, with
# Debian's Emscripten) into BUILD/studio and serves it on 127.0.0.1.
#   scripts/studio.sh [--port N] [--build-only] [--build-dir DIR]
# Default port 8765, default build folder build-wasm.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
port=8765
buildOnly=0
build=$root/build-wasm
while (($#)); do
  case $1 in
    --port) port=${2:?--port wants a number}; shift ;;
    --build-only) buildOnly=1 ;;
    --build-dir) build=${2:?--build-dir wants a folder}; shift ;;
    -h|--help) sed -n 2,5p "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "studio.sh: unknown argument $1 (see --help)" >&2; exit 2 ;;
  esac
  shift
done
[[ $port =~ ^[0-9]+$ ]] || { echo "studio.sh: --port $port is not a number" >&2; exit 2; }

# emcc's JavaScript optimizer needs acorn, which Debian keeps in its own
# module folder; Debian's frozen Emscripten cache must stay where it is.
if ! command -v em++ >/dev/null || ! command -v node >/dev/null || ! command -v ninja >/dev/null ||
   [[ ! -d /usr/share/nodejs/acorn ]]; then
  "$root/scripts/setup.sh" studio
fi
export NODE_PATH=/usr/share/nodejs${NODE_PATH:+:$NODE_PATH}
unset EM_CACHE

emcmake cmake -S "$root" -B "$build" -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release \
  -DTARVO_BUILD_TESTS=OFF -DTARVO_TEST_INTERFACE=OFF >/dev/null
cmake --build "$build" --target studio
echo "studio: $build/studio ($(stat -c %s "$build/studio/studio.wasm") bytes of WebAssembly)"
((buildOnly)) && exit 0
exec node "$root/apps/studio/serve.mjs" "$build/studio" "$port"
