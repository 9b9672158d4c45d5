"""The binding gives the marks the velpick program gives on the same scene, for every picker."""

import numpy as np
import pytest

from conftest import cli_masks, grid, run_velpick, scene_json, top_view, velpick, write_obj, write_ply

PICKERS = [name for name in velpick.pickers() if name != "graph"]  # graph marks edges


def random_soup(seed, count, size=20.0):
    """Overlapping random triangles in a box: occlusion everywhere, vertices shared at random."""
    rng = np.random.default_rng(seed)
    vertices = rng.uniform(-size / 2, size / 2, (count, 3))
    faces = rng.integers(0, count, (2 * count, 3))
    return vertices, faces


def tilted_camera(**extra):
    camera = {"eye": [30.0, -40.0, 50.0], "target": [0.0, 0.0, 0.0], "up": [0.0, 0.0, 1.0],
              "height": 30.0, "screen": [40.0, 30.0]}
    camera.update(extra)
    return camera


LASSO = [[5.0, 4.0], [33.0, 6.0], [30.0, 26.0], [18.0, 12.0], [8.0, 25.0]]

# (name, meshes as (vertices, faces, placement), region, settings)
plate_v, plate_f = grid(4, 4, cell=2.0, origin=(-4.0, -4.0), z=5.0)
floor_v, floor_f = grid(20, 20, cell=1.0, origin=(-10.0, -10.0), z=0.0)
soup_v, soup_f = random_soup(7, 300)
shift = np.eye(4)
shift[:3, 3] = [3000.0, -2000.0, 4000.0]  # internal units

SCENES = [
    ("plate hides floor", [(plate_v, plate_f, None), (floor_v, floor_f, None)],
     [[-8.0, -8.0], [8.0, -7.0], [7.5, 8.0], [-7.0, 7.0]], {"view": top_view()}),
    ("soup under a camera", [(soup_v, soup_f, None)], LASSO, {"camera": tilted_camera()}),
    ("soup, back faces culled", [(soup_v, soup_f, None)], LASSO,
     {"camera": tilted_camera(), "back_face_culling": True, "depth_tolerance": 0.5}),
    ("soup marked through", [(soup_v, soup_f, None)], LASSO,
     {"camera": tilted_camera(), "mark_through": True}),
    ("soup, clipped", [(soup_v, soup_f, None)], LASSO,
     {"camera": tilted_camera(), "clipping_planes": [[0.0, 0.0, -1.0, 1500.0], [1.0, 1.0, 0.0, 0.0]]}),
    ("soup, brushed", [(soup_v, soup_f, None)], [[6.0, 6.0], [20.0, 20.0], [34.0, 8.0]],
     {"camera": tilted_camera(), "brush_radius": 3, "pixel_proportion": 2.5}),
    ("placed plate over soup", [(soup_v, soup_f, None), (plate_v, plate_f, shift)], LASSO,
     {"camera": tilted_camera(), "units_per_model_unit": 1000.0}),
    ("coarse units", [(soup_v, soup_f, None)], LASSO,
     {"camera": tilted_camera(), "units_per_model_unit": 3.0, "pixel_proportion": 1.5}),
    ("few lines, one thread", [(soup_v, soup_f, None)], LASSO,
     {"camera": tilted_camera(), "lines_per_pixel": 1.5, "threads": 1}),
]


@pytest.mark.parametrize("picker", PICKERS)
@pytest.mark.parametrize("name,meshes,region,settings", SCENES, ids=[s[0] for s in SCENES])
def test_same_marks_as_velpick(tmp_path, picker, name, meshes, region, settings):
    files = []
    for i, (vertices, faces, _) in enumerate(meshes):
        files.append(f"mesh{i}.ply")
        write_ply(tmp_path / files[-1], vertices, faces)
    placements = [placement for _, _, placement in meshes]
    settings = dict(settings, picker=picker)
    expected = cli_masks(run_velpick(
        tmp_path, scene_json(files, region, placements=placements, **settings)))

    masks = velpick.pick_meshes(meshes, region, **settings)

    assert len(masks) == len(expected)
    for mask, want in zip(masks, expected):
        assert mask.dtype == np.bool_
        np.testing.assert_array_equal(mask, want)
    assert all(mask.any() for mask in masks), "a mesh that gets no mark checks little"


@pytest.mark.parametrize("picker", PICKERS)
def test_rounding_and_merging_match_the_importer(tmp_path, picker):
    # Coordinates on half internal units round away from zero; vertices a tenth of a unit
    # apart merge into one. Both decide which faces are degenerate or touch.
    vertices, faces = grid(12, 12, cell=0.0015, origin=(-0.009, -0.009))
    rng = np.random.default_rng(3)
    vertices[:, 2] = rng.choice([-0.0005, 0.0005, 0.0015, 0.0001], len(vertices))
    vertices[::5, :2] += 0.0004
    region = [[-0.006, -0.007], [0.008, -0.004], [0.002, 0.008]]
    settings = {"view": top_view(1.0), "pixel_proportion": 2000.0, "picker": picker}
    write_ply(tmp_path / "m.ply", vertices, faces)
    expected = cli_masks(run_velpick(tmp_path, scene_json(["m.ply"], region, **settings)))[0]

    np.testing.assert_array_equal(velpick.pick(vertices, faces, region, **settings), expected)


@pytest.mark.parametrize("picker", PICKERS)
def test_markable_faces_match_markable_surfaces(tmp_path, picker):
    # Two plates, the upper one's left half markable: velpick reads it as OBJ group 0.
    upper_v, upper_f = grid(6, 6, cell=2.0, origin=(-6.0, -6.0), z=2.0)
    groups = [0 if (f % 12) < 6 else 1 for f in range(len(upper_f))]
    floor = grid(10, 10, cell=2.0, origin=(-10.0, -10.0))
    write_obj(tmp_path / "upper.obj", upper_v, upper_f, groups)
    write_ply(tmp_path / "floor.ply", *floor)
    region = [[-9.0, -9.0], [9.0, -9.0], [9.0, 9.0], [-9.0, 9.0]]
    settings = {"view": top_view(), "picker": picker}
    expected = cli_masks(run_velpick(tmp_path, scene_json(
        ["upper.obj", "floor.ply"], region, markable=[[0], None], **settings)))

    markable = np.array(groups) == 0
    masks = velpick.pick_meshes([(upper_v, upper_f, None, markable), floor + (None,)],
                                region, **settings)

    np.testing.assert_array_equal(masks[0], expected[0])
    np.testing.assert_array_equal(masks[1], expected[1])
    assert not masks[0][~markable].any()


@pytest.mark.skipif("scanline" not in PICKERS, reason="the scan-line picker is not built in")
def test_scanline_brush_of_fractional_radius_matches_velpick(tmp_path):
    write_ply(tmp_path / "soup.ply", soup_v, soup_f)
    stroke = [[6.0, 6.0], [20.0, 20.0], [34.0, 8.0]]
    settings = {"camera": tilted_camera(), "picker": "scanline", "brush_radius": 2.5}
    expected = cli_masks(run_velpick(tmp_path, scene_json(["soup.ply"], stroke, **settings)))[0]

    mask = velpick.pick(soup_v, soup_f, stroke, **settings)

    np.testing.assert_array_equal(mask, expected)
    assert mask.any()
    with pytest.raises(ValueError, match="^brush_radius: expected a whole number"):
        velpick.pick(soup_v, soup_f, stroke, **dict(settings, picker="zbuffer"))
