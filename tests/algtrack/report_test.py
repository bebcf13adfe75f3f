#!/usr/bin/env python3
"""algtrack report: its numbers, against what SQL and Python make of the same recording."""
import base64
import json
import math
import os
import re
import statistics
import struct
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__))))
from algtrack_case import AlgtrackCase

FOCAL_LENGTH = 380  # px, of the built-in rig
NOISY = ["--noise", 0.05, "--dropouts", 0.02, "--splits", 0.05, "--strays", 0.3, "--loss", 0.02,
         "--corrupt", 0.02]


def nearest_rank(values, share):
    return sorted(values)[max(1, math.ceil(share * len(values) - 1e-9)) - 1]


def decoded(row):
    data = base64.b64decode(row)
    return struct.unpack(f"<{len(data) // 4}f", data)


class ReportTest(AlgtrackCase):
    def report(self, name, *options):
        return json.loads(self.succeed("report", name, "--json", *options))

    def packets(self, name):
        """Call, seconds and delivered positions of every packet."""
        blocks = dict(self.query(name, "SELECT call, block FROM blocks"))
        calls = self.query(name, "SELECT id, start_ns FROM calls WHERE kind = 'InputStream'"
                                 " AND type IN (0, 2) ORDER BY id")
        return [(call, ns / 1e9, self.positions(blocks[call]) if call in blocks else {})
                for call, ns in calls]

    def truth(self, name):
        """(call, object) -> true position, mirrored."""
        return {(call, object_id): (x, -y, -z) for call, object_id, x, y, z in self.query(
            name, "SELECT call, object, avg(x), avg(y), avg(z) FROM truth"
                  " WHERE call IS NOT NULL GROUP BY call, object")}

    def assert_spread(self, found, values):
        self.assertEqual(found["count"], len(values))
        self.assertAlmostEqual(found["mean"], statistics.fmean(values), places=3)
        for key, share in (("median", 0.5), ("p90", 0.9), ("p95", 0.95), ("p99", 0.99)):
            self.assertAlmostEqual(found[key], nearest_rank(values, share), places=3)
        self.assertAlmostEqual(found["largest"], max(values), places=3)

    def test_presence_and_gaps_are_those_of_the_delivered_blocks(self):
        for product_type in (0, 1, 2):
            name = f"r{product_type}"
            self.simulate(name, *NOISY, "--seconds", 6, "--product-type", product_type,
                          "--occlude", "1:2-3.5")
            report = self.report(name)
            packets = self.packets(name)
            self.assertEqual(report["recording"]["packets"], len(packets))
            ((lost,),) = self.query(name, "SELECT count(DISTINCT frame) FROM truth"
                                          " WHERE call IS NULL")
            self.assertGreater(lost, 0)
            self.assertEqual(report["recording"]["frames_lost"], lost)
            self.assertEqual(len(report["objects"]), 6 if product_type == 2 else 3)
            for entry in report["objects"]:
                seen = [n for n, packet in enumerate(packets) if entry["object"] in packet[2]]
                last = len(packets) - 1
                # Sightings around a gap; where there is none, the recording's ends.
                gaps = [(a, b) for a, b in zip([-1] + seen, seen + [last + 1]) if b > a + 1]
                seconds = lambda a, b: packets[min(b, last)][1] - packets[max(a, 0)][1]
                found = entry["presence"]
                self.assertEqual(found["packets"], len(packets))
                self.assertEqual(found["seen"], len(seen))
                self.assertEqual(found["gaps"], len(gaps))
                a, b = next(gap for gap in gaps if gap[0] + 1 == found["longest_gap"]["packet"])
                self.assertAlmostEqual(seconds(a, b), max(seconds(*gap) for gap in gaps), places=6)
                self.assertEqual(found["longest_gap"]["packets"], b - a - 1)
                self.assertEqual(found["longest_gap"]["call"], packets[a + 1][0])
                self.assertAlmostEqual(found["longest_gap"]["seconds"], seconds(a, b), places=6)
                self.assertAlmostEqual(found["without_s"], sum(
                    seconds(a + 1, b) for a, b in gaps), places=6)
            # Away for a second and a half, two sightings apart.
            hidden = report["objects"][1]["presence"]
            self.assertAlmostEqual(hidden["longest_gap"]["seconds"], 1.5, delta=0.2)

    def test_of_a_long_recording_an_even_part_is_smoothed(self):
        one = ("--product-type", 0, "--no-queries", "--occlude", "1:0-999", "--occlude", "2:0-999")
        self.simulate("long", "--seconds", 200, *one)
        counts = {kind: d["count"] for kind, d in
                  self.report("long")["objects"][0]["error_mm"].items() if d}
        self.assertEqual(counts["raw"], 200 * 90)
        self.assertGreaterEqual(counts["smoothed"], 120 * 90 - 100)
        self.assertLessEqual(counts["smoothed"], 150 * 90)

    def test_visible_counts_markers_that_both_cameras_reported(self):
        self.simulate("r", "--seconds", 4, "--dropouts", 0.05, "--product-type", 0)
        report = self.report("r")
        packets = {call: seen for call, _, seen in self.packets("r")}
        for entry in report["objects"]:
            visible = [call for (call,) in self.query(
                "r", "SELECT call FROM truth WHERE object = ? AND in_left AND in_right"
                     " AND call IS NOT NULL", entry["object"])]
            self.assertEqual(entry["presence"]["visible"], len(visible))
            self.assertEqual(entry["presence"]["visible_seen"],
                             sum(entry["object"] in packets[call] for call in visible))
            self.assertLess(len(visible), len(packets))

    def test_error_is_the_distance_from_the_truth(self):
        for product_type in (0, 1, 2):
            name = f"r{product_type}"
            self.simulate(name, *NOISY, "--seconds", 4, "--product-type", product_type)
            truth = self.truth(name)
            answers = {}  # (packet's call, object) -> the last filtered position
            packet = None
            present = {call: seen for call, _, seen in self.packets(name)}
            for call, kind, event, output in self.query(
                    name, "SELECT id, kind, type, output FROM calls ORDER BY id"):
                if kind == "InputStream":
                    packet = call
                elif kind == "HandleEvent" and output and event in present.get(packet, {}):
                    if struct.unpack_from("<i", output)[0] != -1:
                        answers[packet, event] = struct.unpack_from("<3f", output, 28)
            for entry in self.report(name)["objects"]:
                object_id = entry["object"]
                self.assert_spread(entry["error_mm"]["raw"], [
                    math.dist(seen[object_id], truth[call, object_id])
                    for call, seen in present.items() if object_id in seen])
                self.assert_spread(entry["error_mm"]["filtered"], [
                    math.dist(position, truth[key]) for key, position in answers.items()
                    if key[1] == object_id])

    def test_estimated_and_smoothed_errors_are_those_of_the_tracks(self):
        """Against `algtrack tracks`, in the packets that delivered the object."""
        for product_type in (0, 1, 2):
            name = f"r{product_type}"
            self.simulate(name, "--noise", 0.05, "--dropouts", 0.02, "--seconds", 8,
                          "--product-type", product_type)
            truth = self.truth(name)
            packets = self.packets(name)
            delivered = {call: seen for call, _, seen in packets}
            calls = {round(seconds, 6): call for call, seconds, _ in packets}
            report = self.report(name)
            for kind, options in (("estimated", []), ("smoothed", ["--smooth"])):
                self.succeed("tracks", name, *options, "--jsonl", f"{name}.{kind}")
                places = {}
                with open(self.path(f"{name}.{kind}"), encoding="utf-8") as file:
                    for line in file:
                        row = json.loads(line)
                        if row["kind"] == "track":
                            places[calls[round(row["time_s"], 6)], row["object"]] = row["position"]
                for entry in report["objects"]:
                    errors = [math.dist(place, truth[call, object_id])
                              for (call, object_id), place in places.items()
                              if object_id == entry["object"] and object_id in delivered[call]]
                    self.assert_spread(entry["error_mm"][kind], errors)
                    self.assertLess(entry["error_mm"][kind]["rms"],
                                    0.75 * entry["error_mm"]["raw"]["rms"])
            self.assertLess(abs(report["objects"][0]["lag_smoothed"]["packets"]), 1)

    def test_epipolar_residual_and_ray_gap_are_those_of_the_pixel_noise(self):
        # Each blob's distance from its line is the sum of two errors of 0.05 px along one axis; the
        # mean of its size is sqrt(2 / pi) of that deviation. The rays pass each other by as much,
        # scaled by depth over focal length.
        self.simulate("r", "--scene", "still", "--noise", 0.05, "--seconds", 30,
                      "--product-type", 2)
        expected = 0.05 * math.sqrt(2) * math.sqrt(2 / math.pi)
        for entry in self.report("r")["objects"]:
            residual, gap = entry["epipolar_px"], entry["ray_gap_mm"]
            self.assertEqual(residual["count"], 2700)
            self.assertAlmostEqual(residual["mean"] / expected, 1, delta=0.08)
            ((depth,),) = self.query("r", "SELECT avg(z) FROM truth WHERE object = ?",
                                     entry["object"])
            self.assertAlmostEqual(gap["mean"] / (residual["mean"] * depth / FOCAL_LENGTH), 1,
                                   delta=0.08)

    def test_perfect_pixels_leave_no_residual(self):
        self.simulate("r", "--seconds", 1, "--product-type", 1)
        for entry in self.report("r")["objects"]:
            self.assertLess(entry["epipolar_px"]["largest"], 0.001)
            self.assertLess(entry["ray_gap_mm"]["largest"], 0.005)

    def test_jitter_at_rest_is_the_scatter_about_the_mean(self):
        self.simulate("r", "--scene", "still", "--noise", 0.05, "--seconds", 10,
                      "--product-type", 2)
        packets = self.packets("r")
        with_truth = self.report("r")
        self.change("r", "DELETE FROM truth")
        without = self.report("r")
        for known, guessed in zip(with_truth["objects"], without["objects"]):
            self.assertTrue(known["jitter_mm"]["rest_known_from_truth"])
            self.assertFalse(guessed["jitter_mm"]["rest_known_from_truth"])
            found = known["jitter_mm"]["raw"]
            self.assertEqual(found["windows"], 20)
            for axis, key in enumerate("xyz"):
                windows = [[packet[2][known["object"]][axis] for packet in packets[n:n + 45]]
                           for n in range(0, 900, 45)]
                expected = math.sqrt(statistics.fmean(statistics.variance(w) for w in windows))
                self.assertAlmostEqual(found[key], expected, places=3)
            # Without the truth fewer windows are taken for rest, which tell about the same.
            self.assertGreater(guessed["jitter_mm"]["raw"]["windows"], 10)
            self.assertAlmostEqual(guessed["jitter_mm"]["raw"]["total"] / found["total"], 1,
                                   delta=0.1)
            self.assertLess(known["jitter_mm"]["filtered"]["total"], found["total"])

    def test_motion_is_no_rest(self):
        self.simulate("r", "--noise", 0.02, "--seconds", 20, "--product-type", 2)
        for entry in self.report("r")["objects"]:
            self.assertIsNone(entry["jitter_mm"]["raw"])
        self.change("r", "DELETE FROM truth")
        windows = [entry["jitter_mm"]["raw"] for entry in self.report("r")["objects"]]
        self.assertLess(sum(jitter["windows"] for jitter in windows if jitter), 6)  # of 240

    def swap_ids(self, name, first, last):
        """Objects 0 and 1 change places in the blocks of some packets."""
        calls = [call for call, _, _ in self.packets(name)][first:last]
        for call in calls:
            ((block,),) = self.query(name, "SELECT block FROM blocks WHERE call = ?", call)
            block = bytearray(block)
            block[12:24], block[64:76] = block[64:76], block[12:24]
            self.change(name, "UPDATE blocks SET block = ? WHERE call = ?", bytes(block), call)

    def test_jumps_and_id_swaps_are_found_where_they_are(self):
        self.simulate("r", "--scene", "still", "--seconds", 2, "--product-type", 2)
        clean = self.report("r")
        self.assertEqual((clean["jumps"]["count"], clean["swaps"]["count"]), (0, 0))
        self.swap_ids("r", 50, 60)
        report = self.report("r")
        call, time, _ = self.packets("r")[50]
        self.assertEqual(report["swaps"]["first"], [
            {"time_s": time, "packet": 50, "call": call, "packets": 10, "objects": [0, 1]}])
        self.assertEqual([(j["object"], j["packet"]) for j in report["jumps"]["first"]],
                         [(0, 50), (1, 50), (0, 60), (1, 60)])
        # The recorded blocks are no longer what the library delivers, and the report says so.
        self.assertIn("10 blocks otherwise than recorded", " ".join(report["notices"]))
        self.change("r", "DELETE FROM truth")
        guessed = self.report("r")
        self.assertFalse(guessed["swaps"]["known_from_truth"])
        self.assertEqual([s["packet"] for s in guessed["swaps"]["first"]], [50, 60])
        self.assertEqual(self.report("r", "--jump", 1000)["jumps"]["count"], 0)

    def test_time_per_packet_is_the_recorded_one_where_there_is_one(self):
        self.simulate("r", "--seconds", 2)
        self.assertEqual(self.report("r")["packet_time_us"]["source"], "replayed")
        calls = [call for call, _, _ in self.packets("r")]
        for n, call in enumerate(calls):
            self.change("r", "UPDATE calls SET duration_ns = ? WHERE id = ?", 1000 * (n + 1), call)
        times = self.report("r")["packet_time_us"]
        self.assertEqual(times["source"], "recorded")
        self.assert_spread(times["distribution"], [float(n + 1) for n in range(len(calls))])
        self.assertEqual(sum(bin[2] for bin in times["histogram"]), len(calls))

    def test_measured_anew_every_packet_has_a_time(self):
        self.simulate("r", "--seconds", 2)
        times = self.report("r")["packet_time_us"]["distribution"]
        self.assertEqual(times["count"], 180)
        self.assertGreater(times["median"], 0)
        self.assertLess(times["median"], 5000)

    def test_messages_are_counted_with_their_first_call(self):
        self.simulate("r", "--seconds", 2, "--wrong-check", 0.2, "--framing", "plain")
        expected = [{"level": level, "text": text.rstrip("\n"), "count": count, "first": call}
                    for level, text, count, call in self.query(
                        "r", "SELECT level, text, count(*), min(call) FROM logs"
                             " GROUP BY level, text ORDER BY min(call)")]
        self.assertGreater(len(expected), 0)
        found = self.report("r")["messages"]
        self.assertEqual([{**message, "first": message["first"]["call"]} for message in found],
                         expected)

    def test_recordings_that_are_not_whole_are_reported_with_a_notice(self):
        self.simulate("r", "--seconds", 1)
        self.change("r", "UPDATE meta SET value = '0' WHERE key = 'complete'")
        self.change("r", "UPDATE meta SET value = '3' WHERE key = 'dropped_calls'")
        report = self.report("r")
        notices = " ".join(report["notices"])
        if not report["recording"]["complete"]:
            self.assertIn("cut off", notices)
        self.assertIn("3 calls were dropped", notices)

    def test_positions_that_are_no_numbers_become_null(self):
        self.simulate("r", "--seconds", 1, "--product-type", 0)
        call = self.packets("r")[30][0]
        ((block,),) = self.query("r", "SELECT block FROM blocks WHERE call = ?", call)
        block = block[:12] + struct.pack("<3f", math.nan, math.inf, 1) + block[24:]
        self.change("r", "UPDATE blocks SET block = ? WHERE call = ?", block, call)
        report = self.report("r")
        self.assertEqual(report["objects"][0]["not_finite"], 1)
        self.assertEqual(report["objects"][0]["presence"]["seen"], 90)
        self.assertEqual(report["objects"][0]["error_mm"]["raw"]["count"], 89)

    def test_bad_recordings_get_one_line(self):
        self.simulate("good", "--seconds", 0.5)
        with open(self.path("good"), "rb") as file:
            good = file.read()
        for name, content in (("empty", b""), ("text", b"no database\n" * 200),
                              ("cut", good[:len(good) // 2]), ("header", good[:100])):
            with open(self.path(name), "wb") as file:
                file.write(content)
            self.assertIn(name, self.fail_in_one_line("report", name, "--json"))
        os.mkdir(self.path("folder"))
        self.fail_in_one_line("report", "folder", "--json")
        self.fail_in_one_line("report", "missing", "--json")
        self.simulate("newer", "--seconds", 0.5)
        self.change("newer", "PRAGMA user_version = 99")
        self.assertIn("99", self.fail_in_one_line("report", "newer", "--json"))
        self.simulate("foreign", "--seconds", 0.5)
        self.change("foreign", "PRAGMA application_id = 1")
        self.fail_in_one_line("report", "foreign", "--json")
        self.simulate("quiet", "--seconds", 0.5)
        for table in ("blocks", "logs", "truth"):
            self.change("quiet", f"DELETE FROM {table}")
        self.change("quiet", "DELETE FROM calls WHERE kind = 'InputStream'")
        self.assertIn("packets", self.fail_in_one_line("report", "quiet", "--json"))
        self.change("quiet", "DELETE FROM calls")
        self.fail_in_one_line("report", "quiet", "--json")

    def test_damaged_times_do_no_harm(self):
        self.simulate("r", "--seconds", 1)
        calls = [call for call, _, _ in self.packets("r")]
        self.change("r", "UPDATE calls SET start_ns = ? WHERE id = ?", 1 - 2**62, calls[10])
        self.change("r", "UPDATE calls SET start_ns = ? WHERE id = ?", 2**62 - 1, calls[20])
        report = self.report("r")
        self.assertEqual(report["recording"]["packets"], 90)
        self.assertIn("before it", " ".join(report["notices"]))
        self.change("r", "UPDATE calls SET start_ns = ? WHERE id = ?", 2**62, calls[20])
        self.assertIn("expected at most 146 years", self.fail_in_one_line("report", "r", "--json"))

    def test_noise_and_one_displaced_object_are_no_id_swaps(self):
        # Two objects 60 mm apart in 50 mm of noise: single packets lie nearer to the other's place.
        self.simulate("r", "--seconds", 20, "--noise", 0.6, "--product-type", 2, "--corrupt", 0.02)
        report = self.report("r")
        self.assertEqual(report["swaps"]["count"], 0)
        self.assertGreater(report["objects"][0]["error_mm"]["raw"]["p99"], 20)

    def ghost(self, name, object_id, call, z):
        ((block,),) = self.query(name, "SELECT block FROM blocks WHERE call = ?", call)
        block = bytearray(block)
        struct.pack_into("<i3f", block, 8 + 52 * object_id, object_id, 0, 0, z)
        self.change(name, "UPDATE blocks SET block = ? WHERE call = ?", bytes(block), call)

    def test_a_ghost_in_a_long_gap_is_an_outlier_with_its_moment(self):
        self.simulate("r", "--scene", "still", "--seconds", 6, "--product-type", 2,
                      "--occlude", "3:2-5")
        number = 300
        call, time, _ = self.packets("r")[number]
        self.ghost("r", 3, call, -200)
        expected = {"time_s": time, "packet": number, "call": call, "object": 3}
        for known in (True, False):
            report = self.report("r")
            self.assertEqual(report["outliers"]["known_from_truth"], known)
            self.assertEqual(report["jumps"]["count"], 0)
            ((found),) = report["outliers"]["first"]
            self.assertGreater(found.pop("distance_mm"), 1000)
            self.assertEqual(found, expected)
            self.assertEqual(report["objects"][3]["outliers"], 1)
            self.change("r", "DELETE FROM truth")

    def test_an_object_that_never_came_has_one_gap_as_long_as_the_recording(self):
        self.simulate("r", "--seconds", 2, "--product-type", 0, "--occlude", "2:0-99")
        presence = self.report("r")["objects"][2]["presence"]
        self.assertEqual((presence["seen"], presence["gaps"]), (0, 1))
        self.assertEqual(presence["longest_gap"]["packets"], 180)
        self.assertAlmostEqual(presence["longest_gap"]["seconds"], 179 / 90, places=6)

    def test_queries_without_an_object_are_counted_and_shown(self):
        self.simulate("r", "--seconds", 1, "--product-type", 0, "--occlude", "1:0-99")
        ((asked,),) = self.query("r", "SELECT count(*) FROM calls WHERE kind = 'HandleEvent'"
                                      " AND type = 1")
        answers = self.report("r")["objects"][1]["answers"]
        self.assertGreater(asked, 0)
        self.assertEqual((answers["asked"], answers["answered"]), (asked, 0))

    def test_the_rate_is_the_packets_over_the_time(self):
        self.simulate("r", "--seconds", 20, "--loss", 0.1)
        packets = self.packets("r")
        recording = self.report("r")["recording"]
        self.assertAlmostEqual(recording["packets_per_second"],
                               (len(packets) - 1) / (packets[-1][1] - packets[0][1]), places=6)
        self.assertAlmostEqual(recording["median_interval_ms"], 1000 / 90, places=3)
        stream = self.succeed("inspect", "r")
        self.assertIn(f"{recording['packets_per_second']:.1f}", stream)

    def test_a_part_of_a_recording_is_reported(self):
        self.simulate("r", "--seconds", 4, "--product-type", 2, "--noise", 0.05)
        report = self.report("r", "--object", 3, "--from", 1, "--to", 2)
        self.assertEqual([entry["object"] for entry in report["objects"]], [3])
        packets = [packet for packet in self.packets("r") if 1 <= packet[1] < 2]
        self.assertEqual(report["recording"]["packets"], len(packets))
        truth = self.truth("r")
        self.assert_spread(report["objects"][0]["error_mm"]["raw"], [
            math.dist(seen[3], truth[call, 3]) for call, _, seen in packets if 3 in seen])
        self.assertEqual(report["range"], {"object": 3, "from_s": 1.0, "to_s": 2.0})
        self.assertIn("part of the recording", " ".join(report["notices"]))
        for wrong in (["--object", 7], ["--from", 2, "--to", 1], ["--from", 50]):
            self.fail_in_one_line("report", "r", "--json", *wrong)

    def test_worst_moments_come_with_a_command_that_explains_them(self):
        self.simulate("it's.algrec", "--seconds", 6, "--product-type", 2, "--noise", 0.05,
                      "--occlude", "3:2-4", "--corrupt", 0.01)
        worst = self.report("it's.algrec")["worst"]
        gap = worst[0]
        self.assertEqual((gap["kind"], gap["object"]), ("gap", 3))
        self.assertAlmostEqual(gap["time_s"], 2, delta=0.1)
        packet = self.packets("it's.algrec")[gap["packet"]]
        self.assertEqual(gap["call"], packet[0])
        self.assertEqual(gap["command"].split(" --")[0], "algtrack inspect 'it'\\''s.algrec'")
        self.assertEqual({moment["kind"] for moment in worst}, {"gap", "step", "error", "corrupt"})
        for kind in ("step", "error"):
            moment = next(moment for moment in worst if moment["kind"] == kind)
            self.assertTrue(moment["command"].endswith(f" --explain {moment['packet']}"))
            result = self.run_algtrack("inspect", "it's.algrec", "--explain", moment["packet"])
            self.assertEqual(result.returncode, 0, result.stderr)

    def test_lag_between_raw_and_filtered_is_that_of_the_filter(self):
        lags = {}
        for mode in (-1, 0, 1):
            self.simulate(f"r{mode}", "--seconds", 20, "--product-type", 2, "--filter-mode", mode)
            lags[mode] = [entry["lag"]["ms"] for entry in self.report(f"r{mode}")["objects"]]
        self.assertLess(max(map(abs, lags[-1])), 0.01)
        self.assertLess(max(lags[0]), 4)
        self.assertGreater(min(lags[1]), 10)

    def test_wrong_usage_is_one_line(self):
        self.simulate("r", "--seconds", 0.5)
        for arguments in (["report"], ["report", "r"], ["report", "r", "--jump", "nan", "--json"],
                          ["report", "r", "--jump", "-1", "--json"],
                          ["report", "r", "--json", "--jump", "0"], ["report", "r", "-o"]):
            self.fail_in_one_line(*arguments)
        self.assertIn("  algtrack report ", self.succeed("report", "--help"))

    def test_a_page_is_written_whole_or_not_at_all(self):
        self.simulate("r", "--seconds", 0.5)
        result = self.run_algtrack("report", "r", "-o", "r.html")
        if "carries no report page" in result.stderr:
            self.assertEqual(result.stderr.count("\n"), 1)
            self.assertEqual(os.listdir(self.folder), ["r"])
            self.skipTest("this build carries no report page")
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(self.path("r.html"), "rb") as file:
            page = file.read()
        self.assertTrue(page.startswith(b"<!doctype html>"))
        self.assertTrue(page.rstrip().endswith(b"</html>"))
        self.assertNotIn(b"@REPORT_DATA@", page)
        self.assertIsNone(re.search(rb'(src|href)="(?!data:)', page))

        self.assertIn("--force", self.fail_in_one_line("report", "r", "-o", "r.html"))
        self.fail_in_one_line("report", "missing", "-o", "r.html", "--force")
        with open(self.path("r.html"), "rb") as file:
            self.assertEqual(file.read(), page)
        self.succeed("report", "r", "-o", "r.html", "--force", "--jump", 10)
        for output in ("r", "./r", self.folder, "no/such/folder.html"):
            self.fail_in_one_line("report", "r", "-o", output, "--force")
        self.assertEqual(sorted(os.listdir(self.folder)), ["r", "r.html"])

    def test_a_long_recording_stays_small_and_hides_nothing(self):
        self.simulate("r", "--seconds", 130, "--rate", 90, "--noise", 0.05, "--product-type", 2,
                      "--no-queries", "--filter-mode", -1)
        result = self.run_algtrack("report", "r", "-o", "r.html")
        if "carries no report page" in result.stderr:
            self.skipTest("this build carries no report page")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertLess(os.path.getsize(self.path("r.html")), 9e6)
        with open(self.path("r.html"), encoding="utf-8") as file:
            data = json.loads(re.search(r'id="report-data">(.*?)</script>', file.read(), re.S)[1])
        packets = self.packets("r")
        rows = data["rows"]
        width = rows["column_s"]
        self.assertGreater(width, 0)
        # Fine enough that zooming in shows more than a screen's pixels.
        self.assertGreater(len(rows["times"]), 4000)
        edges = rows["packets"] + [len(packets)]
        for object_id, found in enumerate(rows["objects"]):
            for axis, key in enumerate("xyz"):
                low, high = decoded(found["raw"][key]["low"]), decoded(found["raw"][key]["high"])
                values = [packet[2][object_id][axis] for packet in packets]
                for column in range(0, len(low), 97):
                    inside = values[edges[column]:edges[column + 1]]
                    self.assertEqual((low[column], high[column]), (min(inside), max(inside)))
                self.assertEqual((min(low), max(high)), (min(values), max(values)))


if __name__ == "__main__":
    unittest.main()
