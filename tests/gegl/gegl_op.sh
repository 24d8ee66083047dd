#!/usr/bin/env bash
# The GEGL operation tarvo:ripple inside the gegl command: GEGL lists it with
# every property at the plug-in's declared default, and its renders at the
# defaults, a menu entry, a stretch, a centre and a time are byte-identical
# to tarvo-ripple's on the same file and settings.
#
#   gegl_op.sh GEGL_MODULE_DIR TARVO_RIPPLE_CLI WORK_DIR
#
# Exit 77 (skipped) when gegl, ffmpeg or python3 is not installed.
set -euo pipefail

dir=$1 cli=$2 work=$3
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }
for tool in gegl ffmpeg python3 pkg-config; do
  command -v $tool >/dev/null || skip "$tool is not installed (scripts/setup.sh gegl)"
done
rm -rf "$work" && mkdir -p "$work" && cd "$work"
# GEGL_PATH replaces GEGL's own folder, whose loaders and savers are needed too.
export GEGL_PATH=$dir:$(pkg-config --variable=pluginsdir gegl-0.4)

gegl --list-all 2>/dev/null | grep -qx 'tarvo:ripple' || fail "gegl --list-all does not list tarvo:ripple"
gegl --info tarvo:ripple >info.txt 2>/dev/null || fail "gegl --info tarvo:ripple failed"
"$cli" --list-params --json >params.json || fail "tarvo-ripple --list-params --json failed"
python3 - info.txt params.json <<'EOF'
import json, re, sys
info, params = open(sys.argv[1], errors="replace").read(), json.load(open(sys.argv[2]))["parameters"]
shown = dict(re.findall(r"^(\S+)\s+\[\w+\].*?\(default:\s+([^)\s]+)\)", info, re.S | re.M))
def key(name): return re.sub(r"[^a-z0-9]+", "-", name.lower()).strip("-")
want = {"time": 0.0}
for q in params:
    k = key(q["name"])
    if q["type"] == "point":
        want[k + "-x"], want[k + "-y"] = (v / 100 for v in q["default_percent"])
    elif q["type"] == "fixed_slider":
        want[k] = min(max(q["default"], q["min"]), q["max"])   # a property's default lies in its range
    else:
        want[k] = q["default"]
if sorted(shown) != sorted(want):
    sys.exit(f"FAIL: properties {sorted(shown)}, expected {sorted(want)}")
for k, v in want.items():
    if abs(float(shown[k]) - v) > 1e-6:
        sys.exit(f"FAIL: {k}: default {shown[k]}, declared {v}")
EOF

W=320 H=240
ffmpeg -nostdin -hide_banner -loglevel error -f lavfi \
  -i "testsrc=size=${W}x${H},format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='(X+Y)*255/(W+H)'" \
  -frames:v 1 -y src.png
raw() { ffmpeg -nostdin -hide_banner -loglevel error -i "$1" -f rawvideo -pix_fmt rgba -; }

# name | gegl properties | tarvo-ripple options
cases=(
  "defaults||"
  "menu|waveform=3|--waveform 3"
  "stretch|stretch=20 stretch-angle=30|--stretch 20 --stretch-angle 30"
  "centre|center-x=0.375 center-y=0.25|--center 120,60"
  "time|time=0.52|--time 520 --time-step 1 --time-scale 1000"
)
for c in "${cases[@]}"; do
  IFS='|' read -r name props opts <<<"$c"
  # shellcheck disable=SC2086
  gegl -- gegl:load path=src.png tarvo:ripple $props gegl:png-save path="g_$name.png" bitdepth=8 \
    2>"g_$name.log" || { cat "g_$name.log" >&2; fail "$name: gegl failed"; }
  # shellcheck disable=SC2086
  "$cli" src.png "c_$name.png" $opts || fail "$name: tarvo-ripple failed"
  cmp -s <(raw "g_$name.png") <(raw "c_$name.png") || fail "$name: gegl's render differs from tarvo-ripple's"
done
cmp -s <(raw g_defaults.png) <(raw src.png) && fail "the default render is the source unchanged"
echo "tarvo:ripple: listed with its defaults; ${#cases[@]} renders byte-identical to tarvo-ripple"
