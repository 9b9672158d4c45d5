# velpick.pick and pick_meshes on their own: array layouts, threads, errors and simple geometry.

from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

from conftest import grid, top_view, velpick

SQUARE = [[-6.0, -6.0], [6.0, -6.0], [6.0, 6.0], [-6.0, 6.0]]
TRIANGLE = [[-7.0, -5.0], [8.0, -6.0], [1.0, 7.5]]
FLOOR = grid(20, 20, cell=1.0, origin=(-10.0, -10.0))


def test_unmarkable_faces_are_not_marked_but_still_hide():
    plate_v, plate_f = grid(4, 4, cell=2.0, origin=(-4.0, -4.0), z=3.0)
    markable = np.arange(len(plate_f)) % 2 == 0
    hidden = np.all(np.abs(FLOOR[0][FLOOR[1]][:, :, :2]) <= 4.0, axis=(1, 2))
    plate, floor = velpick.pick_meshes([(plate_v, plate_f, None, markable), FLOOR], SQUARE,
                                       view=top_view())
    np.testing.assert_array_equal(plate, markable)
    assert not floor[hidden].any() and floor[~hidden].any()


def test_array_layouts_types_and_placements_give_the_same_marks():
    vertices, faces = FLOOR[0] + [0.13, 0.07, 0.0], FLOOR[1]  # off the pixel lattice
    expected = velpick.pick(vertices, faces, TRIANGLE, view=top_view())
    wide = np.zeros((len(vertices), 7))
    wide[:, 1:7:2] = vertices
    shift = np.eye(4)
    shift[:3, 3] = [130.0, 70.0, 0.0]  # internal units
    for name, mesh in {"fortran": (np.asfortranarray(vertices), np.asfortranarray(faces)),
                       "strided": (wide[:, 1:7:2], np.repeat(faces, 2, axis=0)[::2]),
                       "float32": (vertices.astype(np.float32), faces.astype(np.int32)),
                       "lists": (vertices.tolist(), faces.astype(np.uint16).tolist()),
                       "uint16 faces": (vertices, faces.astype(np.uint16)),
                       "placed": (FLOOR[0], faces, shift)}.items():
        np.testing.assert_array_equal(velpick.pick_meshes([mesh], TRIANGLE, view=top_view())[0],
                                      expected, err_msg=name)
    empty = velpick.pick(np.zeros((0, 3)), np.zeros((0, 3), np.int64), SQUARE, view=top_view())
    assert empty.shape == (0,) and empty.dtype == np.bool_


def test_threads_pick_at_two_scales_as_one_after_another():
    # Coarse scales round the vertices differently, so each scale has marks of its own.
    meshes = [velpick.Mesh(*grid(300, 300, cell=0.07, origin=(-10, -10)), units_per_model_unit=s)
              for s in (3.0, 1000.0)] * 2
    expected = [velpick.pick(mesh, TRIANGLE, view=top_view()) for mesh in meshes]
    assert not np.array_equal(expected[0], expected[1])
    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(lambda mesh: velpick.pick(mesh, TRIANGLE, view=top_view()), meshes))
    np.testing.assert_array_equal(results, expected)


V, F = grid(2, 2)
CAMERA = {"eye": [1, 1, 5], "target": [1, 1, 0], "up": [0, 1, 0], "height": 4, "screen": [4, 4]}
VALID = {  # a valid call of each function (pick_edges: as pick's), which the rows break
    "pick": dict(vertices=V, faces=F, region=SQUARE, view=top_view()),
    "pick_meshes": dict(meshes=[(V, F)], region=SQUARE, view=top_view()),
    "pick_views": dict(mesh=velpick.Mesh(V, F), cameras=[CAMERA, CAMERA]),
    "load_mesh": dict(path="/nonexistent/mesh.ply"),
}
BAD_CALLS = [  # (function, arguments replaced, the start of the message)
    ("pick", {"vertices": V.astype(np.int64)}, "vertices: expected a float32 or float64"),
    ("pick", {"vertices": V[:, :2]}, "vertices: expected shape (N, 3)"),
    ("pick", {"vertices": V * 1e10}, "vertices: vertex 1: coordinate x"),
    ("pick", {"faces": F.astype(float)}, "faces: expected an integer array"),
    ("pick", {"faces": np.array([[0, 1, 9]])}, "faces: face 0 uses vertex 9 but there are 9"),
    ("pick", {"faces": np.array([[0, 1, 2], [0, -1, 2]])}, "faces: face 1 uses vertex -1"),
    ("pick", {"region": [[0, 0], [1, 1]]}, "region: expected at least 3 points, got 2"),
    ("pick", {"region": [[0, 0], [1, np.nan], [1, 0]]}, "region[1][1]: expected a finite number"),
    ("pick", {"region": [[0, 0], [1e12, 0], [1, 1]]}, "region[1]: beyond the 32-bit pixel range"),
    ("pick", {"region": np.zeros((0, 2)), "brush_radius": 2}, "region: expected at least 1 point"),
    ("pick", {"brush_radius": 1.5}, "brush_radius: expected a whole number"),
    ("pick", {"view": None}, 'expected exactly one of "view" and "camera"'),
    ("pick", {"view": np.eye(3)}, "view: expected a 4x4 array"),
    ("pick", {"view": None, "camera": {"eye": [0, 0, 1]}}, "camera.target: missing"),
    ("pick", {"pixel_proportion": "5"}, "pixel_proportion: expected a number"),
    ("pick", {"picker": "graph"}, "picker: the graph picker marks edges, not faces"),
    ("pick", {"mark_through": 1}, "mark_through: expected true or false"),
    ("pick", {"clipping_planes": [[0, 0, 0, 1]]}, "clipping_planes[0]: the normal (a, b, c) is"),
    ("pick", {"markable": np.ones(3, bool)}, "markable: expected shape (8,)"),
    # Once a bare allocation failure deep in the scan-line picker.
    ("pick", {"lines_per_pixel": 1e9}, "lines_per_pixel: expected at most 1024"),
    ("pick", {"threads": 0}, "threads: expected between 1 and 4096 threads, got 0"),
    ("pick", {"scanline_rule": "front"}, 'scanline_rule: unknown scan-line rule "front"'),
    ("pick", {"vertices": VALID["pick_views"]["mesh"], "faces": SQUARE, "region": None,
              "units_per_model_unit": 10}, "units_per_model_unit: a Mesh carries"),
    ("pick_edges", {"thickness": 1e7}, "thickness: too large"),
    ("pick_meshes", {"meshes": []}, "meshes: expected at least 1 mesh, got 0"),
    ("pick_meshes", {"meshes": [(V,)]}, "meshes[0]: expected a tuple (vertices, faces"),
    ("pick_meshes", {"meshes": [(V, F), (V, [[0, 1, 20]])]}, "meshes[1].faces: face 0 uses"),
    ("pick_meshes", {"meshes": [(V, F, np.zeros((4, 4)))]}, "meshes[0].placement: the last row"),
    ("pick_views", {"reduce": "all"}, "reduce: expected None"),
    ("pick_views", {"cameras": [CAMERA, dict(CAMERA, height=0)]}, "cameras[1].height"),
    ("pick_views", {"picker": "graph"}, "picker: pick_views takes"),
    ("load_mesh", {}, "/nonexistent/mesh.ply: no such file"),
]


@pytest.mark.parametrize("function,changes,message", BAD_CALLS, ids=[m for *_, m in BAD_CALLS])
def test_bad_arguments_raise_value_error_naming_them(function, changes, message):
    with pytest.raises(ValueError) as raised:
        getattr(velpick, function)(**dict(VALID.get(function, VALID["pick"]), **changes))
    assert str(raised.value).startswith(message), str(raised.value)
