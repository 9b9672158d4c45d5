"""Meshes built once, many views: velpick.Mesh, load_mesh, pick_views and velpick.dask."""

import math
import pathlib
import threading

import numpy as np
import pytest

from conftest import velpick, write_ply

MODEL = pathlib.Path("/usr/share/assimp/models/STL/Spider_binary.stl")


def ring(count, screen=(60, 40), height=10):
    return [{"eye": [12 * math.cos(a), 12 * math.sin(a), 3], "target": [0, 0, 0],
             "up": [0, 0, 1], "height": height, "screen": list(screen)}
            for a in np.linspace(0, 2 * math.pi, count, endpoint=False)]


@pytest.fixture(scope="module")
def model():
    if not MODEL.exists():
        pytest.skip(f"{MODEL} is missing (Debian package assimp-testmodels)")
    return velpick.load_mesh(MODEL)


def test_rows_are_the_single_picks_and_reductions_sum_them(model):
    cameras = ring(24)
    screen = [[0, 0], [60, 0], [60, 40], [0, 40]]
    lasso = [[10, 5], [50, 8], [30, 35]]
    for picker, region in (("zbuffer", None), ("scanline", lasso)):
        rows = velpick.pick_views(model, cameras, region=region, picker=picker, threads=2)
        assert rows.shape == (24, len(model)) and rows.any(axis=1).all()
        for i, camera in enumerate(cameras):
            single = velpick.pick(model, screen if region is None else region, camera=camera,
                                  picker=picker)
            np.testing.assert_array_equal(rows[i], single, err_msg=f"{picker} view {i}")
        count = velpick.pick_views(model, cameras, region=region, picker=picker, reduce="count")
        assert count.dtype == np.uint32
        np.testing.assert_array_equal(count, rows.sum(axis=0))
        np.testing.assert_array_equal(
            velpick.pick_views(model, cameras, region=region, picker=picker, reduce="any"),
            rows.any(axis=0))
    seen = []
    velpick.pick_views(model, cameras[:3], progress=lambda done, total: seen.append(total))
    assert set(seen) <= {3}


def test_a_mesh_is_the_arrays_it_was_built_from(model, tmp_path):
    vertices, faces = model.vertices, model.faces
    write_ply(tmp_path / "copy.ply", vertices, faces)
    camera = ring(1)[0]
    lasso = [[5, 5], [55, 5], [30, 38]]
    expected = velpick.pick(vertices, faces, lasso, camera=camera)
    for mesh in (velpick.Mesh(vertices, faces), velpick.load_mesh(tmp_path / "copy.ply")):
        np.testing.assert_array_equal(velpick.pick(mesh, lasso, camera=camera), expected)
    np.testing.assert_array_equal(velpick.pick_views((vertices, faces), [camera], region=lasso)[0],
                                  expected)
    np.testing.assert_array_equal(velpick.pick_edges(model, lasso, camera=camera),
                                  velpick.pick_edges(vertices, faces, lasso, camera=camera))


@pytest.mark.parametrize("call,message", [
    (lambda m: velpick.pick(m, [[0, 0], [1, 0], [0, 1]], camera=ring(1)[0],
                            units_per_model_unit=10), "units_per_model_unit: a Mesh carries"),
    (lambda m: velpick.pick_views(m, ring(2), reduce="all"), "reduce: expected None"),
    (lambda m: velpick.pick_views(m, [ring(1)[0], dict(ring(1)[0], height=0)]),
     "cameras[1].height"),
    (lambda m: velpick.pick_views(m, ring(2), picker="graph"), "picker: pick_views takes"),
    (lambda m: velpick.load_mesh("/nonexistent/mesh.ply"), "/nonexistent/mesh.ply"),
])
def test_bad_calls_name_the_argument(model, call, message):
    with pytest.raises(ValueError) as raised:
        call(model)
    assert message in str(raised.value)


def test_four_threads_at_four_scales_get_the_sequential_marks(model):
    # Coarse scales round the vertices differently, so each scale has marks of its own.
    scales = [2.0, 5.0, 20.0, 1000.0]
    meshes = {s: velpick.Mesh(model.vertices, model.faces, units_per_model_unit=s)
              for s in scales}
    cameras = ring(6)
    expected = {s: velpick.pick_views(meshes[s], cameras, threads=1) for s in scales}
    assert not np.array_equal(expected[2.0], expected[1000.0])
    results, errors = {}, []

    def run(scale):
        try:
            results[scale] = [velpick.pick(meshes[scale], [[0, 0], [60, 0], [60, 40], [0, 40]],
                                           camera=c) for c in cameras]
        except Exception as error:  # reported below, not lost in the thread
            errors.append(error)

    threads = [threading.Thread(target=run, args=(s,)) for s in scales]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not errors
    for scale in scales:
        np.testing.assert_array_equal(np.array(results[scale]), expected[scale])


@pytest.fixture(scope="module")
def client():
    distributed = pytest.importorskip(
        "distributed", reason="velpick.dask needs python3-distributed")
    import os
    import velpick as module
    # Worker processes import velpick from where this process found it.
    folder = str(pathlib.Path(module.__file__).resolve().parent)
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [folder, os.environ.get("PYTHONPATH")]))
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster:
        with distributed.Client(cluster) as connected:
            yield connected


def test_dask_equals_the_local_call_and_names_a_bad_file(model, client, tmp_path):
    import velpick.dask as vdask
    cameras = ring(10)
    local = velpick.pick_views(model, cameras)
    np.testing.assert_array_equal(vdask.pick_views(client, MODEL, cameras, chunk=3), local)
    np.testing.assert_array_equal(
        vdask.pick_views(client, (model.vertices, model.faces), cameras, chunk=4, reduce="count"),
        local.sum(axis=0))
    both = vdask.pick_many(client, [{"mesh": MODEL, "cameras": cameras[:4]},
                                    {"mesh": MODEL, "cameras": cameras[4:]}], reduce="any")
    np.testing.assert_array_equal(both[1], local[4:].any(axis=0))
    bad = tmp_path / "broken.ply"
    bad.write_text("ply\nformat ascii 1.0\nelement vertex 3\n")
    with pytest.raises(ValueError, match="broken.ply"):
        vdask.pick_many(client, [{"mesh": MODEL, "cameras": cameras},
                                 {"mesh": bad, "cameras": cameras}])
