"""velpick.pick_edges: the graph picker's edges, as the velpick program marks them."""

import numpy as np
import pytest

from conftest import run_velpick, scene_json, velpick, write_ply

if "graph" not in velpick.pickers():
    pytest.skip("the graph picker is not built in", allow_module_level=True)

UNITS = 1000.0
CAMERA = {"eye": [30.0, -40.0, 50.0], "target": [0.0, 0.0, 0.0], "up": [0.0, 0.0, 1.0],
          "height": 30.0, "screen": [40.0, 30.0]}
LASSO = [[19.0, 4.0], [32.0, 6.0], [30.0, 26.0], [21.0, 24.0]]  # over part of the box


def box(half=5.0, subdivisions=2):
    """A closed box, each side a grid of subdivisions² squares, faces counter-clockwise outside."""
    vertices, faces = [], []
    steps = np.linspace(-half, half, subdivisions + 1)
    for axis in range(3):
        for sign in (-1.0, 1.0):
            u, v = (axis + 1) % 3, (axis + 2) % 3
            first = len(vertices)
            for a in steps:
                for b in steps:
                    p = [0.0, 0.0, 0.0]
                    p[axis], p[u], p[v] = sign * half, a, b
                    vertices.append(p)
            n = subdivisions + 1
            for i in range(subdivisions):
                for j in range(subdivisions):
                    c = first + i * n + j
                    quad = [c, c + n, c + n + 1, c + 1] if sign > 0 else [c, c + 1, c + n + 1, c + n]
                    faces += [[quad[0], quad[1], quad[2]], [quad[0], quad[2], quad[3]]]
    return np.array(vertices), np.array(faces)


def edges_as_positions(vertices, edges):
    """Each edge's ends in internal units, as velpick writes them."""
    return np.rint(vertices[edges] * UNITS).astype(np.int64).tolist()


SETTINGS = [
    {},
    {"sharp_angle_deg": 100.0},
    {"thickness": 0.4},
    {"mark_whole_candidates": True},
    {"mark_through": True},
    {"clipping_planes": [[0.0, 0.0, -1.0, 2000.0]]},
]


@pytest.mark.parametrize("graph", SETTINGS, ids=[str(s) for s in SETTINGS])
def test_same_edges_as_velpick(tmp_path, graph):
    vertices, faces = box()
    write_ply(tmp_path / "box.ply", vertices, faces)
    graph_fields = {k: v for k, v in graph.items()
                    if k in ("sharp_angle_deg", "thickness", "mark_whole_candidates")}
    other = {k: v for k, v in graph.items() if k not in graph_fields}
    scene = scene_json(["box.ply"], LASSO, camera=CAMERA, picker="graph", **other)
    if graph_fields:
        scene["graph"] = graph_fields
    expected = run_velpick(tmp_path, scene)["meshes"][0]["marked_edges"]

    edges = velpick.pick_edges(vertices, faces, LASSO, camera=CAMERA, **graph)

    assert edges.dtype == np.int64 and edges.shape == (len(expected), 2)
    assert edges_as_positions(vertices, edges) == expected


def test_edges_are_mesh_edges_named_by_the_first_of_merged_vertices():
    vertices, faces = box()
    edges = velpick.pick_edges(vertices, faces, LASSO, camera=CAMERA)
    assert len(edges) > 0
    # The box's sides have vertices of their own: compare edges by their end positions.
    position = [tuple(p) for p in vertices.tolist()]
    mesh_edges = {frozenset((position[a], position[b])) for f in faces.tolist()
                  for a, b in ((f[0], f[1]), (f[1], f[2]), (f[2], f[0]))}
    assert all(frozenset((position[a], position[b])) in mesh_edges for a, b in edges.tolist())

    # The same box as a soup, three vertices of its own per face: the edges name the first copy.
    soup = vertices[faces].reshape(-1, 3)
    soup_edges = velpick.pick_edges(soup, np.arange(len(soup)).reshape(-1, 3), LASSO,
                                    camera=CAMERA)
    first_copy = {tuple(p): i for i, p in reversed(list(enumerate(soup.tolist())))}
    assert (soup_edges == [[first_copy[tuple(vertices[i])] for i in e] for e in edges.tolist()]).all()


@pytest.mark.parametrize("arguments,message", [
    ({"thickness": 1e7}, "thickness: too large"),
    ({"mark_whole_candidates": 1}, "mark_whole_candidates: expected true or false"),
])
def test_bad_graph_arguments_raise_value_error(arguments, message):
    vertices, faces = box()
    call = {"region": LASSO, "camera": CAMERA}
    call.update(arguments)
    with pytest.raises(ValueError) as raised:
        velpick.pick_edges(vertices, faces, **call)
    assert str(raised.value).startswith(message), str(raised.value)
