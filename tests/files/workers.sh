#!/usr/bin/env bash
# Worker processes of a sequence: they end with their parent, however it
# ends, and no temporary file survives a killed parent or worker.
#   workers.sh TARVO_RIPPLE WORK_DIR
source "$(dirname "$0")/../support/cli_lib.sh"

# Frames slow enough to write that a write is caught in progress.
"$cli" --demo in.png --size 1920x1080 || exit 1
render() { "$cli" in.png o_%d.png --frames 0-40 --jobs 2 --png-compression 9 2>err.txt & }
# Waits for a temporary file; prints its name.
writing() {
  local t
  for _ in {1..600}; do
    t=$(find . -name '.tarvo-*' -printf '%f\n' | head -1)
    [[ -n $t ]] && { echo "$t"; return 0; }
    sleep 0.05
  done
  return 1
}
# (cat, not awk on the files: a process may end between the glob and the read.)
# Running: not yet ended (an ended orphan waits as a zombie until something reaps it).
running() { local s; s=$(awk '{ print $3 }' "/proc/$1/stat" 2>/dev/null); [[ -n $s && $s != Z ]]; }
children() { cat /proc/[0-9]*/stat 2>/dev/null | awk -v p="$1" '$4 == p { print $1 }'; }

for sig in INT TERM KILL; do
  rm -f o_*
  render
  parent=$!
  writing >/dev/null || fail "no write seen"
  kids=$(children $parent)
  [[ $(wc -w <<<"$kids") -eq 2 ]] || fail "expected 2 workers, found: $kids"
  kill -$sig $parent
  for _ in {1..20}; do
    alive=$(for k in $kids; do running "$k" && echo "$k"; done)
    [[ -z $alive ]] && break
    sleep 0.1
  done
  for k in $alive; do fail "worker $k alive 2 s after SIG$sig to its parent"; kill -9 "$k"; done
  wait $parent 2>/dev/null
  no_temp_files
done

# A worker killed in the middle of a write: named by the parent, its file removed.
rm -f o_*
render
parent=$!
temp=$(writing) || fail "no write seen"
worker=${temp#.tarvo-}
kill -KILL "${worker%%-*}"
wait $parent
rc=$?
[[ $rc -eq 2 && $(cat err.txt) == "tarvo-ripple: a worker process was killed by signal 9 (Killed)" ]] ||
  fail "killed worker: exit $rc, $(cat err.txt)"
no_temp_files
finish
