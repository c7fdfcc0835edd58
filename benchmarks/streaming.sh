#!/usr/bin/env bash
# Streaming a landscape far larger than memory: runs streaming_benchmark, prints one table with the marks, and
# the load of the machine beside it. The first run builds the landscape, see largelandscape.h.
#   benchmarks/streaming.sh [FOLDER OF THE BUILD, build/release-bench]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

program=${1:-build/release-bench}/benchmarks/streaming_benchmark
results=$(mktemp -d)
trap 'rm -r "$results"' EXIT

# NAME [VARIABLE=VALUE...]
measure() {
    local name=${1//\//_} filter=$1
    shift
    env "$@" "$program" --benchmark_filter="^$filter/" --benchmark_out="$results/$name.json" \
        --benchmark_out_format=json >"$results/$name.log" 2>&1 || cat "$results/$name.log" >&2
}

load=$(cut -d' ' -f1-3 /proc/loadavg)
measure flyOver
# The queue of the software renderer's threads would outweigh everything else that is resident; large blocks go
# back to the system, as those of the window do.
flight=(LP_NUM_THREADS=0 MALLOC_MMAP_THRESHOLD_=49152)
measure flight/512/256 "${flight[@]}"
measure flight/48/96 "${flight[@]}"
measure firstPicture/0
measure firstPicture/1
measure farAway

python3 - "$results" "$load" "$(cut -d' ' -f1-3 /proc/loadavg)" <<'PYTHON'
import json, sys
folder, before, after = sys.argv[1:]
def read(name):
    try:
        return json.load(open(f"{folder}/{name}.json"))["benchmarks"][0]
    except (OSError, ValueError, LookupError):
        return {"error_message": "did not run"}
def row(name, key, mark, factor=1.0, unit=""):
    run = read(name)
    value = run.get(key)
    if value is None or run.get("error_occurred"):
        print(f"| {name}: {key} | {run.get('error_message', 'not measured')} | |")
        return
    limit = run[mark] if isinstance(mark, str) else mark
    text = "" if limit is None else f"{limit:.4g}{unit}" + ("" if value <= limit else ", missed")
    print(f"| {name}: {key} | {value * factor:.4g}{unit} | {text} |")
print(f"load before: {before}, behind: {after}")
print("| what | measured | at most |\n|---|---|---|")
row("flyOver", "thread_median_ms", 2.0, unit=" ms")
row("flyOver", "thread_p99_ms", 8.0, unit=" ms")
row("flyOver", "frame_median_ms", None, unit=" ms")
flights = ("flight_512_256", "flight_48_96")
for name in ("flyOver",) + flights:
    row(name, "waits", 0)
    row(name, "blocks_read", None)
    row(name, "MiB_read", None)
    row(name, "MiB_read_again", None)
    row(name, "read_of_wanted", 1.5)
    row(name, "main_of_budget", 1.0)
    row(name, "graphics_of_budget", 1.0)
for name in flights:
    row(name, "resident_at_start_MiB", None, unit=" MiB")
    row(name, "resident_MiB", "resident_mark_MiB", unit=" MiB")
    row(name, "second_half_gain_MiB", 16.0 if name == flights[1] else None, unit=" MiB")
row("firstPicture_0", "root_requests", 3)
row("firstPicture_0", "root_s", None, unit=" s")
row("firstPicture_0", "picture_requests", 64)
row("firstPicture_0", "picture_s", 1.5, unit=" s")
row("firstPicture_0", "answers_of_server", None)
row("firstPicture_1", "picture_requests", None)
row("firstPicture_1", "picture_s", None, unit=" s")
row("farAway", "seconds", "mark_s", unit=" s")
for key in ("blocks", "MiB", "levels", "frames_per_s"):
    row("farAway", key, None)
PYTHON
