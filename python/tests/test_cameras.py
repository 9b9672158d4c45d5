"""Perspective and pinhole cameras from Python: numpy arrays for K, R and t, as velpick reads them."""

import math

import numpy as np
import pytest

from conftest import cli_masks, grid, run_velpick, scene_json, velpick, write_ply


def pinhole(eye, target, width=120, height=80, fov_deg=50.0):
    """A pinhole camera at eye looking at target, z up, as numpy arrays."""
    eye, target = np.asarray(eye, float), np.asarray(target, float)
    z = (target - eye) / np.linalg.norm(target - eye)
    x = np.cross(z, [0.0, 0.0, 1.0])
    x /= np.linalg.norm(x)
    rotation = np.stack([x, np.cross(z, x), z])
    f = height / (2 * math.tan(math.radians(fov_deg) / 2))
    k = np.array([[f, 0, width / 2 - 0.5], [0, f, height / 2 - 0.5], [0, 0, 1]])
    return {"pinhole": {"K": k, "R": rotation, "t": -rotation @ eye, "image": [width, height]}}


def plates():
    """A floor grid and a smaller plate floating above it, as one mesh."""
    floor_v, floor_f = grid(20, 20, cell=1.0, origin=(-10, -10))
    top_v, top_f = grid(4, 4, cell=1.0, origin=(-2, -2), z=2.0)
    return np.vstack([floor_v, top_v]), np.vstack([floor_f, top_f + len(floor_v)])


def test_numpy_pinhole_picks_as_the_command_line(tmp_path):
    vertices, faces = plates()
    write_ply(tmp_path / "plates.ply", vertices, faces)
    camera = pinhole([3, -14, 9], [0, 0, 0])
    lasso = np.array([[20.0, 10.0], [100.0, 14.0], [90.0, 70.0], [25.0, 66.0]])
    picked = velpick.pick(vertices, faces, lasso, camera=camera)
    listed = {"pinhole": {key: np.asarray(value).tolist()
                          for key, value in camera["pinhole"].items()}}
    expected = cli_masks(run_velpick(tmp_path, scene_json(["plates.ply"], lasso, camera=listed)))
    assert picked.any() and not picked.all()
    np.testing.assert_array_equal(picked, expected[0])


def test_whole_view_of_every_camera_form():
    vertices, faces = plates()
    mesh = velpick.Mesh(vertices, faces)
    fov = {**FOV, "near": 0.5}
    cameras = [pinhole([3, -14, 9], [0, 0, 0]), fov]
    rows = velpick.pick_views(mesh, cameras)
    image = [[-0.5, -0.5], [119.5, -0.5], [119.5, 79.5], [-0.5, 79.5]]
    np.testing.assert_array_equal(rows[0], velpick.pick(mesh, image, camera=cameras[0]))
    screen = [[0, 0], [120, 0], [120, 80], [0, 80]]
    np.testing.assert_array_equal(rows[1], velpick.pick(mesh, screen, camera=fov))
    assert np.count_nonzero(rows[0] != rows[1]) <= 4  # the same camera in two forms


FOV = {"eye": [3, -14, 9], "target": [0, 0, 0], "up": [0, 0, 1], "fov_deg": 50, "screen": [120, 80]}


@pytest.mark.parametrize("camera, picker, message", [
    ({**FOV, "fov_deg": 180}, "zbuffer", "camera.fov_deg: expected a number > 0 and < 180"),
    ({**FOV, "near": -1}, "zbuffer", "camera.near: expected a number > 0"),
    ({**FOV, "fov_deg": float("nan")}, "scanline", "camera.fov_deg"),
])
def test_errors_name_the_camera_field(camera, picker, message):
    vertices, faces = plates()
    with pytest.raises(ValueError, match=message):
        velpick.pick(vertices, faces, [[0, 0], [9, 0], [9, 9]], camera=camera, picker=picker)
