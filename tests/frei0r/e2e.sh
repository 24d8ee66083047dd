#!/usr/bin/env bash
# End to end: the frei0r filter inside ffmpeg or melt, on a generated test
# video with a soft alpha ramp; every decoded frame must be byte-identical to
# the in-process host's render of the same frame at the same time, and (when
# the command-line host is built) one frame to the command-line host's.
# Also checks the time each tool hands the filter (ffmpeg: milliseconds,
# melt: seconds) and that the rings move from frame to frame.
#
#   e2e.sh ffmpeg|melt FREI0R_DIR REFERENCE_RENDER WORK_DIR [TARVO_RIPPLE_CLI]
#
# Exit 77 (skipped) when the tool is not installed.
set -euo pipefail

mode=$1 frei0r_dir=$2 reference=$3 work=$4 cli=${5:-}
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }
source "$(dirname "$0")/melt_frames.sh"

command -v ffmpeg >/dev/null || skip "ffmpeg is not installed (scripts/setup.sh installs it)"
[[ $mode != melt ]] || command -v melt >/dev/null || skip "melt is not installed (scripts/setup.sh installs it)"

rm -rf "$work" && mkdir -p "$work" && cd "$work"
# Width a multiple of 16: ffmpeg's frei0r wrapper needs it.
W=320 H=240 FPS=25 MS=40 N=5
frame_bytes=$((W * H * 4))

ffmpeg -nostdin -hide_banner -loglevel error -f lavfi \
  -i "testsrc=size=${W}x${H}:rate=$FPS,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='(X+Y)*255/(W+H)'" \
  -frames:v $N -f rawvideo -pix_fmt rgba -y src.rgba

# One setting of every kind, each as the frei0r value and as the value the
# plug-in's controls show (index=value for the reference, options for the
# command-line host). Centre 0.375, 0.5 of 320x240 is pixel (120, 120).
#         Radius Cx    Cy  WaveH AngH WaveW Form Freq Int Stretch SAngle Twirl Pin AA     Blend Chaos Phase Draft
f0r=(     0.4    0.375 0.5 0.2   0    0.1   0.1  0.6  0.5 0.6     0.125  0.3   0.5 0.1667 0     0     0.05  0)
names=(Radius "Center X" "Center Y" "Wave Height" "Angular Wave Height" "Wave Width" WaveForm Frequency
  Intensity Stretch "Stretch Angle" Twirl "Pin Mode" Antialias "Chaos Blend" Chaos Phase Draft)
ref_settings=(1=40 2=120,120 3=5 5=5 6=3 7=30 8=2 9=20 10=45 11=2 12=6 13=1 16=18)
cli_args=(--radius 40 --center 120,120 --wave-height 5 --wave-width 5 --waveform 3 --frequency 30
  --intensity 2 --stretch 20 --stretch-angle 45 --twirl 2 --pin-mode 6 --antialias 1 --phase 18
  --quality high)

export FREI0R_PATH=$frei0r_dir TARVO_RIPPLE_TRACE=1
unset TARVO_RIPPLE_TIME_UNIT
if [[ $mode == ffmpeg ]]; then
  # ffmpeg takes a frei0r boolean as y or n.
  ff=("${f0r[@]}")
  ff[17]=$([[ ${f0r[17]} == 1 ]] && echo y || echo n)
  params=$(IFS='|'; echo "${ff[*]}")
  ffmpeg -nostdin -hide_banner -loglevel error -f rawvideo -pix_fmt rgba -s ${W}x${H} -r $FPS -i src.rgba \
    -vf "frei0r=filter_name=tarvo_ripple:filter_params=$params" -f rawvideo -pix_fmt rgba -y out.rgba 2>trace.txt \
    || { cat trace.txt >&2; fail "ffmpeg failed"; }
  unit=milliseconds
  # A width that is not a multiple of 64 is named as ffmpeg's problem, a
  # value past the last parameter and an unknown time unit are named too,
  # and the unit is then worked out as without the variable.
  TARVO_RIPPLE_TIME_UNIT=minutes ffmpeg -nostdin -hide_banner -loglevel error -f lavfi \
    -i testsrc=size=328x48:rate=$FPS -frames:v 1 -vf "frei0r=tarvo_ripple:$params|0.5" -f null - 2>warn.txt ||
    { cat warn.txt >&2; fail "ffmpeg failed at width 328"; }
  for said in "width 328 is not a multiple of 64" "filter_params has 19 values" \
      "TARVO_RIPPLE_TIME_UNIT is \"minutes\"" "time unit milliseconds (ffmpeg"; do
    grep -qF "$said" warn.txt || { cat warn.txt >&2; fail "no \"$said\" under ffmpeg"; }
  done
  sent() { echo "$(( $1 * MS ))"; }
else
  ffmpeg -nostdin -hide_banner -loglevel error -f rawvideo -pix_fmt rgba -s ${W}x${H} -r $FPS -i src.rgba \
    -c:v png -pix_fmt rgba -y src.mov
  cat >profile.txt <<EOF
description=${W}x${H} ${FPS}p square pixels
frame_rate_num=$FPS
frame_rate_den=1
width=$W
height=$H
progressive=1
sample_aspect_num=1
sample_aspect_den=1
display_aspect_num=$W
display_aspect_den=$H
colorspace=709
EOF
  props=()
  for i in "${!f0r[@]}"; do props+=("${names[$i]}=${f0r[$i]}"); done
  # real_time=0: every frame rendered, in order, none dropped.
  melt_frames -quiet -profile "$work/profile.txt" src.mov -filter frei0r.tarvo_ripple "${props[@]}" \
    -consumer avformat:out_%03d.png vcodec=png pix_fmt=rgba real_time=0 \
    || { cat melt.log trace.txt >&2; fail "melt failed"; }
  ffmpeg -nostdin -hide_banner -loglevel error -i out_%03d.png -f rawvideo -pix_fmt rgba -y out.rgba
  unit=seconds
  sent() { awk -v n="$1" -v ms=$MS 'BEGIN { printf "%.17g\n", n * ms / 1000 }'; }
fi

# The time each frame was handed, and what it became.
for ((n = 0; n < N; n++)); do
  expect="time $(sent $n) ($unit) -> current_time $((n * MS)), time_step 1, time_scale 1000"
  grep -qF -- "$expect" trace.txt || { cat trace.txt >&2; fail "frame $n: no trace line \"$expect\""; }
done

"$reference" src.rgba ref.rgba $W $H $MS "${ref_settings[@]}"
[[ $(stat -c %s out.rgba) -eq $((N * frame_bytes)) ]] || fail "$mode gave $(stat -c %s out.rgba) bytes, not $N frames"
frame() { dd if="$1" bs=$frame_bytes skip="$2" count=1 status=none; }
for ((n = 0; n < N; n++)); do
  cmp -s <(frame out.rgba $n) <(frame ref.rgba $n) || fail "frame $n from $mode differs from the in-process host's render"
done
echo "$mode: $N frames byte-identical to the in-process host"

if cmp -s <(frame src.rgba 0) <(frame ref.rgba 0); then
  echo "note: the plug-in renders a pass-through copy; ring motion not checked"
else
  cmp -s <(frame out.rgba 0) <(frame out.rgba 1) && fail "frames 0 and 1 are identical: the rings did not move"
  echo "$mode: the rings move between frames"
fi

if [[ -n $cli && ! -x $cli ]]; then
  echo "note: the command-line host $cli is not built; not compared"
elif [[ -n $cli ]]; then
  k=2
  frame src.rgba $k >src_k.rgba
  ffmpeg -nostdin -hide_banner -loglevel error -f rawvideo -pix_fmt rgba -s ${W}x${H} -i src_k.rgba \
    -pix_fmt rgba -y src_k.png
  "$cli" src_k.png cli_k.png "${cli_args[@]}" --time $((k * MS)) --time-step 1 --time-scale 1000 \
    || fail "the command-line host failed"
  ffmpeg -nostdin -hide_banner -loglevel error -i cli_k.png -f rawvideo -pix_fmt rgba -y cli_k.rgba
  cmp -s cli_k.rgba <(frame out.rgba $k) || fail "frame $k from $mode differs from the command-line host's render"
  echo "$mode: frame $k byte-identical to the command-line host"
fi

# ffmpeg hands frames whose width is not a multiple of 64 over without their
# timestamps: at 720 wide the filter counts frames at 25 a second, and with
# the padding recipe (1000 wide padded to 1024) the timestamps arrive.
if [[ $mode == ffmpeg && -n $cli && -x $cli ]]; then
  for case in "720 720 " "1000 1024 pad=ceil(iw/64)*64:ih,"; do
    read -r w pw pad <<<"$case"
    ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "testsrc=size=${w}x48:rate=$FPS" -frames:v 6 \
      -vf "${pad}format=rgba" -f rawvideo -pix_fmt rgba -y in_$w.rgba
    ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "testsrc=size=${w}x48:rate=$FPS" -frames:v 6 \
      -vf "${pad}format=rgba,frei0r=tarvo_ripple" -f rawvideo -pix_fmt rgba -y out_$w.rgba 2>warn_$w.txt ||
      { cat warn_$w.txt >&2; fail "ffmpeg failed at width $w"; }
    fb=$((pw * 48 * 4))
    frame_of() { dd if="$1" bs=$fb skip="$2" count=1 status=none; }
    cmp -s <(frame_of out_$w.rgba 0) <(frame_of out_$w.rgba 5) && fail "width $w: frames 0 and 5 are identical"
    for k in 0 5; do
      frame_of in_$w.rgba $k >k.rgba
      ffmpeg -nostdin -hide_banner -loglevel error -f rawvideo -pix_fmt rgba -s ${pw}x48 -i k.rgba -y k.png
      "$cli" k.png k_out.png --time $((k * MS)) --time-step 1 --time-scale 1000 || fail "the command-line host failed"
      ffmpeg -nostdin -hide_banner -loglevel error -i k_out.png -f rawvideo -pix_fmt rgba -y k_out.rgba
      cmp -s k_out.rgba <(frame_of out_$w.rgba $k) || fail "width $w: frame $k differs from --time $((k * MS))"
    done
    echo "$mode: width $w (handed over $pw wide) moves, frames 0 and 5 equal the command line at 0 and 200 ms"
  done
  grep -q "counting frames at 25 a second" warn_720.txt || fail "no warning about the missing times at 720"
  ! grep -q "counting frames" warn_1000.txt || fail "padded to 1024, the times should arrive"
fi
