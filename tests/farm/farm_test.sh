#!/usr/bin/env bash
# farm_test.sh TARVO_RIPPLE SCRIPTS: farm.sh on a cluster of one node, against local renders.
set -uo pipefail
exe=$1 scripts=$2
export TARVO_RIPPLE=$exe TARVO_SLURM_DIR=$(mktemp -d -u /tmp/tarvo-farm-test.XXXXXX)
export SLURM_CONF=$TARVO_SLURM_DIR/slurm.conf
work=$(mktemp -d)
trap '"$scripts/slurm-local.sh" stop >/dev/null 2>&1; rm -rf "$work"' EXIT
cd "$work"

[[ $(id -u) -eq 0 ]] || { echo "SKIP: the cluster needs root"; exit 77; }
command -v slurmctld >/dev/null && command -v munged >/dev/null ||
  { echo "SKIP: slurm-wlm and munge are not installed (scripts/setup.sh)"; exit 77; }
"$scripts/slurm-local.sh" start || { echo "SKIP: the single-node cluster did not start"; exit 77; }

fail=0
check() { if eval "$2"; then echo "ok: $1"; else echo "FAIL: $1"; fail=1; fi; }
mkdir local && "$exe" --demo "$work/local/d_%03d.png" --frames 0-47 --jobs 1 --quiet

# A missing input frame is refused with tarvo-ripple's own message; nothing is queued.
mkdir in && cp local/d_00[0-4].png in/ && rm in/d_003.png
"$scripts/farm.sh" "$work/in/d_%03d.png" "$work/m/o_%03d.png" --frames 0-4 --wait 2>err; rc=$?
"$exe" "$work/in/d_%03d.png" "$work/x/o_%03d.png" --frames 0-4 2>want
check "missing input frame: exit 2, the command line's message" '((rc == 2)) && cmp -s err want'
check "missing input frame: no job submitted" '[[ -z $(squeue -h) && ! -e m && -z $(ls tarvo-ripple-*.out 2>/dev/null) ]]'

# 48 frames of the travelling rings in 4 tasks, byte-identical to the local run.
"$scripts/farm.sh" --demo "$work/farm/d_%03d.png" --frames 0-47 --chunk 12 --wait >out; rc=$?
check "48 frames in 4 tasks: summary" '((rc == 0)) && grep -q "^farm: 48 frames, 4 tasks, 0 retries" out'
check "48 frames in 4 tasks: identical to --jobs 1" 'diff -r local farm'

# One array task cancelled while running is found missing and rendered again.
"$scripts/farm.sh" --demo "$work/cancel/d_%03d.png" --frames 0-47 --chunk 12 --retries 1 --wait >out 2>&1 &
farm=$!
for _ in $(seq 300); do
  task=$(squeue -h -t R -o %i | grep -m1 '_1$') && break
  sleep 0.1
done
[[ -n ${task:-} ]] && scancel "$task"
wait "$farm"; rc=$?
check "cancelled task $task: re-rendered by one retry" '((rc == 0)) && grep -q "^farm: 48 frames, 4 tasks, 1 retries" out && grep -q "ran tasks 1$" out'
check "cancelled task: final frames identical" 'diff -r local cancel'
exit $fail
