#!/usr/bin/env bash
# Installs the frei0r component into a scratch prefix and runs the installed
# filter in ffmpeg: it must find the installed plug-in module beside it, not
# the build tree's, and render.
#
#   install_test.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1 work=$2
command -v ffmpeg >/dev/null || { echo "SKIPPED: ffmpeg is not installed"; exit 77; }
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --component frei0r --prefix "$work/prefix" >"$work/install.log"
filter=$(find "$work/prefix" -path '*/frei0r-1/tarvo_ripple.so')
[[ -n $filter ]] || { cat "$work/install.log"; echo "FAIL: no frei0r-1/tarvo_ripple.so installed" >&2; exit 1; }
cd "$work"
env -u TARVO_RIPPLE_MODULE FREI0R_PATH="$(dirname "$filter")" TARVO_RIPPLE_TRACE=1 \
  ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i testsrc=size=64x48:rate=25 -frames:v 1 \
  -vf frei0r=tarvo_ripple -f rawvideo -pix_fmt rgba -y out.rgba 2>trace.txt \
  || { cat trace.txt >&2; echo "FAIL: ffmpeg could not run the installed filter" >&2; exit 1; }
grep -q "plug-in module $work/prefix/" trace.txt \
  || { cat trace.txt >&2; echo "FAIL: the installed filter did not load the installed plug-in module" >&2; exit 1; }
[[ $(stat -c %s out.rgba) -eq $((64 * 48 * 4)) ]] || { echo "FAIL: no frame rendered" >&2; exit 1; }
grep "plug-in module" trace.txt
