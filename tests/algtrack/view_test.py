#!/usr/bin/env python3
"""algtrack view without a browser: what it refuses, and who is answered what."""
import hashlib
import http.client
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest
from urllib.parse import urlsplit

from algtrack_case import ALGTRACK, AlgtrackCase


class ViewTest(AlgtrackCase):
    def serve(self, *arguments, says=""):
        server = subprocess.Popen([ALGTRACK, "view", "--no-browser", *map(str, arguments)],
                                  cwd=self.folder, text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        self.addCleanup(self.end, server, says)
        line = server.stdout.readline().strip()
        self.assertTrue(line, server.stderr.read() if server.poll() is not None else "")
        return urlsplit(line)

    def end(self, server, says):
        server.send_signal(signal.SIGINT)
        _, said = server.communicate(timeout=30)
        self.assertEqual(server.returncode, 0)
        self.assertRegex(said, f"^{says}\\Z")

    def get(self, address, target, method="GET", body=None, **headers):
        connection = http.client.HTTPConnection(address.hostname, address.port, timeout=30)
        try:
            connection.request(method, target, body=body, headers=headers)
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            connection.close()

    def talk(self, address, data):
        """What comes back for these bytes, until the server closes."""
        with socket.create_connection((address.hostname, address.port), timeout=30) as client:
            client.sendall(data)
            client.shutdown(socket.SHUT_WR)
            said = b""
            while True:
                try:
                    more = client.recv(65536)
                except ConnectionResetError:
                    return said
                if not more:
                    return said
                said += more

    def test_refuses_in_one_line_what_it_cannot_show(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        with open(self.path("text"), "w", encoding="utf-8") as file:
            file.write("no recording")
        for arguments, said in ((["a.algrec", "--body", "text"], "text: expected a body"),
                                (["nothing.algrec"], "no such file"), (["text"], "expected a recording"),
                                (["a.algrec"] * 3, "one recording, or two"),
                                (["a.algrec", "--listen", "example.org"], "in digits"),
                                (["a.algrec", "--listen", "203.0.113.7"], "cannot listen"),
                                (["a.algrec", "--token", "short"], "16 to 128"),
                                (["a.algrec", "--port", "70000"], "--port")):
            with self.subTest(arguments=arguments):
                self.assertIn(said, self.fail_in_one_line("view", "--no-browser", *arguments))

    def test_says_that_metres_were_taken_for_millimetres(self):
        rig = os.path.join(os.environ["ALG_SOURCE"],
                           "tests/kit/calibration/data/opencv/stereo_fisheye.yml")
        self.run_algtrack("simulate", "--calibration", rig, "--unit", "mm", "-o", "a.algrec",
                          "--seconds", 0.1)
        self.serve("a.algrec", says="Note: a.algrec: The unit of the translation seems to be "
                   "metres: the baseline is 0[.]1.*\n")

    @unittest.skipUnless(os.path.exists("/dev/full"), "no device to try this on")
    def test_does_not_serve_at_an_address_that_nobody_was_told(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        with open("/dev/full", "w") as full:
            result = subprocess.run([ALGTRACK, "view", "--no-browser", "a.algrec"], text=True,
                                    cwd=self.folder, stdout=full, stderr=subprocess.PIPE, timeout=30)
        self.assertEqual((result.returncode, result.stderr),
                         (2, "algtrack: standard output: writing failed\n"))

    def test_says_of_a_recording_that_comes_later_what_it_says_of_one_that_is_there(self):
        rig = os.path.join(os.environ["ALG_SOURCE"],
                           "tests/kit/calibration/data/opencv/stereo_fisheye.yml")
        self.run_algtrack("simulate", "--calibration", rig, "--unit", "mm", "-o", "a.algrec",
                          "--seconds", 0.1)
        server = subprocess.Popen([ALGTRACK, "view", "--no-browser", "--follow", "late.algrec"],
                                  cwd=self.folder, text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        self.addCleanup(self.end, server, "")
        limit = threading.Timer(30, server.kill)
        limit.start()
        self.addCleanup(limit.cancel)
        self.assertTrue(server.stdout.readline())  # it waits
        os.rename(self.path("a.algrec"), self.path("late.algrec"))
        self.assertIn("Note: late.algrec: The unit of the translation seems to be metres",
                      server.stderr.readline())

    def test_refuses_a_port_that_is_taken(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        self.assertIn("cannot listen", self.fail_in_one_line("view", "--no-browser", "a.algrec",
                                                             "--port", address.port))

    def test_gives_the_page_to_who_has_the_token_and_to_nobody_else(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        self.assertEqual(address.hostname, "127.0.0.1")
        status, headers, page = self.get(address, f"/?{address.query}")
        self.assertEqual(status, 200)
        self.assertIn(b"<main id=\"viewer\">", page)
        policy = headers["Content-Security-Policy"]
        self.assertIn("default-src 'none'", policy)
        self.assertIn("frame-ancestors 'none'", policy)
        self.assertNotIn("unsafe", policy)
        self.assertNotIn("Access-Control-Allow-Origin", headers)
        for target, more in (("/", {}), ("/?token=x", {}),
                             (f"/?{address.query}", {"Host": "evil.example"}),
                             (f"/?{address.query}", {"Origin": "http://evil.example"})):
            with self.subTest(target=target, headers=more):
                status, _, body = self.get(address, target, **more)
                self.assertEqual(status, 403)
                self.assertNotIn(b"<main", body)
        for method in ("POST", "PUT", "DELETE", "OPTIONS"):
            self.assertEqual(self.get(address, f"/?{address.query}", method=method)[0], 405)

    def test_is_not_reached_by_another_address_of_this_machine(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.2", address.port), timeout=5)

    def test_survives_what_is_no_request(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        host = f"Host: 127.0.0.1:{address.port}\r\n".encode()
        line = f"GET /?{address.query} HTTP/1.1\r\n".encode()
        for name, data, status in (
                ("nonsense", bytes(range(256)), b"400"),
                ("a long header", line + host + b"X: " + b"a" * 20000 + b"\r\n\r\n", b"431"),
                ("a body", line + host + b"Content-Length: 5\r\n\r\nhello", b"400"),
                ("two hosts", line + host + host + b"\r\n", b"400"),
                ("no host", line + b"\r\n", b"400"),
                ("half a request", line + host, b"")):
            with self.subTest(name):
                self.assertEqual(self.talk(address, data)[9:12], status)
        self.assertEqual(self.get(address, f"/?{address.query}")[0], 200)

    def test_a_client_that_is_refused_early_may_finish_what_it_sends(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        with socket.create_connection((address.hostname, address.port), timeout=30) as client:
            client.sendall(b"GET / HTTP/1.1\r\nX: " + b"a" * 20000)
            answer = b""
            while part := client.recv(65536):
                answer += part
            self.assertEqual(answer[9:12], b"431")
            for _ in range(900):  # to a socket that is closed it would fail
                client.sendall(b"a" * 1000)
            client.shutdown(socket.SHUT_WR)

    def test_many_connections_are_closed_and_the_next_client_is_served(self):
        self.simulate("a.algrec", "--seconds", 0.1)
        address = self.serve("a.algrec")
        idle = [socket.create_connection((address.hostname, address.port), timeout=30)
                for _ in range(60)]
        # Those behind the limit are closed at once.
        self.assertEqual(idle[-1].recv(1), b"")
        for client in idle:
            client.close()
        # As soon as the server has seen them go.
        status, end = None, time.monotonic() + 30
        while status != 200 and time.monotonic() < end:
            try:
                status = self.get(address, f"/?{address.query}")[0]
            except (ConnectionError, http.client.HTTPException):
                time.sleep(0.05)
        self.assertEqual(status, 200)

    def test_looking_changes_nothing_on_disk(self):
        self.simulate("a.algrec", "--seconds", 2)

        def content():
            found = {}
            for name in os.listdir(self.folder):
                with open(self.path(name), "rb") as file:
                    found[name] = hashlib.sha256(file.read()).hexdigest()
            return found

        before = content()
        address = self.serve("a.algrec")
        status, headers, table = self.get(address, f"/part.csv?{address.query}&file=0&from=0&to=9")
        self.assertEqual(status, 200)
        self.assertIn("attachment", headers["Content-Disposition"])
        self.assertTrue(table.startswith(b"seconds,packet,call,object,seen,x_mm"))
        status, _, part = self.get(address, f"/part.algrec?{address.query}&file=0&from=0&to=9")
        self.assertEqual((status, part[:15]), (200, b"SQLite format 3"))
        self.assertEqual(self.get(address, f"/part.algrec?{address.query}&file=0&from=50&to=60")[0],
                         422)
        self.assertEqual(content(), before)


if __name__ == "__main__":
    said = subprocess.run([ALGTRACK, "view", "--no-browser", "no-such-file"], text=True,
                          capture_output=True, timeout=60).stderr
    if "no viewer page" in said or "expected a command" in said:
        print("skipped: built without the viewer")
        sys.exit(77)
    unittest.main()
