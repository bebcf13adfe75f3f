"""The wheel: built with the system's tools, without a network, and used from a fresh environment."""
import os
import shutil
import subprocess
import sys
import zipfile

import pytest

pytest.importorskip("setuptools")
pytest.importorskip("wheel")
pytest.importorskip("venv")


def run(*command, **environment):
    clean = {key: value for key, value in os.environ.items()
             if not key.startswith(("PYTHON", "PIP_"))}
    result = subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=500,
                            env={**clean, "PIP_NO_INDEX": "1", "HOME": "/nonexistent", **environment},
                            cwd="/")
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_the_wheel_works_in_a_fresh_environment(tmp_path, walk):
    source = os.environ["ALG_SOURCE"]
    shutil.copytree(os.path.join(source, "bindings", "python"), tmp_path / "python")
    run(sys.executable, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps", "--no-cache-dir",
        "--wheel-dir", tmp_path, tmp_path / "python",
        ALG_FACTORY_SOURCE=source, ALG_FACTORY_BUILD=os.environ["ALG_BUILD"])
    wheel, = tmp_path.glob("alg_factory-*.whl")
    # numpy is the system's; the module is the wheel's.
    run(sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "venv")
    python = tmp_path / "venv" / "bin" / "python3"
    run(python, "-m", "pip", "install", "--no-deps", "--no-cache-dir", wheel)
    output = run(python, "-c", f"""
import importlib.metadata, os
import alg_factory as af
print(af.__file__)
print(importlib.metadata.version("alg-factory") == af.__version__)
print(af.verify({walk!r}), len(af.Recording({walk!r}).blocks))
print(sorted(name for name in os.listdir(os.path.dirname(af.__file__)) if name.endswith((".pyi", "typed"))))
""")
    where, *rest = output.splitlines()
    assert where.startswith(str(tmp_path / "venv"))
    assert rest == ["True", "True 450", "['__init__.pyi', 'py.typed']"]
    with zipfile.ZipFile(wheel) as content:
        metadata, = (name for name in content.namelist() if name.endswith("METADATA"))
        assert "Requires-Dist: numpy" in content.read(metadata).decode()
