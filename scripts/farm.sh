#!/usr/bin/env bash
# Renders a sequence on a Slurm cluster as one array job, CHUNK frames per task.
#   scripts/farm.sh IN|--demo OUT --frames A-B [tarvo-ripple options] [--chunk K] [--retries R]
#                   [--partition P] [--cpus N] [--wait]
# IN and OUT are tarvo-ripple's frame patterns (%04d); the frames are named as a local run names them.
# With --wait it follows the job, checks every frame, resubmits the chunks with missing frames
# (up to R times) and prints a summary; without it, prints the job id.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
job_script=${TARVO_FARM_JOB:-$here/slurm/tarvo-ripple.sbatch}

die() { echo "farm: $*" >&2; exit 2; }
usage() { die "usage: scripts/farm.sh IN|--demo OUT --frames A-B [tarvo-ripple options] [--chunk K] [--retries R] [--partition P] [--cpus N] [--wait]"; }

frames='' demo=0 chunk=12 retries=0 partition='' cpus=1 wait=0 pass=() paths=()
while (($#)); do
  case $1 in
    --frames) frames=${2:-}; shift 2 || usage ;;
    --chunk) chunk=${2:-}; shift 2 || usage ;;
    --retries) retries=${2:-}; shift 2 || usage ;;
    --partition) partition=${2:-}; shift 2 || usage ;;
    --cpus) cpus=${2:-}; shift 2 || usage ;;
    --wait) wait=1; shift ;;
    --demo) demo=1; paths+=('' "${2:-}"); shift 2 || usage ;;
    --*=*) pass+=("$1"); shift ;;
    --quiet) shift ;;
    --*) pass+=("$1" "${2:-}"); shift 2 || usage ;;
    *) paths+=("$1"); shift ;;
  esac
done
((${#paths[@]} == 2)) && [[ -n $frames ]] || usage
input=${paths[0]} output=${paths[1]}
[[ $frames =~ ^([0-9]+)-([0-9]+)$ ]] || die "--frames \"$frames\" is not a frame range A-B"
first=$((10#${BASH_REMATCH[1]})) last=$((10#${BASH_REMATCH[2]}))
((first <= last)) || die "--frames $frames runs backwards"
for v in chunk retries cpus; do [[ ${!v} =~ ^[0-9]+$ ]] || die "--$v ${!v} is not a number"; done
((chunk >= 1 && cpus >= 1)) || die "--chunk and --cpus must be at least 1"

for p in "$input" "$output"; do
  [[ -z $p || $p == /* ]] || echo "farm: warning: \"$p\" is not absolute; every node must see it at the same path" >&2
done
((demo)) || input=$(realpath -m -- "$input")
output=$(realpath -m -- "$output")

# The frame names tarvo-ripple uses: the pattern's %d/%0Nd through printf.
frame_path() { printf -- "${1//\%\%/%%%%}" "$2"; }

# Missing input frames are refused here, with tarvo-ripple's own message, before anything is queued.
if [[ $input =~ %0?[0-9]*d ]]; then
  for ((n = first; n <= last; n++)); do
    f=$(frame_path "$input" "$n")
    [[ -e $f ]] || { echo "tarvo-ripple: input frame $n is missing: $f" >&2; exit 2; }
  done
fi
mkdir -p "$(dirname "$output")"

submit() {  # submit ARRAY-RANGE: prints the job id
  local extra=()
  [[ -n $partition ]] && extra+=(--partition="$partition")
  sbatch --parsable "${extra[@]}" --cpus-per-task="$cpus" --array="$1" \
    --output="${TARVO_FARM_LOGS:-$PWD}/tarvo-ripple-%A_%a.out" \
    "$job_script" "$first" "$last" "$chunk" "$input" "$output" "${pass[@]}"
}

tasks=$(((last - first) / chunk + 1))
start=$(date +%s)
if ((!wait)); then
  id=$(submit "0-$((tasks - 1))")
  echo "farm: submitted job $id ($tasks tasks); follow it with: squeue -j $id   (logs: tarvo-ripple-${id}_N.out)"
  exit 0
fi

# Frames count when they exist and read back whole: iinfo exits 0 on a truncated image, so
# anything it says on stderr is a failure. One reader pass over every frame first (starting the
# reader costs more than reading a frame); chunk by chunk only when that pass fails.
frames_read() { [[ -z $(iinfo --stats "$@" 2>&1 >/dev/null) ]]; }
missing_chunks() {
  local t n all=() part
  for ((n = first; n <= last; n++)); do all+=("$(frame_path "$output" "$n")"); done
  frames_read "${all[@]}" && return 0
  for ((t = 0; t < tasks; t++)); do
    part=("${all[@]:t * chunk:chunk}")
    frames_read "${part[@]}" || echo "$t"
  done
}

range="0-$((tasks - 1))" round=0
# Follows a job until none of its tasks is queued or running (sbatch --wait polls more slowly).
follow() {
  while [[ -n $(squeue -h -j "$1" -o %i 2>/dev/null) ]]; do sleep 1; done
}

while :; do
  id=$(submit "$range") || true
  [[ -n $id ]] && follow "$id"
  echo "farm: job ${id:-?} ran tasks $range" >&2
  left=$(missing_chunks | paste -sd,)
  [[ -z $left ]] && break
  if ((round >= retries)); then
    echo "farm: frames still missing in tasks $left after $round retries" >&2
    exit 1
  fi
  range=$left round=$((round + 1))
done
echo "farm: $((last - first + 1)) frames, $tasks tasks, $round retries, $(($(date +%s) - start)) s"
