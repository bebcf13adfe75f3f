#!/usr/bin/env python3
"""What algtrack says to wrong usage: what was expected, what was found, the nearest known name."""
import os
import re
import unittest

from algtrack_case import AlgtrackCase

class UsageTest(AlgtrackCase):
    def commands(self, *path):
        """Every command by its words, as --help lists them; those that have commands of their own
        too."""
        help = self.succeed(*path, "--help")
        found = [list(path)]
        for name in re.findall(r"^  ([a-z]+)  +", help.partition("\nSubcommands:\n")[2], re.M):
            found += self.commands(*path, name)
        return found

    def test_every_command_names_an_unknown_option_and_an_empty_name_in_one_line(self):
        commands = self.commands()
        self.assertGreater(len(commands), 20)
        self.assertIn(["body", "pivot"], commands)
        for command in commands:
            self.assertIn("unknown option '--hlep': did you mean --help? (see "
                          + " ".join(["algtrack", *command]) + " --help)",
                          self.fail_in_one_line(*command, "--hlep"))
            self.assertIn("found an empty one" if "Positionals:" in
                          self.succeed(*command, "--help") else "found",
                          self.fail_in_one_line(*command, ""))

    def test_an_unknown_command_is_named_with_the_nearest_known_one(self):
        self.assertIn("expected a command, found 'simulat': did you mean simulate?",
                      self.fail_in_one_line("simulat"))
        self.assertIn("did you mean check?", self.fail_in_one_line("calibration", "chek"))
        message = self.fail_in_one_line("fly")
        self.assertIn("found 'fly': they are simulate, replay, inspect", message)
        self.assertIn("expected a command, found none", self.fail_in_one_line())

    def test_a_file_in_the_place_of_the_command_is_seen_as_one(self):
        self.simulate("walk.algrec", "--seconds", 0.1)
        self.assertIn("found the file 'walk.algrec': the command comes first",
                      self.fail_in_one_line("walk.algrec"))

    def test_a_recording_in_the_place_of_another_file_is_seen_as_one(self):
        self.simulate("r", "--seconds", 20)
        self.assertGreater(os.path.getsize(self.path("r")), 2**20)
        for arguments in (["calibration", "show", "r"], ["replay", "r", "--calibration", "r"],
                          ["simulate", "-o", "x", "--trajectory", "r"],
                          ["body", "map", "--body", "r"]):
            self.assertIn("found a recording, or another database",
                          self.fail_in_one_line(*arguments))

    def test_an_unknown_option_is_named_alone_with_the_nearest_known_one(self):
        message = self.fail_in_one_line("inspect", "--packt", "3", "walk.algrec")
        self.assertIn("unknown option '--packt': did you mean --packet?", message)
        self.assertIn("algtrack inspect --help", message)
        self.assertIn("unknown option '-x'", self.fail_in_one_line("replay", "r", "-x"))
        self.assertIn("did you mean --product-type?",
                      self.fail_in_one_line("simulate", "--product=1"))

    def test_what_is_missing_or_too_much_is_named(self):
        self.simulate("r", "--seconds", 0.1)
        for arguments, expected in (
                (["simulate"], "expected --output (the recording to write), found none"),
                (["replay"], "expected file (the recording), found none"),
                (["replay", "r", "--csv"], "--csv: expected a value, found none"),
                (["replay", "r", "--csv="], "--csv: expected a value, found none"),
                (["replay", "r", "--csv", ""], "--csv: expected a value, found an empty one"),
                (["simulate", "-o", ""], "-o: expected a value, found an empty one"),
                (["replay", "r", "--csv", "--force"],
                 "--csv: expected a value, found the option --force"),
                (["replay", "r", "--axes", "camera"], "--axes: expected --tum with it, found none"),
                (["replay", "r", "--verify", "--against", "r"], "found both"),
                (["replay", "r", "--csv", "a", "--csv", "b"], "--csv: expected once, found 2 times"),
                (["inspect", "r", "s"], "expected no more arguments, found 's'"),
                (["simulate", "-o", "x", "--product-type", "3"],
                 "--product-type: expected 0, 1 or 2, found '3'"),
                (["simulate", "-o", "x", "--seed", "many"], "expected a whole number from 0 to"),
                (["simulate", "-o", "x", "--scene", "none"], "expected moving or still, found 'none'"),
                (["inspect", "r", "--packet", "1.5"],
                 "expected a whole number from 0 to 9223372036854775807, found '1.5'"),
                (["inspect", "r", "--packet", "-1"],
                 "expected a whole number from 0 to 9223372036854775807, found '-1'"),
                (["simulate", "-o", "x", "--filter-mode", "0.5"],
                 "--filter-mode: expected a whole number from -1 to 1000, found '0.5'"),
                (["replay", "r", "--filter-mode", "-2"],
                 "--filter-mode: expected a whole number from -1 to 1000, found '-2'"),
                (["replay", "r", "--from", "0.05"], "expected an export (--csv, --jsonl, --tum), "
                 "--verify or --against, found none")):
            message = self.fail_in_one_line(*arguments)
            self.assertIn(expected, message)
            for foreign in ("Could not convert", "required but received", "not in {", "was not"):
                self.assertNotIn(foreign, message)

    def test_a_very_long_value_is_not_echoed_whole(self):
        for arguments in (["x" * 100000], ["simulate", "-o", "x", "--seed", "1" * 100000],
                          ["simulate", "-o", "x", "--noise", "n" * 100000],
                          ["inspect", "n" * 100000], ["simulate", "-o", "n" * 100000],
                          ["inspect", "r", "--" + "n" * 100000]):
            self.assertLess(len(self.fail_in_one_line(*arguments)), 1200)

    def test_control_characters_of_a_name_do_not_reach_the_terminal(self):
        message = self.fail_in_one_line("inspect", "a\x1b[31m\nb")
        self.assertNotIn("\x1b", message)

    def test_help_and_version_have_the_names_that_one_tries(self):
        self.assertEqual(self.succeed("-V"), self.succeed("--version"))
        self.assertEqual(self.succeed("help"), self.succeed("--help"))
        self.assertEqual(self.succeed("help", "replay"), self.succeed("replay", "--help"))

    def test_the_manual_page_has_every_command(self):
        with open(os.path.join(os.environ["ALG_SOURCE"], "cmake/packaging/algtrack.1.in"),
                  encoding="utf-8") as file:
            page = file.read().split(".SH OPTIONS")[0]
        described = set(re.findall(r"\.TP\n\.B (\w+)\n", page))
        self.assertEqual({path[0] for path in self.commands() if path} - described, set())

    def test_help_has_at_most_100_columns_and_no_signs_of_the_parser(self):
        for command in self.commands():
            text = self.succeed(*command, "--help")
            longest = max(text.splitlines(), key=len)
            self.assertLessEqual(len(longest), 100, longest)
            self.assertNotIn("(1x)", text)
        self.assertIn("algtrack calibration import [OPTIONS] files...",
                      self.succeed("calibration", "import", "--help"))


if __name__ == "__main__":
    unittest.main()
