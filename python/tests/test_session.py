"""velpick.Session against pick() on the same mesh and keywords."""

import numpy as np
import pytest

from conftest import velpick
from test_cameras import pinhole

CAMERA = {"eye": [0.3, -0.4, 3.0], "target": [0, 0, 0], "up": [0, 1, 0], "height": 3.0,
          "screen": [200, 200]}


def sphere(rings=40, segments=80):
    """A UV sphere of radius 1: vertices (N, 3) and counter-clockwise faces."""
    theta = np.linspace(0, np.pi, rings + 1)[:, None]
    phi = np.linspace(0, 2 * np.pi, segments, endpoint=False)[None, :]
    vertices = np.stack([np.sin(theta) * np.cos(phi), np.sin(theta) * np.sin(phi),
                         np.cos(theta) + 0 * phi], axis=-1).reshape(-1, 3)
    i, j = np.meshgrid(np.arange(rings), np.arange(segments), indexing="ij")
    a, b = i * segments + j, i * segments + (j + 1) % segments
    faces = np.stack([a, a + segments, b + segments, a, b + segments, b], axis=-1)
    return vertices, faces.reshape(-1, 3).astype(np.int64)


@pytest.mark.parametrize("keywords", [{}, {"back_face_culling": True}, {"mark_through": True},
                                      {"clipping_planes": [[1, 0, 0, 200]]},
                                      {"picker": "scanline", "lines_per_pixel": 2},
                                      {"picker": "scanline", "scanline_rule": "nearest"}])
def test_picks_equal_pick_on_random_lassos_and_brushes(keywords):
    vertices, faces = sphere()
    rng = np.random.default_rng(5)
    markable = rng.random(len(faces)) < 0.7
    mesh = velpick.Mesh(vertices, faces)
    for source, extra in (((mesh,), {}), ((vertices, faces), {"markable": markable})):
        session = velpick.Session(*source, camera=CAMERA, **extra, **keywords)
        for _ in range(8):
            centre, radius = rng.uniform(60, 140, 2), rng.uniform(5, 30)
            angles = np.linspace(0, 2 * np.pi, 7, endpoint=False)
            lasso = centre + radius * np.stack([np.cos(angles), np.sin(angles)], axis=1)
            expected = velpick.pick(*source, lasso, camera=CAMERA, **extra, **keywords)
            assert (session.pick(lasso) == expected).all()
            brush = lasso[:3]
            expected = velpick.pick(*source, brush, brush_radius=3, camera=CAMERA, **extra,
                                    **keywords)
            assert (session.pick(brush, brush_radius=3) == expected).all()


@pytest.mark.parametrize("picker", ["zbuffer", "scanline"])
def test_a_pinhole_session_picks_as_pick_in_image_coordinates(picker):
    vertices, faces = sphere()
    camera = pinhole([0.5, -3.0, 1.0], [0, 0, 0], width=200, height=160)
    session = velpick.Session(vertices, faces, camera=camera, picker=picker)
    lasso = [[30, 20], [170, 40], [120, 150], [60, 110]]  # no mirror image of itself
    for brush in (None, 4):
        expected = velpick.pick(vertices, faces, lasso, camera=camera, brush_radius=brush,
                                picker=picker)
        assert expected.any() and (session.pick(lasso, brush_radius=brush) == expected).all()


def test_a_stroke_reports_each_face_once_and_covers_about_the_whole_path():
    vertices, faces = sphere()
    session = velpick.Session(vertices, faces, camera=CAMERA)
    path = [(50 + 5 * k, 100 + 20 * np.sin(k / 3)) for k in range(21)]
    first = session.add_segment(path[0], path[1], 2)
    whole = velpick.pick(vertices, faces, path[:2], brush_radius=2, camera=CAMERA)
    assert (np.flatnonzero(whole) == first).all()
    reported = [first] + [session.add_segment(a, b, 2) for a, b in zip(path[1:], path[2:])]
    stroke = np.concatenate(reported)
    assert len(np.unique(stroke)) == len(stroke)
    whole = np.flatnonzero(velpick.pick(vertices, faces, path, brush_radius=2, camera=CAMERA))
    jaccard = len(np.intersect1d(stroke, whole)) / len(np.union1d(stroke, whole))
    assert jaccard >= 0.98 and len(whole) > 100
    session.new_stroke()
    assert (session.add_segment(path[0], path[1], 2) == first).all()


@pytest.mark.parametrize("call, message", [
    (lambda: velpick.Session(*sphere(4, 8), camera=CAMERA, picker="graph"), "picker"),
    (lambda: velpick.Session(*sphere(4, 8), camera=CAMERA).pick([[0, 0], [1, 1]]),
     "region: expected at least 3 points"),
    (lambda: velpick.Session(*sphere(4, 8), camera=CAMERA).add_segment((0, 0), (1, 1), 1.5),
     "brush_radius"),
])
def test_bad_arguments_raise_value_error(call, message):
    with pytest.raises(ValueError, match=message):
        call()
