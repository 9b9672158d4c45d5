"""The README's Python examples run as written, on the mesh the README makes for them."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

from conftest import REPO, velpick, velpick_executable


def readme_examples():
    text = (REPO / "README.md").read_text()
    return re.findall(r"^`(\w+\.py)`:.*?\n```python\n(.*?)^```", text, re.M | re.S)


@pytest.mark.parametrize("name,code", readme_examples(), ids=lambda value: value[:20])
def test_readme_example_runs(tmp_path, name, code):
    if "open3d" in code:
        pytest.importorskip("open3d")
    if not velpick_executable().exists():
        pytest.skip("the velpick program is not built")
    subprocess.run([str(velpick_executable()), "--demo", "--ply", "demo.ply"], cwd=tmp_path,
                   check=True, capture_output=True)
    (tmp_path / name).write_text(code)
    module_folder = str(pathlib.Path(velpick.__file__).resolve().parent)
    env = dict(os.environ, PYTHONPATH=module_folder)
    done = subprocess.run([sys.executable, name], cwd=tmp_path, env=env, capture_output=True,
                          text=True)
    assert done.returncode == 0, done.stderr
    assert re.search(r"\d+ .*faces", done.stdout), done.stdout


def test_readme_has_both_examples():
    assert [name for name, _ in readme_examples()] == ["count_visible.py", "save_picked.py",
                                                       "seen_twice.py"]
