#!/usr/bin/env python3
"""What algtrack streams and exports, read by the programs of others. Skipped where node, npm or
their packages are missing."""
import filecmp
import json
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "algtrack"))
from algtrack_case import ALGTRACK, AlgtrackCase

NODE, NPM, OSCDUMP = (shutil.which(name) for name in ("node", "npm", "oscdump"))
CLIENTS = os.environ["ALG_STREAM_CLIENTS"]  # a folder of the build's, for their packages
RECORDING_HOST = os.environ["ALG_RECORDING_HOST"]
SKIPPED = 77
TOPICS = {"/alg/scene", "/alg/transforms", "/alg/log", "/alg/block", "/alg/blobs",
          "/alg/statistics"}


def fetch_clients():
    """Fetches the packages again only when their list has changed. Returns whether they are there."""
    os.makedirs(CLIENTS, exist_ok=True)
    lists = ["package.json", "package-lock.json", ".npmrc"]
    fetched = os.path.join(CLIENTS, "fetched")
    if os.path.exists(fetched) and all(
            filecmp.cmp(os.path.join(HERE, name), os.path.join(CLIENTS, name), False)
            for name in lists):
        return True
    for name in lists:
        shutil.copy(os.path.join(HERE, name), CLIENTS)
    result = subprocess.run([NPM, "ci", "--ignore-scripts", "--no-audit", "--no-fund",
                             "--prefer-offline"], cwd=CLIENTS, capture_output=True, text=True)
    if result.returncode != 0:
        print(result.stderr, file=sys.stderr)
        return False
    open(fetched, "w").close()
    return True


def client(*arguments):
    result = subprocess.run(
        [NODE, os.path.join(HERE, "stream_clients.mjs"), CLIENTS, *map(str, arguments)],
        capture_output=True, text=True, timeout=110)
    if result.returncode != 0:
        raise AssertionError(result.stderr)
    return json.loads(result.stdout)


class StreamsTest(AlgtrackCase):
    def stream(self, *arguments):
        """Starts `algtrack stream`; returns it and the first line that it prints."""
        process = subprocess.Popen([ALGTRACK, "stream", *map(str, arguments)], cwd=self.folder,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.wait)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        return process, process.stdout.readline()

    def check_messages(self, name, channels, messages):
        """Every message fits the schema that came with its channel, and says what the recording
        says."""
        import jsonschema
        validators = {channel["topic"]: jsonschema.Draft202012Validator(
            json.loads(channel["schema"])) for channel in channels}
        self.assertEqual(set(validators), TOPICS)
        starts = dict(self.query(name, "SELECT id, start_ns FROM calls"))
        blocks = dict(self.query(name, "SELECT call, block FROM blocks"))
        packets = [call for (call,) in self.query(
            name, "SELECT id FROM calls WHERE kind = 'InputStream' AND type IN (0, 2) ORDER BY id")]
        seen = 0
        for topic, time_ns, text in messages:
            message = json.loads(text)
            validators[topic].validate(message)
            call = message["call"]
            self.assertEqual(int(time_ns), starts[call])
            if topic in ("/alg/block", "/alg/blobs"):
                self.assertEqual(packets[message["frame_number"]], call)
            if topic == "/alg/block":
                self.assertEqual(message["timestamp"]["sec"] * 10**9 + message["timestamp"]["nsec"],
                                 starts[call])
                for item in message["objects"]:
                    record = struct.unpack_from("<ifff", blocks[call], 8 + 52 * item["id"])
                    self.assertEqual(item["seen"], record[0] != -1)
                    if item["seen"]:
                        seen += 1
                        self.assertEqual(tuple(item["position"].values()), record[1:])
            if topic == "/alg/scene":
                for entity in message["entities"]:
                    record = struct.unpack_from("<ifff", blocks[call],
                                                8 + 52 * int(entity["id"][-1]))
                    position = entity["spheres"][0]["pose"]["position"]
                    for found, expected in zip(position.values(), record[1:]):
                        self.assertAlmostEqual(found, expected / 1000, places=9)
        self.assertGreater(seen, 20)

    def test_a_viewer_reads_every_channel_in_both_sub_protocols(self):
        self.simulate("walk.algrec", "--seconds", 90, "--product-type", 1, "--corrupt", 0.05)
        process, line = self.stream("walk.algrec", "--foxglove", 0)
        port = line.rsplit(":", 1)[1].strip()
        for sub_protocol in ("foxglove.websocket.v1", "foxglove.sdk.v1"):
            read = client("live", port, sub_protocol, 100)
            self.assertEqual(read["errors"], [])
            self.assertEqual(read["serverInfo"]["name"], "alg_factory")
            self.assertEqual({message[0] for message in read["messages"]}, TOPICS)
            self.assertEqual({channel["encoding"] for channel in read["channels"]}, {"json"})
            self.check_messages("walk.algrec", read["channels"], read["messages"])
            blocks = [json.loads(message[2])["frame_number"] for message in read["messages"]
                      if message[0] == "/alg/block"]
            self.assertEqual(blocks, sorted(set(blocks)))
            self.assertLess(blocks[-1] - blocks[0] + 1 - len(blocks), 60, "corrupt ones apart, all")
        self.assertIsNone(process.poll(), "clients that leave do not end it")

    def test_the_end_of_a_recording_ends_the_stream(self):
        self.simulate("short.algrec", "--seconds", 10)
        process, line = self.stream("short.algrec", "--foxglove", 0)
        read = client("live", line.rsplit(":", 1)[1].strip(), "foxglove.websocket.v1", 10**6)
        self.assertTrue(read["closed"])
        self.assertEqual(process.wait(timeout=20), 0)
        self.assertIn("Sent: ", process.stdout.read())

    def test_ctrl_c_ends_a_stream_in_order(self):
        process, line = self.stream("--follow", "never.algrec", "--foxglove", 0)
        self.assertIn("ws://127.0.0.1:", line)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=20), 0)
        self.assertIn("Sent: 0 messages", process.stdout.read())

    def test_a_running_host_is_followed(self):
        process, line = self.stream("--follow", "live.algrec", "--foxglove", 0)
        viewer = subprocess.Popen(
            [NODE, os.path.join(HERE, "stream_clients.mjs"), CLIENTS, "live",
             line.rsplit(":", 1)[1].strip(), "foxglove.websocket.v1", str(10**6)],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(viewer.kill)
        self.assertEqual(viewer.stderr.readline(), "ready\n")
        host = subprocess.Popen([RECORDING_HOST, "live.algrec"], cwd=self.folder,
                                stdout=subprocess.DEVNULL)
        self.addCleanup(host.wait)
        read = json.loads(viewer.communicate(timeout=110)[0])
        self.assertEqual(host.wait(timeout=60), 0)
        self.check_messages("live.algrec", read["channels"], read["messages"])
        self.assertEqual(process.wait(timeout=20), 0, "a recording that was closed has an end")

    def test_osc_is_printed_by_oscdump(self):
        if OSCDUMP is None:
            self.skipTest("oscdump is missing")
        self.simulate("osc.algrec", "--seconds", 2)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        with open(self.path("dump"), "w") as file:  # a pipe that nobody empties would hold it up
            dump = subprocess.Popen([OSCDUMP, "-L", str(port)], stdout=file)
        self.addCleanup(dump.wait)
        self.addCleanup(dump.kill)
        time.sleep(0.5)
        self.succeed("stream", "osc.algrec", "--osc", f"127.0.0.1:{port}", "--speed", 2)
        time.sleep(0.5)
        dump.terminate()
        dump.wait()
        with open(self.path("dump")) as file:
            lines = [line.split() for line in file]
        blocks = dict(self.query("osc.algrec", "SELECT call, block FROM blocks"))
        packets = [call for (call,) in self.query(
            "osc.algrec",
            "SELECT id FROM calls WHERE kind = 'InputStream' AND type IN (0, 2) ORDER BY id")]
        objects = [line for line in lines if line[1] == "/alg/object"]
        self.assertEqual(len(objects), 3 * 180)
        for line in objects:
            self.assertEqual(line[2:4] + line[6:8], ["ihdssifff", "1", '"mm"', '"delivered"'])
            record = struct.unpack_from("<ifff", blocks[packets[int(line[4])]],
                                        8 + 52 * int(line[8]))
            for found, expected in zip(line[9:], record[1:]):
                self.assertAlmostEqual(float(found), expected, places=3)
        self.assertTrue({"/alg/blob", "/alg/statistics"} <= {line[1] for line in lines})

    def test_mcap_is_read_by_index_and_as_a_stream(self):
        self.simulate("walk.algrec", "--seconds", 12, "--product-type", 2, "--corrupt", 0.05,
                      "--occlude", "1:2-3")
        self.succeed("export", "walk.algrec", "--mcap", "walk.mcap")
        read = client("mcap", self.path("walk.mcap"))
        self.assertTrue(read["done"])
        self.assertGreater(read["chunks"], 3)
        self.assertEqual(read["indexed"], read["streamed"])
        self.assertEqual(int(read["count"]), len(read["indexed"]))
        self.assertEqual({message[0] for message in read["indexed"]}, TOPICS)
        self.check_messages("walk.algrec", read["channels"], read["indexed"])
        self.assertEqual(sum(message[0] == "/alg/block" for message in read["indexed"]),
                         self.query("walk.algrec", "SELECT count(*) FROM blocks")[0][0])
        self.assertEqual(sum(message[0] == "/alg/log" for message in read["indexed"]),
                         self.query("walk.algrec", "SELECT count(*) FROM logs")[0][0])
        times = [int(message[1]) for message in read["indexed"]]
        self.assertEqual([int(read["start"]), int(read["end"])], [min(times), max(times)])
        self.succeed("export", "walk.algrec", "--mcap", "again.mcap")
        self.assertTrue(filecmp.cmp(self.path("walk.mcap"), self.path("again.mcap"), False))

    def test_a_recording_of_nothing_is_exported_too(self):
        self.simulate("walk.algrec", "--seconds", 1)
        self.change("walk.algrec", "DELETE FROM blocks")
        self.change("walk.algrec", "DELETE FROM logs")
        self.change("walk.algrec", "DELETE FROM truth")
        self.change("walk.algrec", "DELETE FROM calls")
        self.succeed("export", "walk.algrec", "--mcap", "none.mcap")
        read = client("mcap", self.path("none.mcap"))
        self.assertEqual((read["indexed"], len(read["channels"])), ([], 6))

    def test_a_cut_file_is_found_out_by_its_checksum(self):
        """The reader does check: a byte that is changed in a chunk is an error."""
        self.simulate("walk.algrec", "--seconds", 1)
        self.succeed("export", "walk.algrec", "--mcap", "walk.mcap")
        with open(self.path("walk.mcap"), "r+b") as file:
            data = file.read()
            place = data.index(b'"frame_number":40,')
            file.seek(place + 16)
            file.write(b"5")
        with self.assertRaisesRegex(AssertionError, "(?i)crc"):
            client("mcap", self.path("walk.mcap"))

    def test_the_well_known_schemas_are_those_of_their_package(self):
        folder = os.path.join(HERE, "..", "..", "alg_kit", "stream", "schemas")
        for name, text in client("schemas").items():
            with open(os.path.join(folder, name + ".json"), encoding="utf-8") as file:
                self.assertEqual(file.read(), text + "\n")

    def test_what_cannot_be_streamed_is_one_line(self):
        self.simulate("walk.algrec", "--seconds", 1)
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = taken.getsockname()[1]
            for arguments, words in (
                    (("walk.algrec",), "expected where to send"),
                    (("none.algrec", "--foxglove", 0), "no such file"),
                    (("walk.algrec", "--foxglove", port), f"127.0.0.1:{port}: expected"),
                    (("walk.algrec", "--openigtlink", port), f"127.0.0.1:{port}: expected"),
                    (("walk.algrec", "--foxglove", 0, "--listen", "here"), "here:0: expected"),
                    (("walk.algrec", "--osc", "9000"), "expected HOST:PORT, found 9000"),
                    (("walk.algrec", "--osc", "127.0.0.1:0"), "expected a port from 1"),
                    (("walk.algrec", "--foxglove", 70000), "70000"),
                    (("walk.algrec", "--foxglove", 0, "--speed", 0), "--speed")):
                self.assertIn(words, self.fail_in_one_line("stream", *arguments))


if __name__ == "__main__":
    if NODE is None or NPM is None or not fetch_clients():
        print("node, npm or the clients' packages are missing")
        sys.exit(SKIPPED)
    unittest.main()
