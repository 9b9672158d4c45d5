"""velpick.pick and pick_meshes on their own: array layouts, types, errors and simple geometry."""

import threading
import time

import numpy as np
import pytest

from conftest import grid, top_view, velpick

SQUARE = [[-6.0, -6.0], [6.0, -6.0], [6.0, 6.0], [-6.0, 6.0]]
TRIANGLE = [[-7.0, -5.0], [8.0, -6.0], [1.0, 7.5]]


@pytest.fixture
def floor():
    return grid(20, 20, cell=1.0, origin=(-10.0, -10.0))


def inside_polygon(points, polygon):
    """Even-odd test of points (P, 2) against a closed polygon (K, 2)."""
    polygon = np.asarray(polygon, float)
    inside = np.zeros(len(points), dtype=bool)
    x, y = points[:, 0], points[:, 1]
    for (x0, y0), (x1, y1) in zip(polygon, np.roll(polygon, -1, axis=0)):
        crosses = (y0 > y) != (y1 > y)
        with np.errstate(divide="ignore", invalid="ignore"):
            at = x0 + (y - y0) * (x1 - x0) / (y1 - y0)
        inside ^= crosses & (x < at)
    return inside


def test_flat_grid_marks_the_faces_under_the_lasso(floor):
    vertices, faces = floor
    mask = velpick.pick(vertices, faces, TRIANGLE, view=top_view())
    assert mask.shape == (len(faces),) and mask.dtype == np.bool_
    # A face with all corners inside the lasso is marked; one wholly beside the lasso's box
    # (with a pixel to spare) is not; faces across the border may go either way.
    corners_inside = inside_polygon(vertices[:, :2], TRIANGLE)[faces]
    assert mask[corners_inside.all(axis=1)].all()
    lo, hi = np.min(TRIANGLE, axis=0) - 0.2, np.max(TRIANGLE, axis=0) + 0.2
    corners = vertices[faces][:, :, :2]
    beside = ((corners < lo) | (corners > hi)).all(axis=1).any(axis=1)
    assert beside.any() and not mask[beside].any()


def test_front_plate_hides_what_is_behind_it_unless_marked_through(floor):
    plate = grid(4, 4, cell=2.0, origin=(-4.0, -4.0), z=3.0)
    hidden = np.all(np.abs(floor[0][floor[1]][:, :, :2]) <= 4.0, axis=(1, 2))
    plate_mask, floor_mask = velpick.pick_meshes([plate, floor], SQUARE, view=top_view())
    assert plate_mask.all()
    assert not floor_mask[hidden].any() and floor_mask[~hidden].any()
    _, through = velpick.pick_meshes([plate, floor], SQUARE, view=top_view(), mark_through=True)
    assert through[hidden].all()


def test_unmarkable_faces_are_not_marked_but_still_hide(floor):
    plate_v, plate_f = grid(4, 4, cell=2.0, origin=(-4.0, -4.0), z=3.0)
    markable = np.arange(len(plate_f)) % 2 == 0
    hidden = np.all(np.abs(floor[0][floor[1]][:, :, :2]) <= 4.0, axis=(1, 2))
    plate_mask, floor_mask = velpick.pick_meshes(
        [(plate_v, plate_f, None, markable), floor], SQUARE, view=top_view())
    np.testing.assert_array_equal(plate_mask, markable)
    assert not floor_mask[hidden].any()
    assert not velpick.pick(plate_v, plate_f, SQUARE, view=top_view(),
                            markable=np.zeros(len(plate_f), bool)).any()


def test_placement_moves_a_mesh_like_moving_its_vertices(floor):
    vertices, faces = floor
    shift = np.eye(4)
    shift[:3, 3] = [2500.0, -1500.0, 0.0]  # internal units: 2.5 and -1.5 model units
    moved = vertices + [2.5, -1.5, 0.0]
    (placed,) = velpick.pick_meshes([(vertices, faces, shift)], TRIANGLE, view=top_view())
    np.testing.assert_array_equal(placed, velpick.pick(moved, faces, TRIANGLE, view=top_view()))


def test_array_layouts_and_types_give_the_same_marks(floor):
    vertices, faces = floor
    vertices = vertices + [0.13, 0.07, 0.0]  # off the pixel lattice
    expected = velpick.pick(vertices, faces, TRIANGLE, view=top_view())
    wide = np.zeros((len(vertices), 7))
    wide[:, 1:7:2] = vertices
    variants = {
        "fortran": (np.asfortranarray(vertices), np.asfortranarray(faces)),
        "strided": (wide[:, 1:7:2], np.repeat(faces, 2, axis=0)[::2]),
        "int32 faces": (vertices, faces.astype(np.int32)),
        "uint16 faces": (vertices, faces.astype(np.uint16)),
        "lists": (vertices.tolist(), faces.tolist()),
    }
    for name, (v, f) in variants.items():
        np.testing.assert_array_equal(velpick.pick(v, f, TRIANGLE, view=top_view()), expected,
                                      err_msg=name)
    # float32 coordinates pick like their float64 values.
    single = (vertices * 1.0001 + 0.0003).astype(np.float32)
    np.testing.assert_array_equal(
        velpick.pick(single, faces, TRIANGLE, view=top_view()),
        velpick.pick(single.astype(np.float64), faces, TRIANGLE, view=top_view()))
    empty = velpick.pick(np.zeros((0, 3)), np.zeros((0, 3), np.int64), SQUARE, view=top_view())
    assert empty.shape == (0,) and empty.dtype == np.bool_


def test_the_gil_is_released_while_picking():
    # While another thread picks a large mesh, this thread keeps running: the longest pause
    # between its steps stays far below the pick's duration.
    vertices, faces = grid(500, 500, cell=0.04, origin=(-10.0, -10.0))
    picked = []
    worker = threading.Thread(
        target=lambda: picked.append(velpick.pick(vertices, faces, SQUARE, view=top_view())))
    start = time.perf_counter()
    last, longest_pause = start, 0.0
    worker.start()
    while worker.is_alive():
        now = time.perf_counter()
        longest_pause, last = max(longest_pause, now - last), now
    duration = time.perf_counter() - start
    assert picked and picked[0].any()
    assert longest_pause < 0.5 * duration, (longest_pause, duration)


V, F = grid(2, 2)
VIEW = top_view()
BAD_ARGUMENTS = [
    # (arguments replaced, the argument the message must start with)
    ({"vertices": V.astype(np.int64)}, "vertices: expected a float32 or float64"),
    ({"vertices": V[:, :2]}, "vertices: expected shape (N, 3)"),
    ({"vertices": [["a", "b", "c"]]}, "vertices: expected an array of numbers"),
    ({"vertices": V * 1e10}, "vertices: vertex 1: coordinate x"),
    ({"faces": F.astype(float)}, "faces: expected an integer array"),
    ({"faces": F[:, :2]}, "faces: expected shape (M, 3)"),
    ({"faces": np.array([[0, 1, 9]])}, "faces: face 0 uses vertex 9 but there are 9 vertices"),
    ({"faces": np.array([[0, 1, 2], [0, -1, 2]])}, "faces: face 1 uses vertex -1"),
    ({"region": [[0, 0], [1, 1]]}, "region: expected at least 3 points, got 2"),
    ({"region": [[0, 0], [1, np.nan], [1, 0]]}, "region[1][1]: expected a finite number"),
    ({"region": [[0, 0], [1e12, 0], [1, 1]]}, "region[1]: beyond the 32-bit pixel range"),
    ({"region": [[0, 0], [1e4, 0], [1e4, 1e4]], "pixel_proportion": 1e3},
     "region: the selection raster of"),
    ({"region": np.zeros((0, 2)), "brush_radius": 2}, "region: expected at least 1 point"),
    ({"brush_radius": 1.5}, "brush_radius: expected a whole number"),
    ({"view": None}, 'expected exactly one of "view" and "camera"'),
    ({"view": np.eye(3)}, "view: expected a 4x4 array"),
    ({"view": None, "camera": {"eye": [0, 0, 1], "target": [0, 0, 1], "up": [0, 1, 0],
                               "height": 1, "screen": [1, 1]}}, "camera: eye and target coincide"),
    ({"view": None, "camera": {"eye": [0, 0, 1]}}, "camera.target: missing"),
    ({"view": None, "camera": {"fov": 1}}, "camera.fov: unknown field"),
    ({"pixel_proportion": "5"}, "pixel_proportion: expected a number"),
    ({"picker": "graph"}, "picker: the graph picker marks edges, not faces; use pick_edges"),
    ({"mark_through": 1}, "mark_through: expected true or false"),
    ({"clipping_planes": [[0, 0, 0, 1]]}, "clipping_planes[0]: the normal (a, b, c) is zero"),
    ({"markable": np.ones(3, bool)}, "markable: expected shape (8,)"),
    ({"markable": np.ones(8, np.int8)}, "markable: expected a bool array"),
    # Once a bare allocation failure deep in the scan-line picker.
    ({"lines_per_pixel": 1e9}, "lines_per_pixel: expected at most 1024"),
    ({"threads": 0}, "threads: expected between 1 and 4096 threads, got 0"),
]


@pytest.mark.parametrize("changes,message", BAD_ARGUMENTS, ids=[m for _, m in BAD_ARGUMENTS])
def test_bad_arguments_raise_value_error_naming_them(changes, message):
    arguments = {"vertices": V, "faces": F, "region": SQUARE, "view": VIEW}
    arguments.update(changes)
    with pytest.raises(ValueError) as raised:
        velpick.pick(**arguments)
    assert str(raised.value).startswith(message), str(raised.value)


def test_a_keyword_of_another_function_is_a_type_error():
    with pytest.raises(TypeError, match="thickness"):
        velpick.pick(V, F, SQUARE, view=VIEW, thickness=1.0)


@pytest.mark.parametrize("meshes,message", [
    ([], "meshes: expected at least 1 mesh, got 0"),
    ([(V,)], "meshes[0]: expected a tuple (vertices, faces"),
    ([(V, F), (V, np.array([[0, 1, 20]]))], "meshes[1].faces: face 0 uses vertex 20"),
    ([(V, F, np.zeros((4, 4)))], "meshes[0].placement: the last row must be 0 0 0 1"),
])
def test_bad_meshes_raise_value_error_naming_them(meshes, message):
    with pytest.raises(ValueError) as raised:
        velpick.pick_meshes(meshes, SQUARE, view=VIEW)
    assert str(raised.value).startswith(message), str(raised.value)
