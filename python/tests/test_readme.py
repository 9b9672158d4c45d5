# The README's Python examples run as written, on the mesh the README makes for them.

import os
import re
import subprocess
import sys

import pytest

from conftest import REPO, velpick, velpick_executable

EXAMPLES = re.findall(r"^`(\w+\.py)`:.*?\n```python\n(.*?)^```", (REPO / "README.md").read_text(),
                      re.M | re.S)
assert [name for name, _ in EXAMPLES] == ["count_visible.py", "save_picked.py", "seen_twice.py"]


@pytest.mark.parametrize("name,code", EXAMPLES, ids=[name for name, _ in EXAMPLES])
def test_readme_example_runs(tmp_path, name, code):
    if "open3d" in code:
        pytest.importorskip("open3d")
    if not velpick_executable().exists():
        pytest.skip("the velpick program is not built")
    subprocess.run([str(velpick_executable()), "--demo", "--ply", "demo.ply"], cwd=tmp_path,
                   check=True, capture_output=True)
    (tmp_path / name).write_text(code)
    env = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.realpath(velpick.__file__)))
    done = subprocess.run([sys.executable, name], cwd=tmp_path, env=env, capture_output=True,
                          text=True)
    assert done.returncode == 0 and re.search(r"\d+ .*faces", done.stdout), done.stderr
