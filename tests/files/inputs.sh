#!/usr/bin/env bash
# Inputs: only regular files, whole data, honest headers, memory; and every
# format read into straight colour and written by its own alpha convention.
#   inputs.sh TARVO_RIPPLE WORK_DIR
source "$(dirname "$0")/../support/cli_lib.sh"

"$cli" --demo demo.png --size 160x120 || exit 1
"$cli" --demo photo.png || exit 1
oiiotool photo.png --ch R,G,B -o base.jpg && oiiotool photo.png --ch R,G,B --attrib jpeg:progressive 1 -o prog.jpg ||
  exit 1

# Pipes and devices are refused at once, never opened.
mkfifo fifo
start=$(date +%s%N)
expect_error "cannot read fifo: it is a pipe, not a regular file" timeout 10 "$cli" fifo out.png
fifo_ms=$((($(date +%s%N) - start) / 1000000))
start=$(date +%s%N)
"$cli" --bogus 2>/dev/null
usage_ms=$((($(date +%s%N) - start) / 1000000))
((fifo_ms < usage_ms + 1000)) || fail "the pipe took ${fifo_ms} ms to refuse (a usage error ${usage_ms} ms)"
expect_error "cannot read /dev/stdin: it is a pipe, not a regular file" "$cli" /dev/stdin out.png < <(cat demo.png)
expect_error "cannot read /dev/null: it is a device, not a regular file" "$cli" /dev/null out.png

# A JPEG cut short is refused, baseline and progressive; whole ones render.
for jpg in base prog; do
  head -c 30000 $jpg.jpg >cut_$jpg.jpg
  expect_error "cannot read cut_$jpg.jpg: the file ends before its JPEG data does (cut short?)" "$cli" cut_$jpg.jpg out.png
  "$cli" $jpg.jpg out.png || fail "$jpg.jpg whole"
done

# A header declaring more pixels than its file can hold is refused before
# decoding; one that passes that check fails on its missing rows.
python3 - <<'PY'
import struct, zlib
def chunk(t, d): return struct.pack('>I', len(d)) + t + d + struct.pack('>I', zlib.crc32(t + d))
def png(name, rows, pad):
    raw = b''.join(b'\0' + b'\x80' * 4095 * 4 for _ in range(rows))
    open(name, 'wb').write(b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', 4095, 32767, 8, 6, 0, 0, 0))
                           + chunk(b'IDAT', zlib.compress(raw)) + (chunk(b'tEXt', b'c\0' + b'x' * pad) if pad else b'')
                           + chunk(b'IEND', b''))
png('liar.png', 0, 0)
png('short.png', 4, 20000)
PY
expect_error "cannot read liar.png: its header declares 4095x32767 pixels, more than 65 bytes can hold" \
  "$cli" liar.png out.png
if [[ -z ${ASAN_OPTIONS:-} ]]; then
  # Under an address-space limit that leaves ~200 MB above a small render:
  # the short file fails on its data, not on a frame-sized buffer; a frame
  # larger than the room left is out of memory, in one line.
  oiiotool --pattern constant:color=0.5,0.5,0.5,1 4095x16000 4 -d uint8 -o huge.png || exit 1
  base=$(for mb in 256 384 512 768 1024 1536; do
    (ulimit -v $((mb * 1024)); "$cli" demo.png out.png) >/dev/null 2>&1 && { echo $mb; break; }
  done 2>/dev/null)
  if [[ -n $base ]]; then
    (ulimit -v $(((base + 200) * 1024))
      expect_error "cannot read short.png: PNG read error: Not enough image data" "$cli" short.png out.png
      expect_error "out of memory reading huge.png" "$cli" huge.png out.png
      exit $fails) || fails=$((fails + 1))
  else
    skip "no address-space limit lets a small render run: out of memory not checked"
  fi
fi

# Alpha: OpenEXR and associated TIFF are divided by alpha on reading; OpenEXR
# is written multiplied; each round trip gives the input back.
pixel() { oiiotool --iconfig oiio:UnassociatedAlpha 1 -v --dumpdata "$1" | grep -o "Pixel (0, 0): [0-9 ]*[0-9]"; }
oiiotool --pattern constant:color=0.5,0.25,0,0.5 4x4 4 -d half -o assoc.exr
oiiotool --pattern constant:color=0.25,0.125,0,0.5 4x4 4 -d uint8 --attrib tiff:UnassociatedAlpha 0 -o assoc.tif
for f in assoc.exr assoc.tif; do
  "$cli" $f $f.png --radius 0 || fail "$f"
done
[[ $(pixel assoc.exr.png) == "Pixel (0, 0): 255 128 0 128" ]] || fail "assoc.exr read as $(pixel assoc.exr.png)"
[[ $(pixel assoc.tif.png) == "Pixel (0, 0): 128 64 0 128" ]] || fail "assoc.tif read as $(pixel assoc.tif.png)"
for ext in png tif tga bmp dpx iff exr; do
  "$cli" demo.png rt.$ext --radius 0 && "$cli" rt.$ext back_$ext.png --radius 0 || fail "$ext round trip"
  idiff -q -a demo.png back_$ext.png >/dev/null || fail "demo.png through $ext changed"
done
oiiotool demo.png -d half -o ref.exr  # the image library's own straight-to-associated conversion
idiff -q -a -fail 0.004 -failpercent 0 rt.exr ref.exr >/dev/null || fail "OpenEXR output is not multiplied by alpha"
"$cli" ref.exr ref_back.exr --radius 0 || fail "ref.exr"
idiff -q -a -fail 0.004 -failpercent 0 ref.exr ref_back.exr >/dev/null || fail "OpenEXR round trip beyond 1/255"
finish
