"""The tutorial runs as it stands, in a kernel of its own."""
import os

import pytest

import alg_factory as af  # noqa: F401

nbformat = pytest.importorskip("nbformat")
nbclient = pytest.importorskip("nbclient")
pytest.importorskip("matplotlib")
pytest.importorskip("ipykernel")

NOTEBOOK = os.path.join(os.environ["ALG_SOURCE"], "examples", "python", "tutorial.ipynb")


def test_every_cell_runs_and_every_figure_is_drawn(tmp_path, monkeypatch):
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path))
    monkeypatch.setenv("JUPYTER_RUNTIME_DIR", str(tmp_path))
    monkeypatch.setenv("MPLCONFIGDIR", str(tmp_path))
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    notebook = nbformat.read(NOTEBOOK, as_version=4)
    nbformat.validate(notebook)
    nbclient.NotebookClient(notebook, timeout=300, kernel_name="python3",
                            resources={"metadata": {"path": str(tmp_path)}}).execute()
    outputs = [output for cell in notebook.cells for output in cell.get("outputs", ())]
    drawings = [cell for cell in notebook.cells if "plt.show()" in cell.source]
    images = [output for output in outputs if "image/png" in output.get("data", {})]
    assert len(images) == len(drawings) == 4
    assert outputs[-1]["data"]["text/plain"] == "True"  # af.verify
    complaints = [output for output in outputs if output.get("name") == "stderr"]
    assert complaints == []
    keep = os.environ.get("ALG_TUTORIAL_IMAGES")
    for number, image in enumerate(images if keep else ()):
        import base64
        with open(os.path.join(keep, f"{number}.png"), "wb") as file:
            file.write(base64.b64decode(image["data"]["image/png"]))


def test_the_notebook_is_kept_without_outputs():
    notebook = nbformat.read(NOTEBOOK, as_version=4)
    assert not any(cell.get("outputs") for cell in notebook.cells)
