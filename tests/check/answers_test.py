"""What the platform check says, on the host platform: answers_test.py CHECK PORTING.MD"""
import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

CHECK, PORTING = sys.argv[1:]
FAULT = {"KVO_HOST_FAULTS": "TVHW_CRM_ClientFree=-5"}


def run(*arguments, **environment):
    return subprocess.run([CHECK, *arguments], capture_output=True, text=True, check=False,
                          env={**os.environ, "KVO_MEDIA_LOG_LEVEL": "-1", **environment})


class Answers(unittest.TestCase):
    def test_each_demand_is_in_the_document(self):
        listed = re.findall(r"^\| `([a-z0-9-]+)` \|", Path(PORTING).read_text(), re.MULTILINE)
        self.assertEqual(run("--list").stdout.split(), listed)

    def test_a_failure_is_told_with_its_values(self):
        ended = run("free-succeeds", "ids-are-unique", **FAULT)
        self.assertEqual(ended.returncode, 1)
        self.assertIn("FAILED  free-succeeds: ", ended.stdout)
        self.assertIn("came: init 0, free -5 (must, ", ended.stdout)
        self.assertIn("manager: 1 ok, 1 failed, 0 skipped\n", ended.stdout)
        self.assertTrue(ended.stdout.endswith("1 of 2 checks came out as expected\n"))

    def test_the_test_anything_protocol(self):
        lines = run("--tap", "--only", "output").stdout.splitlines()
        self.assertEqual(lines[:2], ["TAP version 13", "1..4"])
        self.assertEqual([line for line in lines[2:] if not line.startswith("#")],
                         [f"ok {n} - output/the-video-output-{name}" for n, name in enumerate(
                             ("takes-pictures", "opens-twice", "closes-what-is-closed",
                              "opens-each-time"), 1)])
        self.assertIn("\nnot ok 1 - manager/free-succeeds\n",
                      run("--tap", "free-succeeds", **FAULT).stdout)

    def test_what_the_chip_lacks_is_no_failure(self):
        for pool in ("decoder:3:1920x1088", "encoder:1:640x480", "decoder:1:352x288"):
            ended = run("--only", "manager", KVO_HOST_POOL=pool)
            self.assertEqual(ended.returncode, 0, ended.stdout)
            self.assertIn(" skipped\n", ended.stdout)

    def test_repeats(self):
        ended = run("--repeat", "20", "free-gives-back", "the-cookie-comes-back")
        self.assertEqual(ended.returncode, 0, ended.stdout)

    def test_wrong_arguments(self):
        for wrong in (["--only"], ["--only", "rocket"], ["--repeat", "0"], ["--repeat", "2x"],
                      ["no-such-check"], ["--fast"],
                      ["--only", "panel", "free-succeeds"]):
            ended = run(*wrong)
            self.assertEqual((ended.returncode, ended.stdout), (2, ""))
            self.assertRegex(ended.stderr, r"^tvhw-platform-check: .*; see --help\n$")


unittest.main(argv=sys.argv[:1])
