#!/usr/bin/env bash
# Writing streaming terrains, next to GDAL's COG driver on the same rasters: deflated at level 1, with average
# overviews, two threads each. Medians of alternating runs as users make them, and the largest peak of memory
# of any run. The light map, for which the driver has nothing, is what a terrain with one takes beyond that.
#   benchmarks/terrain_writing.sh [-n RUNS, 5] [-b FOLDER OF THE BUILD, build/release-bench] [RASTER...]
# Rasters are taken without their coordinate system, so that both write the same cells. Without any: the sample
# heights of the Everest, side by side up to 8193 by 8193 heights of 16 bits in strips, voids as 0. The folder
# for temporary files takes the results.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. benchmarks/options.sh
shift $((OPTIND - 1))
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT

python3 - "$folder" "$build/apps/zmt/zmt" "$runs" "$@" <<'PYTHON'
import os, re, statistics, subprocess, sys, time
folder, zmt, runs, *rasters = sys.argv[1:]
SIDE, SAMPLE, SAMPLE_SIDE = 8193, "data/everest_srtm3.tif", 1201

def quietly(*words):
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL)

def repeated_sample():
    """The sample, as often as it takes."""
    vrt = folder + "/sample.vrt"
    with open(vrt, "w") as file:
        file.write(f'<VRTDataset rasterXSize="{SIDE}" rasterYSize="{SIDE}">'
                   '<VRTRasterBand dataType="UInt16" band="1">')
        for y in range(0, SIDE, SAMPLE_SIDE):
            for x in range(0, SIDE, SAMPLE_SIDE):
                w, h = min(SAMPLE_SIDE, SIDE - x), min(SAMPLE_SIDE, SIDE - y)
                file.write(f'<SimpleSource><SourceFilename>{os.path.abspath(SAMPLE)}</SourceFilename>'
                           f'<SrcRect xOff="0" yOff="0" xSize="{w}" ySize="{h}"/>'
                           f'<DstRect xOff="{x}" yOff="{y}" xSize="{w}" ySize="{h}"/></SimpleSource>')
        file.write("</VRTRasterBand></VRTDataset>")
    return vrt

def without_system(raster):
    base = f"{folder}/{os.path.splitext(os.path.basename(raster))[0]}"
    quietly("gdal_translate", "-q", "-of", "VRT", os.path.abspath(raster), base + ".bare.vrt")
    with open(base + ".bare.vrt") as file:
        text = re.sub("<SRS.*?</SRS>", "", file.read(), flags=re.DOTALL)
    with open(base + ".bare.vrt", "w") as file:
        file.write(text)
    quietly("gdal_translate", "-q", "-of", "GTiff", base + ".bare.vrt", base + ".tif")
    return base + ".tif"

def measured(words):
    """Wall time, processor time in seconds, and peak of memory in MB."""
    start = time.monotonic()
    child = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                             env=dict(os.environ, GDAL_NUM_THREADS="2", GDAL_CACHEMAX="64"))
    said = child.stderr.read()
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{' '.join(words)}: {said.decode(errors='replace')}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024 / 1e6

def load():
    return open("/proc/loadavg").read().split()[0]

before = load()
print("| raster | writer | wall time | processor time | peak memory | file |\n|---|---|---|---|---|---|")
for raster in rasters or [repeated_sample()]:
    source = without_system(raster)
    out = {"terrain": folder + "/none.ztt", "COG": folder + "/cog.tif", "with light": folder + "/static.ztt"}
    build = [zmt, "build", "terrain", source, "--threads", "2"]
    commands = {
        "terrain": build + [out["terrain"], "--lighting", "none"],
        "COG": ["gdal_translate", "-q", "-of", "COG", "-co", "COMPRESS=DEFLATE", "-co", "LEVEL=1", "-co",
                "OVERVIEW_RESAMPLING=AVERAGE", "-co", "NUM_THREADS=2", source, out["COG"]],
        "with light": build + [out["with light"], "--lighting", "static"]}
    results = {name: [] for name in commands}
    for _ in range(int(runs)):
        for name, words in commands.items():
            results[name].append(measured(words))
    name = os.path.basename(source)
    rows = {}
    for writer, taken in results.items():
        wall, cpu, peak = zip(*taken)
        rows[writer] = (statistics.median(wall), statistics.median(cpu), max(peak),
                        os.path.getsize(out[writer]) / 1e6)
        wall, cpu, peak, size = rows[writer]
        print(f"| {name} | {writer} | {wall:.2f} s | {cpu:.2f} s | {peak:.0f} MB | {size:.3f} MB |")
    ratios = [a / b for a, b in zip(rows["terrain"], rows["COG"])]
    print(f"| {name} | terrain / COG | {ratios[0]:.2f} | {ratios[1]:.2f} | {ratios[2]:.2f} | {ratios[3]:.2f} |")
    light = [a - b for a, b in zip(rows["with light"], rows["terrain"])]
    print(f"| {name} | the light map | {light[0]:.2f} s | {light[1]:.2f} s | | {light[3]:.3f} MB |")
print(f"load before: {before}, behind: {load()}")
PYTHON
