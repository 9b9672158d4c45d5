# Shared scenes and a runner for the velpick program, the binding's reference.

import json
import os
import pathlib
import subprocess

import numpy as np
import pytest

velpick = pytest.importorskip("velpick")

REPO = pathlib.Path(__file__).resolve().parents[2]
GRAPH_FIELDS = ("sharp_angle_deg", "thickness", "mark_whole_candidates")
TILTED_CAMERA = {"eye": [30.0, -40.0, 50.0], "target": [0.0, 0.0, 0.0], "up": [0.0, 0.0, 1.0],
                 "height": 30.0, "screen": [40.0, 30.0]}


def velpick_executable():
    path = os.environ.get("VELPICK_EXECUTABLE") or REPO / "build" / "tools" / "velpick"
    return pathlib.Path(path).resolve()


# A flat grid facing +z: vertices (N, 3) and two counter-clockwise faces per cell.
def grid(columns, rows, cell=1.0, origin=(0.0, 0.0), z=0.0):
    xs, ys = np.meshgrid(np.arange(columns + 1), np.arange(rows + 1))
    vertices = np.stack([origin[0] + cell * xs.ravel(), origin[1] + cell * ys.ravel(),
                         np.full(xs.size, z)], axis=1)
    a = (np.arange(rows)[:, None] * (columns + 1) + np.arange(columns)[None, :]).ravel()
    up = a + columns + 1  # the corner above a
    return vertices, np.stack([a, a + 1, up + 1, a, up + 1, up], 1).reshape(-1, 3).astype(np.int64)


# Scene internal units to screen units, looking down -z: x and y scaled, z kept nearer-up.
def top_view(scale=0.001):
    return np.diag([scale, scale, scale, 1.0])


def write_ply(path, vertices, faces):
    with open(path, "w") as out:
        out.write(f"ply\nformat ascii 1.0\nelement vertex {len(vertices)}\nproperty double x\n"
                  f"property double y\nproperty double z\nelement face {len(faces)}\n"
                  "property list uchar int vertex_indices\nend_header\n")
        np.savetxt(out, np.asarray(vertices, float), fmt="%.17g")
        np.savetxt(out, np.column_stack([np.full(len(faces), 3), faces]), fmt="%d")


# The scene file velpick reads for the same arguments as velpick.pick_meshes.
def scene_json(files, region, *, placements=None, markable=None, brush_radius=None, **settings):
    scene = {"meshes": [{"file": name} for name in files]}
    for i, mesh in enumerate(scene["meshes"]):
        if placements and placements[i] is not None:
            mesh["placement"] = np.ravel(placements[i]).tolist()
        if markable and markable[i] is not None:
            mesh["markable"] = markable[i]
    points = np.asarray(region, float).tolist()
    scene["region"] = ({"polygon": points} if brush_radius is None
                       else {"brush": {"path": points, "radius": brush_radius}})
    for key, value in settings.items():
        value = np.ravel(value).tolist() if key == "view" else value
        (scene.setdefault("graph", {}) if key in GRAPH_FIELDS else scene)[key] = value
    return scene


def run_velpick(tmp_path, scene):
    if not velpick_executable().exists():
        pytest.skip("the velpick program is not built")
    (tmp_path / "scene.json").write_text(json.dumps(scene))
    done = subprocess.run([str(velpick_executable()), str(tmp_path / "scene.json")],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


# velpick's marked triangle lists as one bool mask per mesh.
def cli_masks(report):
    return [np.isin(np.arange(mesh["triangles"]), mesh["marked"]) for mesh in report["meshes"]]
