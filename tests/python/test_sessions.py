"""Simulating, replaying, verifying and reporting, held against the program algtrack."""
import json
import math
import os
import sqlite3
import warnings

import numpy as np
import pytest

import alg_factory as af
from conftest import algtrack

CONTENT = ("SELECT id, parent, kind, type, payload, returned, output, start_ns FROM calls ORDER BY id",
           "SELECT call, step, level, text FROM logs ORDER BY call, step",
           "SELECT call, step, block FROM blocks ORDER BY call, step",
           "SELECT frame, call, object, marker, x, y, z FROM truth ORDER BY frame, object, marker")


def content(path):
    """Everything but durations and the name of the program."""
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        return [database.execute(sql).fetchall() for sql in CONTENT]


def fact(path, key):
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        return database.execute("SELECT value FROM meta WHERE key = ?", (key,)).fetchone()[0]


@pytest.mark.parametrize("what_if", [
    {}, {"filter_mode": 1}, {"product_type": 2}, {"calibration": True, "filter_mode": -1}])
def test_a_replay_gives_the_bytes_that_algtrack_gives(walk, tmp_path, what_if):
    arguments, options = [], dict(what_if)
    if what_if.get("calibration"):
        healed = tmp_path / "healed.json"
        rig = af.Calibration.built_in()
        rig.with_changes(translation=rig.translation * 1.01).save(healed)
        options["calibration"] = str(healed)
    for name, value in options.items():
        arguments += [f"--{name.replace('_', '-')}", value]
    theirs = tmp_path / "theirs.algrec"
    algtrack("replay", walk, "--record", theirs, *arguments)
    ours = tmp_path / "ours.algrec"
    new = af.replay(walk, **options)
    new.save(ours)
    assert content(ours) == content(theirs)
    assert (content(ours)[2] == content(walk)[2]) == (what_if == {} or what_if == {"filter_mode": 1})
    assert fact(ours, "replay_of") == "walk.algrec"
    if what_if:
        assert json.loads(fact(ours, "replay_changes")) == json.loads(fact(theirs, "replay_changes"))


def test_a_replay_is_in_memory_and_has_the_interface_of_a_recording(walk, tmp_path, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    new = af.replay(walk, filter_mode=1)
    assert list(tmp_path.iterdir()) == []
    assert new.path is None
    old = af.Recording(walk)
    assert new.blocks["records"].tobytes() == old.blocks["records"].tobytes()
    assert new.answers(1).filtered.tobytes() != old.answers(1).filtered.tobytes()
    assert len(new[1:2].packets) == 90
    assert new.truth(0).xyz.tobytes() == old.truth(0).xyz.tobytes()
    assert new.funnel().delivered == old.funnel().delivered
    assert af.verify(new)
    again = af.replay(new)
    assert again.answers(1).filtered.tobytes() == new.answers(1).filtered.tobytes()


def test_a_replay_of_a_slice_is_refused(walk):
    with pytest.raises(ValueError, match="whole recording"):
        af.replay(af.Recording(walk)[1:2])


def test_saving_keeps_what_is_there(walk, tmp_path):
    path = tmp_path / "there"
    path.write_text("mine")
    with pytest.raises(af.RecordingError):
        af.replay(walk).save(path)
    assert path.read_text() == "mine"
    # Nor is anything taken away beside it.
    (tmp_path / "new.part").write_text("mine too")
    af.replay(walk).save(tmp_path / "new")
    assert (tmp_path / "new.part").read_text() == "mine too"
    assert af.verify(tmp_path / "new")


def test_verifying_again_and_again_in_one_process(walk, six):
    for recording in (walk, six, walk, af.Recording(six)):
        assert af.verify(recording) is True


def test_a_difference_names_call_field_and_both_values(tmp_path):
    from_file = tmp_path / "changed.algrec"
    af.simulate(from_file, seconds=1)
    with sqlite3.connect(from_file) as database:
        call, block = database.execute("SELECT call, block FROM blocks ORDER BY call LIMIT 1 "
                                       "OFFSET 30").fetchone()
        # x of record 1: 4 bytes behind its id, which follows the header and record 0.
        changed = block[:8 + 52 + 4] + np.float32(1.5).tobytes() + block[8 + 52 + 8:]
        database.execute("UPDATE blocks SET block = ? WHERE call = ?", (changed, call))
    database.close()
    seal(from_file)
    x = np.frombuffer(block[8 + 52 + 4:8 + 52 + 8], np.float32)[0]
    with pytest.raises(af.Difference) as found:
        af.verify(from_file)
    assert found.value.call == call
    assert found.value.packet == 30
    assert found.value.field == "block 0, record 1, x"
    assert found.value.recorded == "1.5"
    assert np.float32(found.value.replayed) == x
    assert f"call {call} (InputStream, stream type 2): block 0, record 1, x: recorded 1.5" in str(
        found.value)
    # The trace's stages arrive at other blocks than the recorded ones, and say so.
    with pytest.raises(af.Difference, match="the trace arrives at other blocks"):
        af.Recording(from_file).blobs


def seal(path):
    import sys
    sys.path.insert(0, os.path.join(os.environ["ALG_SOURCE"], "tests", "algtrack"))
    import algtrack_case
    with sqlite3.connect(path) as database:
        algtrack_case.seal(database)
    database.close()


@pytest.mark.parametrize("options, arguments", [
    (dict(seconds=1), ["--seconds", 1]),
    (dict(product_type=2, seconds=2, noise=0.05, seed=3, strays=0.5, corrupt=0.1, loss=0.1,
          occlude=[(3, 0.5, 1), (0, 1, 1.5, "left")], bend=(0.3, -0.4, 0.25)),
     ["--product-type", 2, "--seconds", 2, "--noise", 0.05, "--seed", 3, "--strays", 0.5, "--corrupt",
      0.1, "--loss", 0.1, "--occlude", "3:0.5-1", "--occlude", "0:1-1.5:left", "--bend",
      "0.3,-0.4,0.25"]),
    (dict(seconds=1, inertial=True, queries=False, framing="plain", scene="still", filter_mode=-1,
          drift=(0, 1, 0, 0.5, 0, 0), focal_error=1, centre_error=(2, 3)),
     ["--seconds", 1, "--inertial", "--no-queries", "--framing", "plain", "--scene", "still",
      "--filter-mode", -1, "--drift", "0,1,0,0.5,0,0", "--focal-error", "1", "--centre-error", "2,3"]),
])
def test_a_simulation_has_the_content_of_algtracks(tmp_path, options, arguments):
    ours, theirs = tmp_path / "ours.algrec", tmp_path / "theirs.algrec"
    counts = af.simulate(ours, **options)
    algtrack("simulate", "-o", theirs, *arguments)
    assert content(ours) == content(theirs)
    assert json.loads(fact(ours, "simulation")) == json.loads(fact(theirs, "simulation"))
    assert counts["frames"] == 90 * options["seconds"]
    assert counts["calls"] == len(af.Recording(ours).calls)


@pytest.mark.parametrize("options, text", [
    (dict(product_type=3), "product_type: expected one of 0, 1, 2, found 3"),
    (dict(seconds=0), "seconds: expected a number from 0.001"),
    (dict(noise=math.nan), "noise: expected a number"),
    (dict(loss=1.5), "loss: expected a number from 0 to 1, found 1.5"),
    (dict(occlude=[(9, 0, 1)]), "occlude: expected"),
    (dict(bend=(1, 2)), "bend: expected 3 or 6 numbers, found 2"),
    (dict(seconds=1e6, rate=10000), "10 million frames"),
    (dict(seed=-1), "seed: expected a whole number")])
def test_options_out_of_range_are_refused_and_leave_no_file(tmp_path, options, text):
    with pytest.raises(ValueError, match=text.replace("(", r"\(")):
        af.simulate(tmp_path / "s.algrec", **options)
    assert list(tmp_path.iterdir()) == []


def test_simulating_replaces_nothing_unless_asked(tmp_path):
    path = tmp_path / "s.algrec"
    af.simulate(path, seconds=0.1)
    with pytest.raises(FileExistsError):
        af.simulate(path, seconds=0.2)
    af.simulate(path, seconds=0.2, overwrite=True)
    assert len(af.Recording(path).packets) == 18
    assert [entry.name for entry in tmp_path.iterdir()] == ["s.algrec"]


def test_the_funnel_is_that_of_algtrack_inspect(six):
    expected = json.loads(algtrack("inspect", six, "--json"))["funnel"]
    funnel = af.Recording(six).funnel().to_dict()
    assert funnel["records"] == expected["records"]
    assert list(funnel["ends"].values()) == list(expected["ends"].values())
    part = json.loads(algtrack("inspect", six, "--json", "--from", 1, "--to", 2))["funnel"]
    assert af.Recording(six)[1:2].funnel().to_dict()["records"] == part["records"]


def test_blobs_add_up_to_the_funnel(six):
    r = af.Recording(six)
    funnel = r.funnel()
    for end, (left, right) in funnel.ends.items():
        of_end = r.blobs[r.blobs["end"] == end]
        assert [np.sum(of_end["camera"] == 0), np.sum(of_end["camera"] == 1)] == [left, right], end
    assert sum(funnel.records) == len(r.blobs)
    assert "records decoded" in str(funnel)
    assert sum(r.funnel(object=3).records) == np.sum(r.blobs["id"] == 3)


def test_an_explanation_says_what_algtrack_says(six):
    expected = json.loads(algtrack("inspect", six, "--explain", "--time", 1.5, "--json"))
    found = af.Recording(six).explain(time=1.5)
    assert (found.packet, found.call, found.time) == (
        expected["packet"], expected["call"], expected["time_s"])
    assert [row["delivered"] for row in found.objects] == [
        row["delivered"] for row in expected["objects"]]
    assert len(found.reasons) == len(found.blobs) == len(expected["blobs"])
    text = algtrack("inspect", six, "--explain", "--time", 1.5)
    for line in found.text.splitlines()[:7]:
        assert line in text
    assert "object 3  missing: " in found.text
    json.dumps(found.to_dict())


def test_an_explanation_of_no_time_is_refused(six):
    with pytest.raises(af.RecordingError, match="expected a time, found none"):
        af.Recording(six).explain(time=math.nan)


def test_an_explanation_wants_one_moment(six):
    r = af.Recording(six)
    with pytest.raises(ValueError, match="one of time, call and packet"):
        r.explain()
    with pytest.raises(af.RecordingError, match="expected a packet number from 0 to"):
        r.explain(packet=10**6)


def test_smoothed_tracks_are_nearer_to_the_truth_than_the_delivered_positions(six):
    r = af.Recording(six)
    tracks, truth = r.tracks(object=1, smooth=True), r.truth(object=1)
    _, here, there = np.intersect1d(tracks["call"], truth.call, return_indices=True)
    smoothed = np.linalg.norm(tracks["position"][here] - truth.xyz[there], axis=1)
    _, error = r.errors(object=1)
    assert np.median(smoothed) < np.median(np.linalg.norm(error, axis=1))
    assert np.all(np.diff(tracks["time"]) >= 0)
    assert np.allclose(tracks["deviation"]**2, np.diagonal(tracks["covariance"], axis1=1, axis2=2)[:, :3])
    with pytest.raises(ValueError):
        r.tracks(smooth=True, ahead=0.05)


def test_tracks_are_those_of_algtrack(six, tmp_path):
    algtrack("tracks", six, "--csv", tmp_path / "tracks.csv")
    lines = [line.split(",") for line in (tmp_path / "tracks.csv").read_text().splitlines()
             if not line.startswith(("#", "time_s"))]
    rows = af.Recording(six).tracks()
    assert [row["object"] for row in rows] == [int(line[1]) for line in lines]
    assert np.allclose(rows["position"], [[float(v) for v in line[2:5]] for line in lines], rtol=1e-8)
    assert [row["source"] for row in rows] == [line[14] for line in lines]


def test_a_slice_of_predictions_has_those_of_its_packets_as_algtrack_has_them(six, tmp_path):
    algtrack("tracks", six, "--ahead", 33, "--from", 1, "--to", 2, "--csv", tmp_path / "tracks.csv")
    lines = [line.split(",") for line in (tmp_path / "tracks.csv").read_text().splitlines()
             if line[0] != "#"][1:]
    r = af.Recording(six)
    rows = r[1:2].tracks(ahead=0.033)
    assert [int(line[-1]) for line in lines] == rows["call"].tolist()
    assert set(rows["call"]) <= set(r[1:2].packets["call"])
    assert rows["time"].max() > 2


def test_tracks_say_why_there_are_none(tmp_path):
    dark = tmp_path / "dark.algrec"
    af.simulate(dark, seconds=1, dropouts=1)
    with pytest.warns(RuntimeWarning, match="dark.algrec: no track: of 90 packets none has a blob$"):
        assert len(af.Recording(dark).tracks()) == 0
    half = tmp_path / "half.algrec"
    af.simulate(half, seconds=1, product_type=2, occlude=[(3, 0, 1, "left")])
    r = af.Recording(half)
    with pytest.warns(RuntimeWarning, match="none has blobs of object 3 from both cameras$"):
        assert len(r.tracks(object=3)) == 0
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert len(r.tracks()) > 0
        assert len(r[5:].tracks(object=1)) == 0  # a stretch may well be without
    with sqlite3.connect(half) as database:
        database.execute("UPDATE calls SET type = 4 WHERE kind = 'Init'")
    database.close()
    seal(half)
    with pytest.raises(RuntimeError, match="half.algrec: expected an initialised library and"):
        af.Recording(half).tracks()


def test_a_calibration_that_none_can_work_with_hides_nothing_else(tmp_path):
    path = tmp_path / "zeros.algrec"
    af.simulate(path, seconds=1, product_type=2)
    with sqlite3.connect(path) as database:
        database.execute("UPDATE calls SET payload = zeroblob(920) WHERE kind = 'Init'")
        call = database.execute("SELECT id FROM calls WHERE kind = 'Init'").fetchone()[0]
    database.close()
    seal(path)
    r = af.Recording(path)
    assert r.product_type == 2
    assert "product type 2" in repr(r)
    assert len(r.positions(object=5)) == 90
    for ask in (lambda: r.calibration, lambda: r.configurations):
        with pytest.raises(af.FileError, match=rf"zeros.algrec: call {call} \(Init\): expected "
                           "positive focal lengths"):
            ask()
    with pytest.raises(RuntimeError, match=rf"zeros.algrec: call {call} \(Init\): expected a "
                       "calibration with focal lengths above 0"):
        r.tracks()


def test_a_report_has_the_numbers_of_algtrack_and_is_one_page(six, tmp_path):
    expected = json.loads(algtrack("report", six, "--json"))
    page = tmp_path / "six.html"
    numbers = af.report(six, page)
    assert numbers["objects"] == expected["objects"]
    assert page.read_text().lstrip().lower().startswith("<!doctype html>")
    assert [entry.name for entry in tmp_path.iterdir()] == ["six.html"]
    with pytest.raises(FileExistsError):
        af.report(six, page)
    assert af.report(af.Recording(six)[1:2], object=1)["objects"][0]["object"] == 1


def test_a_host_of_the_same_process_is_left_alone(in_process, walk):
    assert in_process(f"""
        host = af.Host(2, scene)
        host.feed(packet)
        before = host.pose(0).tobytes()
        af.verify({walk!r}); af.replay({walk!r}); af.report({walk!r})
        print(host.pose(0).tobytes() == before)
        """) == "True\n"


def test_ctrl_c_ends_a_long_replay(in_process, tmp_path):
    path = tmp_path / "long.algrec"
    af.simulate(path, seconds=120)
    assert in_process(f"""
        import os, signal, threading, time
        threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
        try:
            for _ in range(100):
                af.verify({str(path)!r})
            print("not ended")
        except KeyboardInterrupt:
            print("ended")
        """) == "ended\n"
