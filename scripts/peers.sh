#!/usr/bin/env bash
# Peer comparison on one 1920x1080 RGBA frame (the benchmarks' test picture),
# everything on one thread, printed as one table of times and ratios:
#   - this project's render through the module's entry point, default
#     parameters (area sampling) and Antialias Med (bilinear);
#   - OpenCV cv::remap, INTER_LINEAR, one thread, with a precomputed map of
#     the frame's size (float maps; the fixed-point map variant and
#     INTER_NEAREST for reference): the cost floor of any map-based warp;
#   - GEGL's gegl:waves with the linear sampler (GEGL_THREADS=1);
#   - ImageMagick's -swirl (-limit thread 1);
#   - a plain copy of the frame (memcpy): the memory floor;
#   - OpenCV remap along the effect's own source map of the same frame
#     (exported by tarvo_stage_bench --write-map), so that both resample the
#     same points;
#   - at every core (wall time): this project's default render on as many
#     render threads as cores, and OpenCV remap at its default thread count.
# The project's render and OpenCV are timed in-process (median of REPS
# repetitions after warm-up). GEGL and ImageMagick run as whole programs:
# each is run REPS times with the operation and REPS times with no operation
# (same input and output files), and the medians are subtracted, which
# leaves the operation without start-up, loading and saving.
# Times are CPU seconds of the process (user + system): the machine may be
# shared, and CPU time is what a busy machine leaves least disturbed.
#
# Installs its own Debian packages (OpenCV, GEGL, ImageMagick) when run.
# Environment: BUILD_DIR (default build-bench), REPS (repetitions per
# measurement, default 7), ROUNDS (default 5), OUT (default out/peers),
# RUN (a prefix for the in-process measurements: on a machine others are
# busy on, RUN="chrt -f 10" gives them the cores, as an idle machine would).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build-bench}
reps=${REPS:-7}
rounds=${ROUNDS:-5}
out=${OUT:-out/peers}
scripts/setup.sh bench libopencv-dev gegl imagemagick
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARVO_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target tarvo_render_bench tarvo_stage_bench
read -r -a run <<<"${RUN:-}"
cores=$(nproc)
mkdir -p "$out"
out=$(cd "$out" && pwd)

# The same frame for everyone: PAM from the benchmark, PNG for the tools.
"$build/bin/tarvo_render_bench" --write-picture "$out/frame.pam" 1920x1080
magick=/usr/bin/convert  # not a stand-in of the same name earlier on PATH
"$magick" "$out/frame.pam" "$out/frame.png"
"$build/bin/tarvo_stage_bench" --write-map "$out/effect.map"

# OpenCV's remap and the plain copy, from a small program built here; this
# project's whole renders through the module. The two alternate over ROUNDS
# rounds, so that a change in the machine's load between them shows in
# both: each round gives a ratio, and the table reports the medians.
g++ -O2 -std=c++17 -o "$out/remap_bench" bench/peers/remap_bench.cpp $(pkg-config --cflags --libs opencv4)
: >"$out/remap.txt"
for round in $(seq "$rounds"); do
  "${run[@]}" "$out/remap_bench" "$out/frame.png" "$reps" "$out/effect.map" | sed "s/^/$round /" >>"$out/remap.txt"
  "${run[@]}" "$build/bin/tarvo_render_bench" --threads="1,$cores" --benchmark_filter='render/(default|bilinear)/1920x1080' \
    --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true \
    --benchmark_out_format=json --benchmark_out="$out/render_$round.json" >/dev/null 2>&1
done

# Whole programs: CPU seconds of each run, median over REPS runs after one
# warm-up run.
cpu_median() {
  python3 - "$reps" "$@" <<'PY'
import os, statistics, subprocess, sys
reps, cmd = int(sys.argv[1]), sys.argv[2:]
def run():
    p = subprocess.Popen(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, ru = os.wait4(p.pid, 0)
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"failed: {' '.join(cmd)}")
    return ru.ru_utime + ru.ru_stime
run()
print(f"{statistics.median(run() for _ in range(reps)) * 1e3:.3f}")
PY
}
export GEGL_THREADS=1 GEGL_USE_OPENCL=no
# Concentric waves about the frame's centre: 30-pixel amplitude, 240-pixel
# period, as the project's default ripple.
gegl_nop=$(cpu_median gegl "$out/frame.png" -o "$out/gegl_nop.png" -- gegl:nop)
gegl_waves=$(cpu_median gegl "$out/frame.png" -o "$out/gegl_waves.png" -- \
  gegl:waves amplitude=30 period=240 sampler-type=linear)
magick_nop=$(cpu_median "$magick" -limit thread 1 "$out/frame.pam" "$out/magick_nop.pam")
magick_swirl=$(cpu_median "$magick" -limit thread 1 "$out/frame.pam" -swirl 180 "$out/magick_swirl.pam")

python3 - "$out" "$rounds" "$cores" "$gegl_nop" "$gegl_waves" "$magick_nop" "$magick_swirl" <<'PY'
import json, statistics, sys
out, rounds, cores = sys.argv[1], int(sys.argv[2]), sys.argv[3]
gegl_nop, gegl_waves, magick_nop, magick_swirl = map(float, sys.argv[4:])
labels = {"memcpy": "plain copy of the frame (memcpy)",
          "remap_linear_float_map": "OpenCV remap INTER_LINEAR, float map",
          "remap_linear_fixed_map": "OpenCV remap INTER_LINEAR, fixed-point map",
          "remap_nearest_float_map": "OpenCV remap INTER_NEAREST, float map",
          "remap_linear_effect_map": "OpenCV remap INTER_LINEAR, the effect's own map",
          "default": "Tarvo FX Ripple, default (area sampling)",
          "bilinear": "Tarvo FX Ripple, Antialias Med (bilinear)"}
per_round = {r: {} for r in range(1, rounds + 1)}
for line in open(f"{out}/remap.txt"):
    r, name, wall, cpu = line.split()
    per_round[int(r)][name] = float(cpu)
    per_round[int(r)]["wall " + name] = float(wall)
for r in per_round:
    for b in json.load(open(f"{out}/render_{r}.json"))["benchmarks"]:
        if b.get("aggregate_name") == "median":
            _, case, _, threads = b["run_name"].split("/")[:4]
            if threads == "threads:1":
                per_round[r][case] = b["cpu_time"]
            else:
                per_round[r]["wall " + case] = b["real_time"]
remap = "remap_linear_float_map"
rows = {}
for name in ["default", "bilinear", remap, "remap_linear_effect_map", "remap_linear_fixed_map",
             "remap_nearest_float_map", "memcpy"]:
    ms = statistics.median(per_round[r][name] for r in per_round)
    ratio = statistics.median(per_round[r][name] / per_round[r][remap] for r in per_round)
    rows[labels[name]] = (ms, ratio)
remap_ms = rows[labels[remap]][0]
rows["GEGL gegl:waves, linear sampler (program minus no-op)"] = (gegl_waves - gegl_nop, (gegl_waves - gegl_nop) / remap_ms)
rows["ImageMagick -swirl 180 (program minus no-op)"] = (magick_swirl - magick_nop, (magick_swirl - magick_nop) / remap_ms)
ours = rows[labels["default"]][0]
print(f"{'1920x1080 RGBA, one thread, CPU time':58} {'ms':>8} {'x remap':>8} {'x ours':>8}")
for label, (ms, ratio) in rows.items():
    print(f"{label:58} {ms:8.2f} {ratio:8.2f} {ms / ours:8.2f}")
print(f"(x remap of the project and OpenCV rows: median of {rounds} per-round ratios; "
      f"whole programs, medians: GEGL {gegl_waves:.0f} - {gegl_nop:.0f} ms, ImageMagick {magick_swirl:.0f} - {magick_nop:.0f} ms)")
all_remap = "wall remap_linear_float_map_all_cores"
print(f"\n{'1920x1080 RGBA, every core (' + cores + '), wall time':58} {'ms':>8} {'x remap':>8}")
for label, name in [(f"Tarvo FX Ripple, default, {cores} render threads", "wall default"),
                    (f"Tarvo FX Ripple, bilinear, {cores} render threads", "wall bilinear"),
                    ("OpenCV remap INTER_LINEAR, default threads", all_remap),
                    ("OpenCV remap INTER_LINEAR, the effect's map, default threads",
                     "wall remap_linear_effect_map_all_cores")]:
    ms = statistics.median(per_round[r][name] for r in per_round)
    ratio = statistics.median(per_round[r][name] / per_round[r][all_remap] for r in per_round)
    print(f"{label:58} {ms:8.2f} {ratio:8.2f}")
PY
