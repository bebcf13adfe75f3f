#!/usr/bin/env python3
"""algtrack inspect, held against what Python reads from the same file."""
import json
import struct
import unittest

from algtrack_case import AlgtrackCase

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
        self.assertAlmostEqual(stream["longest ms"], max(steps) * 1e-6)
        self.assertEqual(stream["before number"], steps.index(max(steps)) + 1)

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
                          (m["count"], m["first call"], m["first packet"])
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
        self.assertEqual(sum(funnel["ends"]["no-weight"].values()), no_weight)

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
            rows = {row["bytes of packets"]: row["bytes"] for row in found["packetBytes"]}
            total = rows.pop("all")
            self.assertEqual(sum(rows.values()), total)
            self.assertEqual(total, sum(map(len, self.packets(name))))
            blocks = self.query(name, "SELECT count(*) FROM blocks")[0][0]
            self.assertEqual(found["crossCheck"], {"compared": blocks, "equal": blocks})
            self.assertGreater(blocks, 800)

    def test_packet_lists_every_byte_once(self):
        for framing in ("plain", "stamped"):
            self.simulate(framing, *corrupted(framing=framing))
            for number, payload in list(enumerate(self.packets(framing)))[::97]:
                rows = self.inspect(framing, "--packet", number)["bytes"]
                at, listed = 0, b""
                for row in rows:
                    self.assertEqual(row["offset"], at)
                    self.assertEqual(len(bytes.fromhex(row["bytes"])), row["size"])
                    at += row["size"]
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
            self.assertEqual(tuple(field["size"] for field in fields), RECORD_FIELDS)
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
            delivered = {o["object"]: (o["x"], o["y"], o["z"]) for o in told["delivered"]}
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
        self.assertIn(f"(1 of {len(self.packets('a'))}, first at call {call})", message)

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
        self.assertIn("packet 0 (call 4) was not decoded: it is empty",
                      self.fail_in_one_line("inspect", "a", "--explain", 0))
        self.change("a", "UPDATE calls SET type = 3 WHERE kind = 'Init'")
        self.change("a", "UPDATE calls SET returned = 0 WHERE kind = 'InputStream'")
        self.fail_in_one_line("inspect", "a", "--explain", 1)


if __name__ == "__main__":
    unittest.main()
