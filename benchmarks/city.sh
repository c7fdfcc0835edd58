#!/usr/bin/env bash
# City models: builds the seeded city of makecity, flies over it, and runs the benchmarks of what cities are made
# of. Prints one table with the marks, and the load of the machine beside it. The city stays in the folder
# ZMT_SEEDED_CITY, without it in zmt_seeded_city below that of temporary files; 1.1 GB, most of the time goes into
# building it. ZMT_CITY_BUILDINGS=1000 is a quick look.
#   benchmarks/city.sh [-b FOLDER OF THE BUILD, build/release-bench] [KML OF ANOTHER SCENE...]
# Other scenes are built too, with whole textures and with --unique.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. benchmarks/options.sh
shift $((OPTIND - 1))
folder=${ZMT_SEEDED_CITY:-${TMPDIR:-/tmp}/zmt_seeded_city}
mkdir -p "$folder"

python3 - "$folder" "$build" "${ZMT_CITY_BUILDINGS:-10000}" "$@" <<'PYTHON'
import json, os, subprocess, sys, time
folder, build, buildings, *scenes = sys.argv[1:]
zmt = build + "/apps/zmt/zmt"
results = folder + "/results.json"

def load():
    return " ".join(open("/proc/loadavg").read().split()[:3])

def measured(words):
    """Wall time, processor time in seconds, peak of memory of any of its processes in MiB, and what it said."""
    start = time.monotonic()
    child = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    said = child.stdout.read()
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{' '.join(words)} ended with {child.returncode}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024, said

def benchmark(name, **variables):
    """What a benchmark reports, by the names of its parts; nothing where it does not run."""
    subprocess.run([f"{build}/benchmarks/{name}", f"--benchmark_out={results}", "--benchmark_out_format=json"],
                   env=dict(os.environ, **variables), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        runs = json.load(open(results))["benchmarks"]
        return {run["name"].replace("/iterations:1", ""): run for run in runs if not run.get("error_occurred")}
    except (OSError, ValueError, LookupError):
        return {}
    finally:
        if os.path.exists(results):
            os.remove(results)

def row(what, value, unit="", mark=None, isLeast=False):
    missed = "" if mark is None or (value >= mark if isLeast else value <= mark) else ", missed"
    print(f"| {what} | {value:.4g}{unit} | {'' if mark is None else f'{mark:g}{unit}{missed}'} |", flush=True)

def build_city(what, source, out, most_seconds, most_mebibytes, *options):
    wall, processor, memory, said = measured([zmt, "build", "city", source, "--out", out, *options])
    row(f"{what}: wall time", wall, " s", most_seconds)
    row(f"{what}: processor time", processor, " s")
    row(f"{what}: peak memory", memory, " MiB", most_mebibytes)
    print(f"| {what}: {said.splitlines()[0]} | | |")

def shares(what, runs, pairs, mark, key=None, clock="cpu_time"):
    """Our time by theirs in the same run, and `key` of both, of which ours has to be as large."""
    for own, others in pairs:
        if own not in runs or others not in runs:
            print(f"| {what}: {own} | not measured | |")
            continue
        a, b = runs[own], runs[others]
        row(f"{what}: {own}, {a[clock]:.4g} {a['time_unit']} by {others}, {b[clock]:.4g} {b['time_unit']}",
            a[clock] / b[clock], "", mark)
        if key:
            row(f"{what}: {own}, {key}", a[key], "", b[key], isLeast=True)

before = load()
print("| what | measured | at most, or at least |\n|---|---|---|")
subprocess.run([build + "/benchmarks/makecity", folder, buildings], check=True)
city = f"{folder}/city{buildings}.city"
build_city(f"{buildings} buildings", folder + "/city.kml", city, 300, 2048)
for scene in scenes:
    name = os.path.splitext(os.path.basename(scene))[0]
    build_city(name, scene, folder + "/scene.city", 20, 1024)
    build_city(name + " --unique", scene, folder + "/scene.city", None, None, "--unique")

# On the render thread itself, which else shares two processors with those of the software renderer.
flight = benchmark("city_benchmark", ZMT_CITY=city, LP_NUM_THREADS="0").get("flight")
for key, unit, mark in ([] if flight is None else [
        ("outside_GL_ms_median", " ms", 2), ("outside_GL_ms_p99", " ms", 8),
        ("outside_GL_processor_ms_median", " ms", 2), ("outside_GL_processor_ms_p99", " ms", 8),
        ("upload_ms_median", " ms", None), ("upload_ms_p99", " ms", None), ("uploaded_MiB", " MiB", None),
        ("frame_ms_median", " ms", None), ("draw_calls_median", "", None), ("draw_calls_p99", "", None),
        ("GL_calls_median", "", None), ("nodes_a_frame", "", None), ("originals_a_frame", "", None),
        ("waits", "", None), ("most_MB", " MB", 100), ("bytes_over_budget", "", 0),
        ("roots_MiB", " MiB", None), ("meshes_MiB", " MiB", None)]):
    row(f"flight: {key}", flight[key], unit, mark)
if flight is None:
    print("| flight | not measured | |")

shares("packing", benchmark("packing_benchmark"),
       [("strip", "stripOfStb"), ("pages/1024", "pagesOfStb/1024"), ("pages/4096", "pagesOfStb/4096")], 0.5, "fill")
shares("codec", benchmark("codec_benchmark"),
       [("ownCodec/0", "turboAndStb/0"), ("ownCodec/1", "turboAndStb/1")], 0.6, "dB")
shares("rays", benchmark("cityray_benchmark"), [("treeRays", "embreeRays")], 3)
print(f"load before: {before}, behind: {load()}")
PYTHON
