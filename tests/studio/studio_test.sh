#!/usr/bin/env bash
# Builds the studio page and checks it in headless Chromium (studio_test.mjs).
#   studio_test.sh WASM_BUILD_DIR TARVO_RIPPLE TIME_PROGRAM FREI0R_DIR [SCREENSHOT.png]
# Exit 77 (skipped) when Emscripten, Chromium or Node is not installed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
for tool in em++ chromium node; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIPPED: studio test: $tool is not installed (scripts/setup.sh installs it)"
    exit 77
  fi
done
if [[ ! -d /usr/share/nodejs/acorn ]]; then
  echo "SKIPPED: studio test: node-acorn is not installed (scripts/setup.sh installs it)"
  exit 77
fi
"$here/../../scripts/studio.sh" --build-only --build-dir "$1"
# Node 20 has a WebSocket behind a flag; older ones use Debian's node-ws.
flags=()
if node --experimental-websocket -e 0 2>/dev/null; then flags=(--experimental-websocket); fi
NODE_PATH=/usr/share/nodejs exec node "${flags[@]}" "$here/studio_test.mjs" "$1/studio" "${@:2}"
