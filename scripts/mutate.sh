#!/usr/bin/env bash
# Seeds the faults listed in scripts/mutations.txt, one at a time, into a
# scratch copy of this tree, rebuilds it incrementally, runs the tests named
# for each fault (stopping at the first failure) and prints which faults the
# suite caught. The user's tree is only read.
#
#   scripts/mutate.sh [--check] [--only N[,N...]] [--list FILE]
#
#   --check   only verify that every listed text still occurs exactly once
#   --only    run the listed faults (numbers as printed) only
#   --list    another fault list (default scripts/mutations.txt)
#
# MUTATE_DIR (default ${TMPDIR:-/tmp}/tarvo-mutate) keeps the scratch copy
# and its build between runs, so a later run rebuilds only what changed.
# Exit status: 0 when every fault is caught or marked harmless, 1 otherwise.
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
list=$repo/scripts/mutations.txt
only="" check=0
while [ $# -gt 0 ]; do
  case $1 in
    --check) check=1 ;;
    --only) only=,$2,; shift ;;
    --list) list=$(cd "$(dirname "$2")" && pwd)/$(basename "$2"); shift ;;
    *) echo "mutate: unknown argument $1" >&2; exit 2 ;;
  esac
  shift
done
[ -f "$list" ] || { echo "mutate: no fault list $list" >&2; exit 2; }

scratch=${MUTATE_DIR:-${TMPDIR:-/tmp}/tarvo-mutate}
case $scratch in "$repo"|"$repo"/*) echo "mutate: MUTATE_DIR must lie outside the tree" >&2; exit 2 ;; esac

# The list as records of NUL-separated fields: number, file, tests, from, to, harmless.
parse() {
  python3 - "$list" <<'EOF'
import sys
records, cur = [], {}
def flush():
    if cur:
        for key in ("file", "tests", "from", "to"):
            if key not in cur:
                sys.exit(f"mutate: fault near line {cur.get('line')} has no '{key}:'")
        records.append(cur.copy())
        cur.clear()
for n, raw in enumerate(open(sys.argv[1], encoding="utf-8"), 1):
    line = raw.rstrip("\n")
    if not line.strip():
        flush(); continue
    if line.lstrip().startswith("#"):
        continue
    key, sep, value = line.partition(":")
    if not sep or key not in ("file", "tests", "from", "to", "harmless"):
        sys.exit(f"mutate: {sys.argv[1]}:{n}: expected 'file:', 'tests:', 'from:', 'to:' or 'harmless:'")
    cur.setdefault("line", n)
    value = value[1:] if value.startswith(" ") else value
    cur[key] = value.replace("\\n", "\n")
flush()
out = sys.stdout.buffer
for i, r in enumerate(records, 1):
    for f in (str(i), r["file"], r["tests"], r["from"], r["to"], r.get("harmless", "")):
        out.write(f.encode() + b"\0")
EOF
}

# apply FILE FROM TO: replaces the one occurrence; status 3 when FROM is not
# there exactly once.
apply() {
  python3 - "$@" <<'EOF'
import sys
path, old, new = sys.argv[1:4]
text = open(path, encoding="utf-8").read()
if text.count(old) != 1:
    sys.exit(3)
open(path, "w", encoding="utf-8").write(text.replace(old, new))
EOF
}

mapfile -d '' fields < <(parse)
total=$(( ${#fields[@]} / 6 ))

if [ $check -eq 1 ]; then
  bad=0
  for ((k = 0; k < total; ++k)); do
    n=${fields[6*k]} file=${fields[6*k+1]} from=${fields[6*k+3]}
    c=$(python3 -c 'import sys; print(open(sys.argv[1], encoding="utf-8").read().count(sys.argv[2]))' "$repo/$file" "$from" 2>/dev/null || echo 0)
    [ "$c" = 1 ] || { echo "stale  #$n $file: the text occurs $c times"; bad=1; }
  done
  [ $bad -eq 0 ] && echo "all $total faults apply"
  exit $bad
fi

# Scratch copy: the tree's files (tracked and untracked, not ignored). Only
# files whose bytes differ are copied, and they get the time of the copy, so
# the build there stays incremental and never takes an older file for built.
mkdir -p "$scratch/src" "$scratch/logs"
python3 - "$repo" "$scratch/src" <<'EOF'
import filecmp, os, shutil, subprocess, sys
repo, dst = sys.argv[1:3]
listed = subprocess.run(["git", "-C", repo, "ls-files", "-co", "--exclude-standard", "-z"],
                        capture_output=True, check=True).stdout.decode().split("\0")
keep = set()
for rel in filter(None, listed):
    src, out = os.path.join(repo, rel), os.path.join(dst, rel)
    if not os.path.isfile(src):
        continue
    keep.add(rel)
    if os.path.isfile(out) and filecmp.cmp(src, out, shallow=False):
        continue
    os.makedirs(os.path.dirname(out), exist_ok=True)
    shutil.copyfile(src, out)
    shutil.copymode(src, out)
for root, dirs, names in os.walk(dst):
    if root == dst and "build" in dirs:
        dirs.remove("build")
    for name in names:
        path = os.path.join(root, name)
        if os.path.relpath(path, dst) not in keep:
            os.remove(path)
EOF

export CCACHE_BASEDIR=$scratch/src CCACHE_NOHASHDIR=1
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
build=$scratch/src/build
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$scratch/src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" \
    >"$scratch/logs/configure.log" 2>&1 || { echo "mutate: configure failed, see $scratch/logs/configure.log" >&2; exit 2; }
fi
echo "mutate: building the unmutated copy in $scratch" >&2
cmake --build "$build" >"$scratch/logs/build.log" 2>&1 || { echo "mutate: the unmutated tree does not build, see $scratch/logs/build.log" >&2; exit 2; }

# What the tests matching $1 run: the programs they start, the module they
# load and the command line; everything when a test runs a script.
targets() {
  ctest --test-dir "$build" --show-only=json-v1 -R "$1" 2>/dev/null | python3 -c '
import json, os, sys
build = sys.argv[1]
names = {"TarvoFXRipple", "tarvo-ripple"}
for test in json.load(sys.stdin).get("tests", []):
    command = test.get("command") or []
    if not command or not command[0].startswith(build + "/"):
        print("all"); sys.exit()
    names.add(os.path.basename(command[0]))
print(" ".join(sorted(names)))' "$build"
}

current=""
restore() { [ -n "$current" ] && cp "$scratch/original" "$scratch/src/$current"; current=""; }
trap 'restore' EXIT
trap 'restore; exit 130' INT TERM

caught=0 missed=0 harmless=0 stale=0 broken=0
jobs=$(nproc 2>/dev/null || echo 2)
for ((k = 0; k < total; ++k)); do
  n=${fields[6*k]} file=${fields[6*k+1]} tests=${fields[6*k+2]}
  from=${fields[6*k+3]} to=${fields[6*k+4]} why=${fields[6*k+5]}
  [ -z "$only" ] || [[ $only == *",$n,"* ]] || continue
  log=$scratch/logs/$n.log
  cp "$scratch/src/$file" "$scratch/original"
  current=$file
  if ! apply "$scratch/src/$file" "$from" "$to"; then
    restore
    echo "stale     #$n $file: the text to change is not there exactly once"
    stale=$((stale + 1))
    continue
  fi
  start=$SECONDS
  if ! cmake --build "$build" --target $(targets "$tests") >"$log" 2>&1; then
    result=broken broken=$((broken + 1))
  elif ctest --test-dir "$build" -R "$tests" --stop-on-failure --timeout 600 -j "$jobs" >>"$log" 2>&1; then
    if [ -n "$why" ]; then result=harmless harmless=$((harmless + 1)); else result=MISSED missed=$((missed + 1)); fi
  else
    result=caught caught=$((caught + 1))
  fi
  restore
  failed=$(grep -m1 -oE '[0-9]+ - [^ ]+ \((Failed|Timeout|SEGFAULT|Subprocess aborted|Exception)' "$log" | sed -E 's/^[0-9]+ - //; s/ \(.*//' || true)
  printf '%-9s #%-3s %-44s %4ss  %s\n' "$result" "$n" "$file" $((SECONDS - start)) \
    "$([ $result = caught ] && echo "by ${failed:-a test}" || echo "$why")"
done
echo "mutate: $caught caught, $missed missed, $harmless harmless, $stale stale, $broken did not build (of $total)"
[ $missed -eq 0 ] && [ $stale -eq 0 ] && [ $broken -eq 0 ]
