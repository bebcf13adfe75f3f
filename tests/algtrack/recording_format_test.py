#!/usr/bin/env python3
"""docs/recording-format.md against real recordings."""
import os
import re
import sqlite3
import subprocess
import sys
import unittest

from algtrack_case import AlgtrackCase, content_of_calls


class RecordingFormatTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        with open(os.path.join(os.environ["ALG_SOURCE"], "docs", "recording-format.md")) as file:
            self.document = file.read()
        self.simulate("walk.algrec", "--seconds", 1, "--corrupt", 0.2)

    def section(self, heading):
        return re.search(rf"^## `{heading}`.*?(?=^## )", self.document, re.M | re.S).group()

    def test_identifies_itself_as_documented(self):
        ((application,),) = self.query("walk.algrec", "PRAGMA application_id")
        ((version,),) = self.query("walk.algrec", "PRAGMA user_version")
        self.assertIn(f"| {application} (`0x{application:08X}`, "
                      f"\"{application.to_bytes(4, 'big').decode()}\")", self.document)
        self.assertIn(f"| `PRAGMA user_version` | {version},", self.document)

    def test_every_column_is_documented_and_no_other(self):
        for table, heading in (("calls", "calls"), ("truth", "truth"), ("logs", "logs` and `blocks")):
            columns = [row[1] for row in self.query("walk.algrec", f"PRAGMA table_info({table})")]
            documented = []
            for row in re.findall(r"^\| (`[^|]*`) \|", self.section(heading), re.M):
                documented += re.findall(r"`([^`]+)`", row)
            self.assertEqual(documented[:len(columns)] if table == "logs" else documented, columns)
        columns = [row[1] for row in self.query("walk.algrec", "PRAGMA table_info(blocks)")]
        self.assertEqual(sorted(columns), ["block", "call", "step", "threw"])

    def test_every_fact_is_documented(self):
        self.succeed("replay", "walk.algrec", "--record", "again.algrec")
        for (key,) in self.query("again.algrec", "SELECT key FROM meta"):
            self.assertRegex(self.section("meta"), rf"(?m)^\| [^|]*`{key}`[^|]* \|")

    def test_every_row_has_the_checksum_that_is_documented(self):
        names = {}
        example = re.search(r"^## Checksums.*?```python\n(.*?)```", self.document, re.M | re.S).group(1)
        exec(example, names)  # pylint: disable=exec-used
        database = sqlite3.connect(self.path("walk.algrec"))
        contents = content_of_calls(database)
        database.close()
        stored = dict(self.query("walk.algrec", "SELECT id, checksum FROM calls"))
        self.assertGreater(len(stored), 90)
        self.assertEqual({call: names["checksum"](row) for call, row in contents.items()}, stored)
        for table in ("truth", "meta"):
            rows = self.query("walk.algrec", f"SELECT * FROM {table}")
            self.assertGreater(len(rows), 5)
            for *values, found in rows:
                self.assertEqual(names["checksum"](values), found)

    def test_the_python_example_prints_every_position(self):
        example = re.search(r"```python\n(.*?)```", self.document, re.S).group(1)
        result = subprocess.run([sys.executable, "-c", example, self.path("walk.algrec")],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        expected = sum(len(self.positions(block))
                       for (block,) in self.query("walk.algrec", "SELECT block FROM blocks"))
        self.assertGreater(expected, 0)
        self.assertEqual(result.stdout.count("\n"), expected)

    def test_the_sql_examples_run(self):
        examples = re.findall(r'^sqlite3 walk.algrec "(.*)"$', self.document, re.M)
        self.assertEqual(len(examples), 2)
        for example in examples:
            self.assertTrue(self.query("walk.algrec", example))


if __name__ == "__main__":
    unittest.main()
