# Meshes built once, many views: velpick.Mesh, load_mesh, pick_views and velpick.dask.

import math
import os
import pathlib

import numpy as np
import pytest

from conftest import velpick

MODEL = pathlib.Path("/usr/share/assimp/models/STL/Spider_binary.stl")
SCREEN = [[0, 0], [60, 0], [60, 40], [0, 40]]
LASSO = [[10, 5], [50, 8], [30, 35]]


def ring(count):
    return [{"eye": [12 * math.cos(a), 12 * math.sin(a), 3], "target": [0, 0, 0],
             "up": [0, 0, 1], "height": 10, "screen": [60, 40]}
            for a in np.linspace(0, 2 * math.pi, count, endpoint=False)]


@pytest.fixture(scope="module")
def model():
    if not MODEL.exists():
        pytest.skip(f"{MODEL} is missing (Debian package assimp-testmodels)")
    return velpick.load_mesh(MODEL)


# The rows are the single picks of the same mesh given as arrays; the reductions sum them.
@pytest.mark.parametrize("picker,region", [("zbuffer", None), ("scanline", LASSO)])
def test_rows_are_the_single_picks_and_reductions_sum_them(model, picker, region):
    cameras, arrays = ring(24), (model.vertices, model.faces)

    def views(mesh=model, **keywords):
        return velpick.pick_views(mesh, cameras, region=region, picker=picker, **keywords)

    seen = []
    rows = views(threads=2, progress=lambda done, total: seen.append(total))
    assert rows.shape == (24, len(model)) and rows.any(axis=1).all()
    for i, camera in enumerate(cameras):
        single = velpick.pick(*arrays, region or SCREEN, camera=camera, picker=picker)
        np.testing.assert_array_equal(rows[i], single, err_msg=f"view {i}")
    count = views(arrays, reduce="count")
    assert count.dtype == np.uint32 and np.array_equal(count, rows.sum(axis=0))
    assert np.array_equal(views(reduce="any"), rows.any(axis=0))
    assert seen and set(seen) == {24}


@pytest.fixture(scope="module")
def client():
    distributed = pytest.importorskip("distributed", reason="velpick.dask needs it")
    # Worker processes import velpick from where this process found it.
    folder = str(pathlib.Path(velpick.__file__).resolve().parent)
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [folder, os.environ.get("PYTHONPATH")]))
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster:
        with distributed.Client(cluster) as connected:
            yield connected


def test_dask_equals_the_local_call(model, client):
    import velpick.dask as vdask
    cameras = ring(10)
    local = velpick.pick_views(model, cameras)
    np.testing.assert_array_equal(vdask.pick_views(client, MODEL, cameras, chunk=3), local)
    # "any" is reduced as counts summed over the chunks.
    both = vdask.pick_many(client, [{"mesh": MODEL, "cameras": cameras[:4]},
                                    {"mesh": (model.vertices, model.faces), "cameras": cameras[4:]}],
                           chunk=4, reduce="any")
    np.testing.assert_array_equal(both[1], local[4:].any(axis=0))
