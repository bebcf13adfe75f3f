"""Calibrations as arrays and files."""
import numpy as np
import pytest

import alg_factory as af
from conftest import algtrack


@pytest.fixture
def rig():
    return af.Calibration.built_in()


def test_arrays_have_their_shapes_and_cannot_be_written(rig):
    assert rig.left_intrinsics.shape == rig.rotation.shape == rig.fundamental.shape == (3, 3)
    assert rig.left_distortion.shape == (8,)
    assert rig.translation.shape == (3,)
    with pytest.raises(ValueError):
        rig.translation[0] = 1


def test_the_fundamental_matrix_is_that_of_the_other_arrays(rig):
    x, y, z = rig.translation
    cross = np.array([[0, -z, y], [z, 0, -x], [-y, x, 0]])
    F = (np.linalg.inv(rig.right_intrinsics).T @ cross @ rig.rotation
         @ np.linalg.inv(rig.left_intrinsics))
    assert np.allclose(rig.fundamental / np.linalg.norm(rig.fundamental), F / np.linalg.norm(F))


@pytest.mark.parametrize("name", ["rig.json", "rig.yml", "rig.yaml", "rig.bin", "rig"])
def test_every_format_gives_back_every_bit_of_what_the_library_reads(rig, tmp_path, name):
    rig.save(tmp_path / name)
    back = af.Calibration.load(tmp_path / name)
    for field in ("left_intrinsics", "right_intrinsics", "rotation", "translation"):
        assert getattr(back, field).tobytes() == getattr(rig, field).tobytes(), field


def test_saving_replaces_nothing_unless_asked_and_leaves_no_other_file(rig, tmp_path):
    path = tmp_path / "rig.json"
    path.write_text("mine")
    with pytest.raises(FileExistsError):
        rig.save(path)
    assert path.read_text() == "mine"
    rig.save(path, overwrite=True)
    assert af.Calibration.load(path) == rig
    assert [entry.name for entry in tmp_path.iterdir()] == ["rig.json"]
    with pytest.raises(ValueError, match="expected the ending"):
        rig.save(tmp_path / "rig.txt")


def test_a_good_calibration_is_judged_good_and_a_mirrored_translation_is_found(rig):
    assert rig.check().ok, str(rig.check())
    assert rig.check().geometry["baseline"] == pytest.approx(np.linalg.norm(rig.translation))
    found = rig.with_changes(translation=-rig.translation).check()
    assert not found.ok
    assert found.findings[0][0]


def test_a_recording_says_whether_the_calibration_belongs_to_its_cameras(rig, tmp_path):
    # The true cameras are turned by about half a degree against the calibration that was used.
    for name, bend, verdict in (("straight", (), "good"), ("bent", ("--bend", "0.3,-0.4,0.25"), "stale")):
        path = tmp_path / name
        algtrack("simulate", "-o", path, "--seconds", 20, "--product-type", 2, "--noise", 0.05, *bend)
        check = rig.check(path)
        assert check.verdict == verdict, str(check)
        assert check.ok == (verdict == "good")


def test_what_is_no_calibration_is_refused_in_one_line(tmp_path, rig):
    path = tmp_path / "bad.json"
    path.write_text("{")
    with pytest.raises(af.FileError) as refused:
        af.Calibration.load(path)
    assert str(path) in str(refused.value) and "\n" not in str(refused.value)
    with pytest.raises(af.FileError):
        af.Calibration.from_bytes(b"short")
    with pytest.raises(ValueError, match="expected one of"):
        rig.with_changes(nothing=1)


def test_calibrations_are_equal_by_their_bytes(rig):
    assert rig == af.Calibration.from_bytes(rig.to_bytes())
    assert rig != rig.with_changes(translation=[-1, 0, 0])
    assert len({rig, af.Calibration.built_in()}) == 1
