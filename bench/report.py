#!/usr/bin/env python3
"""Prints the benchmark table from one run of bench/run.sh: the medians, the
minimum and the maximum of every measurement, and each one's ratio to the
baseline measured in the same run.

    report.py RESULTS_DIR
RESULTS_DIR holds the Google Benchmark JSON files (*.json) and processes.csv
(lines: what,size_bytes,repetition,seconds,max_rss_kb).
"""
import csv
import glob
import json
import os
import statistics
import sys

UNIT_SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
MB = 1024 * 1024


def load_benchmarks(directory):
    runs = {}
    for path in sorted(glob.glob(os.path.join(directory, "*.json"))):
        with open(path) as f:
            data = json.load(f)
        for b in data.get("benchmarks", []):
            if b.get("run_type") != "iteration" or b.get("error_occurred"):
                continue
            # Benchmarks with a child process are timed by the wall clock,
            # those that run in this process alone by its CPU time.
            wall = "/real_time" in b["run_name"]
            name = b["run_name"].replace("/real_time", "")
            name = name.split("/iterations:")[0].split("/repeats:")[0]
            seconds = b["real_time" if wall else "cpu_time"] * UNIT_SECONDS[b["time_unit"]]
            runs.setdefault(name, []).append(seconds)
    return runs


def load_processes(directory):
    times, rss = {}, {}
    path = os.path.join(directory, "processes.csv")
    if not os.path.exists(path):
        return times, rss
    with open(path) as f:
        for what, size, _rep, seconds, rss_kb in csv.reader(f):
            key = (what, int(size))
            times.setdefault(key, []).append(float(seconds))
            rss.setdefault(key, []).append(int(rss_kb) * 1024)
    return times, rss


def fmt_time(s):
    if s is None:
        return "n/a"
    if s >= 1:
        return "%.2f s" % s
    if s >= 1e-3:
        return "%.1f ms" % (s * 1e3)
    return "%.1f µs" % (s * 1e6)


def fmt_bytes(b):
    return "%.0f MB" % (b / MB) if b >= 10 * MB else "%.1f MB" % (b / MB)


class Table:
    def __init__(self):
        self.lines = [
            "| Measurement | Median | Min | Max | Ratio | Goal | Met |",
            "|---|---|---|---|---|---|---|",
        ]

    def section(self, title):
        self.lines.append("| **%s** | | | | | | |" % title)

    def row(self, label, samples, ratio="", goal="", met=""):
        if not samples:
            self.lines.append("| %s | not measured | | | | %s | |" % (label, goal))
            return
        self.lines.append("| %s | %s | %s | %s | %s | %s | %s |" % (
            label, fmt_time(statistics.median(samples)), fmt_time(min(samples)),
            fmt_time(max(samples)), ratio, goal, met))

    def text(self, label, median, low, high, ratio="", goal="", met=""):
        self.lines.append("| %s | %s | %s | %s | %s | %s | %s |" % (label, median, low, high, ratio, goal, met))


def med(samples):
    return statistics.median(samples) if samples else None


def ratio_of(a, b):
    if not a or not b:
        return None
    return med(a) / med(b)


def yes_no(ok):
    return "" if ok is None else ("yes" if ok else "**no**")


def main():
    directory = sys.argv[1]
    runs = load_benchmarks(directory)
    ptimes, prss = load_processes(directory)
    t = Table()
    r = lambda name: runs.get(name, [])

    t.section("1. Spawn round trip (tiny program, real time per run)")
    bare = r("BM_Spawn_Bare")
    t.row("bare posix_spawn + pipe + 64 KiB reads + waitpid", bare, "1.00 (baseline)")
    q = ratio_of(r("BM_Spawn_RunCommand"), bare)
    t.row("RunCommand through the plug-in's virtual interface", r("BM_Spawn_RunCommand"),
          "" if q is None else "%.3f × bare" % q, "≤ 1.05 × bare", yes_no(None if q is None else q <= 1.05))
    q = ratio_of(r("BM_Spawn_BareHostSetup"), bare)
    t.row("bare, child set up as the host does (stdin /dev/null, closefrom 3, signals)",
          r("BM_Spawn_BareHostSetup"), "" if q is None else "%.3f × bare" % q)
    q = ratio_of(r("BM_Spawn_Shell"), bare)
    t.row("/bin/sh -c, same program", r("BM_Spawn_Shell"), "" if q is None else "%.2f × bare" % q)

    t.section("2. Output capture, child writes 100 MB (time per capture)")
    blocks = r("BM_Capture_Blocks/104857600")
    t.row("64 KiB reads into a realloc-grown buffer", blocks, "speed 1.00 (baseline)")
    for name, label, goal in (("BM_Capture_CommandRun/104857600", "Command::run into a MemoryBuffer", 0.25),
                              ("BM_Capture_BytePerRead/104857600", "one read() per byte", None)):
        q = ratio_of(blocks, r(name))
        t.row(label, r(name), "" if q is None else "speed %.3f × blocks" % q,
              "≥ %.2f × blocks speed" % goal if goal else "", yes_no(None if q is None or goal is None else q >= goal))

    t.section("3. MIF to table, 100 MB output file (≈1.5 million rows; CPU time)")
    size = 100 * MB
    floor = r("BM_Mif_Floor/%d" % size)
    plugin = r("BM_Mif_Cache/%d" % size)
    baseline = r("BM_Mif_CppBaseline/%d" % size)
    t.row("floor: read file, widen, split lines", floor, "1.00 (floor)")
    q = ratio_of(plugin, floor)
    t.row("MifCache::getMifTable via an output file", plugin, "" if q is None else "%.2f × floor" % q)
    q = ratio_of(baseline, plugin)
    t.row("C++ baseline (std::map of std::wstring rows)", baseline,
          "" if q is None else "plug-in %.2f × faster" % q, "plug-in ≥ 3 × faster",
          yes_no(None if q is None else q >= 3))
    # Whole processes, timed alike, for the comparison with Python.
    pp, pb, py = (ptimes.get((w, size), []) for w in ("plugin", "baseline", "python"))
    t.row("process: cs_mif_once plugin (start to exit)", pp, "1.00 (baseline)")
    q = ratio_of(pb, pp)
    t.row("process: cs_mif_once baseline", pb, "" if q is None else "%.2f × plug-in" % q)
    q = ratio_of(py, pp)
    t.row("process: python3 mif_baseline.py", py, "" if q is None else "%.2f × plug-in" % q)
    py_rss = max(prss.get(("python", size), [0])) or None
    for what, label in (("floor", "floor"), ("plugin", "plug-in"), ("baseline", "C++ baseline"), ("python", "Python")):
        samples = prss.get((what, size), [])
        if not samples:
            t.text("peak RSS, %s" % label, "not measured", "", "")
            continue
        peak = statistics.median(samples)
        extra, goal, met = "%.2f × input" % (peak / size), "", ""
        if what == "plugin" and py_rss:
            extra += "; %.2f × Python" % (peak / py_rss)
            goal, met = "≤ Python's", yes_no(peak <= py_rss)
        t.text("peak RSS, %s" % label, fmt_bytes(peak), fmt_bytes(min(samples)), fmt_bytes(max(samples)),
               extra, goal, met)

    t.section("4. Scaling (time per MB relative to the 10 MB run, and as a multiple of the floor at the same size; "
              "peak RSS per input MB)")
    for bench, label in (("BM_Mif_Cache", "MifCache::getMifTable"), ("BM_Mif_CppBaseline", "C++ baseline"),
                         ("BM_Mif_Floor", "floor")):
        base = r("%s/%d" % (bench, 10 * MB))
        for mb in (1, 10, 100):
            samples = r("%s/%d" % (bench, mb * MB))
            q = ratio_of(samples, base)
            f = ratio_of(samples, r("BM_Mif_Floor/%d" % (mb * MB)))
            text = "" if q is None else "%.2f per MB" % (q * 10 / mb)
            if f is not None and bench != "BM_Mif_Floor":
                text += "; %.1f × floor" % f
            met = yes_no(q * 10 / mb <= 1.25) if mb == 100 and q is not None and bench == "BM_Mif_Cache" else ""
            t.row("%s, %d MB" % (label, mb), samples, text, "linear (≈1 per MB)" if mb == 100 else "", met)
    for what, label in (("plugin", "plug-in"), ("baseline", "C++ baseline"), ("python", "Python")):
        for mb in (1, 10, 100):
            samples = prss.get((what, mb * MB), [])
            if samples:
                peak = statistics.median(samples)
                t.text("peak RSS, %s, %d MB" % (label, mb), fmt_bytes(peak), fmt_bytes(min(samples)),
                       fmt_bytes(max(samples)), "%.2f × input" % (peak / (mb * MB)))
    one = r("BM_Cache_Hit/1")
    t.row("cache hit, 1 cached request", one, "1.00 (baseline)")
    for n in (100, 10000):
        samples = r("BM_Cache_Hit/%d" % n)
        q = ratio_of(samples, one)
        t.row("cache hit, %d cached requests (the last one)" % n, samples,
              "" if q is None else "%.1f × one entry" % q, "microseconds" if n == 10000 else "",
              yes_no(None if not samples else med(samples) < 100e-6) if n == 10000 else "")

    t.section("5. Small outputs end to end (CustomScanInfo, scanner writes the MIF to stdout)")
    for size, label in ((4 * 1024, "4 KB"), (64 * 1024, "64 KB")):
        spawn = r("BM_Small_BareSpawn/%d" % size)
        info = r("BM_Small_CustomScanInfo/%d" % size)
        t.row("%s: bare spawn reading the same output" % label, spawn, "1.00 (baseline)")
        q = ratio_of(info, spawn)
        t.row("%s: CustomScanInfo, cache cleared each time" % label, info, "" if q is None else "%.2f × bare" % q)

    print("\n".join(t.lines))


if __name__ == "__main__":
    main()
