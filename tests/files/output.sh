#!/usr/bin/env bash
# Writing outputs: every failure is reported with its reason, the file it
# would have replaced stays byte-identical and no temporary file is left.
#   output.sh TARVO_RIPPLE WORK_DIR
source "$(dirname "$0")/../support/cli_lib.sh"

"$cli" --demo big.png --size 640x480 || exit 1
"$cli" --demo small.png --size 64x48 || exit 1

# A file size limit (EFBIG) stands in for a full disk, in every format the
# encoder might fail differently in.
for ext in png jpg tif exr bmp webp; do
  "$cli" small.png "old.$ext" && cp "old.$ext" "keep.$ext"
  (ulimit -f 64; expect_error "cannot write old.$ext: File too large" "$cli" big.png "old.$ext"; exit $fails) || fails=$((fails + 1))
  same "old.$ext" "keep.$ext"
done
(ulimit -f 64; expect_error "cannot write s_0.png: File too large" "$cli" big.png s_%d.png --frames 0-3 --jobs 1
  exit $fails) || fails=$((fails + 1))
[[ -z $(ls s_* 2>/dev/null) ]] || fail "a failed sequence left $(ls s_*)"

# Formats that cannot be written through a checked file are refused before rendering.
expect_error "cannot write o.jp2: writing jpeg2000 files is not supported" "$cli" small.png o.jp2
expect_error "cannot write o.j2k: writing jpeg2000 files is not supported" "$cli" small.png o.j2k
expect_error "cannot write o.null: writing null files is not supported" "$cli" small.png o.null
[[ ! -e o.jp2 && ! -e o.j2k && ! -e o.null ]] || fail "a refused format left a file"

# The reasons open and rename give.
touch afile.png
expect_error "cannot write afile.png/x.png: afile.png is not a directory" "$cli" small.png afile.png/x.png
mkdir locked && chmod 555 locked
as_user=()
[[ $(id -u) -ne 0 ]] || as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
expect_error "cannot write locked/x.png: Permission denied" "${as_user[@]}" "$cli" small.png locked/x.png

# Names up to the file system's limit, mode and symbolic links kept.
long=$(printf 'n%.0s' {1..251}).png
"$cli" small.png "$long" && [[ -s $long ]] || fail "a 255-byte output name"
cp old.png private.png && chmod 600 private.png
"$cli" small.png private.png && [[ $(stat -c %a private.png) == 600 ]] || fail "mode 600 not kept"
mkdir -p real && ln -s real/target.png link.png
"$cli" small.png link.png && [[ -L link.png && -s real/target.png ]] || fail "the symbolic link was replaced"

# INPUT = OUTPUT only when asked.
cp small.png same.png && ln -s same.png alias.png
expect_error "OUTPUT same.png is the INPUT file; give --overwrite-input to replace it" "$cli" same.png same.png
expect_error "OUTPUT same.png is the INPUT file; give --overwrite-input to replace it" "$cli" alias.png same.png
cp small.png s_1.png
expect_error "OUTPUT s_1.png is the INPUT file; give --overwrite-input to replace it" \
  "$cli" s_1.png s_%d.png --frames 0-2 --jobs 1
same same.png small.png
"$cli" same.png same.png --overwrite-input && ! cmp -s same.png small.png || fail "--overwrite-input"

# A real full disk and a read-only one, where this machine lets us mount.
mkdir disk
if mount -t tmpfs -o size=200k tmpfs disk 2>/dev/null; then
  cp old.png disk/old.png
  expect_error "cannot write disk/old.png: No space left on device" "$cli" big.png disk/old.png
  same disk/old.png old.png
  "$cli" --demo disk/f_%d.png --size 160x120 --frames 0-9 --jobs 1 2>err.txt
  [[ $? -eq 2 && $(cat err.txt) == "tarvo-ripple: cannot write disk/f_"*": No space left on device" ]] ||
    fail "sequence on a full disk: $(cat err.txt)"
  for f in disk/f_*; do oiiotool -q --info "$f" >/dev/null 2>&1 || fail "$f is not a readable image"; done
  mount -o remount,ro disk
  expect_error "cannot write disk/old.png: Read-only file system" "$cli" small.png disk/old.png
  umount disk
else
  skip "mounting a tmpfs is not allowed here: full and read-only file systems not checked"
fi
no_temp_files
finish
