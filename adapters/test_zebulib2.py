#!/usr/bin/env python3
"""The Python module: puts, instances, the handler, failures. Finds the library through LD_LIBRARY_PATH."""
import logging
import os
import subprocess
import sys
import tempfile
import unittest

import zebulib2


class Test(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        with open(self.path("cnf"), "w", encoding="ascii") as file:
            file.write(f"LogFile = {self.path('trace')}\n")
        os.environ["ZEBU2_TRACECNF_FILE"] = self.path("cnf")

    def tearDown(self):
        self.dir.cleanup()

    def path(self, name):
        return os.path.join(self.dir.name, name)

    def test_puts_of_both_kinds_of_log(self):
        with zebulib2.Log(self.path("app"), "app") as log, zebulib2.Instance(self.path("more"), "m", shared=True) as more:
            self.assertEqual((log.result, more.result), (0, 0))
            log.set_level(zebulib2.ALL)
            log.put(zebulib2.INFO, "a\0ü\udc80")
            log.put(0, "text", id="ID", type="W")
            more.put(0, "more", id="ID")
            more.flush()
            more.backup(self.path("copy"))
            logger = logging.getLogger("net")
            logger.propagate = False
            logger.addHandler(zebulib2.Handler(log))
            logger.warning("two\nlines of %d", 7)
            with self.assertRaises(zebulib2.Error) as caught:
                log.put(1001, "x")
            self.assertEqual(caught.exception.value, 0x08000001)
            self.assertRaises(zebulib2.Error, zebulib2.Log, self.path("again"), "again")
        with open(self.path("app1.log"), encoding="utf-8", newline="") as file:
            shown = [line[68:] for line in file.read().split("\r\n") if line[:4].isdigit()]
        self.assertEqual(shown, ["a\\0ü\\udc80", "ID" + " " * 15 + "W    text", "net" + " " * 19 + "two",
                                 "net" + " " * 19 + "lines of 7"])
        with open(self.path("copy"), encoding="utf-8", newline="") as file:
            self.assertIn("ID" + " " * 20 + "more\r\n", file.read())
        self.assertEqual([zebulib2.Handler.level_of(n) for n in (60, 40, 35, 20, 10, 5)], [0, 100, 200, 400, 600, 800])

    def test_the_example(self):
        example = os.path.join(os.path.dirname(__file__), "example.py")
        subprocess.run([sys.executable, example, self.path("ex")], check=True)
        with open(self.path("ex1.log"), encoding="utf-8") as file:
            self.assertIn("no answer from 192.0.2.7", file.read())


unittest.main()
