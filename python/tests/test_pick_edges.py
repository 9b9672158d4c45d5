# velpick.pick_edges: the graph picker's edges, as the velpick program marks them.

import numpy as np
import pytest

from conftest import TILTED_CAMERA as CAMERA, grid, run_velpick, scene_json, velpick, write_ply

if "graph" not in velpick.pickers():
    pytest.skip("the graph picker is not built in", allow_module_level=True)

LASSO = [[19.0, 4.0], [32.0, 6.0], [30.0, 26.0], [21.0, 24.0]]  # over part of the box


# A closed box of n × n squares a side, each side with vertices of its own and its faces
# counter-clockwise seen from outside: the top, the top turned half a turn about x, and both
# turned onto the other two axes.
def box(half=5.0, n=2):
    top, faces = grid(n, n, cell=2 * half / n, origin=(-half, -half), z=half)
    sides = [top, top * [1, -1, -1]]
    sides += [side[:, axes] for axes in ([1, 2, 0], [2, 0, 1]) for side in sides[:2]]
    return np.concatenate(sides), np.concatenate([faces + i * len(top) for i in range(6)])


# (settings, whether they change this pick's edges)
SETTINGS = [({}, False), ({"sharp_angle_deg": 100.0}, True), ({"thickness": 0.4}, False),
            ({"mark_whole_candidates": True}, True), ({"mark_through": True}, False),
            ({"clipping_planes": [[0.0, 0.0, -1.0, 2000.0]]}, True)]


@pytest.mark.parametrize("settings,changes", SETTINGS, ids=[str(s) for s, _ in SETTINGS])
def test_same_edges_as_velpick_and_the_settings_count(tmp_path, settings, changes):
    vertices, faces = box()
    write_ply(tmp_path / "box.ply", vertices, faces)
    scene = scene_json(["box.ply"], LASSO, camera=CAMERA, picker="graph", **settings)
    expected = run_velpick(tmp_path, scene)["meshes"][0]["marked_edges"]

    edges = velpick.pick_edges(vertices, faces, LASSO, camera=CAMERA, **settings)

    assert edges.dtype == np.int64 and edges.shape == (len(expected), 2)
    assert np.rint(vertices[edges] * 1000).astype(np.int64).tolist() == expected
    default = velpick.pick_edges(vertices, faces, LASSO, camera=CAMERA)
    assert np.array_equal(edges, default) != changes


def test_edges_name_the_first_of_merged_vertices():
    # The box as a soup, three vertices of its own per face: the edges name the first copy.
    vertices, faces = box()
    edges = velpick.pick_edges(vertices, faces, LASSO, camera=CAMERA)
    assert len(edges) > 0
    soup = vertices[faces].reshape(-1, 3)
    soup_edges = velpick.pick_edges(soup, np.arange(len(soup)).reshape(-1, 3), LASSO, camera=CAMERA)
    first_copy = {tuple(p): i for i, p in reversed(list(enumerate(soup.tolist())))}
    assert (soup_edges == [[first_copy[tuple(vertices[i])] for i in e] for e in edges.tolist()]).all()
