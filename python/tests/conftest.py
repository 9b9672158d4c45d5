"""Shared scenes and a runner for the velpick program, the binding's reference."""

import json
import os
import pathlib
import subprocess

import numpy as np
import pytest

velpick = pytest.importorskip("velpick")

REPO = pathlib.Path(__file__).resolve().parents[2]


def velpick_executable():
    path = os.environ.get("VELPICK_EXECUTABLE") or REPO / "build" / "tools" / "velpick"
    return pathlib.Path(path).resolve()


def grid(columns, rows, cell=1.0, origin=(0.0, 0.0), z=0.0):
    """A flat grid facing +z: vertices (N, 3) and two counter-clockwise faces per cell."""
    xs, ys = np.meshgrid(np.arange(columns + 1), np.arange(rows + 1))
    vertices = np.stack(
        [origin[0] + cell * xs.ravel(), origin[1] + cell * ys.ravel(), np.full(xs.size, z)],
        axis=1,
    )
    a = (np.arange(rows)[:, None] * (columns + 1) + np.arange(columns)[None, :]).ravel()
    up = a + columns + 1  # the corner above a
    faces = np.stack([a, a + 1, up + 1, a, up + 1, up], axis=1).reshape(-1, 3)
    return vertices, faces.astype(np.int64)


def top_view(scale=0.001):
    """Scene internal units to screen units, looking down -z: x and y scaled, z kept nearer-up."""
    view = np.diag([scale, scale, scale, 1.0])
    return view


def write_ply(path, vertices, faces):
    lines = [
        "ply",
        "format ascii 1.0",
        f"element vertex {len(vertices)}",
        "property double x",
        "property double y",
        "property double z",
        f"element face {len(faces)}",
        "property list uchar int vertex_indices",
        "end_header",
    ]
    lines += [" ".join(repr(float(c)) for c in v) for v in vertices]
    lines += ["3 " + " ".join(str(int(i)) for i in f) for f in faces]
    path.write_text("\n".join(lines) + "\n")


def write_obj(path, vertices, faces, groups):
    """OBJ with face groups: faces[i] joins group groups[i] (groups become surfaces in order)."""
    lines = [f"v {v[0]!r} {v[1]!r} {v[2]!r}" for v in vertices.tolist()]
    current = None
    for face, group in zip(faces.tolist(), groups):
        if group != current:
            lines.append(f"g g{group}")
            current = group
        lines.append("f " + " ".join(str(i + 1) for i in face))
    path.write_text("\n".join(lines) + "\n")


def scene_json(files, region, *, placements=None, markable=None, brush_radius=None, **settings):
    """The scene file velpick reads for the same arguments as velpick.pick_meshes."""
    meshes = []
    for i, name in enumerate(files):
        mesh = {"file": name}
        if placements and placements[i] is not None:
            mesh["placement"] = np.asarray(placements[i], float).ravel().tolist()
        if markable and markable[i] is not None:
            mesh["markable"] = markable[i]
        meshes.append(mesh)
    points = np.asarray(region, float).tolist()
    scene = {"meshes": meshes}
    if brush_radius is None:
        scene["region"] = {"polygon": points}
    else:
        scene["region"] = {"brush": {"path": points, "radius": brush_radius}}
    for key, value in settings.items():
        if value is None:
            continue
        if key == "view":
            value = np.asarray(value, float).ravel().tolist()
        elif isinstance(value, np.ndarray):
            value = value.tolist()
        scene[key] = value
    return scene


def run_velpick(tmp_path, scene):
    executable = velpick_executable()
    if not executable.exists():
        pytest.skip("the velpick program is not built")
    scene_file = tmp_path / "scene.json"
    scene_file.write_text(json.dumps(scene))
    done = subprocess.run(
        [str(executable), str(scene_file)], capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


def cli_masks(report):
    """velpick's marked triangle lists as one bool mask per mesh."""
    masks = []
    for mesh in report["meshes"]:
        mask = np.zeros(mesh["triangles"], dtype=bool)
        mask[mesh["marked"]] = True
        masks.append(mask)
    return masks
