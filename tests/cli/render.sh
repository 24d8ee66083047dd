#!/usr/bin/env bash
# What a render writes: the demo picture, every channel layout and output
# format, the same bytes at every thread and process count, and sequences
# whose frames render at their own times under their own names.
#   render.sh TARVO_RIPPLE WORK_DIR
doc=$(cd "$(dirname "$0")/../../apps/tarvo-ripple/doc" && pwd)
source "$(dirname "$0")/../support/cli_lib.sh"
size() { oiiotool --info "$1" | grep -o '[0-9]* x *[0-9]*, [0-9] channel' | tr -d ' '; }

# The demo picture with the defaults is the one the README shows.
"$cli" --demo demo.png && same_pixels demo.png "$doc/demo.png"
"$cli" --demo small.tif --size 33x17 && [[ $(size small.tif) == 33x17,4channel ]] || fail "--demo --size 33x17"

# Gray becomes R = G = B and a missing alpha 255: each layout renders as
# the RGBA picture spelled out.
"$cli" --demo in.png --size 33x21 || exit 1
unassoc=(-iconfig oiio:UnassociatedAlpha 1)
oiiotool "${unassoc[@]}" in.png --ch R -o g1.png --ch R=R,G=R,B=R,A=1.0 -o x1.png
oiiotool "${unassoc[@]}" in.png --ch R,A -o g2.png --ch R=R,G=R,B=R,A=A -o x2.png
oiiotool "${unassoc[@]}" in.png --ch R,G,B -o g3.png --ch R,G,B,A=1.0 -o x3.png
for k in 1 2 3; do
  [[ $(size g$k.png) == 33x21,${k}channel ]] || fail "g$k.png is $(size g$k.png)"
  "$cli" g$k.png og$k.png && "$cli" x$k.png ox$k.png && same_pixels og$k.png ox$k.png
done

# Every format that keeps alpha holds the same pixels; the PNG level changes
# the file, never the pixels; JPEG holds RGB and reads back as an input.
"$cli" --demo in.tif --size 64x48 --radius 0 || exit 1
for out in out.png out.tif stored.png out.jpg; do
  "$cli" in.tif $out $([[ $out == stored.png ]] && echo --png-compression 0) || fail "$out"
done
same_pixels out.tif out.png
same_pixels stored.png out.png
(($(stat -c %s stored.png) > $(stat -c %s out.png))) || fail "--png-compression 0 did not store"
[[ $(size out.jpg) == 64x48,3channel ]] || fail "out.jpg is $(size out.jpg)"
"$cli" out.jpg again.png && [[ $(size again.png) == 64x48,4channel ]] || fail "a JPEG input"

# Every thread count writes the bytes of one thread, in each field branch.
for settings in "" "--stretch 50 --stretch-angle 30 --twirl hyper-twirl --angular-wave-height 5" \
  "--stretch -40 --stretch-angle 90 --antialias med --pin-mode pin-center"; do
  for threads in 1 2 3 7; do
    "$cli" --demo t$threads.png --size 203x151 --threads $threads $settings || fail "--threads $threads $settings"
    cmp -s t$threads.png t1.png || fail "--threads $threads $settings differs from one thread"
  done
done

# Frame n renders at n x time step, so the rings travel; worker processes
# write the files of one process; only the frames asked for are written.
for jobs in 1 3; do
  "$cli" --demo f${jobs}_%03d.png --size 96x64 --frames 3-6 --time-step 2 --quiet --jobs $jobs 2>err.txt &&
    [[ ! -s err.txt ]] || fail "--jobs $jobs: $(<err.txt)"
done
[[ $(echo f1_*) == "f1_003.png f1_004.png f1_005.png f1_006.png" ]] || fail "frames written: $(echo f1_*)"
for n in 3 4 5 6; do
  cmp -s f3_00$n.png f1_00$n.png || fail "frame $n differs between 1 and 3 jobs"
  ((n == 3)) || ! cmp -s f1_00$n.png f1_00$((n - 1)).png || fail "frames $((n - 1)) and $n are the same"
done
"$cli" --demo t10.png --size 96x64 --time 10 --time-step 2 && cmp -s t10.png f1_005.png || fail "frame 5 is not time 10"

# Input frames map to output frames, each at its own size; %% is a '%', the
# width is a minimum, one frame number is a range of one, and a '%' that is
# no frame number is part of a still's name.
"$cli" --demo in_1.png --size 40x30 && "$cli" --demo in_2.png --size 30x40 || exit 1
"$cli" in_%d.png out_%02d.tif --frames 1-2 --jobs 1 && "$cli" in_2.png still.png --time 2 || fail "in_%d.png"
same_pixels out_02.tif still.png
[[ $(size out_01.tif) == 40x30,4channel ]] || fail "out_01.tif is $(size out_01.tif)"
"$cli" in.png '100%%_a%3d.png' --frames 5 && "$cli" in.png w_%04d.png --frames 12345 && "$cli" in.png 50%.png ||
  fail "frame names"
[[ -f "100%_a  5.png" && -f w_12345.png && -f 50%.png ]] || fail "frame names: $(echo 100* w_* 50*)"
finish
