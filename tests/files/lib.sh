# Shared by the file-handling contract tests: run tarvo-ripple and check
# that a failure is one line, exit status 2, and leaves nothing behind.
#   source lib.sh TARVO_RIPPLE WORK_DIR
set -uo pipefail
cli=$1 work=$2
fails=0
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
skip() { echo "SKIPPED: $*"; }

# expect_error MESSAGE ARGS...: exit 2, stderr exactly "tarvo-ripple: MESSAGE",
# no temporary file left anywhere under the work directory.
expect_error() {
  local want=$1 err rc
  shift
  err=$("$@" 2>&1 >/dev/null)
  rc=$?
  [[ $rc -eq 2 ]] || fail "$* exited $rc, not 2 ($err)"
  [[ $err == "tarvo-ripple: $want" ]] || fail "$*: said \"$err\", not \"tarvo-ripple: $want\""
  no_temp_files
}
no_temp_files() {
  local left
  left=$(find "$work" -name '.tarvo-*' 2>/dev/null)
  [[ -z $left ]] || { fail "temporary files left: $left"; rm -f $left; }
}
# same FILE COPY: FILE is byte-identical to COPY.
same() { cmp -s "$1" "$2" || fail "$1 changed"; }
finish() {
  ((fails == 0)) || { echo "$fails failure(s)" >&2; exit 1; }
  echo "all passed"
}
