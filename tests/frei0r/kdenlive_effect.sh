#!/usr/bin/env bash
# The video editor's effect description for the frei0r filter: well-formed,
# names the filter's service, and lists the filter's parameters in its order
# with its defaults; its defaults and ranges agree with what
# `tarvo-ripple --list-params --json` reports; and a project in the editor's
# style that applies the effect with the description's values renders in
# melt byte-identical to the command-line host.
#
#   kdenlive_effect.sh DESCRIPTION.xml FREI0R_DIR TARVO_RIPPLE_CLI WORK_DIR
#
# Exit 77 (skipped) when melt, ffmpeg or python3 is not installed.
set -euo pipefail

xml=$1 frei0r_dir=$2 cli=$3 work=$4
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }
source "$(dirname "$0")/melt_frames.sh"
for tool in melt ffmpeg python3; do
  command -v $tool >/dev/null || skip "$tool is not installed (scripts/setup.sh test)"
done
rm -rf "$work" && mkdir -p "$work" && cd "$work"
export FREI0R_PATH=$frei0r_dir

melt -query filter=frei0r.tarvo_ripple >query.yml 2>/dev/null || fail "melt cannot query frei0r.tarvo_ripple"
"$cli" --list-params --json >params.json || fail "tarvo-ripple --list-params --json failed"

# Checks the description; prints the project's filter properties, one
# name=value a line: the description's defaults with one menu entry, a
# stretch and a centre changed.
python3 - "$xml" query.yml params.json >props.txt <<'EOF'
import json, re, sys
import xml.etree.ElementTree as ET

desc, query, params = sys.argv[1:]
try:
    root = ET.parse(desc).getroot()
except ET.ParseError as e:
    sys.exit(f"FAIL: the description is not well-formed: {e}")
if root.tag != "effect" or root.get("tag") != "frei0r.tarvo_ripple" or root.get("id") != "frei0r.tarvo_ripple":
    sys.exit(f"FAIL: the description names {root.get('tag')!r}, not the service frei0r.tarvo_ripple")
ps = root.findall("parameter")

# The frei0r filter's own list, as melt reports it: titles and defaults.
filt = re.findall(r"title: (.*)\n(?:    .*\n)*?    default: (\S+)", open(query).read().split("parameters:", 1)[1])
names = [p.get("name") for p in ps]
if names != [t for t, _ in filt]:
    sys.exit(f"FAIL: parameters {names} are not the filter's {[t for t, _ in filt]}")
for p, (t, d) in zip(ps, filt):
    if abs(float(p.get("default")) - float(d)) > 1e-6:
        sys.exit(f"FAIL: {t}: default {p.get('default')}, the filter's is {d}")
    if p.find("name").text != t:
        sys.exit(f"FAIL: {t}: shown as {p.find('name').text!r}")

# Against the plug-in's declarations as the command line reports them.
decl = {q["name"]: q for q in json.load(open(params))["parameters"]}
by = {p.get("name"): p for p in ps}
def f(name): return float(by[name].get("default"))
for name, q in decl.items():
    if q["type"] == "fixed_slider":
        p = by[name]
        v = q["min"] + f(name) * (q["max"] - q["min"])
        if abs(v - min(max(q["default"], q["min"]), q["max"])) > 1e-6:
            sys.exit(f"FAIL: {name}: default maps to {v}, declared {q['default']}")
        if q["min"] == 0 and (float(p.get("max")) != q["max"] or float(p.get("factor")) != q["max"]):
            sys.exit(f"FAIL: {name}: shown up to {p.get('max')}, declared {q['max']}")
    elif q["type"] == "angle":
        if abs(f(name) * 360 - q["default"]) > 1e-6:
            sys.exit(f"FAIL: {name}: default {f(name)}, declared {q['default']} degrees")
    elif q["type"] == "popup":
        p = by[name]
        values = p.get("paramlist").split(";")
        labels = p.find("paramlistdisplay").text.split(",")
        chosen = labels[values.index(p.get("default"))]
        if chosen != q["choices"][q["default"] - 1]:
            sys.exit(f"FAIL: {name}: default entry {chosen!r}, declared {q['choices'][q['default'] - 1]!r}")
        if any(l not in q["choices"] and not l.isdigit() for l in labels):
            sys.exit(f"FAIL: {name}: entries {labels} are not among {q['choices']}")
    elif q["type"] == "point":
        if [f("Center X") * 100, f("Center Y") * 100] != q["default_percent"]:
            sys.exit(f"FAIL: centre default {f('Center X')}, {f('Center Y')}, declared {q['default_percent']} %")
    else:
        sys.exit(f"FAIL: {name}: type {q['type']} has no entry")

# The editor stores a list's chosen value and a slider's shown value / factor.
wave = by["WaveForm"]
props = {p.get("name"): p.get("default") for p in ps}
props["WaveForm"] = wave.get("paramlist").split(";")[2]                  # Square
props["Stretch"] = repr(600 / float(by["Stretch"].get("factor")))       # 600 thousandths: 20
props["Center X"] = repr(37.5 / float(by["Center X"].get("factor")))    # 37.5 %: pixel 120 of 320
for k, v in props.items():
    print(f"{k}={v}")
EOF

W=320 H=240 FPS=25 K=2
ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "testsrc=size=${W}x${H}:rate=$FPS" \
  -frames:v 4 -c:v png -pix_fmt rgba -y src.mov
ffmpeg -nostdin -hide_banner -loglevel error -i src.mov -vf "select=eq(n\,$K)" -frames:v 1 -pix_fmt rgba -y src_k.png

esc() { sed -e 's/&/\&amp;/g' -e 's/</\&lt;/g' -e 's/"/\&quot;/g'; }
{
  cat <<EOF
<?xml version="1.0" encoding="utf-8"?>
<mlt LC_NUMERIC="C" producer="main_bin" version="7">
 <profile description="${W}x${H} ${FPS}p" width="$W" height="$H" progressive="1" sample_aspect_num="1"
   sample_aspect_den="1" display_aspect_num="$W" display_aspect_den="$H" frame_rate_num="$FPS" frame_rate_den="1"
   colorspace="709"/>
 <producer id="clip" in="0" out="3"><property name="resource">src.mov</property></producer>
 <playlist id="track"><entry producer="clip" in="0" out="3">
  <filter id="ripple">
   <property name="mlt_service">frei0r.tarvo_ripple</property>
   <property name="kdenlive_id">frei0r.tarvo_ripple</property>
EOF
  while IFS='=' read -r k v; do
    echo "   <property name=\"$(esc <<<"$k")\">$v</property>"
  done <props.txt
  cat <<EOF
  </filter>
 </entry></playlist>
 <tractor id="project"><track producer="track"/></tractor>
</mlt>
EOF
} >project.mlt
melt_frames -quiet project.mlt -consumer avformat:out_%03d.png vcodec=png pix_fmt=rgba real_time=0 \
  || { cat melt.log trace.txt >&2; fail "melt failed on the project"; }

# The same settings on the command line: Square, stretch 20, centre (120, 120).
"$cli" src_k.png cli_k.png --waveform 3 --stretch 20 --center 120,120 \
  --time $((K * 1000 / FPS)) --time-step 1 --time-scale 1000 || fail "the command-line host failed"
out=$(printf 'out_%03d.png' $((K + 1)))  # melt numbers frames from 1
for f in "$out" cli_k.png; do
  ffmpeg -nostdin -hide_banner -loglevel error -i "$f" -f rawvideo -pix_fmt rgba -y "$f.rgba"
done
cmp -s "$out.rgba" cli_k.png.rgba || fail "frame $K of the project differs from the command-line host's render"
echo "the description matches the filter and the declarations; frame $K of the project is byte-identical to the command line"
