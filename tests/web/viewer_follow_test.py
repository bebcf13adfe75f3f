#!/usr/bin/env python3
"""What algtrack view tells of a recording that a host is writing: to a client that keeps up, to one
that stalls, and after the server itself stood still."""
import base64
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest
from urllib.parse import urlsplit

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "algtrack"))
from algtrack_case import ALGTRACK, AlgtrackCase

RATE = 90  # packets a second of the paced host
SKIPPED = 77


class Client:
    """A WebSocket to the server."""

    def __init__(self, address, receive_buffer=None):
        self.socket = socket.socket()
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(30)
        self.socket.connect((address.hostname, address.port))
        key = base64.b64encode(os.urandom(16)).decode()
        self.socket.sendall((f"GET /live?{address.query} HTTP/1.1\r\nHost: {address.netloc}\r\n"
                             "Connection: Upgrade\r\nUpgrade: websocket\r\n"
                             f"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: {key}\r\n\r\n").encode())
        self.stream = self.socket.makefile("rb")
        status = self.stream.readline()
        assert b" 101 " in status, status
        while self.stream.readline() != b"\r\n":
            pass

    def send(self, **question):
        text = json.dumps(question).encode()
        assert len(text) < 126
        mask = os.urandom(4)
        self.socket.sendall(bytes([0x81, 0x80 | len(text)]) + mask +
                            bytes(byte ^ mask[i % 4] for i, byte in enumerate(text)))

    def receive(self):
        first, length = self.stream.read(2)
        assert first == 0x81, first  # one whole text
        if length == 126:
            (length,) = struct.unpack(">H", self.stream.read(2))
        elif length == 127:
            (length,) = struct.unpack(">Q", self.stream.read(8))
        return json.loads(self.stream.read(length))

    def ask(self, **question):
        """The answer; news that come before it are dropped."""
        self.send(id=1, **question)
        while True:
            message = self.receive()
            if message.get("id") == 1:
                return message

    def close(self):
        self.stream.close()
        self.socket.close()


class ViewerFollowTest(AlgtrackCase):
    def follow(self):
        """A server that waits for live.algrec."""
        server = subprocess.Popen([ALGTRACK, "view", "--no-browser", "--follow", "live.algrec"],
                                  cwd=self.folder, text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        self.addCleanup(self.end, server)
        return server, urlsplit(server.stdout.readline().strip())

    def end(self, server):
        server.send_signal(signal.SIGINT)
        _, said = server.communicate(timeout=30)
        self.assertEqual((server.returncode, said), (0, ""))

    def connect(self, address, **options):
        client = Client(address, **options)
        self.addCleanup(client.close)
        return client

    def host(self, seconds):
        host = subprocess.Popen([os.environ["PACED_HOST"], self.path("live.algrec"), str(seconds), "20"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(host.wait)
        self.addCleanup(host.kill)
        return host

    def news_to(self, client, last):
        """News until the last packet came."""
        news = []
        while not news or not news[-1]["frames"] or news[-1]["frames"][-1]["frame"] < last:
            news.append(client.receive())
        return news

    def test_a_client_that_keeps_up_is_told_every_packet_in_order(self):
        _, address = self.follow()
        client = self.connect(address)
        client.send(op="live", file=0, **{"from": 0})
        self.host(4)
        told = -1
        for news in self.news_to(client, 4 * RATE - 1):
            for frame in news["frames"]:
                # The last one may come again: queries behind it belong to it.
                self.assertIn(frame["frame"], (told, told + 1))
                told = frame["frame"]
        self.assertEqual(told, 4 * RATE - 1)

    def test_a_client_that_stalls_is_told_the_latest_and_asks_for_what_it_missed(self):
        _, address = self.follow()
        client = self.connect(address, receive_buffer=4096)
        client.send(op="live", file=0, **{"from": 0})
        packets = 12 * RATE
        self.assertEqual(self.host(12).wait(timeout=60), 0)
        time.sleep(1)
        frames = [frame["frame"] for news in self.news_to(client, packets - 1)
                  for frame in news["frames"]]
        self.assertEqual(frames, sorted(frames))
        missed = sorted(set(range(packets)) - set(frames))
        self.assertGreater(len(missed), 0, "what it does not take is not kept for it")
        self.assertLess(missed[-1], packets - 400)
        told = []
        for begin in range(missed[0], missed[-1] + 1, 400):
            answer = client.ask(op="frames", file=0, to=missed[-1], **{"from": begin})
            told += [frame["frame"] for frame in answer["frames"]]
        self.assertEqual(told, list(range(missed[0], missed[-1] + 1)))

    def test_one_failure_after_the_server_stood_still_is_not_the_end(self):
        server, address = self.follow()
        client = self.connect(address)
        host = self.host(60)
        state = ""
        while state != "live":
            time.sleep(0.05)
            state = client.ask(op="state")["files"][0]["state"]
        host.kill()
        host.wait()
        time.sleep(0.5)
        server.send_signal(signal.SIGSTOP)
        time.sleep(4)
        os.rename(self.path("live.algrec"), self.path("away"))
        server.send_signal(signal.SIGCONT)
        time.sleep(0.6)
        os.rename(self.path("away"), self.path("live.algrec"))
        time.sleep(0.6)
        self.assertEqual(client.ask(op="state")["files"][0]["state"], "live")


if __name__ == "__main__":
    said = subprocess.run([ALGTRACK, "view", "--no-browser", "no-such-file"], text=True,
                          capture_output=True, timeout=60).stderr
    if "no viewer page" in said:
        print("skipped: built without the viewer")
        sys.exit(SKIPPED)
    unittest.main()
