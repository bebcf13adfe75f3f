"""Markers that belong together, held against the program algtrack and against the truth."""
import csv
import json
import math
import warnings

import numpy as np
import pytest

import alg_factory as af
from conftest import algtrack
from test_sessions import content, fact

STICK = af.Body({2: ((-34, 0, 0), (34, 0, 0))}, name="stick")
MARKERS = {0: (50, 0, 0), 1: (-40, 20, 5), 2: (-10, -45, 10), 3: (10, 35, -30)}


def motion(path, tip=None):
    """A body that leans to and fro; about its tip (mm) or wandering. Room axes, metres."""
    t = np.arange(0, 4, 0.01)
    axis = np.stack([np.sin(0.9 * t), np.cos(1.3 * t), 0.5 * np.sin(2 * t)], -1)
    half = np.radians(30 * np.sin(2.1 * t)) / 2
    q = axis / np.linalg.norm(axis, axis=1)[:, None] * np.sin(half)[:, None]
    q = np.column_stack([q, np.cos(half)])
    if tip is None:
        p = np.stack([0.1 * np.sin(t), 0.05 * np.cos(2 * t), 0.1 * np.sin(1.5 * t)], -1)
    else:
        p = -rotated(q, np.asarray(tip, float)) / 1000
    np.savetxt(path, np.column_stack([t, p, q]), fmt="%.9f")
    return str(path)


def rotated(q, v):
    """Hamilton quaternions x y z w, (n, 4), on one vector."""
    turn = 2 * np.cross(q[:, :3], v)
    return v + q[:, 3:] * turn + np.cross(q[:, :3], turn)


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("bodies")
    af.Body(MARKERS, name="tool").save(folder / "true.json")
    for name, tip in (("move", None), ("spot", (20, -150, 10))):
        af.simulate(folder / f"{name}.algrec", product_type=2, seconds=4, noise=0.05, distance=1500,
                    marker_size=10, trajectory=motion(folder / f"{name}.tum", tip),
                    body=folder / "true.json")
    return folder


def quaternions(rows):
    return np.stack([rows[name] for name in ("qx", "qy", "qz", "qw")], -1)


@pytest.mark.parametrize("emission", [180, 60])
def test_a_simulated_body_has_the_content_of_algtracks(folder, tmp_path, emission):
    ours, theirs = tmp_path / "ours.algrec", tmp_path / "theirs.algrec"
    af.simulate(ours, product_type=2, seconds=1, trajectory=folder / "move.tum",
                body=str(folder / "true.json"), emission=emission)
    algtrack("simulate", "-o", theirs, "--product-type", 2, "--seconds", 1, "--trajectory",
             folder / "move.tum", "--body", folder / "true.json", "--emission", emission)
    assert content(ours) == content(theirs)
    for key in ("simulation", "true_body"):
        assert fact(ours, key) == fact(theirs, key)
    given = tmp_path / "given.algrec"
    af.simulate(given, product_type=2, seconds=1, trajectory=folder / "move.tum",
                body=af.Body(MARKERS, name="tool"), emission=emission)
    assert content(given) == content(theirs)


def test_learning_gives_the_body_that_algtrack_learns(folder, tmp_path):
    said = json.loads(algtrack("body", "learn", folder / "move.algrec", "--ids", "3,1,0,2", "-o",
                               tmp_path / "theirs.json", "--json"))
    body = af.Body.learn(folder / "move.algrec", ids=[3, 1, 0, 2])
    assert body == af.Body.load(tmp_path / "theirs.json")
    body.save(tmp_path / "ours.json")
    assert (tmp_path / "ours.json").read_bytes() == (tmp_path / "theirs.json").read_bytes()
    with pytest.raises(FileExistsError):
        body.save(tmp_path / "ours.json")
    assert body.learning.frames == said["frames"]
    assert body.learning.noise == said["noise_px"]
    assert body.findings == []
    assert body.ids == [0, 1, 2, 3]
    assert np.all(body.markers["deviation"] > 0)
    for row in body.learning.distances:
        truth = math.dist(MARKERS[row["first"]], MARKERS[row["second"]])
        assert abs(row["distance"] - truth) < min(1, 4 * row["deviation"])


def test_what_was_left_out_is_said(folder):
    body = af.Body.learn(folder / "move.algrec", ids=[0, 1, 2, 3, 4])
    assert body.ids == [0, 1, 2, 3]
    assert ("not_linked", "marker 4 is left out: never seen with three of the others") in body.findings


@pytest.mark.parametrize("options, arguments", [
    ({}, []), ({"smooth": True}, ["--smooth"]), ({"ahead": 0.02}, ["--ahead", 20]),
    ({"single": True}, ["--single"]), ({"noise": 0.2}, ["--noise", 0.2])])
def test_poses_are_the_numbers_of_algtrack(folder, options, arguments):
    text = algtrack("body", "pose", folder / "move.algrec", "--body", folder / "true.json",
                    *arguments, "--csv", "-")
    expected = list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))
    rows = af.Body.load(folder / "true.json").track(folder / "move.algrec", **options)
    assert len(rows) == len(expected) > 300
    assert set(expected[0]) - {"body", "packet"} == set(rows.dtype.names)
    for name in rows.dtype.names:
        form = "{}" if name in ("call", "source", "markers") else "{:.9f}" if name == "time_s" else "{:.9g}"
        assert [form.format(value) for value in rows[name]] == [row[name] for row in expected], name


def test_a_recording_without_a_pose_says_why(folder, tmp_path):
    dark = tmp_path / "dark.algrec"
    af.simulate(dark, seconds=0.5, product_type=2, dropouts=1)
    body = af.Body({0: (0, 0, 0), 1: (80, 0, 0), 2: (0, 60, 0)}, name="plan")
    with pytest.warns(RuntimeWarning, match="plan: no pose in .*dark.algrec: ids 0, 1, 2 were never seen$"):
        assert len(body.track(dark)) == 0
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # a stretch may well be without
        assert len(af.Body.load(folder / "true.json").track(af.Recording(folder / "move.algrec")[900:])) == 0


def test_poses_put_the_markers_where_they_truly_were(folder):
    r = af.Recording(folder / "move.algrec")
    poses = af.Body.load(folder / "true.json").track(r, smooth=True)
    for id, place in MARKERS.items():
        truth = r.truth(id)
        _, here, there = np.intersect1d(poses["call"], truth.call, return_indices=True)
        found = rotated(quaternions(poses), place) + np.stack([poses[axis] for axis in "xyz"], -1)
        off = np.linalg.norm(found[here] - truth.xyz[there], axis=1)
        assert len(off) > 300 and np.sqrt(np.mean(off**2)) < 1, id


def test_a_slice_has_the_poses_of_the_whole(folder):
    body, r = af.Body.load(folder / "true.json"), af.Recording(folder / "move.algrec")
    whole, part = body.track(r, ahead=0.02), body.track(r[1:2], ahead=0.02)
    moment = whole["time_s"] - 0.02
    assert part.tobytes() == whole[(moment >= 1) & (moment < 2)].tobytes()
    assert len(part) == 90
    with pytest.raises(ValueError, match="check: expected a whole recording"):
        body.check(r[1:2])


def test_the_tip_of_a_pointer_is_found(folder, tmp_path):
    body = af.Body.load(folder / "true.json")
    found = body.pivot(folder / "spot.algrec")
    expected = json.loads(algtrack("body", "pivot", folder / "spot.algrec", "--body",
                                   folder / "true.json", "--json"))
    assert found.tip.tolist() == expected["tip_mm"]
    assert np.allclose(found.deviation, expected["sd_mm"], rtol=1e-12)
    assert np.linalg.norm(found.tip - [20, -150, 10]) < 0.5
    # It stood still: its place by every pose.
    poses = body.track(folder / "spot.algrec", smooth=True)
    tips = rotated(quaternions(poses), found.tip) + np.stack([poses[axis] for axis in "xyz"], -1)
    assert np.linalg.norm(tips.mean(axis=0) - found.spot) < 1
    pointer = body.with_tip(found.tip)
    pointer.save(tmp_path / "pointer.json")
    assert af.Body.load(tmp_path / "pointer.json").tip.tolist() == found.tip.tolist()
    assert body.tip is None


def test_a_bent_body_is_found_and_its_marker_named(folder):
    assert af.Body.load(folder / "true.json").check(folder / "move.algrec").moved == []
    bent = af.Body({**MARKERS, 3: (10, 35, -10)})
    check = bent.check(folder / "move.algrec")
    assert (check.same, check.which_known, check.moved) == (False, True, [3])
    assert str(check) == "the shape is another now: moved: 3"
    assert 15 < check.markers["shift"][3] < 25


@pytest.mark.parametrize("make, error, text", [
    (lambda f: af.Body({0: (0, 0, 0), 1: (9, 0, 0)}), af.FileError, "two markers of id 2, or three markers or more"),
    (lambda f: af.Body({0: (0, 0, 0), 1: (9, 0, 0), 2: (9, 0, 0)}), af.FileError, "in one place"),
    (lambda f: af.Body.load(f / "move.tum"), af.FileError, "expected a body as JSON"),
    (lambda f: af.Body.load(f / "none.json"), af.FileError, "found no such file"),
    (lambda f: af.Body.learn(f / "move.algrec", ids=[3, 4, 5]), af.RecordingError,
     "move.algrec: expected three markers that hold still"),
    (lambda f: af.Body.learn(f / "move.algrec", ids=[1, 1, 2]), ValueError, "each once"),
    (lambda f: af.Body.learn(f / "move.algrec", ids=[1, 2, 6]), ValueError, "0 to 5"),
    (lambda f: af.Body(MARKERS).track(f / "move.algrec", smooth=True, ahead=0.02), ValueError,
     "ahead: expected 0 to 0.1 s of a live estimate, found 0.02 with smooth"),
    (lambda f: af.Body(MARKERS).track(f / "move.algrec", noise=math.nan), ValueError, "noise"),
    (lambda f: af.Body(MARKERS).check(f / "move.algrec", tolerance=-1), ValueError, "tolerance"),
    (lambda f: af.Body({0.5: (0, 0, 0), 1: (9, 0, 0), 2: (0, 9, 0)}), ValueError, "whole numbers, found 0.5"),
    (lambda f: af.Body({**MARKERS, 1: (0, math.nan, 0)}), ValueError, "markers: expected finite"),
    (lambda f: af.Body(MARKERS, tip=(0, 0, math.inf)), ValueError, "tip: expected finite"),
    (lambda f: af.Body(MARKERS, name=5), ValueError, "name: expected a text, found 5"),
    (lambda f: af.Body.learn(f / "move.algrec", ids=[0, 1, 2.5]), ValueError, "found 2.5"),
    (lambda f: af.Body.learn(f / "move.algrec", ids="012"), ValueError, "found '0'"),
    (lambda f: af.Body.learn(f / "move.algrec", name=5), ValueError, "name: expected a text"),
    (lambda f: af.Body(MARKERS).save(f / "none" / "x"), FileNotFoundError, "no such folder: .*none"),
    (lambda f: af.simulate(f / "x", body=af.Body(MARKERS)), ValueError, "expected a trajectory"),
    (lambda f: af.simulate(f / "x", emission=60), ValueError, "emission: expected a body"),
    (lambda f: af.simulate(f / "x", product_type=0, trajectory=f / "move.tum",
                           body=af.Body(MARKERS, name="tool")), ValueError, "^tool: expected ids below 3"),
    (lambda f: af.simulate(f / "x", product_type=0, trajectory=f / "move.tum",
                           body=f / "true.json"), ValueError, "true.json: expected ids below 3"),
    (lambda f: af.Body(MARKERS).track(f / "move.algrec", ahead="x"), ValueError,
     "ahead: expected a number, found 'x'"),
    (lambda f: af.Body(MARKERS).track(f / "move.algrec", noise=None), ValueError,
     "noise: expected a number, found None"),
    (lambda f: af.Body(MARKERS).check(f / "move.algrec", tolerance="x"), ValueError,
     "tolerance: expected a number, found 'x'"),
    (lambda f: af.Body.learn(f / "move.algrec", ids=[0, 1, 2], name="n" * 1001), af.FileError,
     "name: expected a name of at most 1000 bytes, found 1001"),
])
def test_what_cannot_be_done_is_refused_in_one_line(folder, make, error, text):
    with pytest.raises(error, match=text) as found:
        make(folder)
    assert "\n" not in str(found.value)
    assert not (folder / "x").exists()


def test_the_two_point_object_has_the_numbers_of_algtrack(tmp_path):
    STICK.save(tmp_path / "stick.json")
    assert af.Body.load(tmp_path / "stick.json") == STICK
    assert STICK.ids == [2, 2]
    af.simulate(tmp_path / "r.algrec", product_type=1, seconds=2, noise=0.05)
    text = algtrack("body", "pose", tmp_path / "r.algrec", "--body", tmp_path / "stick.json", "--csv", "-")
    expected = list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))
    rows = STICK.track(tmp_path / "r.algrec")
    assert len(rows) == len(expected) > 100
    assert set(expected[0]) - {"body", "packet"} == set(rows.dtype.names)
    for name in set(rows.dtype.names) - {"source", "markers", "time_s"}:
        assert [f"{value:.9g}" for value in rows[name]] == [row[name] for row in expected], name
    assert np.all(rows["sd_direction"] > 0) and np.all(np.isinf(rows["sd_rx"]))
    found, = af.report(tmp_path / "r.algrec", bodies=[STICK])["bodies"]
    assert (found["ids"], found["poses"]) == ([2, 2], len(rows))


@pytest.mark.parametrize("make, error, text", [
    (lambda r: STICK.check(r), ValueError, "check: expected a body of three markers or more"),
    (lambda r: STICK.pivot(r), ValueError, "pivot: expected a body of three markers or more"),
    (lambda r: af.Body({2: ((-9, 1, 0), (9, 1, 0))}), af.FileError, "the origin on the line"),
    (lambda r: af.Body({2: ((-9, 0, 0), (9, 0, 0))}, facings={2: (0, 0, 1)}), ValueError,
     "facings: expected as many as markers of id 2, 2, found 1"),
])
def test_what_two_markers_cannot_is_refused_in_one_line(folder, make, error, text):
    with pytest.raises(error, match=text) as found:
        make(folder / "move.algrec")
    assert "\n" not in str(found.value)


@pytest.mark.parametrize("name, make", [
    ("move.algrec", lambda f: af.report(f / "move.algrec", f / "move.algrec", overwrite=True)),
    ("true.json", lambda f: af.report(f / "move.algrec", f / "true.json", bodies=f / "true.json",
                                      overwrite=True)),
    ("true.json", lambda f: af.simulate(f / "true.json", body=f / "true.json", overwrite=True,
                                        trajectory=f / "move.tum", product_type=2)),
    ("move.tum", lambda f: af.simulate(f / "move.tum", trajectory=f / "move.tum", overwrite=True)),
])
def test_what_is_read_is_not_overwritten(folder, name, make):
    before = (folder / name).read_bytes()
    with pytest.raises(FileExistsError, match="a file that is read"):
        make(folder)
    assert (folder / name).read_bytes() == before


def true_poses(r, markers):
    """{call: (rotation, origin)}: the markers' shape laid over their true places (Kabsch)."""
    shape = np.array(list(markers.values()), float)
    truths = [r.truth(id) for id in markers]
    poses = {}
    for n, call in enumerate(truths[0].call):
        places = np.array([truth.xyz[n] for truth in truths])
        u, _, v = np.linalg.svd((shape - shape.mean(0)).T @ (places - places.mean(0)))
        rotation = v.T @ np.diag([1, 1, np.linalg.det(v.T @ u.T)]) @ u.T
        poses[call] = rotation, places.mean(0) - rotation @ shape.mean(0)
    return poses


def test_the_report_has_the_errors_of_the_live_poses(folder):
    r, body = af.Recording(folder / "move.algrec"), af.Body.load(folder / "true.json")
    found, = af.report(r, bodies=[body])["bodies"]
    rows, truth = body.track(r), true_poses(r, MARKERS)
    position, turn = [], []
    for row in rows:
        rotation, origin = truth[row["call"]]
        position.append(math.dist([row[axis] for axis in "xyz"], origin))
        turned = np.repeat(quaternions(row.reshape(1)), 3, axis=0)
        columns = rotated(turned, np.eye(3)).T
        sine = np.linalg.norm(columns - rotation) / (2 * math.sqrt(2))
        turn.append(math.degrees(2 * math.asin(sine)))
    rms = lambda values: math.sqrt(np.mean(np.square(values)))
    assert (found["name"], found["ids"]) == ("tool", [0, 1, 2, 3])
    assert (found["packets"], found["poses"], found["bridged"]) == (len(r.packets), 359, 0)
    assert found["error"]["position_mm"]["count"] == len(rows) == 359
    assert found["error"]["position_mm"]["rms"] == pytest.approx(rms(position), rel=1e-6)
    assert found["error"]["orientation_deg"]["rms"] == pytest.approx(rms(turn), rel=1e-4)
    assert found["residual_px"]["rms"] == pytest.approx(rms(rows["residual_px"]), rel=1e-9)
    assert found["markers_visible"]["mean"] == 4
    assert af.report(r)["bodies"] == []
    part, = af.report(r[1:2], bodies=[folder / "true.json"])["bodies"]
    inside = (rows["time_s"] >= 1) & (rows["time_s"] < 2)
    assert part["error"]["position_mm"]["rms"] == pytest.approx(
        rms(np.array(position)[inside]), rel=1e-6)


def test_two_bodies_of_a_report_share_no_marker(folder):
    other = af.Body({3: (0, 0, 0), 4: (9, 0, 0), 5: (0, 9, 0)}, name="other")
    with pytest.raises(af.FileError, match="other: expected ids of its own, found id 3, which tool"):
        af.report(folder / "move.algrec", bodies=[af.Body(MARKERS, name="tool"), other])
