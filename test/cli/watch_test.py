#!/usr/bin/env python3
"""`velto bake --watch` follows what it reads, through faults, until a signal ends it.

    watch_test.py --velto build/velto
"""
import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

TINT = {"version": 1, "parameters": {"level": {"type": "Float", "default": 0.5}}, "nodes": {
    "grey": {"type": "composecolora", "inputs": {"red": {"parameter": "level"}}}}, "outputs": {"color": "grey.result"}}
GRAPH = {"version": 1, "nodes": {
    "picture": {"type": "image", "inputs": {"url": "picture.exr"}}, "tint": {"type": "tint.json"},
    "sum": {"type": "blend", "inputs": {"background": {"from": "picture.result"}, "foreground": {"from": "tint.color"},
                                        "maskblend": 0.5}}}, "outputs": {"color": "sum.result"}}


class WatchTest(unittest.TestCase):
    velto = None

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.folder = Path(directory.name)
        self.out = self.folder / "out.png"

    def write(self, name, text):
        """As editors do: whole, in the place of the old one."""
        beside = self.folder / (name + "~")
        beside.write_text(text if isinstance(text, str) else json.dumps(text))
        os.replace(beside, self.folder / name)

    def paint(self, red):
        self.write("paint.json", {"version": 1, "nodes": {"c": {"type": "composecolora", "inputs": {"red": red}}},
                                  "outputs": {"color": "c.result"}})
        subprocess.run([self.velto, "bake", "paint.json", "-o", "picture.exr", "--size", "4"], cwd=self.folder,
                       check=True)

    def hasSaid(self, text):
        return lambda: any(text in line for line in list(self.said))

    def wait(self, what, seconds=20):
        end = time.monotonic() + seconds
        while not what():
            self.assertLess(time.monotonic(), end, self.said)
            time.sleep(0.02)

    def test_follows_documents_and_pictures_through_faults(self):
        self.write("graph.json", GRAPH)
        self.write("tint.json", "{")  # a fault at the start
        process = subprocess.Popen([self.velto, "bake", "graph.json", "-o", "out.png", "--size", "8", "--watch"],
                                   cwd=self.folder, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        self.said = []
        reader = threading.Thread(target=lambda: self.said.extend(process.stderr))
        reader.start()
        self.wait(self.hasSaid("tint.json"))
        self.assertFalse(self.out.exists())

        seen = set()

        def changed():
            content = self.out.read_bytes() if self.out.exists() else None
            isNew = content is not None and content not in seen
            if isNew:
                seen.add(content)
            return isNew

        self.write("tint.json", TINT)  # mended; the picture is missing
        self.wait(changed)
        self.wait(self.hasSaid("no such file"))
        self.paint(0.2)  # it comes
        self.wait(changed)
        self.paint(0.9)  # and is another
        self.wait(changed)
        TINT["parameters"]["level"]["default"] = 1
        self.write("tint.json", TINT)
        self.wait(changed)
        self.write("graph.json", json.dumps(GRAPH).replace("tint.color", "tint.colour"))
        self.wait(self.hasSaid("colour"))
        self.assertFalse(changed())  # the picture of before stays
        (self.folder / "graph.json").write_text(json.dumps(GRAPH).replace('"maskblend": 0.5', '"maskblend": 0.25'))
        self.wait(changed)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(20), -signal.SIGINT)
        reader.join()
        process.stderr.close()
        self.assertEqual({"graph.json", "tint.json", "paint.json", "picture.exr", "out.png"},
                         {file.name for file in self.folder.iterdir()})

    def test_what_cannot_be_followed_is_refused(self):
        for arguments in (["-", "-o", "x.png"], ["graph.json", "-o", "-", "--format", "png"],
                          ["graph.json", "-o", "x.png", "--skip-existing"]):
            ran = subprocess.run([self.velto, "bake", *arguments, "--watch"], stdin=subprocess.DEVNULL,
                                 capture_output=True, cwd=self.folder, timeout=20)
            self.assertEqual((ran.returncode, b"--watch" in ran.stderr), (2, True), arguments)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--velto", required=True)
    given, rest = parser.parse_known_args()
    WatchTest.velto = os.path.abspath(given.velto)
    unittest.main(argv=sys.argv[:1] + rest)
