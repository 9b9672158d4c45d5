"""velpick.dask on a LocalCluster of 1 and of 2 worker processes: views per second.

The 1M-triangle torus of the C++ benchmarks (written by velpick_bench as velpick_bench_torus_1000000.ply in
the temporary folder; pass another mesh file as the first argument), 64 orthographic views
on a ring, whole 1000 x 1000 pixel screens. Not run by the tests:

    PYTHONPATH=build/python /usr/bin/python3 python/bench_dask.py [mesh.ply]
"""

import math
import os
import pathlib
import sys
import tempfile
import time

import velpick
import velpick.dask as vdask
from distributed import Client, LocalCluster

VIEWS = 64
SCREEN = 200.0  # screen units; 5 pixels each


def ring():
    return [{"eye": [300 * math.cos(a), 300 * math.sin(a), 120], "target": [0, 0, 0],
             "up": [0, 0, 1], "height": SCREEN, "screen": [SCREEN, SCREEN]}
            for a in (2 * math.pi * v / VIEWS for v in range(VIEWS))]


def main():
    default = pathlib.Path(tempfile.gettempdir()) / "velpick_bench_torus_1000000.ply"
    mesh = sys.argv[1] if len(sys.argv) > 1 else str(default)
    folder = str(pathlib.Path(velpick.__file__).resolve().parent)
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [folder, os.environ.get("PYTHONPATH")]))
    for workers in (1, 2):
        with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                          dashboard_address=None) as cluster, Client(cluster) as client:
            vdask.pick_views(client, mesh, ring()[:workers], chunk=1, reduce="count")  # warm up
            start = time.perf_counter()
            vdask.pick_views(client, mesh, ring(), chunk=8, reduce="count", pixel_proportion=5.0)
            seconds = time.perf_counter() - start
            print(f"{workers} worker(s): {VIEWS / seconds:.2f} views/s")


if __name__ == "__main__":
    main()
