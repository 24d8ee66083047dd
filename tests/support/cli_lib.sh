# Shared by the command-line contract tests (tests/cli, tests/files): run
# tarvo-ripple and check what it prints, what it exits with and what it
# leaves behind.
#   source cli_lib.sh TARVO_RIPPLE WORK_DIR
set -uo pipefail
cli=$1 work=$2
fails=0
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
skip() { echo "SKIPPED: $*"; }

# expect_status CODE MESSAGE ARGS...: exit CODE, nothing on stdout, stderr
# exactly "tarvo-ripple: MESSAGE", no temporary file left under the work
# directory. expect_error is the usual case, exit 2.
expect_status() {
  local code=$1 want=$2 err rc
  shift 2
  err=$("$@" 2>&1 >"$work.stdout")
  rc=$?
  [[ $rc -eq $code ]] || fail "$* exited $rc, not $code ($err)"
  [[ $err == "tarvo-ripple: $want" ]] || fail "$*: said \"$err\", not \"tarvo-ripple: $want\""
  [[ ! -s $work.stdout ]] || fail "$*: printed $(<"$work.stdout")"
  no_temp_files
}
expect_error() { expect_status 2 "$@"; }
no_temp_files() {
  local left
  left=$(find "$work" -name '.tarvo-*' 2>/dev/null)
  [[ -z $left ]] || { fail "temporary files left: $left"; rm -f $left; }
}
# same FILE COPY: FILE is byte-identical to COPY.
same() { cmp -s "$1" "$2" || fail "$1 changed"; }
# same_pixels A B: the two images hold the same straight (unassociated) pixel values.
same_pixels() {
  local u=(-iconfig oiio:UnassociatedAlpha 1)
  oiiotool "${u[@]}" "$1" "${u[@]}" "$2" --diff >/dev/null || fail "$1 and $2 differ"
}
finish() {
  rm -f "$work.stdout"
  ((fails == 0)) || { echo "$fails failure(s)" >&2; exit 1; }
  echo "all passed"
}
