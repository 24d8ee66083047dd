#!/usr/bin/env bash
# Every way a command can fail: one line on stderr naming the problem, exit
# status 2 (1 for a message from the effect), nothing on stdout, and no file
# written, replaced or left behind.
#   errors.sh TARVO_RIPPLE WORK_DIR
source "$(dirname "$0")/../support/cli_lib.sh"

"$cli" --demo in.png --size 32x24 && "$cli" --demo s_0.png --size 20x10 || exit 1
cp s_0.png s_2.png && cp s_0.png s_4.png && cp s_0.png s_5.png
oiiotool --create 4096x2 3 -o wide.png && oiiotool --create 4095x2 3 -o widest.png || exit 1
: >empty.png
echo "not an image" >text.png
echo "not an image either" >notes.txt
head -c $(($(stat -c %s in.png) / 2)) in.png >cut.png
echo "earlier output" >o_0.png && cp o_0.png out.png
mkdir folder.png taken.png
python3 - <<'PY'
import struct, zlib
png = bytearray(open('in.png', 'rb').read())
png[16:24] = bytes(8)  # IHDR width and height 0, with a valid checksum
png[29:33] = struct.pack('>I', zlib.crc32(png[12:29]))
open('zero.png', 'wb').write(png)
# A TIFF header of 4095x8000 pixels of 1024 channels, and nothing else.
tags = [(256, 4095), (257, 8000), (258, 8), (259, 1), (262, 1), (273, 0), (277, 1024), (278, 8000), (279, 64), (284, 1)]
open('many.tif', 'wb').write(b'II*\0\x08\0\0\0' + struct.pack('<H', len(tags))
                             + b''.join(struct.pack('<HHII', t, 3, 1, v) for t, v in tags) + bytes(4))
PY

pins="choose one of 1 no-pin, 2 pin-edges, 3 pin-center, 5 pin-left, 6 pin-top, 7 pin-right, 8 pin-bottom, 10 pin-horiz, 11 pin-vertical"
fixed="what the host's fixed-point numbers hold"
pattern="has a '%' that is not a frame number (use %d, %4d or %04d; %% for a '%')"
range="is not a frame range (A-B with 0 <= A <= B, or one frame number)"
# EXIT ARGUMENTS | MESSAGE (without "tarvo-ripple: "); $pins and the like are expanded.
while IFS= read -r row; do
  [[ -z $row || $row == '#'* ]] && continue
  eval "set -- ${row%% | *}"
  eval "want=\"${row#* | }\""
  code=$1
  shift
  before=$(find . -type f -printf '%p %s %T@\n' -o -printf '%p\n' | sort)
  expect_status "$code" "$want" "$cli" "$@"
  [[ $(find . -type f -printf '%p %s %T@\n' -o -printf '%p\n' | sort) == "$before" ]] || fail "$* changed the files"
done <<'EOF'
# Values
2 in.png out.png --radius abc | --radius abc is not a number
2 in.png out.png --radius 25x | --radius 25x is not a number
2 in.png out.png --radius nan | --radius nan is not a number
2 in.png out.png --radius 100.01 | --radius 100.01 is outside the range 0 to 100
2 in.png out.png --radius inf | --radius inf is outside the range 0 to 100
2 in.png out.png --radius 1e309 | --radius 1e309 is outside the range 0 to 100
2 in.png out.png --wave-height -1 | --wave-height -1 is outside the range 0 to 25
2 in.png out.png --chaos 5 | --chaos 5 is outside the range 10 to 140
2 in.png out.png --phase 40000 | --phase 40000 is outside the range -32768 to 32768, $fixed
2 in.png out.png --phase -1e309 | --phase -1e309 is outside the range -32768 to 32768, $fixed
2 in.png out.png --intensity '(-' | --intensity (- is not in the menu: choose one of 1 low, 2 normal, 3 super
2 in.png out.png --intensity 0 | --intensity 0 is outside the menu: choose one of 1 low, 2 normal, 3 super
2 in.png out.png --pin-mode 4 | --pin-mode 4 is a separator line of the menu: $pins
2 in.png out.png --pin-mode 9 | --pin-mode 9 is a separator line of the menu: $pins
2 in.png out.png --pin-mode '(-' | --pin-mode (- is not in the menu: $pins
2 in.png out.png --center 10 | --center 10 is not a point: give X,Y in pixels of the layer
2 in.png out.png --center 33,5 | --center 33,5 is outside the 32x24 layer
2 in.png out.png --quality best | --quality \"best\" is not high or low
2 in.png out.png --time 1.5 | --time \"1.5\" is not a whole number
2 in.png out.png --time-scale 0 | --time-scale 0 is outside 1 to 4294967295
2 in.png out.png --jobs 0 | --jobs 0 is outside 1 to 64
2 in.png out.png --threads 65 | --threads 65 is outside 1 to 64
2 --demo j_%d.png --frames 0-63 --jobs 64 --threads 64 | --jobs 64 with --threads 64 needs 4096 cores, more than this machine has
2 in.png out.png --png-compression 10 | --png-compression 10 is outside 0 to 9
2 --demo out.png --size 5000x10 | --size width 5000 is outside 1 to 4095
2 --demo out.png --size 64 | --size \"64\" is not WxH, e.g. 640x480
# Empty values, whatever the option
2 in.png out.png --jobs '' | --jobs \"\" is empty
2 in.png out.png --png-compression '' | --png-compression \"\" is empty
2 in.png out.png --time '' | --time \"\" is empty
2 in.png out.png --time-step= | --time-step \"\" is empty
2 in.png out.png --frames '' | --frames \"\" is empty
2 in.png out.png --size '' | --size \"\" is empty
2 in.png out.png --radius '' | --radius \"\" is empty
# Options
2 in.png out.png --radius | --radius: 1 required VALUE missing (see --help)
2 in.png | give INPUT and OUTPUT, --demo OUTPUT or --list-params (see --help)
2 in.png out.png --json | --json goes with --list-params
2 in.png out.png --size 10x10 | --size goes with --demo
2 in.png out.png -radius 10 | -radius: long options take two dashes: --radius
2 in.png out.png --radus 10 | unknown option --radus; did you mean --radius?
2 in.png out.png --wave-heigth 3 | unknown option --wave-heigth; did you mean --wave-height?
2 in.png out.png --frekuenzy 3 | unknown option --frekuenzy; did you mean --frequency?
2 in.png out.png --bogus | unknown option --bogus (see --help)
2 in.png out.png --module /nonexistent.so | cannot load module /nonexistent.so: /nonexistent.so: cannot open shared object file: No such file or directory
# Inputs that cannot be rendered
2 missing.png out.png | cannot read missing.png: no such file
2 folder.png out.png | cannot read folder.png: it is a directory
2 empty.png out.png | cannot read empty.png: Not a PNG file
2 zero.png out.png | cannot read zero.png: PNG read error: Invalid IHDR data
2 text.png out.png | cannot read text.png: Not a PNG file
2 notes.txt out.png | cannot read notes.txt: OpenImageIO could not find a format reader for \"notes.txt\". Is it a file format that OpenImageIO doesn't know about?
2 cut.png out.png | cannot read cut.png: Read error: hit end of file
2 wide.png out.png | wide.png is 4096x2, larger than the effect allows (4095x32767 at most)
2 many.tif out.png | many.tif is 4095x8000 with 1024 channels, more than the effect allows (4 channels of 4095x32767 at most)
# Outputs that cannot be written
2 in.png nodir/out.png | cannot write nodir/out.png: directory nodir does not exist
2 in.png out.xyz | cannot write out.xyz: no image format for \".xyz\"
2 in.png out | cannot write out: no file extension to choose a format by
2 in.png taken.png | cannot write taken.png: Is a directory
# Sequences: a frame number needs frames, and every input frame
2 in.png o_%d.png | \"o_%d.png\" holds a frame number: give --frames A-B
2 s_%d.png x.png | \"s_%d.png\" holds a frame number: give --frames A-B
2 in.png x.png --frames 0-2 | OUTPUT \"x.png\" needs a frame number such as %04d to render --frames
2 in.png o_%d_%d.png --frames 0-2 | \"o_%d_%d.png\" has more than one frame number
2 in.png 50%.png --frames 0-1 | \"50%.png\" $pattern
2 in.png f_%s.png --frames 0-1 | \"f_%s.png\" $pattern
2 in.png f_%00d.png --frames 0-1 | \"f_%00d.png\" $pattern
2 in.png f_%10d.png --frames 0-1 | \"f_%10d.png\" $pattern
2 s_%d.png o_%d.png --frames 0-2 | input frame 1 is missing: s_1.png
2 in.png o_%d.png --frames 2-0 | --frames 2-0 runs backwards
2 in.png o_%d.png --frames -3 | --frames \"-3\" $range
2 in.png o_%d.png --frames 1- | --frames \"1-\" $range
2 in.png o_%d.png --frames a-b | --frames \"a-b\" $range
2 in.png o_%d.png --frames 1-2-3 | --frames \"1-2-3\" $range
2 in.png o_%d.png --frames +1-2 | --frames \"+1-2\" $range
2 in.png o_%d.png --frames 99999999999-1 | --frames \"99999999999-1\" $range
2 in.png o_%d.png --frames 0-1 --time 3 | --time goes with a single frame; with --frames frame n renders at n x time-step
2 in.png o_%d.png --frames 0-3 --time-step 1000000000 | --frames 0-3 with --time-step 1000000000 runs past the host's time range
# The effect's own message; allocation 3 is the first whose failure it reports
1 in.png out.png --fail-allocation 3 | Tarvo FX Ripple: Memory Allocation Failure!
1 s_%d.png f_%d.png --frames 4-5 --fail-allocation 3 --jobs 1 | frame 4: Tarvo FX Ripple: Memory Allocation Failure!
EOF
"$cli" widest.png out.png || fail "the widest frame is refused"

# A corrupt frame stops the sequence; the frames before it stay, in one
# process or spread over several.
cp s_0.png s_1.png && cp s_0.png s_3.png && echo broken >s_2.png
for jobs in 1 2; do
  expect_error "cannot read s_2.png: Not a PNG file" "$cli" s_%d.png p${jobs}_%d.png --frames 0-3 --jobs $jobs
  [[ ! -e p${jobs}_2.png ]] || fail "the corrupt frame was written at --jobs $jobs"
done
oiiotool -q --info p1_0.png p1_1.png >/dev/null || fail "the frames before the corrupt one"
[[ ! -e p1_3.png ]] || fail "a frame after the corrupt one was written"
finish
