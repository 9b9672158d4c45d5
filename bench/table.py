"""Prints the benchmark table of bench/run from Google Benchmark's JSON output."""

import json
import math
import re
import sys


def load(path):
    with open(path) as f:
        runs = json.load(f)["benchmarks"]
    # Settings that Google Benchmark appends to a name (a warm-up time) are not part of it here.
    return {re.sub(r"/min_warmup_time:[^/]*", "", run["name"]): run
            for run in runs if run.get("run_type", "iteration") == "iteration"}


def ms(run):
    """Milliseconds: wall time for the multi-threaded Embree and scan-line runs, otherwise CPU
    time, which a machine shared with other work disturbs less (the benchmarks report milliseconds)."""
    return run["real_time"] if run["name"].endswith("real_time") else run["cpu_time"]


def fit_exponent(points):
    """Least-squares slope of log(time) against log(size)."""
    xs = [math.log(x) for x, _ in points]
    ys = [math.log(y) for _, y in points]
    mx, my = sum(xs) / len(xs), sum(ys) / len(ys)
    return sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)


def main(path):
    runs = load(path)
    rows = []

    def row(label, name, note=""):
        if name in runs:
            rows.append((label, f"{ms(runs[name]):10.2f}", note))

    for size, label in ((100000, "100k"), (1000000, "1M"), (4000000, "4M")):
        row(f"load binary PLY, {label}", f"Mesh/load/{size}")
        row(f"destroy mesh, {label}", f"Mesh/destroy/{size}/iterations:8")
        for kind in ("visible", "through", "planes", "culling", "brush"):
            row(f"z-buffer {kind}, {label}", f"BM_Pick/{kind}/{size}")
        for kind in ("visible", "through", "culling", "brush"):
            row(f"z-buffer {kind}, {label}, 2 threads (wall)",
                f"BM_Pick/{kind}_2threads/{size}/real_time")
        row(f"z-buffer perspective, {label}", f"BM_Pick/perspective/{size}",
            "(target <= 1.1 x z-buffer visible)" if size == 1000000 else "")
        row(f"streaming floor, {label}", f"Floor/stream/{size}")
        row(f"Embree build (all threads), {label}", f"Embree/build/{size}/real_time")
    row("load binary STL, 1M", "Mesh/load_stl/1000000", "(target <= 1.5 x binary PLY load)")
    row("graph build, 1M, 30 degrees", "BM_GraphBuild", "(target <= 0.5 x z-buffer visible)")
    row("graph pick, operator only, graph built", "BM_GraphPick",
        "(target <= 0.25 x z-buffer visible)")
    row("Embree cast, 1M, 1 thread", "Embree/cast/1000000/1/real_time")
    row("Embree cast, 1M, 2 threads", "Embree/cast/1000000/2/real_time")
    row("scan-line ordered, 1M, 1 thread", "BM_VisibilityDetectorTorus/1/real_time")
    row("scan-line ordered, 1M, 2 threads", "BM_VisibilityDetectorTorus/2/real_time")
    row("scan-line nearest, 1M, 2 threads", "BM_VisibilityDetectorTorusNearest/2/real_time")
    row("scan-line perspective, 1M, 1 thread", "BM_VisibilityDetectorTorusPerspective/1/real_time",
        "(target <= 1.1 x scan-line ordered)")
    row("scan-line perspective, 1M, 2 threads",
        "BM_VisibilityDetectorTorusPerspective/2/real_time")

    row("session build, 1M", "Session/build/1000000", "(target <= z-buffer visible, 1M)")
    row("session lasso 10 % of view, 1M", "Session/lasso10/1000000")
    row("one-shot lasso 10 % of view, 1M", "Session/oneshot_lasso10/1000000")
    row("one-shot brush segment r 8 px, 1M", "Session/oneshot_segment/1000000")
    for name in ("Session/stroke/1000000/iterations:3", "Session/stroke/100000/iterations:3"):
        if name in runs:
            rows.append((f"session stroke segment median, {int(name.split('/')[2]) // 1000}k",
                         f"{runs[name]['median_segment_ms']:10.2f}", "(target <= 2 ms)"))
    row("scan-line session build, 1M, 2 thr", "Session/scanline_build/1000000/real_time")
    row("scan-line session lasso 10 %, 1M, 2 thr", "Session/scanline_lasso10/1000000/real_time")
    row("scan-line one-shot lasso 10 %, 1M, 2 thr",
        "Session/scanline_oneshot_lasso10/1000000/real_time")
    row("scan-line one-shot segment r 8 px, 1M, 2 thr",
        "Session/scanline_oneshot_segment/1000000/real_time")
    name = "Session/scanline_stroke/1000000/iterations:3/real_time"
    if name in runs:
        rows.append(("scan-line session stroke segment median, 1M",
                     f"{runs[name]['median_segment_ms']:10.2f}", "(target <= 8 ms, 2 threads)"))

    print(f"{'measure':44s} {'ms':>10s}  (CPU time; Embree and scan-line rows wall time)")
    print("-" * 56)
    for label, value, note in rows:
        print(f"{label:44s} {value} {note}")

    def get(name):
        return ms(runs[name]) if name in runs else None

    pick = get("BM_Pick/visible/1000000")
    build = get("Embree/build/1000000/real_time")
    cast1 = get("Embree/cast/1000000/1/real_time")
    floor = get("Floor/stream/1000000")
    print("-" * 56)
    print("ratios on the 1M torus (visible pick)")
    if pick and build and cast1:
        print(f"  pick / (Embree build + cast, 1 thread)   {pick / (build + cast1):6.2f}")
    if pick and cast1:
        print(f"  pick / Embree cast (1 thread)            {pick / cast1:6.2f}")
    if pick and floor:
        print(f"  pick / streaming floor                   {pick / floor:6.2f}")
    for kind in ("visible", "through", "culling", "brush"):
        one = get(f"BM_Pick/{kind}/1000000")
        two = get(f"BM_Pick/{kind}_2threads/1000000/real_time")
        if one and two:
            print(f"  {kind} 2 threads / 1 thread (target 0.6)  {two / one:6.2f}")
    perspective = get("BM_Pick/perspective/1000000")
    if pick and perspective:
        print(f"  perspective / visible (target 1.1)       {perspective / pick:6.2f}")
    for threads in (1, 2):
        ordered = get(f"BM_VisibilityDetectorTorus/{threads}/real_time")
        pinhole = get(f"BM_VisibilityDetectorTorusPerspective/{threads}/real_time")
        if ordered and pinhole:
            print(f"  scan-line perspective / ordered, {threads} thr     {pinhole / ordered:6.2f}")
    graph_build, graph_pick = get("BM_GraphBuild"), get("BM_GraphPick")
    if pick and graph_build:
        print(f"  graph build / pick                       {graph_build / pick:6.2f}")
    if pick and graph_pick:
        print(f"  graph pick (graph built) / pick          {graph_pick / pick:6.2f}")
    ply_load, stl_load = get("Mesh/load/1000000"), get("Mesh/load_stl/1000000")
    if ply_load and floor:
        print(f"  PLY load / streaming floor (target 12)   {ply_load / floor:6.2f}")
    if ply_load and stl_load:
        print(f"  STL load / PLY load (target 1.5)         {stl_load / ply_load:6.2f}")
    culling = get("BM_Pick/culling/1000000")
    if pick and culling:
        print(f"  culling - visible (ms)                   {culling - pick:6.2f}")

    scale = [r for n, r in runs.items() if n.startswith("Scale/pick/")]
    by_triangles = [(r["triangles"], ms(r)) for r in scale if r["region_pixels"] > 4e5]
    by_pixels = [(r["region_pixels"], ms(r)) for r in scale if r["triangles"] == 1e6]
    if len(by_triangles) > 1:
        print(f"  exponent of time against triangles      {fit_exponent(by_triangles):6.2f}")
    if len(by_pixels) > 1:
        print(f"  exponent of time against region pixels   {fit_exponent(by_pixels):6.2f}")
    lasso, oneshot = get("Session/lasso10/1000000"), get("Session/oneshot_lasso10/1000000")
    if lasso and oneshot:
        print(f"  session lasso / one-shot (target 0.3)    {lasso / oneshot:6.2f}")
    lasso = get("Session/scanline_lasso10/1000000/real_time")
    oneshot = get("Session/scanline_oneshot_lasso10/1000000/real_time")
    if lasso and oneshot:
        print(f"  scan-line session lasso / one-shot (0.3) {lasso / oneshot:6.2f}")
    print("-" * 56)
    print("memory")
    if "Session/build/1000000" in runs:
        print(f"  session bytes per triangle (1M, <= 16)   "
              f"{runs['Session/build/1000000']['bytes_per_triangle']:6.1f}")
    if "Session/scanline_build/1000000/real_time" in runs:
        print(f"  scan-line session bytes per triangle (1M) "
              f"{runs['Session/scanline_build/1000000/real_time']['bytes_per_triangle']:5.1f}")
    for name, r in sorted(runs.items()):
        if name.startswith("Mesh/bytes"):
            print(f"  mesh bytes per triangle (1M)             {r['bytes_per_triangle']:6.1f}")
    peaks = {f: runs.get(f"Mesh/load_peak/{f}/1000000/iterations:1") for f in ("ply", "stl")}
    for fmt, r in peaks.items():
        if r:
            print(f"  {fmt.upper()} load peak heap per triangle (1M)  "
                  f"{r['peak_bytes_per_triangle']:6.1f}")
    if peaks["ply"] and peaks["stl"]:
        ratio = peaks["stl"]["peak_bytes_per_triangle"] / peaks["ply"]["peak_bytes_per_triangle"]
        print(f"  STL load peak / PLY load peak (target 1.25) {ratio:4.2f}")
    for r in scale:
        print(f"  pick peak extra heap, {int(r['triangles'] / 1000)}k triangles, "
              f"{int(r['region_pixels'])} px: {r['peak_bytes'] / 1e6:7.1f} MB "
              f"(bound {r['model_bytes'] / 1e6:7.1f} MB)")


if __name__ == "__main__":
    main(sys.argv[1])
