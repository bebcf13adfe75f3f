"""What the end-to-end tests of algtrack share."""
import os
import subprocess
import sqlite3
import struct
import tempfile
import unittest

ALGTRACK = os.environ["ALGTRACK"]


class AlgtrackCase(unittest.TestCase):
    """Every test has a folder of its own, in which the program runs."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_algtrack(self, *arguments):
        return subprocess.run([ALGTRACK, *map(str, arguments)], cwd=self.folder, text=True,
                              capture_output=True, timeout=120)

    def run_bytes(self, *arguments):
        """As run_algtrack, with output that may not be text."""
        return subprocess.run([ALGTRACK, *map(str, arguments)], cwd=self.folder,
                              capture_output=True, timeout=120)

    def succeed(self, *arguments):
        result = self.run_algtrack(*arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")  # no progress in a pipe
        return result.stdout

    def fail_in_one_line(self, *arguments):
        """The program refuses: status 2, one line that begins with its name."""
        return self.end_in_one_line(2, *arguments)

    def find_in_one_line(self, *arguments):
        """The program did what was asked, and something differs or was found: status 1, one line."""
        return self.end_in_one_line(1, *arguments)

    def end_in_one_line(self, status, *arguments):
        result = self.run_algtrack(*arguments)
        self.assertEqual(result.returncode, status, (arguments, result.stdout, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertTrue(result.stderr.startswith("algtrack: "), result.stderr)
        return result.stderr

    def simulate(self, name, *arguments):
        self.succeed("simulate", "-o", name, *arguments)
        return self.path(name)

    def query(self, name, sql, *parameters):
        database = sqlite3.connect(self.path(name))
        try:
            return database.execute(sql, parameters).fetchall()
        finally:
            database.close()

    def change(self, name, sql, *parameters):
        database = sqlite3.connect(self.path(name))
        with database:
            database.execute(sql, parameters)
        database.close()

    def dump(self, name):
        database = sqlite3.connect(self.path(name))
        try:
            return "\n".join(database.iterdump())
        finally:
            database.close()

    @staticmethod
    def positions(block):
        """Object id -> (x, y, z) of a delivered block's bytes."""
        found = {}
        for k in range(10):
            object_id, x, y, z = struct.unpack_from("<ifff", block, 8 + 52 * k)
            if object_id != -1:
                found[object_id] = (x, y, z)
        return found
