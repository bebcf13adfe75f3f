"""Recordings as arrays, held against the file's tables as sqlite3 reads them."""
import sqlite3
import struct

import numpy as np
import pytest

import alg_factory as af


def rows(path, sql):
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
        return database.execute(sql).fetchall()


def test_the_facts_of_a_recording(walk):
    r = af.Recording(walk)
    assert r.product_type == 1
    assert r.complete
    assert r.metadata["clock"] == "simulated"
    assert list(r.objects) == [0, 1, 2]
    assert r.duration == pytest.approx(449 / 90, abs=1e-9)  # 450 frames at 90 Hz
    assert r.calibration == af.Calibration.built_in()


def test_calls_are_those_of_the_file(walk):
    r = af.Recording(walk)
    expected = rows(walk, "SELECT id, start_ns, kind FROM calls ORDER BY id")
    assert r.calls["call"].tolist() == [row[0] for row in expected]
    assert r.calls["start_ns"].tolist() == [row[1] for row in expected]
    assert r.calls["kind"].tolist() == [row[2] for row in expected]


def test_blocks_hold_the_bytes_that_were_delivered(walk):
    r = af.Recording(walk)
    expected = rows(walk, "SELECT call, block FROM blocks ORDER BY call")
    assert r.blocks["call"].tolist() == [call for call, _ in expected]
    assert r.blocks["records"].shape == (450, 10)
    for row, (_, block) in zip(r.blocks, expected):
        assert row["records"].tobytes() == block[8:]
        assert row["stamp"] == struct.unpack("<Q", block[:8])[0]


def test_tables_cannot_be_written(walk):
    r = af.Recording(walk)
    for table in (r.calls, r.packets, r.blocks, r.queries, r.logs, r.markers):
        assert not table.flags.writeable


def test_positions_and_their_camera_frame(walk):
    p = af.Recording(walk).positions(object=1)
    call, block = rows(walk, "SELECT call, block FROM blocks ORDER BY call LIMIT 1")[0]
    object_id, x, y, z = struct.unpack_from("<ifff", block, 8 + 52)
    assert object_id == 1
    assert (p.call[0], *p.xyz[0]) == (call, x, y, z)
    assert p.camera[0].tolist() == [x, -y, -z]
    assert len(p) == len(p.time) == len(p.xyz)


def test_a_hidden_object_has_no_positions(walk):
    p = af.Recording(walk).positions(object=0)
    assert not np.any((p.time >= 2.0) & (p.time < 3.0))
    assert np.any(p.time < 2.0) and np.any(p.time >= 3.0)


def test_answers_are_the_bytes_of_the_queries(walk):
    q = af.Recording(walk).answers(object=1)
    expected = [struct.unpack("<i12f", output) for (output,) in rows(
        walk, "SELECT output FROM calls WHERE kind = 'HandleEvent' AND type = 1 ORDER BY id")]
    expected = [row for row in expected if row[0] == 1]
    assert q.raw.tolist() == [list(row[1:4]) for row in expected]
    assert q.rate.tolist() == [list(row[4:7]) for row in expected]
    assert q.filtered.tolist() == [list(row[7:10]) for row in expected]


def test_truth_is_the_middle_of_the_markers_mirrored(walk):
    r = af.Recording(walk)
    t = r.truth(object=2)
    markers = rows(walk, "SELECT x, y, z FROM truth WHERE frame = 17 AND object = 2")
    assert len(markers) == 2
    middle = np.mean(markers, axis=0)
    assert t.xyz[17] == pytest.approx([middle[0], -middle[1], -middle[2]], abs=1e-12)
    assert t.time[17] == pytest.approx(17 / 90)


def test_delivered_positions_lie_near_the_truth(walk):
    time, error = af.Recording(walk).errors(object=1)
    assert len(time) > 400
    assert np.median(np.linalg.norm(error, axis=1)) < 10


def test_lost_packets_are_in_the_truth_alone(six):
    r = af.Recording(six)
    lost = r.truth(object=0).call == -1
    assert 0 < lost.sum() < 20
    assert len(r.packets) == 270 - lost.sum()
    assert len(r.packets) == rows(six, "SELECT count(*) FROM calls WHERE kind = 'InputStream'")[0][0]


def test_a_payload_is_what_the_library_read(six):
    r = af.Recording(six)
    call = int(r.packets["call"][5])
    assert r.payload(call) == rows(six, f"SELECT payload FROM calls WHERE id = {call}")[0][0]
    with pytest.raises(ValueError, match="expected a call of the recording, found -5"):
        r.payload(-5)


def test_messages_are_texts(walk):
    logs = af.Recording(walk).logs
    expected = rows(walk, "SELECT call, level, text FROM logs ORDER BY call, step")
    assert [(row["call"], row["level"], row["text"]) for row in logs] == expected
    assert len(expected) > 0


def test_a_slice_has_its_times_and_the_same_interface(walk):
    r = af.Recording(walk)
    cut = r[1.0:2.5]
    assert np.all((cut.packets["time"] >= 1.0) & (cut.packets["time"] < 2.5))
    assert len(cut.packets) == 135  # 1.5 s at 90 Hz
    assert cut.packets["packet"][0] == 90
    assert cut.product_type == r.product_type
    assert len(cut[2.0:9.0].packets) == 45
    assert len(r[4.0:].packets) + len(r[:4.0].packets) == 450
    assert len(cut.positions(object=0)) < len(cut.positions(object=1))
    with pytest.raises(TypeError):
        r[1:2:3]


@pytest.mark.parametrize("limit", [-3, float("nan"), "1"])
def test_a_slice_by_anything_but_seconds_since_the_first_call_is_refused(walk, limit):
    r = af.Recording(walk)
    for ask in (lambda: r[limit:], lambda: r[:limit]):
        with pytest.raises(ValueError, match="expected seconds since the recording's first call"):
            ask()
    assert len(r[0:float("inf")].packets) == 450


def test_a_name_that_no_file_can_have_is_refused_as_such(tmp_path):
    with pytest.raises(ValueError, match=r"found 'walk\\x00'"):
        af.Recording("walk\0")
    for save in (lambda name: af.simulate(name, seconds=0.1),
                 lambda name: af.Calibration.built_in().save(name)):
        with pytest.raises(ValueError, match="expected the name of a file to write, found"):
            save("")
        with pytest.raises(ValueError, match="expected the name of a file to write, found"):
            save(f"{tmp_path}/")


def test_an_object_that_the_product_has_not_is_refused(walk):
    with pytest.raises(ValueError, match=r"from 0 to 2 \(product type 1\), found 3"):
        af.Recording(walk).positions(object=3)


def test_what_is_no_recording_is_refused_in_one_line(tmp_path):
    for name, content in (("none", None), ("empty", b""), ("text", b"not a database" * 100)):
        path = tmp_path / name
        if content is not None:
            path.write_bytes(content)
        with pytest.raises(af.RecordingError) as refused:
            af.Recording(path)
        assert str(path) in str(refused.value)
        assert "\n" not in str(refused.value)


def test_a_damaged_row_is_an_error_and_never_a_number(walk, tmp_path):
    path = tmp_path / "damaged.algrec"
    path.write_bytes(open(walk, "rb").read())
    with sqlite3.connect(path) as database:
        database.execute("UPDATE blocks SET block = zeroblob(528) WHERE call = "
                         "(SELECT max(call) FROM blocks)")
    database.close()
    r = af.Recording(path)
    with pytest.raises(af.RecordingError, match="checksum"):
        r.blocks


def test_opening_and_reading_changes_nothing_on_disk(walk, tmp_path):
    path = tmp_path / "untouched.algrec"
    path.write_bytes(open(walk, "rb").read())
    before = path.stat().st_mtime_ns
    r = af.Recording(path)
    r.blocks, r.markers
    assert path.stat().st_mtime_ns == before
    assert [entry.name for entry in tmp_path.iterdir()] == ["untouched.algrec"]


def test_tables_as_data_frames(walk):
    pandas = pytest.importorskip("pandas")
    r = af.Recording(walk)
    frame = r.to_pandas("blocks")
    assert isinstance(frame, pandas.DataFrame)
    assert frame["records_1_x"].tolist() == r.blocks["records"][:, 1]["x"].tolist()
    assert set(r.to_pandas()) == {"calls", "packets", "blocks", "queries", "headings", "logs",
                                  "markers"}
    with pytest.raises(ValueError, match="expected one of"):
        r.to_pandas("nothing")


def test_a_recording_keeps_its_file_when_it_is_forgotten_itself(walk):
    blocks = af.Recording(walk).blocks
    assert len(blocks) == 450
