#!/usr/bin/env bash
# Ranges of 64 KiB at random of a local file, 8 in flight and past the system's cache: asyncfile_benchmark next
# to fio, through the kernel's ring and with threads. Medians of alternating runs in MiB a second.
#   benchmarks/local_ranges.sh [-n RUNS, 5] [-b FOLDER OF THE BUILD, build/release-bench]
# The folder for temporary files must lie on the disk that is to be measured, and takes 2 GiB.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. benchmarks/options.sh
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT

python3 - "$folder" "$build/benchmarks/asyncfile_benchmark" "$runs" <<'PYTHON'
import json, statistics, subprocess, sys
folder, program, runs = sys.argv[1:]

def said(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout

def ours(name):
    found = json.loads(said(program, "--benchmark_filter=^" + name + "/", "--benchmark_format=json"))
    run = found["benchmarks"][0]
    if run.get("error_occurred"):
        sys.exit(f"{name}: {run['error_message']}")
    return run["bytes_per_second"] / 2**20

def fio(*options):
    found = json.loads(said("fio", "--name=ranges", f"--filename={folder}/file", "--size=1g", "--bs=64k",
                            "--rw=randread", "--direct=1", "--norandommap", "--time_based", "--runtime=3",
                            "--group_reporting", "--output-format=json", *options))
    return found["jobs"][0]["read"]["bw_bytes"] / 2**20

def load():
    return open("/proc/loadavg").read().split()[0]

before = load()
measures = {
    "the ring": lambda: ours("asyncFile/ring"),
    "fio, io_uring": lambda: fio("--ioengine=io_uring", "--iodepth=8"),
    "threads": lambda: ours("asyncFile/threads"),
    "fio, 8 synchronous threads": lambda: fio("--ioengine=psync", "--numjobs=8", "--thread"),
    "plain threads": lambda: ours("threadsAlone")}
results = {name: [] for name in measures}
for _ in range(int(runs)):
    for name, measure in measures.items():
        results[name].append(measure())
medians = {name: statistics.median(values) for name, values in results.items()}
print("| what | MiB/s | times fio |\n|---|---|---|")
rivals = {"the ring": "fio, io_uring", "threads": "fio, 8 synchronous threads"}
for name, median in medians.items():
    share = f"{median / medians[rivals[name]]:.2f}" if name in rivals else ""
    print(f"| {name} | {median:.0f} | {share} |")
print(f"load before: {before}, behind: {load()}")
PYTHON
