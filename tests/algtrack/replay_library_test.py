"""`algtrack replay --library` plays a recording through the library that it is given."""
import os
import shutil
import unittest

from algtrack_case import AlgtrackCase

LIBRARY = os.environ["ALG_LIBRARY"]
OTHER_LIBRARY = os.environ["ALG_OTHER_LIBRARY"]


class ReplayLibraryTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        self.simulate("walk.algrec", "--seconds", "1")
        self.succeed("replay", "walk.algrec", "--record", "answered.algrec")

    def meta(self, name):
        return dict(self.query(name, "SELECT key, value FROM meta"))

    def test_proves_the_shared_library(self):
        output = self.succeed("replay", "answered.algrec", "--verify", "--library", LIBRARY)
        self.assertIn("the same, byte by byte", output)

    def test_notices_a_library_with_other_answers(self):
        message = self.find_in_one_line("replay", "answered.algrec", "--verify", "--library",
                                        OTHER_LIBRARY)
        self.assertIn("recorded 1, replayed 0", message)

    def test_refuses_what_is_no_library_of_ours(self):
        self.assertIn("found no such file", self.fail_in_one_line(
            "replay", "answered.algrec", "--library", "nowhere.so"))
        with open(self.path("text.so"), "w", encoding="utf-8") as file:
            file.write("text")
        self.assertIn("cannot be loaded", self.fail_in_one_line(
            "replay", "answered.algrec", "--library", "text.so"))

    def test_a_recording_names_the_library_that_was_recorded(self):
        shutil.copy(LIBRARY, self.path("libcopy.so"))
        self.succeed("replay", "walk.algrec", "--library", "libcopy.so", "--record", "copy.algrec")
        copy, own = self.meta("copy.algrec"), self.meta("answered.algrec")
        self.assertEqual(copy["library_file"], "libcopy.so")
        self.assertEqual(own["library_file"], "algtrack")
        self.assertRegex(copy["library_build_id"], "^[0-9a-f]*$")


if __name__ == "__main__":
    unittest.main()
