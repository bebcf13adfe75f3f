#!/usr/bin/env python3
"""algtrack inspect, held against what Python reads from the same file."""
import json
import os
import re
import shutil
import sqlite3
import struct
import subprocess
import threading
import unittest

from algtrack_case import ALGTRACK, AlgtrackCase, seal

RECORD_FIELDS = (3, 1, 4, 4)  # bytes


def noisy(product_type=1, framing="plain", seed=3):
    return ("--product-type", product_type, "--framing", framing, "--seconds", 10,
            "--noise", 0.3, "--dropouts", 0.05, "--splits", 0.05, "--strays", 0.5,
            "--reflections", 0.05, "--loss", 0.02, "--seed", seed)


def corrupted(**options):
    return noisy(**options) + ("--corrupt", 0.1, "--wrong-check", 0.05)


def records_of(packet):
    """The records of a packet without faults: (camera, id, weight, sumX, sumY)."""
    assert packet[:2] == b"\xAA\x55" and (len(packet) - 3) % 12 == 0
    assert sum(packet[:-1]) % 256 == packet[-1]
    for at in range(2, len(packet) - 1, 12):
        head, sum_x, sum_y = struct.unpack_from("<III", packet, at)
        yield head >> 28, head >> 24 & 15, head & 0xFFFFFF, sum_x, sum_y


class InspectTest(AlgtrackCase):
    def inspect(self, *arguments):
        return json.loads(self.succeed("inspect", *arguments, "--json"))

    def packets(self, name):
        return [row[0] for row in self.query(
            name, "SELECT payload FROM calls WHERE kind = 'InputStream' AND type IN (0, 2)"
                  " ORDER BY id")]

    def test_counts_are_those_of_the_file(self):
        self.simulate("a", *noisy(), "--inertial")
        found = self.inspect("a")
        self.assertEqual(found["calls"], self.query("a", "SELECT count(*) FROM calls")[0][0])
        operations = dict(self.query("a", "SELECT kind, count(*) FROM calls GROUP BY kind"))
        self.assertEqual({row["operation"]: row["calls"] for row in found["operations"]},
                         operations)
        streams = self.query("a", "SELECT type, count(*), sum(length) FROM calls"
                                  " WHERE kind = 'InputStream' GROUP BY type ORDER BY type")
        self.assertEqual([(s["type"], s["calls"], s["bytes"]) for s in found["streams"]], streams)
        self.assertEqual([s["type"] for s in found["streams"]], [0, 3, 4])
        self.assertEqual(found["packets"], len(self.packets("a")))

    def test_gaps_are_the_lost_packets(self):
        self.simulate("a", "--seconds", 10, "--framing", "plain", "--loss", 0.1, "--seed", 5)
        stamps = [row[0] for row in self.query(
            "a", "SELECT start_ns FROM calls WHERE kind = 'InputStream' ORDER BY id")]
        steps = [b - a for a, b in zip(stamps, stamps[1:])]
        stream = self.inspect("a")["streams"][0]
        self.assertEqual(stream["gaps"], sum(step > 1.5e9 / 90 for step in steps))
        self.assertGreater(stream["gaps"], 30)
        self.assertAlmostEqual(stream["longest_interval_ms"], max(steps) * 1e-6)
        self.assertEqual(stream["longest_ends_at_number"], steps.index(max(steps)) + 1)

    def test_messages_come_with_their_first_packet(self):
        self.simulate("a", *corrupted())
        packet_of_call = {row[0]: n for n, row in enumerate(self.query(
            "a", "SELECT id FROM calls WHERE kind = 'InputStream' ORDER BY id"))}
        expected = {(level, text.rstrip("\n")): (count, first, packet_of_call[first])
                    for level, text, count, first in self.query(
                        "a", "SELECT level, text, count(*), min(call) FROM logs"
                             " GROUP BY level, text")}
        self.assertGreater(len(expected), 0)
        self.assertEqual({(m["level"], m["message"]):
                          (m["count"], m["first_call"], m["first_packet"])
                          for m in self.inspect("a")["messages"]}, expected)

    def test_the_funnel_takes_in_what_the_packets_hold(self):
        self.simulate("a", *noisy())
        counts, no_weight = [0, 0], 0
        for packet in self.packets("a"):
            for camera, _, weight, _, _ in records_of(packet):
                counts[camera] += 1
                no_weight += weight == 0
        funnel = self.inspect("a")["funnel"]
        self.assertEqual(funnel["records"], {"left": counts[0], "right": counts[1]})
        self.assertEqual(sum(funnel["ends"]["no_weight"].values()), no_weight)

    def test_the_sums_close_on_noisy_and_corrupted_scenes(self):
        scenes = (noisy(), corrupted(), corrupted(product_type=2, seed=9),
                  corrupted(product_type=0, seed=10), corrupted(framing="stamped"))
        for number, options in enumerate(scenes):
            name = f"scene{number}"
            self.simulate(name, *options)
            found = self.inspect(name)
            for camera in ("left", "right"):
                self.assertEqual(
                    sum(end[camera] for end in found["funnel"]["ends"].values()),
                    found["funnel"]["records"][camera])
            self.assertTrue(found["funnel"]["closes"])
            rows = {row["meaning"]: row["bytes"] for row in found["packet_bytes"]}
            total = rows.pop("all")
            self.assertEqual(sum(rows.values()), total)
            self.assertEqual(total, sum(map(len, self.packets(name))))
            blocks = self.query(name, "SELECT count(*) FROM blocks")[0][0]
            self.assertEqual(found["cross_check"], {
                "compared": blocks, "equal": blocks, "first_difference": None})
            self.assertGreater(blocks, 800)

    def test_packet_lists_every_byte_once(self):
        for framing in ("plain", "stamped"):
            self.simulate(framing, *corrupted(framing=framing))
            for number, payload in list(enumerate(self.packets(framing)))[::97]:
                rows = self.inspect(framing, "--packet", number)["bytes"]
                at, listed = 0, b""
                for row in rows:
                    self.assertEqual(row["offset"], at)
                    self.assertEqual(len(bytes.fromhex(row["bytes"])), row["size_bytes"])
                    at += row["size_bytes"]
                    listed += bytes.fromhex(row["bytes"])
                # The library keeps four zeros behind a stamped packet.
                added = b"\0\0\0\0" if framing == "stamped" else b""
                self.assertEqual(listed, payload + added)

    def test_packet_gives_the_meaning_of_every_field(self):
        self.simulate("a", *noisy())
        packet = self.packets("a")[7]
        rows = self.inspect("a", "--packet", 7)["bytes"]
        self.assertEqual(rows[0]["meaning"], "start word")
        self.assertEqual(rows[-1]["meaning"],
                         f"check byte: right (sum of the bytes before it: {packet[-1]:02X})")
        for n, (camera, blob_id, weight, sum_x, sum_y) in enumerate(records_of(packet)):
            fields = rows[1 + 4 * n:5 + 4 * n]
            self.assertEqual(tuple(field["size_bytes"] for field in fields), RECORD_FIELDS)
            side = ("left", "right")[camera]
            self.assertEqual([field["meaning"] for field in fields], [
                f"record {n}: weight {weight}",
                f"record {n}: camera {camera} ({side}), id {blob_id}",
                f"record {n}: sumX {sum_x}, x = {sum_x / weight:.3f} px",
                f"record {n}: sumY {sum_y}, y = {sum_y / weight:.3f} px"])

    def test_packet_says_what_is_wrong(self):
        self.simulate("a", *noisy())
        call, packet = self.query("a", "SELECT id, payload FROM calls"
                                       " WHERE kind = 'InputStream' ORDER BY id LIMIT 1")[0]
        broken = bytearray(packet)
        broken[5] = 0x20  # the first record's camera is 2
        self.change("a", "UPDATE calls SET payload = ? WHERE id = ?", bytes(broken), call)
        # The recorded block is that of the whole packet: the listing comes, and a complaint.
        result = self.run_algtrack("inspect", "a", "--packet", 0)
        self.assertEqual(result.returncode, 1)
        listing = result.stdout
        self.assertIn("REFUSED: header 0x20 at offset 5: camera 2, expected 0 or 1", listing)
        self.assertIn("check byte: WRONG", listing)
        self.assertIn("Report of the decoder: alg: fpga: check byte error.", listing)

    def test_explain_ends_every_blob_and_delivers_the_recorded_objects(self):
        self.simulate("a", *noisy())
        packets = self.packets("a")
        blocks = [row[0] for row in self.query("a", "SELECT block FROM blocks ORDER BY call")]
        ends = {}
        for number in range(0, len(packets), 31):
            told = self.inspect("a", "--explain", number)
            records = list(records_of(packets[number]))
            self.assertEqual([(("left", "right").index(b["camera"]), b["id"])
                              for b in told["blobs"]], [record[:2] for record in records])
            for blob in told["blobs"]:
                self.assertTrue(blob["reason"])
                ends[blob["end"]] = ends.get(blob["end"], 0) + 1
            delivered = {o["object"]: (o["x_mm"], o["y_mm"], o["z_mm"]) for o in told["delivered"]}
            self.assertEqual(delivered, self.positions(blocks[number]))
        self.assertGreater(len(ends), 5, ends)

    def test_says_that_blocks_are_not_those_of_the_library(self):
        self.simulate("a", *noisy())
        block = self.query("a", "SELECT block FROM blocks ORDER BY call LIMIT 1 OFFSET 20")[0][0]
        other = block[:12] + struct.pack("<f", 1.0) + block[16:]
        self.change("a", "UPDATE blocks SET block = ? WHERE call ="
                         " (SELECT call FROM blocks ORDER BY call LIMIT 1 OFFSET 20)", other)
        call = self.query("a", "SELECT call FROM blocks ORDER BY call LIMIT 1 OFFSET 20")[0][0]
        message = self.find_in_one_line("inspect", "a")
        self.assertIn("no call is missing", message)
        self.assertIn(f"(1 of {len(self.packets('a'))}, first at packet 20, call {call}, ", message)

    def test_refuses_what_it_cannot_show(self):
        self.simulate("a", "--seconds", 1, "--product-type", 2)
        with open(self.path("text"), "w") as file:
            file.write("no recording")
        open(self.path("empty"), "w").close()
        for arguments in (["nowhere"], ["."], ["text"], ["empty"], [],
                          ["a", "--packet", "90"], ["a", "--packet", "-1"],
                          ["a", "--packet", "x"], ["a", "--explain", "99999999999999999999"],
                          ["a", "--packet", "1", "--explain", "1"], ["a", "b"]):
            self.fail_in_one_line("inspect", *arguments)
        self.assertIn("from 0 to 89, found 90",
                      self.fail_in_one_line("inspect", "a", "--explain", "90"))

    def test_says_why_a_packet_was_not_decoded(self):
        self.simulate("a", "--seconds", 1, "--product-type", 2)
        self.change("a", "UPDATE calls SET payload = x'', length = 0 WHERE id ="
                         " (SELECT min(id) FROM calls WHERE kind = 'InputStream')")
        self.assertIn("found packet 0, call 4, 0.000 s: it is empty",
                      self.fail_in_one_line("inspect", "a", "--explain", 0))
        self.change("a", "UPDATE calls SET type = 3 WHERE kind = 'Init'")
        self.change("a", "UPDATE calls SET returned = 0 WHERE kind = 'InputStream'")
        self.fail_in_one_line("inspect", "a", "--explain", 1)

    def test_a_mismatch_names_missing_calls_a_late_begin_and_another_version(self):
        self.simulate("a", *noisy())
        self.change("a", "DELETE FROM blocks WHERE call BETWEEN 100 AND 200")
        self.change("a", "DELETE FROM logs WHERE call BETWEEN 100 AND 200")
        self.change("a", "DELETE FROM calls WHERE id BETWEEN 100 AND 200")
        for command in (["inspect", "a"], ["replay", "a", "--verify"]):
            self.assertIn("101 calls are missing in the recording, from call 100 on",
                          self.find_in_one_line(*command))
        self.simulate("late", *noisy())
        for table, column in (("blocks", "call"), ("logs", "call"), ("truth", "call"),
                              ("calls", "id")):
            self.change("late", f"DELETE FROM {table} WHERE {column} < 4")
        self.change("late", "UPDATE meta SET value = '0.9.0' WHERE key = 'library_version'")
        message = self.find_in_one_line("inspect", "late")
        self.assertIn("did not begin with the host's first call", message)
        self.assertIn("recorded with library version 0.9.0, run with ", message)


class AskTest(AlgtrackCase):
    """Asking by what one knows: an object, a time, a call, a packet."""

    def setUp(self):
        super().setUp()
        # Object 3 is hidden in packets 361 to 540: one call each for a packet and six objects.
        self.simulate("walk.algrec", "--product-type", 2, "--seconds", 8, "--scene", "still",
                      "--occlude", "3:4.005-6.005")

    def test_an_object_is_missing_in_runs_with_their_reasons(self):
        lines = self.succeed("inspect", "walk.algrec", "--object", 3, "--from", 4,
                             "--to", 7).splitlines()
        self.assertEqual(lines[0], "object 3, 4.000 s to 7.000 s: 270 packets, seen in 90")
        self.assertEqual(
            lines[1], "missing  packets 361 to 540   4.011 to 6.000 s   180 packets   "
                      "no camera saw id 3 (180)   calls 2531 to 3784")
        self.assertEqual(lines[2:4], ["", "Where the blobs of id 3 ended"])
        whole = json.loads(self.succeed("inspect", "walk.algrec", "--object", 3, "--json"))
        self.assertEqual((whole["packets"], whole["seen"]), (720, 540))
        (run,) = whole["missing"]
        self.assertEqual((run["first"]["packet"], run["last"]["packet"]), (361, 540))
        self.assertEqual(run["reasons"],
                         [{"reason": "unseen", "text": "no camera saw id 3", "packets": 180}])

    def test_an_objects_funnel_holds_its_own_blobs_alone(self):
        self.simulate("a", *noisy())
        counts = {}
        for (payload,) in self.query("a", "SELECT payload FROM calls WHERE kind = 'InputStream'"):
            for camera, blob_id, *_ in records_of(payload):
                counts[blob_id, camera] = counts.get((blob_id, camera), 0) + 1
        for object_id in (0, 1, 2):
            found = json.loads(self.succeed("inspect", "a", "--object", object_id, "--json"))
            self.assertEqual(found["funnel"]["records"], {"left": counts[object_id, 0],
                                                          "right": counts[object_id, 1]})
            self.assertTrue(found["funnel"]["closes"])
            blocks = self.query("a", "SELECT block FROM blocks ORDER BY call")
            self.assertEqual(found["seen"],
                             sum(object_id in self.positions(block) for (block,) in blocks))
            missing = sum(run["packets"] for run in found["missing"])
            self.assertEqual(found["seen"] + missing, found["packets"])
            for run in found["missing"]:
                counted = [reason["packets"] for reason in run["reasons"]]
                self.assertEqual(sum(counted), run["packets"])
                self.assertEqual(counted, sorted(counted, reverse=True))

    def test_one_moment_has_three_names(self):
        first = "packet 450, call 3154, 5.000 s"
        for moment in (["--time", 5], ["--time", 5.004], ["--packet", 450], ["--call", 3154],
                       ["--call", 3160]):  # a query behind the packet
            lines = self.succeed("inspect", "walk.algrec", "--explain", *moment).splitlines()
            self.assertEqual(lines[0], first)
            self.assertEqual(lines[4], "object 3  missing: no camera saw id 3")
            self.assertTrue(lines[1].startswith("object 0  delivered at "))
            self.assertEqual(self.succeed("inspect", "walk.algrec", *moment).splitlines()[0], first)
        self.assertEqual(self.succeed("inspect", "walk.algrec", "--explain", 450).splitlines()[0],
                         first)
        self.assertEqual(self.succeed("inspect", "--explain", "walk.algrec", "--time", 5)
                         .splitlines()[0], first)

    def test_every_tracked_object_has_a_line_and_one_alone_if_asked(self):
        told = json.loads(self.succeed("inspect", "walk.algrec", "--explain", 450, "--json"))
        self.assertEqual([row["object"] for row in told["objects"]], [0, 1, 2, 3, 4, 5])
        self.assertEqual([row["delivered"] for row in told["objects"]],
                         [True, True, True, False, True, True])
        self.assertEqual(told["objects"][3]["reason"], "unseen")
        alone = json.loads(self.succeed("inspect", "walk.algrec", "--explain", 450, "--object", 1,
                                        "--json"))
        self.assertEqual({row["object"] for row in alone["objects"] + alone["delivered"]}, {1})
        self.assertEqual({row["id"] for row in alone["blobs"] + alone["points"]}, {1})

    def test_one_camera_and_refused_pairs_are_told_apart(self):
        self.simulate("left", "--product-type", 2, "--seconds", 1, "--occlude", "4:0.5-0.8:right")
        lines = self.succeed("inspect", "left", "--explain", "--time", 0.6).splitlines()
        self.assertIn("object 4  missing: only the left camera saw it", lines)
        self.simulate("a", *noisy())
        told = self.succeed("inspect", "a", "--object", 0)
        self.assertIn("its pair was refused by the epipolar test (", told)

    def test_a_stretch_of_time_counts_what_is_in_it(self):
        part = json.loads(self.succeed("inspect", "walk.algrec", "--from", 4, "--to", 7, "--json"))
        self.assertEqual(part["packets"], 270)
        self.assertEqual(part["range"], {"from_s": 4, "to_s": 7})
        self.assertEqual(part["cross_check"]["compared"], 270)
        self.assertEqual({m["first"]["packet"] for m in part["worst_moments"]
                          if m["kind"] == "gap"}, {361})

    def test_what_is_not_there_is_refused_with_what_is(self):
        for arguments, expected in (
                (["--object", 6], "expected a whole number from 0 to 5, found '6'"),
                (["--packet", 720], "expected a packet number from 0 to 719, found 720"),
                (["--call", 3], "expected a call from 4 (the first packet's) to 5043, found 3"),
                (["--call", 5044], "to 5043, found 5044"),
                (["--time", 30], "expected a time from 0.000 s to 7.989 s, found 30.000 s"),
                (["--object", 3, "--from", 30], "the recording ends at 7.989 s"),
                (["--from", 5, "--to", 4], "--to: expected more than --from"),
                (["--explain"], "expected a moment"),
                (["--explain", 4, "--time", 3], "expected one moment"),
                (["--time", 3, "--call", 9], "found both"),
                (["--time", 3, "--from", 2], "found both"),
                (["--time", "nan"], "expected a number from 0")):
            self.assertIn(expected,
                          self.fail_in_one_line("inspect", "walk.algrec", *arguments))
        self.simulate("one", "--product-type", 1, "--seconds", 0.1)
        self.assertIn("expected an object that its product type tracks, 0 to 2, found 3",
                      self.fail_in_one_line("inspect", "one", "--object", 3))

    def test_it_ends_with_the_worst_moments_and_the_commands_that_explain_them(self):
        self.simulate("hard", "--product-type", 2, "--seconds", 8, "--noise", 0.2, "--dropouts",
                      0.02, "--corrupt", 0.02, "--occlude", "3:2-3.5", "--seed", 4)
        text = self.succeed("inspect", "hard")
        self.assertIn("\nWhere to look first\n", text)
        worst = json.loads(self.succeed("inspect", "hard", "--json"))["worst_moments"]
        self.assertEqual([m["kind"] for m in worst], ["gap"] * 5 + ["step"] * 5 + ["error"] * 5 +
                         ["corrupt"] * 5)
        report = json.loads(self.succeed("report", "hard", "--json"))["worst"]
        self.assertEqual([m["command"] for m in report], [m["command"] for m in worst])
        self.assertEqual(worst[0]["object"], 3)
        self.assertAlmostEqual(worst[0]["duration_s"], 1.5, delta=0.1)
        for moment in worst:
            name, *arguments = moment["command"].split()
            self.assertEqual(name, "algtrack")
            told = self.succeed(*arguments).splitlines()
            first = moment["first"]
            if moment["kind"] == "gap":
                self.assertTrue(told[1].startswith(
                    f"missing  packets {first['packet']} to {moment['last']['packet']} "), told[1])
                self.assertIn("seen in 0", told[0])
            else:
                self.assertEqual(told[0], f"packet {first['packet']}, call {first['call']}, "
                                          f"{first['time_s']:.3f} s")
        errors = [m for m in worst if m["kind"] == "error"]
        truth = dict(self.query("hard", "SELECT call, x FROM truth WHERE object = ? AND call = ?",
                                errors[0]["object"], errors[0]["first"]["call"]))
        self.assertEqual(len(truth), 1)
        (block,), = self.query("hard", "SELECT block FROM blocks WHERE call = ?",
                               errors[0]["first"]["call"])
        (x, y, z), = self.query("hard", "SELECT x, -y, -z FROM truth WHERE object = ? AND call = ?",
                                errors[0]["object"], errors[0]["first"]["call"])
        place = self.positions(block)[errors[0]["object"]]
        self.assertAlmostEqual(errors[0]["distance_mm"],
                               sum((a - b) ** 2 for a, b in zip(place, (x, y, z))) ** 0.5, places=6)

    def test_corrupt_packets_of_a_stamped_stream_are_listed(self):
        self.simulate("a", "--seconds", 10, "--corrupt", 0.05)
        expected = []
        for number, (call, start, payload) in enumerate(self.query(
                "a", "SELECT id, start_ns, payload FROM calls WHERE kind = 'InputStream'"
                     " ORDER BY id")):
            if sum(payload[4:-1]) % 256 != payload[-1]:
                expected.append({"packet": number, "call": call, "time_s": start / 1e9})
        self.assertGreater(len(expected), 20)
        found = json.loads(self.succeed("inspect", "a", "--json"))["wrong_check_bytes"]
        self.assertEqual(found, expected)
        text = self.succeed("inspect", "a")
        self.assertIn(f"Packets whose own check byte is wrong: {len(expected)} of ", text)
        self.assertIn("is normal for the", text)
        self.simulate("clean", "--seconds", 1)
        text = self.succeed("inspect", "clean")
        self.assertIn("Packets whose own check byte is wrong: 0 of 90", text)
        self.assertIn("is normal for the 90 stamped packets", text)

    def test_a_missing_journal_is_named(self):
        self.simulate("a", "--seconds", 1)
        inspect = lambda: json.loads(self.succeed("inspect", "a", "--json"))
        self.assertFalse(inspect()["journal_missing"])
        self.lose_journal("a")
        self.assertTrue(inspect()["journal_missing"])
        self.assertIn("(its journal a-wal is not beside it: the latest calls are in there)\n",
                      self.succeed("inspect", "a"))
        self.assertTrue(json.loads(self.succeed("replay", "a", "--json"))
                        ["summary"]["journal_missing"])
        for arguments in (["tracks", "a", "--csv", "-"], ["export", "a", "--mcap", "m"],
                          ["calibration", "check", "--recording", "a"]):
            self.assertIn("Note: a: its journal a-wal is not beside it: the latest calls are in "
                          "there\n", self.run_algtrack(*arguments).stderr)
        report = json.loads(self.succeed("report", "a", "--json"))
        self.assertTrue(report["recording"]["journal_missing"])
        self.assertTrue(any("Its journal (a-wal)" in text for text in report["notices"]))

    def test_who_follows_a_name_that_no_file_can_have_does_not_wait_for_it(self):
        self.simulate("a", "--seconds", 0.1)
        os.symlink("round", self.path("round"))
        for name in ("x" * 300, "a/b", "round", "folder/"):
            for command in (["stream", "--osc", "127.0.0.1:9"], ["view", "--no-browser"]):
                result = subprocess.run([ALGTRACK, *command, "--follow", name], cwd=self.folder,
                                        text=True, capture_output=True, timeout=30)
                self.assertEqual(result.returncode, 2)
                self.assertEqual(result.stderr.count("\n"), 1)
                self.assertIn(name + ": expected the name of a recording or of one to come",
                              result.stderr)

    def test_who_waited_for_a_recording_is_told_that_it_came_without_its_journal(self):
        self.simulate("a", "--seconds", 1)
        self.lose_journal("a")
        for arguments in (["stream", "--osc", "127.0.0.1:9"], ["view", "--no-browser"]):
            with subprocess.Popen([ALGTRACK, *arguments, "--follow", "late"], cwd=self.folder,
                                  text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE) as process:
                limit = threading.Timer(30, process.kill)
                limit.start()
                self.assertTrue(process.stdout.readline())  # it waits
                shutil.copy(self.path("a"), self.path("a copy"))
                os.rename(self.path("a copy"), self.path("late"))
                self.assertEqual(process.stderr.readline(),
                                 "Note: late: its journal late-wal is not beside it: the latest "
                                 "calls are in there\n", arguments)
                limit.cancel()
                process.kill()
            os.remove(self.path("late"))

    def test_who_follows_is_told_of_a_missing_journal_before_the_wait(self):
        self.simulate("a", "--seconds", 1)
        self.lose_journal("a")
        for arguments in (["stream", "a", "--follow", "--osc", "127.0.0.1:9"],
                          ["view", "a", "--follow", "--no-browser"]):
            with subprocess.Popen([ALGTRACK, *arguments], cwd=self.folder, text=True,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
                limit = threading.Timer(30, process.kill)
                limit.start()
                self.assertEqual(process.stderr.readline(),
                                 "Note: a: its journal a-wal is not beside it: the latest calls "
                                 "are in there\n", arguments)
                limit.cancel()
                process.kill()

    def test_a_time_without_anything_is_refused_in_the_same_words_by_every_command(self):
        self.simulate("a", "--seconds", 1, "--product-type", 2)
        for arguments in (["inspect"], ["inspect", "--json"], ["replay", "--verify"],
                          ["replay", "--csv", "o"], ["replay", "--against", "a"]):
            self.assertEqual(self.fail_in_one_line(*arguments, "a", "--from", 5),
                             "algtrack: a: expected calls in that time, found none (the recording "
                             "ends at 0.989 s)\n")
        for arguments in (["inspect", "--object", 0], ["tracks", "--csv", "o"],
                          ["tracks", "--smooth", "--jsonl", "o"], ["report", "--json"]):
            self.assertEqual(self.fail_in_one_line(*arguments, "a", "--from", 5),
                             "algtrack: a: expected packets in that time, found none (the "
                             "recording ends at 0.989 s)\n")
        self.assertFalse(os.path.exists(self.path("o")))

    def test_an_object_that_the_product_does_not_track_is_refused_by_every_command(self):
        self.simulate("a", "--seconds", 0.2, "--product-type", 1)
        for arguments in (["inspect"], ["tracks", "--csv", "-"], ["replay", "--csv", "-"],
                          ["replay", "--tum", "t"], ["report", "--json"]):
            result = self.run_algtrack(*arguments, "a", "--object", 4)
            self.assertEqual((result.returncode, result.stdout, result.stderr),
                             (2, "", "algtrack: a: expected an object that its product type "
                                     "tracks, 0 to 2, found 4\n"))
        # What if: another product type has it.
        self.succeed("replay", "a", "--product-type", 2, "--object", 4, "--csv", "-")

    def test_bytes_that_are_no_text_never_end_a_command(self):
        self.assertEqual(
            self.run_bytes("simulate", "-o", "b\udcff.algrec", "--seconds", 0.2).returncode, 0)
        self.change("b\udcff.algrec", "UPDATE logs SET text = CAST(x'80ff1b5b330a' AS TEXT)")
        for arguments in ([], ["--packet", 3], ["--explain", 3], ["--object", 1]):
            result = self.run_bytes("inspect", "b\udcff.algrec", *arguments, "--json")
            self.assertIn(result.returncode, (0, 1))
            json.loads(result.stdout.decode())
            result = self.run_bytes("inspect", "b\udcff.algrec", *arguments)
            self.assertNotIn(b"\x1b", result.stdout)

    def test_a_file_of_thousands_of_long_messages_is_counted_in_bounded_memory(self):
        self.simulate("a", "--seconds", 1)
        database = sqlite3.connect(self.path("a"))
        with database:
            database.execute("DELETE FROM logs")
            packet, = database.execute("SELECT max(id) FROM calls WHERE kind = 'InputStream'"
                                       ).fetchone()
            database.executemany("INSERT INTO logs VALUES (?, ?, 3, ?, 0)", [
                (packet, 100 + n, f"{n % 1500} {'x' * 10000}\n") for n in range(3000)])
            seal(database)
        database.close()
        found = json.loads(self.run_algtrack("inspect", "a", "--json").stdout)
        self.assertEqual(len(found["messages"]), 1000)
        self.assertEqual(sum(message["count"] for message in found["messages"]), 2000)
        self.assertEqual(found["messages_left_out"], 1000)
        self.assertEqual({len(message["message"]) for message in found["messages"]}, {4000})
        self.assertIn("... and 1000 messages of other texts\n",
                      self.run_algtrack("inspect", "a").stdout)
        found = json.loads(self.run_algtrack("report", "a", "--json").stdout)
        self.assertEqual(len(found["messages"]), 1000)
        self.assertEqual(found["messages_left_out"], 1000)
        self.assertEqual({len(message["text"]) for message in found["messages"]}, {4000})

    def test_nothing_that_a_recording_says_forges_a_line_or_reaches_the_terminal_raw(self):
        bad = b"1\x1b[2J\r\n\nforged: line\x07\x7f \xc2\x9b31m \xe2\x80\xae\xe2\x80\xa8 \x9b2J\n"
        self.simulate("a", "--seconds", 1)
        as_text = "CAST(x'" + bad.hex() + "' AS TEXT)"
        self.change("a", f"UPDATE logs SET text = {as_text}")
        for fact in ("platform", "library_version", "clock", "replay_of", "replay_changes"):
            self.change("a", f"INSERT OR REPLACE INTO meta VALUES ('{fact}', {as_text}, 0)")
        for arguments in (["inspect", "a"], ["inspect", "a", "--packet", 3],
                          ["inspect", "a", "--explain", 3], ["inspect", "a", "--object", 1],
                          ["replay", "a", "--verify"], ["replay", "a", "--csv", "-"],
                          ["replay", "a", "--jsonl", "-"], ["replay", "a", "--record", "b"],
                          ["report", "a", "-o", "a.html"], ["report", "a", "--json"],
                          ["calibration", "check", "--recording", "a"],
                          ["calibration", "show", "--recording", "a"], ["repair", "a", "-o", "c"]):
            result = self.run_bytes(*arguments)
            self.assertIn(result.returncode, (0, 1), arguments)
            for output in (result.stdout, result.stderr):
                for line in output.split(b"\n"):
                    self.assertFalse(line.startswith(b"forged"), arguments)
                    self.assertNotRegex(line, rb"[\x00-\x1f\x7f]|\xc2[\x80-\x9f]", arguments)
                if "json" not in str(arguments):  # there a program reads
                    self.assertNotRegex(output, rb"\xe2\x80[\xa8-\xae]", arguments)
                output.decode()  # no byte that is no UTF-8


    def test_commands_can_be_pasted_whatever_the_file_is_called(self):
        os.mkdir(self.path("field"))
        for name in ("a b", "it's", "$HOME", "-x", "\u00fcber", "tab\t\\", "new\nline", "e\x1b[31m",
                     "b\udcff"):
            path = os.path.join("field" if name != "-x" else ".", name)
            self.simulate(path, "--seconds", 1, "--product-type", 2, "--occlude", "3:0.3-0.5")
            for arguments in (["inspect", path], ["report", path, "-o", path + ".html"]):
                text = self.run_bytes(*arguments).stdout
                command = re.search(rb"algtrack (inspect .* --object 3 .*)", text).group(1)
                self.assertNotRegex(command, rb"[\x00-\x1f]")
                told = subprocess.run([b"bash", b"-c", b'"$ALGTRACK" ' + command], cwd=self.folder,
                                      capture_output=True, timeout=60)
                self.assertEqual(told.returncode, 0, (command, told.stderr))
                self.assertIn(b"seen in 0", told.stdout)

if __name__ == "__main__":
    unittest.main()
