#!/usr/bin/env bash
# Benchmarks: configures a Release build with the benchmarks, builds them and
# runs them with repetitions, printing the median of each.
#
#   scripts/bench.sh                 whole renders (6 cases x 3 sizes) and the
#                                    stage breakdown at 1920x1080
#   scripts/bench.sh --all-stages    the stage breakdown at every size
#   scripts/bench.sh --jobs          also 48-frame sequences (640x480 and
#                                    1920x1080) at --jobs 1 and 2 (hyperfine;
#                                    wants an otherwise idle machine)
#   scripts/bench.sh --threads       also 1 against 2 render threads (default and
#                                    rotated at 1920x1080 and 3840x2160), in
#                                    ROUNDS alternating rounds (default 5;
#                                    RUN prefixes each round, e.g. "chrt -f 10")
#   scripts/bench.sh --digest MODULE hashes renders over a parameter sweep with
#                                    MODULE and with the built module and
#                                    compares them (byte-identity of a speed-up)
#   scripts/bench.sh --only-digest MODULE   just that
#
# Environment: BUILD_DIR (default build-bench), REPS (repetitions, default 5),
# OUT (where the JSON results go, default out/bench).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-bench}
reps=${REPS:-5}
out=${OUT:-out/bench}
stageFilter='stage/.*/1920x1080/'
runJobs=0
runThreads=0
digestModule=""
onlyDigest=0
while (($#)); do
  case "$1" in
    --all-stages) stageFilter='stage/' ;;
    --jobs) runJobs=1 ;;
    --threads) runThreads=1 ;;
    --digest) digestModule=${2:?--digest wants a module path}; shift ;;
    --only-digest) digestModule=${2:?--only-digest wants a module path}; onlyDigest=1; shift ;;
    *) echo "bench.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

scripts/setup.sh bench
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARVO_BUILD_BENCH=ON >/dev/null
targets=(tarvo_render_bench tarvo_stage_bench tarvo_render_digest)
((runJobs)) && targets+=(tarvo-ripple)
cmake --build "$build" --target "${targets[@]}"
mkdir -p "$out"

if [[ -n $digestModule ]]; then
  "$build/bin/tarvo_render_digest" --module "$digestModule" >"$out/digest_before.txt"
  "$build/bin/tarvo_render_digest" >"$out/digest_after.txt"
  if cmp -s "$out/digest_before.txt" "$out/digest_after.txt"; then
    echo "digest: $(wc -l <"$out/digest_after.txt") renders byte-identical to $digestModule"
  else
    echo "digest: renders differ from $digestModule:" >&2
    diff "$out/digest_before.txt" "$out/digest_after.txt" | head -20 >&2
    exit 1
  fi
  ((onlyDigest)) && exit 0
fi

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), load $(cut -d' ' -f1-3 /proc/loadavg)"
common=(--benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true --benchmark_out_format=json)
medians() { grep -E '^(Benchmark|-+$)|_median' || true; }

"$build/bin/tarvo_render_bench" "${common[@]}" --benchmark_out="$out/render.json" 2>/dev/null | medians
"$build/bin/tarvo_stage_bench" "${common[@]}" --benchmark_filter="$stageFilter" \
  --benchmark_out="$out/stages.json" 2>/dev/null | medians

if ((runJobs)); then
  seq="$out/seq"
  mkdir -p "$seq"
  cli="$build/bin/tarvo-ripple"
  # 48 frames of the test picture at two sizes: the start-up (the image
  # library's initialisation, before the workers fork) weighs more at 640x480.
  for size in 640x480 1920x1080; do
    hyperfine --warmup 1 --runs "$reps" --export-json "$out/jobs_$size.json" \
      "$cli --demo $seq/f_%03d.png --size $size --frames 0-47 --quiet --jobs 1" \
      "$cli --demo $seq/f_%03d.png --size $size --frames 0-47 --quiet --jobs 2" >/dev/null
    python3 - "$out/jobs_$size.json" "$size" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))["results"]
one, two = r[0]["median"], r[1]["median"]
print(f"48 frames at {sys.argv[2]}: --jobs 1 {one:.3f} s, --jobs 2 {two:.3f} s, speed-up {one / two:.2f}x")
PY
  done
  rm -rf "$seq"
fi

if ((runThreads)); then
  # Each round renders every case at 1 and then at 2 threads in one
  # process; the ratios are taken per round and their median printed. Wall
  # time is what a user waits; "calling thread" is the CPU time of the
  # host's thread alone, which on a busy machine shows what the split leaves
  # on it (1-thread CPU over it estimates the speed-up on idle cores).
  # RUN="chrt -f 10" keeps other work off the cores while a round runs.
  rounds=${ROUNDS:-5}
  read -r -a run <<<"${RUN:-}"
  for round in $(seq "$rounds"); do
    "${run[@]}" "$build/bin/tarvo_render_bench" --threads=1,2 --benchmark_filter='render/(default|rotated)/(1920x1080|3840x2160)/' \
      --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true --benchmark_out_format=json \
      --benchmark_out="$out/threads_$round.json" >/dev/null 2>&1
  done
  python3 - "$out" "$rounds" <<'PY'
import json, statistics, sys
out, rounds = sys.argv[1], int(sys.argv[2])
runs = []
for r in range(1, rounds + 1):
    m = {}
    for b in json.load(open(f"{out}/threads_{r}.json"))["benchmarks"]:
        if b.get("aggregate_name") == "median":
            m[b["run_name"].removesuffix("/real_time")] = b
    runs.append(m)
print(f"{'case':28} {'1 thread ms':>11} {'2 threads ms':>12} {'wall x':>7} {'CPU 1 / calling 2':>18} {'peak MiB 1 / 2':>15}")
for case in ["default/1920x1080", "rotated/1920x1080", "default/3840x2160", "rotated/3840x2160"]:
    one, two = (f"render/{case}/threads:{n}" for n in (1, 2))
    w1 = statistics.median(r[one]["real_time"] for r in runs)
    w2 = statistics.median(r[two]["real_time"] for r in runs)
    wall = statistics.median(r[one]["real_time"] / r[two]["real_time"] for r in runs)
    cpu = statistics.median(r[one]["cpu_time"] / r[two]["cpu_time"] for r in runs)
    p1, p2 = runs[0][one].get("peak_MiB", 0), runs[0][two].get("peak_MiB", 0)
    print(f"{case:28} {w1:11.1f} {w2:12.1f} {wall:7.2f} {cpu:18.2f} {p1:7.1f} / {p2:5.1f}")
print(f"(medians of {rounds} rounds; load average {open('/proc/loadavg').read().split()[0]})")
PY
fi
