#!/usr/bin/env python3
"""algtrack simulate and replay, end to end."""
import csv
import json
import math
import os
import struct
import time
import unittest

from algtrack_case import AlgtrackCase

NOISY = ["--seconds", 3, "--noise", 0.1, "--dropouts", 0.03, "--splits", 0.05, "--strays", 0.5,
         "--reflections", 0.03, "--loss", 0.03, "--corrupt", 0.05, "--wrong-check", 0.05,
         "--inertial", "--occlude", "1:1-2", "--occlude", "0:0.5-1:left"]


class SimulateTest(AlgtrackCase):
    def test_a_motion_with_a_repeated_stamp_is_read_and_a_short_one_says_so(self):
        with open(self.path("motion.tum"), "w") as file:
            for i in (0, 1, 2, 2, 3, 4):
                file.write(f"{i * 0.5} {i * 0.1} 0 1 0 0 0 1\n")
        text = self.succeed("simulate", "-o", "a", "--trajectory", "motion.tum", "--seconds", 200)
        self.assertIn("Note: 1 poses of the motion repeat the stamp before them: left out.", text)
        self.assertIn("Note: the motion lasts 2.000 s, not the 200.000 s that were asked for.", text)
        told = json.loads(self.succeed("simulate", "-o", "b", "--trajectory", "motion.tum",
                                       "--seconds", 1.5, "--json"))
        self.assertEqual(len([note for note in told["notes"] if "motion" in note]), 1)
        self.assertEqual(told["summary"]["duration_s"], 1.5)
        self.assertEqual(json.loads(self.succeed("simulate", "-o", "c", "--trajectory",
                                                 "motion.tum", "--json"))["summary"]["frames"], 180)

    def test_an_occlusion_outside_the_session_is_refused(self):
        self.assertIn("--occlude: expected a beginning within the session's 20.000 s, found "
                      "'0:30-40'", self.fail_in_one_line("simulate", "-o", "x", "--occlude",
                                                         "0:30-40"))
        self.assertFalse(os.path.exists(self.path("x")))

    def test_the_check_byte_report_of_stamped_packets_is_called_normal(self):
        stamped = json.loads(self.succeed("simulate", "-o", "a", "--seconds", 0.5, "--json"))
        self.assertEqual([m["count"] for m in stamped["summary"]["messages"]
                          if "check byte" in m["text"]], [44])
        self.assertEqual(len([note for note in stamped["notes"]
                              if "is normal for stamped packets" in note]), 1)
        plain = json.loads(self.succeed("simulate", "-o", "b", "--seconds", 0.5, "--framing",
                                        "plain", "--wrong-check", 1, "--json"))
        self.assertEqual(plain["notes"], [])

    def test_same_seed_gives_the_same_content(self):
        self.simulate("a", *NOISY, "--seed", 5)
        self.simulate("b", *NOISY, "--seed", 5)
        self.simulate("c", *NOISY, "--seed", 6)
        self.assertEqual(self.dump("a"), self.dump("b"))
        self.assertNotEqual(self.dump("a"), self.dump("c"))

    def test_truth_covers_every_frame_and_lost_packets_have_no_call(self):
        self.simulate("a", "--seconds", 2, "--loss", 0.2)
        ((frames, lost),) = self.query(
            "a", "SELECT count(DISTINCT frame), count(DISTINCT frame) - count(DISTINCT call)"
                 " FROM truth")
        ((packets,),) = self.query(
            "a", "SELECT count(*) FROM calls WHERE kind = 'InputStream'")
        self.assertEqual(frames, 180)
        self.assertEqual(packets, 180 - lost)
        self.assertTrue(10 < lost < 70, lost)  # 36 are expected

    def test_delivered_positions_are_the_mirrored_truth_at_rest(self):
        for product_type in (0, 1, 2):
            name = f"still{product_type}"
            self.simulate(name, "--scene", "still", "--seconds", 1, "--product-type", product_type)
            truth = {}  # the middle of an object's markers
            for object_id, x, y, z in self.query(
                    name, "SELECT object, avg(x), avg(y), avg(z) FROM truth GROUP BY object"):
                truth[object_id] = (x, -y, -z)
            (block,), = self.query(name, "SELECT block FROM blocks ORDER BY call DESC LIMIT 1")
            found = self.positions(block)
            self.assertEqual(found.keys(), truth.keys())
            for object_id, position in found.items():
                for a, b in zip(position, truth[object_id]):
                    self.assertAlmostEqual(a, b, delta=2)

    def test_a_bent_rig_keeps_its_true_calibration_and_init_gets_the_other(self):
        self.simulate("good", "--seconds", 1)
        self.simulate("bent", "--seconds", 1, "--bend", "-0.3,-0.4,0.25,0,0.1,-0.2",
                      "--focal-error", "1,-2", "--centre-error", "3,4")
        init = "SELECT payload FROM calls WHERE kind = 'Init'"
        (given,), = self.query("bent", init)
        self.assertEqual(self.query("good", init), [(given,)])
        (text,), = self.query("bent", "SELECT value FROM meta WHERE key = 'true_calibration'")
        stated = struct.unpack("<115d", given)
        true = struct.unpack("<115d", bytes.fromhex(text))
        self.assertAlmostEqual(true[1], 1.01 * stated[1], places=9)    # left fx
        self.assertAlmostEqual(true[18], 0.98 * stated[18], places=9)  # right fx
        self.assertAlmostEqual(true[6], stated[6] + 4, places=9)       # left cy
        self.assertAlmostEqual(true[20], stated[20] + 3, places=9)     # right cx
        trace = sum(true[35 + i] * stated[35 + i] for i in range(9))   # of R' R^T
        self.assertAlmostEqual(math.degrees(math.acos((trace - 1) / 2)), 0.559017, places=5)
        self.assertEqual(self.query("good", "SELECT * FROM meta WHERE key LIKE 'true_%'"), [])

    def test_a_drift_keeps_the_true_calibration_of_both_ends(self):
        self.simulate("a", "--seconds", 1, "--drift", "0,0.5,0")
        texts = dict(self.query("a", "SELECT key, value FROM meta WHERE key LIKE 'true_%'"))
        (given,), = self.query("a", "SELECT payload FROM calls WHERE kind = 'Init'")
        self.assertEqual(bytes.fromhex(texts["true_calibration"]), given)
        self.assertNotEqual(bytes.fromhex(texts["true_calibration_at_end"]), given)

    def test_refuses_bends_that_are_none(self):
        for option in ("--bend", "--drift"):
            for text in ("1", "1,2", "1,2,3,4", "1,2,x", "nan,0,0", "30,0,0", "", "1,,2"):
                line = self.fail_in_one_line("simulate", "-o", "x", option, text)
                if text:
                    self.assertIn(option, line)
        self.fail_in_one_line("simulate", "-o", "x", "--focal-error", "1,2,3")
        self.fail_in_one_line("simulate", "-o", "x", "--centre-error", "1")
        self.assertFalse(os.path.exists(self.path("x")))

    def test_an_occluded_object_is_missing_and_comes_back(self):
        self.simulate("a", "--scene", "still", "--seconds", 4, "--occlude", "1:1-2")

        def seen(second):
            (block,), = self.query(
                "a", "SELECT block FROM blocks JOIN calls ON calls.id = blocks.call"
                     " WHERE start_ns >= ? ORDER BY call LIMIT 1", int(second * 1e9))
            return set(self.positions(block))

        self.assertEqual(seen(0.9), {0, 1, 2})
        self.assertEqual(seen(1.9), {0, 2})
        self.assertEqual(seen(3.5), {0, 1, 2})

    def test_stream_types_follow_the_options(self):
        def streams(*arguments):
            self.simulate("a", "--force", "--seconds", 0.1, *arguments)
            return dict(self.query("a", "SELECT type, count(*) FROM calls"
                                        " WHERE kind = 'InputStream' GROUP BY type"))
        self.assertEqual(streams("--product-type", 1), {2: 9})
        self.assertEqual(streams("--product-type", 2), {0: 9})
        self.assertEqual(streams("--framing", "plain", "--inertial"), {0: 9, 3: 9, 4: 9})
        self.assertEqual(streams("--framing", "stamped", "--rate", 30), {2: 3})

    def test_measured_motion_moves_every_object(self):
        with open(self.path("motion.tum"), "w") as file:
            for i in range(200):  # 0.5 m/s along the room's x
                file.write(f"{100 + i * 0.01} {i * 0.005} 0 1 0 0 0 1\n")
        self.simulate("a", "--trajectory", "motion.tum", "--start", 0.5, "--seconds", 60)
        ((first, last, frames),) = self.query(
            "a", "SELECT min(time_ns), max(time_ns), count(DISTINCT frame) FROM truth")
        self.assertEqual(frames, round(1.49 * 90))  # what is left of the motion
        for (moved,) in self.query(
                "a", "SELECT max(x) - min(x) FROM truth GROUP BY object, marker"):
            self.assertAlmostEqual(moved, 500 * (last - first) / 1e9, delta=1)


class VerifyTest(AlgtrackCase):
    def test_replays_every_product_type_and_framing_to_the_same_bytes(self):
        for product_type in (0, 1, 2):
            for framing in ("plain", "stamped"):
                name = f"r{product_type}{framing}"
                self.simulate(name, *NOISY, "--product-type", product_type, "--framing", framing,
                              "--filter-mode", product_type - 1)
                output = self.succeed("replay", name, "--verify")
                self.assertIn("is the same, byte by byte", output)

    def test_names_the_first_call_record_and_field_with_both_values(self):
        self.simulate("good", "--seconds", 1, "--corrupt", 0.3)
        (first, block), (second, _) = self.query(
            "good", "SELECT call, block FROM blocks ORDER BY call LIMIT 2 OFFSET 30")
        ((query, answer),) = self.query(
            "good", "SELECT id, output FROM calls WHERE kind = 'HandleEvent' AND id > ?"
                    " ORDER BY id LIMIT 1", first)
        y = struct.unpack_from("<f", block, 8 + 52 + 8)[0]
        changed_block = block[:8 + 52 + 8] + struct.pack("<f", 1.5) + block[8 + 52 + 12:]
        changed_answer = answer[:28] + struct.pack("<f", -2.5) + answer[32:]
        cases = [
            ("UPDATE blocks SET block = ? WHERE call >= ? AND call < ?",
             (changed_block, first, second),
             [f"call {first} (InputStream, stream type 2): block 0, record 1, y: recorded 1.5, "
              f"replayed {y:.9g}", "1 of "]),
            ("UPDATE calls SET output = ? WHERE id = ?", (changed_answer, query),
             [f"call {query} (HandleEvent, event 0): answer, filtered x: recorded -2.5, replayed "]),
            ("UPDATE calls SET returned = 0 WHERE id = ?", (first,),
             [f"call {first} ", "returned value: recorded 0, replayed 1"]),
            ("UPDATE logs SET text = 'alg: other' WHERE call = "
             "(SELECT min(call) FROM logs WHERE call > ?)", (first,),
             ["message 0, text: recorded \"alg: other\", replayed \"alg: fpga: "]),
            ("DELETE FROM blocks WHERE call = ?", (first,), ["blocks: recorded 0, replayed 1"]),
        ]
        for sql, parameters, expected in cases:
            with open(self.path("good"), "rb") as source, open(self.path("bad"), "wb") as target:
                target.write(source.read())
            self.change("bad", sql, *parameters)
            message = self.find_in_one_line("replay", "bad", "--verify")
            for text in expected:
                self.assertIn(text, message)

    def test_the_recording_host_example_replays_to_the_same_bytes(self):
        import subprocess
        host = subprocess.run([os.environ["ALG_RECORDING_HOST"], self.path("session.algrec")],
                              capture_output=True, text=True, timeout=120)
        self.assertEqual(host.returncode, 0, host.stderr)
        self.assertIn("180 blocks; 1264 calls", host.stdout)
        self.assertIn("is the same, byte by byte", self.succeed("replay", "session.algrec", "--verify"))
        clock, durations = self.query(
            "session.algrec", "SELECT (SELECT value FROM meta WHERE key = 'clock'),"
                              " count(duration_ns) FROM calls")[0]
        self.assertEqual((clock, durations), ("monotonic", 1264))


class WhatIfTest(AlgtrackCase):
    def test_a_changed_filter_mode_shows_against_the_original(self):
        self.simulate("a", "--seconds", 1, "--noise", 0.2)
        self.succeed("replay", "a", "--filter-mode", 1, "--record", "b")
        self.succeed("replay", "b", "--verify")
        message = self.find_in_one_line("replay", "b", "--against", "a")
        self.assertIn("call 3 (SetFilterMode): mode: there 0, here 1", message)
        # What comes of the calls parts later, and by how much is said.
        self.assertRegex(message, r"what comes of the calls parts at call \d+ \(HandleEvent, event")
        result = self.run_algtrack("replay", "b", "--against", "a", "--json")
        summary = json.loads(result.stdout)["summary"]
        self.assertEqual(summary["largest_distance_of_blocks"]["distance_mm"], 0)
        self.assertGreater(summary["largest_distance_of_answers"]["distance_mm"], 0.1)
        at = summary["largest_distance_of_answers"]["at"]
        self.assertEqual(at["time_s"], self.query(
            "a", "SELECT start_ns / 1e9 FROM calls WHERE id = ?", at["call"])[0][0])
        blocks = "SELECT block FROM blocks ORDER BY call"
        self.assertEqual(self.query("a", blocks), self.query("b", blocks))  # only answers differ
        answers = "SELECT output FROM calls WHERE kind = 'HandleEvent' ORDER BY id"
        self.assertNotEqual(self.query("a", answers), self.query("b", answers))

    def test_a_filter_mode_is_added_where_the_recording_sets_none(self):
        self.simulate("a", "--seconds", 1, "--noise", 0.2, "--filter-mode", -1)
        self.simulate("b", "--seconds", 1, "--noise", 0.2, "--filter-mode", 0)
        self.succeed("replay", "a", "--filter-mode", 0, "--record", "c")
        answers = "SELECT output FROM calls WHERE kind = 'HandleEvent' ORDER BY id"
        self.assertEqual(self.query("b", answers), self.query("c", answers))
        self.succeed("replay", "c", "--against", "b")

    def test_a_recorded_replay_keeps_what_was_changed_and_nothing_else(self):
        self.simulate("a", "--seconds", 0.2)
        self.succeed("replay", "a", "--product-type", 0, "--filter-mode", 1, "--record", "b")
        self.succeed("replay", "a", "--record", "c")
        meta = "SELECT value FROM meta WHERE key = 'replay_changes'"
        self.assertEqual(json.loads(self.query("b", meta)[0][0]),
                         {"product_type": 0, "filter_mode": 1})
        self.assertEqual(self.query("c", meta), [])

    def test_the_effect_of_a_foreign_calibration_shows_in_the_summary(self):
        self.simulate("a", "--seconds", 1, "--scene", "still")
        ((record,),) = self.query("a", "SELECT calibration FROM configurations")
        values = list(struct.unpack("<115d", record))
        values[44:47] = [value * 10 for value in values[44:47]]  # everything is too deep
        with open(self.path("deep.bin"), "wb") as file:
            file.write(struct.pack("<115d", *values))
        summary = json.loads(self.succeed("replay", "a", "--calibration", "deep.bin", "--unit", "mm",
                                          "--json"))["summary"]
        self.assertEqual((summary["points"], summary["points_recorded"]), (0, 270))

    def test_a_changed_product_type_reaches_the_library(self):
        self.simulate("a", "--seconds", 1, "--product-type", 1)
        self.succeed("replay", "a", "--product-type", 0, "--record", "b")
        self.assertEqual(self.query("b", "SELECT product_type FROM configurations"), [(0,)])
        message = self.find_in_one_line("replay", "a", "--product-type", 0, "--against", "a")
        self.assertIn("product type: there 1, here 0", message)

    def test_a_changed_calibration_reaches_the_library(self):
        self.simulate("a", "--seconds", 1, "--scene", "still", "--product-type", 0)
        # The same rig with half the baseline sees everything half as far away.
        ((record,),) = self.query("a", "SELECT calibration FROM configurations")
        values = list(struct.unpack("<115d", record))
        values[44:47] = [value / 2 for value in values[44:47]]
        with open(self.path("half.bin"), "wb") as file:
            file.write(struct.pack("<115d", *values))
        self.succeed("replay", "a", "--calibration", "half.bin", "--unit", "mm", "--record", "b")
        ((changes,),) = self.query("b", "SELECT value FROM meta WHERE key = 'replay_changes'")
        self.assertEqual(json.loads(changes), {"calibration": "half.bin"})
        self.assertIn('replay changes: {"calibration":"half.bin"}', self.succeed("inspect", "b"))
        last = "SELECT block FROM blocks ORDER BY call DESC LIMIT 1"
        before = self.positions(self.query("a", last)[0][0])
        after = self.positions(self.query("b", last)[0][0])
        self.assertEqual(before.keys(), after.keys())
        self.assertEqual(set(before), {0, 1, 2})
        for object_id, position in before.items():
            for a, b in zip(position, after[object_id]):
                self.assertAlmostEqual(a / 2, b, delta=0.01)


class RecordTest(AlgtrackCase):
    def test_a_recorded_replay_keeps_times_and_truth_and_measures_durations(self):
        self.simulate("a", "--seconds", 1, "--loss", 0.1)
        self.succeed("replay", "a", "--record", "b")
        for sql in ("SELECT * FROM truth ORDER BY frame, object, marker",
                    "SELECT id, kind, type, payload, returned, output, start_ns FROM calls",
                    "SELECT * FROM blocks", "SELECT * FROM logs"):
            self.assertEqual(self.query("a", sql), self.query("b", sql), sql)
        self.assertEqual(self.query("a", "SELECT count(duration_ns) FROM calls"), [(0,)])
        self.assertEqual(self.query("b", "SELECT count(*) - count(duration_ns) FROM calls"), [(0,)])
        self.assertIn("is the same, byte by byte", self.succeed("replay", "b", "--against", "a"))

    def test_truth_stays_with_its_packets_where_calls_are_missing(self):
        self.simulate("a", "--seconds", 1)
        packets = [row[0] for row in self.query(
            "a", "SELECT id FROM calls WHERE kind = 'InputStream' ORDER BY id")]
        first, behind = packets[20], packets[23]
        for table, column in (("calls", "id"), ("logs", "call"), ("blocks", "call")):
            self.change("a", f"DELETE FROM {table} WHERE {column} >= ? AND {column} < ?", first,
                        behind)
        self.run_algtrack("replay", "a", "--record", "b")
        times = ("SELECT frame, calls.start_ns FROM truth LEFT JOIN calls ON truth.call = calls.id"
                 " ORDER BY frame, object, marker")
        self.assertEqual(self.query("a", times), self.query("b", times))
        self.assertIn((20, None), self.query("b", times))
        self.assertIn((23, round(23 * 1e9 / 90)), self.query("b", times))

    def test_a_shorter_or_longer_other_recording_is_noticed(self):
        self.simulate("short", "--seconds", 1, "--scene", "still")
        self.simulate("long", "--seconds", 2, "--scene", "still")
        message = self.find_in_one_line("replay", "short", "--against", "long")
        self.assertIn("this call is only there", message)
        message = self.find_in_one_line("replay", "long", "--against", "short")
        self.assertIn("this call is only here", message)
        # Of the first second they are the same.
        for pair in (("short", "long"), ("long", "short")):
            self.assertIn("is the same, byte by byte",
                          self.succeed("replay", pair[0], "--against", pair[1], "--to", 0.9))


class ExportTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        self.simulate("a", "--seconds", 1, "--noise", 0.1, "--corrupt", 0.1)
        self.succeed("replay", "a", "--csv", "a.csv", "--jsonl", "a.jsonl", "--tum", "t",)
        self.blocks = self.query(
            "a", "SELECT call, start_ns, block FROM blocks JOIN calls ON calls.id = call"
                 " ORDER BY call")
        self.expected = []  # call, seconds, stamp, object, position: read from the file itself
        for call, start_ns, block in self.blocks:
            stamp = struct.unpack_from("<Q", block)[0]
            for object_id, position in self.positions(block).items():
                self.expected.append((call, start_ns / 1e9, stamp, object_id, position))

    def lines(self, name):
        with open(self.path(name)) as file:
            return file.read().splitlines()

    def test_csv_holds_every_position_in_both_axes(self):
        lines = self.lines("a.csv")
        header = " ".join(line for line in lines if line.startswith("#"))
        for word in ("millimetres", "x right, y up, z towards the viewer", "simulated time",
                     "x right, y down, z forward", "before the mirroring", "units per second"):
            self.assertIn(word, header)
        rows = list(csv.DictReader(line for line in lines if not line.startswith("#")))
        found = [row for row in rows if row["source"] == "block"]
        self.assertEqual(len(found), len(self.expected))
        for row, (call, seconds, stamp, object_id, position) in zip(found, self.expected):
            self.assertEqual((int(row["call"]), int(row["stamp_us"]), int(row["object"])),
                             (call, stamp, object_id))
            self.assertAlmostEqual(float(row["time_s"]), seconds, places=9)
            for name, value in zip("xyz", position):
                self.assertAlmostEqual(float(row[name]), value, delta=1e-5 * abs(value))
                self.assertEqual(float(row["camera_" + name]),
                                 float(row[name]) * (1 if name == "x" else -1))
        answers = [row for row in rows if row["source"] == "answer"]
        ((queries,),) = self.query("a", "SELECT count(*) FROM calls WHERE kind = 'HandleEvent'")
        self.assertTrue(0 < len(answers) <= queries)

    def test_json_lines_hold_blocks_answers_and_messages(self):
        lines = [json.loads(line) for line in self.lines("a.jsonl")]
        self.assertEqual(lines[0]["kind"], "header")
        for key in ("time_s", "unit", "position", "camera_position", "stamp_us"):
            self.assertIn(key, lines[0])
        blocks = [line for line in lines if line["kind"] == "block"]
        self.assertEqual([line["call"] for line in blocks], [call for call, _, _ in self.blocks])
        found = [(line["call"], item["object"], tuple(item["position"]))
                 for line in blocks for item in line["objects"]]
        self.assertEqual(found, [(call, object_id, position)
                                 for call, _, _, object_id, position in self.expected])
        for line in blocks:
            for item in line["objects"]:
                x, y, z = item["position"]
                self.assertEqual(item["camera_position"], [x, -y, -z])
        messages = [(line["call"], line["level"], line["text"])
                    for line in lines if line["kind"] == "message"]
        self.assertEqual(messages,
                         self.query("a", "SELECT call, level, text FROM logs ORDER BY call, step"))

    def test_tum_holds_metres_per_object_in_the_axes_asked_for(self):
        self.succeed("replay", "a", "--tum", "camera", "--axes", "camera")
        for object_id in range(3):
            expected = [(seconds, position) for _, seconds, _, found, position in self.expected
                        if found == object_id]
            for prefix, sign, axes in (("t", 1, "y up"), ("camera", -1, "y down")):
                lines = self.lines(f"{prefix}-object{object_id}.tum")
                header = " ".join(line for line in lines if line.startswith("#"))
                self.assertIn("metres", header)
                self.assertIn(axes, header)
                rows = [list(map(float, line.split())) for line in lines
                        if not line.startswith("#")]
                self.assertEqual(len(rows), len(expected))
                for row, (seconds, (x, y, z)) in zip(rows, expected):
                    self.assertAlmostEqual(row[0], seconds, places=9)
                    for a, b in zip(row[1:4], (x, sign * y, sign * z)):
                        self.assertAlmostEqual(a, b / 1000, delta=1e-6)
                    self.assertEqual(row[4:], [0, 0, 0, 1])
        self.assertFalse(os.path.exists(self.path("t-object3.tum")))

    def test_real_time_takes_as_long_as_the_recording(self):
        begin = time.monotonic()
        self.succeed("replay", "a", "--realtime", "--verify")
        self.assertGreaterEqual(time.monotonic() - begin, 89 / 90)

    def test_the_summary_is_there_as_json(self):
        summary = json.loads(self.succeed("replay", "a", "--json"))["summary"]
        self.assertEqual(summary["packets"], 90)
        self.assertEqual(summary["blocks"], len(self.blocks))
        points = sum(len(self.positions(block)) for _, _, block in self.blocks)
        self.assertEqual((summary["points"], summary["points_recorded"]), (points, points))

    def test_exports_hold_the_object_and_the_time_that_were_asked_for(self):
        self.succeed("replay", "a", "--csv", "part.csv", "--jsonl", "part.jsonl", "--tum", "part",
                     "--object", 1, "--from", 0.3, "--to", 0.6)
        whole = list(csv.DictReader(line for line in self.lines("a.csv") if line[0] != "#"))
        part = list(csv.DictReader(line for line in self.lines("part.csv") if line[0] != "#"))
        expected = [row for row in whole
                    if row["object"] == "1" and 0.3 <= float(row["time_s"]) < 0.6]
        self.assertGreater(len(expected), 20)
        self.assertEqual(part, expected)
        lines = [json.loads(line) for line in self.lines("part.jsonl")][1:]
        self.assertEqual({item["object"] for line in lines if line["kind"] == "block"
                          for item in line["objects"]}, {1})
        self.assertEqual({line["object"] for line in lines if line["kind"] == "answer"}, {1})
        self.assertTrue(all(0.3 <= line["time_s"] < 0.6 for line in lines))
        self.assertFalse(os.path.exists(self.path("part-object0.tum")))

    def test_every_exported_row_names_its_packet(self):
        packet_of = {call: n for n, (call,) in enumerate(self.query(
            "a", "SELECT id FROM calls WHERE kind = 'InputStream' ORDER BY id"))}
        rows = list(csv.DictReader(line for line in self.lines("a.csv") if line[0] != "#"))
        for row in rows:
            latest = max(call for call in packet_of if call <= int(row["call"]))
            self.assertEqual(int(row["packet"]), packet_of[latest])
        for line in map(json.loads, self.lines("a.jsonl")[1:]):
            if line["packet"] is not None:
                latest = max(call for call in packet_of if call <= line["call"])
                self.assertEqual(line["packet"], packet_of[latest])

    def test_a_stretch_of_time_is_compared_alone(self):
        (call, block), = self.query("a", "SELECT call, block FROM blocks ORDER BY call DESC LIMIT 1")
        changed = block[:12] + struct.pack("<f", 1.5) + block[16:]
        self.change("a", "UPDATE blocks SET block = ? WHERE call = ?", changed, call)
        message = self.find_in_one_line("replay", "a", "--verify")
        self.assertIn(f"call {call} (InputStream, stream type 2): block 0, record 0, x: ", message)
        self.assertIn("(packet 89, 0.989 s)", message)
        self.succeed("replay", "a", "--verify", "--to", 0.9)
        self.find_in_one_line("replay", "a", "--verify", "--from", 0.9)
        for arguments in (["--record", "x", "--to", 1], ["--object", 1], ["--from", 2, "--to", 1]):
            self.fail_in_one_line("replay", "a", *arguments)


if __name__ == "__main__":
    unittest.main()
