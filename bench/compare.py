#!/usr/bin/env python3
"""Before/after comparison of two builds of the benchmarks (for example the
commit before an optimisation and the one after it). Each measurement is the
plug-in's figure as a ratio to the baseline that the same program measured in
the same run; the two builds run alternately, so that both see the same load.

    compare.py BEFORE_BENCH_DIR AFTER_BENCH_DIR [ROUNDS [LABEL_WORD]]
A BENCH_DIR is the build/bench/bench directory of a "bench" preset build.
LABEL_WORD keeps only the measurements whose label holds it (for example
"spawn"); the peak-memory run is then left out unless the word is "MIF".
"""
import json
import os
import statistics
import subprocess
import sys
import tempfile

CLASS = "Bench|Volumes|1.0"
MB = 1024 * 1024
UNIT_MICROSECONDS = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}

# (label, program, filter, measured benchmark, baseline benchmark, kind)
# kind "time": measured / baseline; "speed": baseline / measured; "cpu-gap":
# the process's CPU time of measured minus baseline, in microseconds (for the
# spawn, the work the plug-in adds in the calling process).
SPAWN = "BM_Spawn_Bare/|BM_Spawn_RunCommand"
CASES = [
    ("spawn: RunCommand / bare posix_spawn", "cs_bench_spawn", SPAWN,
     "BM_Spawn_RunCommand", "BM_Spawn_Bare", "time"),
    ("spawn: parent CPU of RunCommand - bare posix_spawn (µs)", "cs_bench_spawn", SPAWN,
     "BM_Spawn_RunCommand", "BM_Spawn_Bare", "cpu-gap"),
    ("capture 100 MB: Command::run speed / 64 KiB blocks", "cs_bench_capture", "Blocks|CommandRun/104857600",
     "BM_Capture_CommandRun/104857600", "BM_Capture_Blocks/104857600", "speed"),
    ("MIF 100 MB: C++ baseline time / getMifTable time", "cs_bench_mif", "(Cache|CppBaseline)/104857600",
     "BM_Mif_CppBaseline/104857600", "BM_Mif_Cache/104857600", "time"),
    ("MIF 100 MB: getMifTable / floor", "cs_bench_mif", "(Cache|Floor)/104857600",
     "BM_Mif_Cache/104857600", "BM_Mif_Floor/104857600", "time"),
    ("cache hit, 10,000th entry / 1st entry", "cs_bench_cache", ".",
     "BM_Cache_Hit/10000", "BM_Cache_Hit/1", "time"),
    ("small 64 KB: CustomScanInfo / bare spawn", "cs_bench_small", "/65536",
     "BM_Small_CustomScanInfo/65536", "BM_Small_BareSpawn/65536", "time"),
]


def run_case(directory, program, pattern):
    with tempfile.NamedTemporaryFile(suffix=".json", delete=False) as out:
        path = out.name
    subprocess.run([os.path.join(directory, program), "--benchmark_filter=" + pattern,
                    "--benchmark_repetitions=3", "--benchmark_enable_random_interleaving=true",
                    "--benchmark_out=" + path, "--benchmark_out_format=json"],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    with open(path) as f:
        data = json.load(f)
    os.unlink(path)
    times, cpu = {}, {}
    for b in data["benchmarks"]:
        if b.get("run_type") != "iteration" or b.get("error_occurred"):
            continue
        wall = "/real_time" in b["run_name"]
        name = b["run_name"].replace("/real_time", "").split("/iterations:")[0]
        times.setdefault(name, []).append(b["real_time" if wall else "cpu_time"])
        cpu.setdefault(name, []).append(b["cpu_time"] * UNIT_MICROSECONDS[b["time_unit"]])
    return ({k: statistics.median(v) for k, v in times.items()},
            {k: statistics.median(v) for k, v in cpu.items()})


def peak_rss(directory, data):
    out = subprocess.run(["/usr/bin/time", "-f", "%M", os.path.join(directory, "cs_mif_once"), "plugin",
                          os.path.join(data, "volumes-100MB.mif"), CLASS],
                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
    return int(out.stderr.strip().splitlines()[-1]) * 1024


def main():
    before, after = sys.argv[1], sys.argv[2]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 2
    word = sys.argv[4] if len(sys.argv) > 4 else ""
    cases = [case for case in CASES if word in case[0]]
    if not cases:
        sys.exit("compare.py: no measurement label holds %r" % word)
    data = os.environ.get("CUSTOMSCAN_BENCH_DATA", "") if word in ("", "MIF") else ""
    results = {label: ([], []) for label, *_ in cases}
    rss = ([], [])
    for _ in range(rounds):
        for side, directory in enumerate((before, after)):
            runs = {}  # one run of a program serves every case that asks for it
            for label, program, pattern, measured, baseline, kind in cases:
                if (program, pattern) not in runs:
                    runs[(program, pattern)] = run_case(directory, program, pattern)
                t, cpu = runs[(program, pattern)]
                if measured not in t or baseline not in t:
                    continue
                if kind == "cpu-gap":
                    results[label][side].append(cpu[measured] - cpu[baseline])
                    continue
                ratio = t[measured] / t[baseline]
                results[label][side].append(1 / ratio if kind == "speed" else ratio)
            if data:
                rss[side].append(peak_rss(directory, data))
    print("| Measurement (in one run; median of the rounds, min to max) | Before | After |")
    print("|---|---|---|")
    for label, (b, a) in results.items():
        form = "%.1f (%.1f to %.1f)" if "µs" in label else "%.3f (%.3f to %.3f)"
        fb = form % (statistics.median(b), min(b), max(b)) if b else "n/a"
        fa = form % (statistics.median(a), min(a), max(a)) if a else "n/a"
        print("| %s | %s | %s |" % (label, fb, fa))
    if rss[0] and rss[1]:
        print("| MIF 100 MB: peak RSS of cs_mif_once plugin / input | %.2f | %.2f |" % (
            statistics.median(rss[0]) / (100 * MB), statistics.median(rss[1]) / (100 * MB)))


if __name__ == "__main__":
    main()
