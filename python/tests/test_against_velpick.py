# The binding gives the marks the velpick program gives on the same scene, for every picker;
# each setting a scene tests changes the marks, so that it is seen to reach the picker.

import numpy as np
import pytest

from conftest import (TILTED_CAMERA, cli_masks, grid, run_velpick, scene_json, top_view, velpick,
                      write_ply)

PICKERS = tuple(name for name in velpick.pickers() if name != "graph")  # graph marks edges
rng = np.random.default_rng(7)
# Overlapping random triangles in a box: occlusion everywhere, vertices shared at random.
SOUP = (rng.uniform(-10.0, 10.0, (300, 3)), rng.integers(0, 300, (600, 3)), None)
PLATE, FLOOR = grid(4, 4, cell=2.0, origin=(-4.0, -4.0), z=5.0), grid(20, 20, origin=(-10, -10))
SHIFT = [[1, 0, 0, 3000], [0, 1, 0, -2000], [0, 0, 1, 4000], [0, 0, 0, 1]]  # internal units
# Coordinates on half internal units round away from zero; vertices a tenth of a unit apart
# merge into one. Both decide which faces are degenerate or touch.
TINY = grid(12, 12, cell=0.0015, origin=(-0.009, -0.009))
TINY[0][:, 2] = np.random.default_rng(3).choice([-0.0005, 0.0005, 0.0015, 0.0001], len(TINY[0]))
TINY[0][::5, :2] += 0.0004
# A triangle rising through a one-quad plate under a band: it enters each line's depth order
# behind the plate and stays there, but is nearest for x > 9/7.
QUAD = grid(1, 1, cell=8.0, origin=(-4.0, -4.0), z=5.0) + (None,)
RISER = (np.array([[-3.0, -20.0, 0.0], [3.0, 0.0, 7.0], [-3.0, 20.0, 0.0]]), [[0, 1, 2]], None)
BAND = [[-4.5, -3.0], [4.5, -3.0], [4.5, -1.0], [-4.5, -1.0]]
CAMERA = {"camera": TILTED_CAMERA}
LASSO = [[5.0, 4.0], [33.0, 6.0], [30.0, 26.0], [18.0, 12.0], [8.0, 25.0]]
STROKE = {"brush_radius": 3, **CAMERA}

# (name, meshes as (vertices, faces, placement), region, settings, settings tested, pickers)
SCENES = [
    ("plate hides floor", [PLATE + (None,), FLOOR + (None,)],
     [[-8.0, -8.0], [8.0, -7.0], [7.5, 8.0], [-7.0, 7.0]], {"view": top_view()}, {}, PICKERS),
    ("culled", [SOUP], LASSO, CAMERA, {"back_face_culling": True}, PICKERS),
    ("depth tolerance", [SOUP], LASSO, CAMERA, {"depth_tolerance": 0.5}, ("zbuffer",)),
    ("marked through", [SOUP], LASSO, CAMERA, {"mark_through": True}, PICKERS),
    ("clipped", [SOUP], LASSO, CAMERA,
     {"clipping_planes": [[0.0, 0.0, -1.0, 1500.0], [1.0, 1.0, 0.0, 0.0]]}, PICKERS),
    ("brushed", [SOUP], [[6.0, 6.0], [20.0, 20.0], [34.0, 8.0]], STROKE,
     {"pixel_proportion": 2.5}, PICKERS),
    ("fractional brush", [SOUP], [[6.0, 6.0], [20.0, 20.0], [34.0, 8.0]], STROKE,
     {"brush_radius": 2.5}, ("scanline",)),
    ("placed plate over soup", [SOUP, PLATE + (SHIFT,)], LASSO, CAMERA, {}, PICKERS),
    ("coarse units", [SOUP], LASSO, CAMERA, {"units_per_model_unit": 3.0}, PICKERS),
    ("few lines, one thread", [SOUP], LASSO, CAMERA, {"lines_per_pixel": 1.5, "threads": 1},
     ("scanline",)),
    ("rising through a plate", [QUAD, RISER], BAND, {"view": top_view()},
     {"scanline_rule": "nearest"}, ("scanline",)),
    ("rounding and merging", [TINY + (None,)], [[-6e-3, -7e-3], [8e-3, -4e-3], [2e-3, 8e-3]],
     {"view": top_view(1.0), "pixel_proportion": 2000.0}, {}, PICKERS),
]
CASES = [pytest.param(picker, *scene[1:5], id=f"{scene[0]}, {picker}")
         for scene in SCENES for picker in scene[5] if picker in PICKERS]


@pytest.mark.parametrize("picker,meshes,region,settings,tested", CASES)
def test_same_marks_as_velpick_and_the_tested_settings_count(tmp_path, picker, meshes, region,
                                                             settings, tested):
    files = [f"mesh{i}.ply" for i in range(len(meshes))]
    for file, (vertices, faces, _) in zip(files, meshes):
        write_ply(tmp_path / file, vertices, faces)
    chosen = dict(settings, picker=picker, **tested)
    expected = cli_masks(run_velpick(tmp_path, scene_json(
        files, region, placements=[mesh[2] for mesh in meshes], **chosen)))

    masks = velpick.pick_meshes(meshes, region, **chosen)

    assert len(masks) == len(expected) and all(mask.dtype == np.bool_ for mask in masks)
    for mask, want in zip(masks, expected):
        np.testing.assert_array_equal(mask, want)
    assert all(mask.any() for mask in masks), "a mesh that gets no mark checks little"
    if tested:
        untested = velpick.pick_meshes(meshes, region, **dict(settings, picker=picker))
        assert any(not np.array_equal(a, b) for a, b in zip(masks, untested)), "no change"


def test_the_nearest_rule_alone_marks_the_riser_where_it_is_within_the_tolerance():
    lowered = RISER[:2] + (np.diag([1.0, 1.0, 4.95 / 6.65, 1.0]),)  # top 0.05 under the plate
    cases = [(RISER, "ordered", 0.05), (RISER, "nearest", 0.05), (lowered, "nearest", 0.02),
             (lowered, "nearest", 0.2)]
    marked = [velpick.pick_meshes([QUAD, riser], BAND, view=top_view(), picker="scanline",
                                  scanline_rule=rule, depth_tolerance=t)[1][0]
              for riser, rule, t in cases]
    assert marked == [False, True, False, True]
