"""The binding's own cost on the 1M-triangle grid of the import benchmark: conversion of the
numpy arrays to internal units and mesh building, then a whole pick() for comparison.

Run: PYTHONPATH=build/python /usr/bin/python3 python/bench_build.py
Compare with: build/bench/velpick_bench --benchmark_filter=BuildMeshFromSoup
"""

import time

import numpy as np

import velpick

SIDE = 708  # 2 * 707**2 = 999 698 triangles
REPEATS = 5


def grid(side):
    j, i = np.meshgrid(np.arange(side), np.arange(side), indexing="ij")
    vertices = np.stack([i * 0.5, j * 0.5, (i * j % 7) * 0.25], axis=-1).reshape(-1, 3)
    a = (j[:-1, :-1] * side + i[:-1, :-1]).ravel()
    faces = np.stack([a, a + 1, a + side + 1, a, a + side + 1, a + side], axis=1).reshape(-1, 3)
    return vertices.astype(np.float32), faces.astype(np.int32)


def best_of(function):
    """Best wall and CPU milliseconds of REPEATS runs (CPU, like Google Benchmark's, counts
    this process's threads)."""
    walls, cpus = [], []
    for _ in range(REPEATS):
        wall, cpu = time.perf_counter(), time.process_time()
        function()
        walls.append(time.perf_counter() - wall)
        cpus.append(time.process_time() - cpu)
    return min(walls) * 1000.0, min(cpus) * 1000.0


def main():
    vertices, faces = grid(SIDE)
    print(f"{len(faces)} triangles, {len(vertices)} vertices")
    wall, cpu = best_of(lambda: velpick._build_mesh(vertices, faces))
    print(f"conversion and mesh building: {wall:.0f} ms wall, {cpu:.0f} ms CPU")
    lasso = [[10.0, 10.0], [300.0, 20.0], [200.0, 330.0]]
    view = np.diag([0.001, 0.001, 0.001, 1.0])
    wall, cpu = best_of(lambda: velpick.pick(vertices, faces, lasso, view=view))
    print(f"whole pick() under a 290-unit lasso: {wall:.0f} ms wall, {cpu:.0f} ms CPU")


if __name__ == "__main__":
    main()
