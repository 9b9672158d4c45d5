"""velpick on a Dask cluster: many views, or many meshes, split into chunks of views.

Imports ``distributed`` only when a function here is called. Results equal the local
``velpick.pick_views`` call exactly; a task that fails (a mesh file that cannot be read) raises
its exception here, naming the file, and no partial result is returned.
"""

import os
import threading

import numpy as np

import velpick

# Meshes built on a worker, by what names them (a file path and scale, or a scattered pair),
# kept for the later chunks of the same call.
_MESHES = {}
_MESHES_LOCK = threading.Lock()
_MESHES_KEPT = 4


def _distributed():
    try:
        import distributed
    except ImportError as error:
        raise ImportError("velpick.dask needs the distributed package "
                          "(Debian: python3-distributed)") from error
    return distributed


def _worker_mesh(source, key, units):
    with _MESHES_LOCK:
        mesh = _MESHES.get((key, units))
    if mesh is not None:
        return mesh
    if isinstance(source, (str, os.PathLike)):
        mesh = velpick.load_mesh(source, units_per_model_unit=units)
    else:
        mesh = velpick.Mesh(source[0], source[1], units_per_model_unit=units)
    with _MESHES_LOCK:
        if len(_MESHES) >= _MESHES_KEPT:
            _MESHES.pop(next(iter(_MESHES)))
        _MESHES[(key, units)] = mesh
    return mesh


def _pick_chunk(source, key, units, cameras, region, reduce, keywords):
    mesh = _worker_mesh(source, key, units)
    # "any" is summed as counts across chunks, then turned into bool.
    chunk_reduce = None if reduce is None else "count"
    return velpick.pick_views(mesh, cameras, region=region, reduce=chunk_reduce, **keywords)


def _mesh_source(client, mesh):
    """A path is read on the workers; arrays are scattered once to every worker."""
    if isinstance(mesh, (str, os.PathLike)):
        path = os.path.abspath(os.fspath(mesh))
        return path, "file:" + path
    vertices, faces = mesh
    futures = client.scatter([np.asarray(vertices), np.asarray(faces)], broadcast=True)
    return futures, "arrays:" + futures[0].key


def _submit(client, mesh, cameras, region, reduce, chunk, keywords):
    if reduce not in (None, "any", "count"):
        raise ValueError(f'reduce: expected None, "any" or "count", got {reduce!r}')
    if chunk < 1:
        raise ValueError(f"chunk: expected at least 1 view, got {chunk}")
    keywords = dict(keywords)
    units = keywords.pop("units_per_model_unit", 1000.0)
    keywords.setdefault("threads", 1)  # the cluster's workers are the parallelism
    source, key = _mesh_source(client, mesh)
    cameras = list(cameras)
    return [client.submit(_pick_chunk, source, key, units, cameras[i:i + chunk], region, reduce,
                          keywords, pure=False)
            for i in range(0, len(cameras), chunk)]


def _combine(parts, reduce, faces_hint=0):
    if reduce is None:
        return np.concatenate(parts) if parts else np.zeros((0, faces_hint), bool)
    total = np.sum(parts, axis=0, dtype=np.uint32) if parts else np.zeros(faces_hint, np.uint32)
    return total.astype(bool) if reduce == "any" else total


def _gather(client, futures):
    try:
        return client.gather(futures)
    except BaseException:
        client.cancel(futures)
        raise


def pick_views(client, mesh, cameras, *, chunk=16, reduce=None, region=None, **keywords):
    """velpick.pick_views on the cluster of ``client``.

    mesh: a file path (read on the workers, not shipped through the scheduler) or a
    (vertices, faces) pair (scattered once to every worker). cameras: camera dicts, split into
    chunks of ``chunk`` views, one task each. reduce, region and the other keywords
    (units_per_model_unit, picker, threads per task: 1 by default, ...) mean what they mean
    for velpick.pick_views. Progress shows on the cluster's dashboard, or pass the futures of
    ``submit_views`` to ``distributed.progress``.
    """
    futures = _submit(client, mesh, cameras, region, reduce, chunk, keywords)
    return _combine(_gather(client, futures), reduce)


def pick_many(client, jobs, *, chunk=16, reduce=None, **shared):
    """Many meshes, each with its cameras: ``jobs`` is a list of dicts {"mesh": path or
    (vertices, faces), "cameras": [...], "region": ... (optional)}; ``shared`` keywords apply to
    every job. Returns one result per job, in order, each as pick_views would return it."""
    submitted = []
    for job in jobs:
        unknown = set(job) - {"mesh", "cameras", "region"}
        if unknown:
            raise ValueError(f"jobs: unknown fields {sorted(unknown)}")
        submitted.append(_submit(client, job["mesh"], job["cameras"], job.get("region"), reduce,
                                 chunk, shared))
    flat = [future for futures in submitted for future in futures]
    results = iter(_gather(client, flat))
    return [_combine([next(results) for _ in futures], reduce) for futures in submitted]
