#!/usr/bin/env python3
"""What the server of `velto edit` says to its page, and to whoever else finds its port.

    server_test.py --velto build/velto
"""
import argparse
import array
import hashlib
import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path
from urllib.parse import urlsplit

GRAPH = """{
  "version": 1,
  "nodes": {
    "tile": { "type": "checkerboard", "inputs": { "color1": [2, 0, 0, 1] } },
    "soft": { "type": "blur", "inputs": { "color": { "from": "tile.result" } } }
  },
  "outputs": { "color": "tile.result", "soft": "soft.result" }
}
"""


class Editor:
    """A running `velto edit`."""

    def __init__(self, command, file, *options):
        self.process = subprocess.Popen([command, "edit", file, "--no-browser", *options], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True)
        self.address = urlsplit(self.process.stdout.readline().strip())
        self.port = self.address.port

    def ask(self, method, path, body=None, headers=None, root=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        data = json.dumps(body) if isinstance(body, dict) else body
        connection.request(method, (self.address.path if root is None else root) + path, data, headers or {})
        answer = connection.getresponse()
        content = answer.read()
        connection.close()
        return answer.status, content, answer.headers

    def post(self, path, body):
        status, content, headers = self.ask("POST", path, body)
        return status, json.loads(content) if headers["Content-Type"] == "application/json" else content, headers

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        status = self.process.wait(10)
        self.process.stdout.close()
        self.process.stderr.close()
        return status


class ServerTest(unittest.TestCase):
    velto = None

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.folder = Path(self.directory.name) / "work"
        self.folder.mkdir()
        self.file = self.folder / "graph.json"
        self.file.write_text(GRAPH)
        self.editor = Editor(self.velto, str(self.file))

    def tearDown(self):
        self.assertEqual(self.editor.stop(), -signal.SIGINT)
        self.directory.cleanup()

    def test_pictures_and_values_are_those_of_a_bake(self):
        request = {"text": GRAPH, "output": "color", "width": 48, "height": 32, "lane": "view", "serial": 1}
        status, pixels, headers = self.editor.post("api/picture", request)
        self.assertEqual(status, 200)
        self.assertEqual([headers[name] for name in ("X-Width", "X-Height", "X-Channels")], ["48", "32", "4"])
        bake = subprocess.run([self.velto, "bake", str(self.file), "-o", str(self.folder / "color.exr"), "--size",
                               "48x32", "--output", "color", "--json"], check=True, capture_output=True, text=True)
        self.assertEqual(hashlib.sha256(pixels).hexdigest(), json.loads(bake.stdout)["files"][0]["pixels"])
        status, values, _ = self.editor.post("api/values", {**request, "x": 3, "y": 5})
        values = values["outputs"]
        self.assertEqual(sorted(values), ["color", "soft"])
        at = (5 * 48 + 3) * 4
        self.assertEqual([float(v) for v in values["color"]], list(array.array("f", pixels))[at:at + 4])
        status, window, _ = self.editor.post("api/picture", {**request, "x": 3, "y": 5, "w": 1, "h": 1, "serial": 2})
        self.assertTrue(window == pixels[4 * at:4 * at + 16])

    def test_changed_values_change_only_what_depends_on_them(self):
        request = {"output": "soft", "width": 64, "height": 64, "lane": "view"}
        for serial, red in enumerate((2, 0.5, 0.25, 2)):
            text = GRAPH.replace("[2, 0, 0, 1]", f"[{red}, 0, 0, 1]")
            status, pixels, _ = self.editor.post("api/picture", {**request, "text": text, "serial": serial})
            other = Editor(self.velto, str(self.file))
            fresh = other.post("api/picture", {**request, "text": text})[1]
            other.stop()
            self.assertTrue(status == 200 and pixels == fresh, red)

    def test_faults_are_those_of_a_check(self):
        status, answer, _ = self.editor.post("api/check", {"text": GRAPH.replace('"color1"', '"colour1"')})
        self.assertEqual(status, 200)
        self.assertEqual(answer["diagnostics"], [{
            "place": "nodes.tile.inputs.colour1", "text": 'there is no such input; did you mean "color1"?',
            "severity": "error"}])
        for text, member in (("{", "diagnostics"), (GRAPH.replace("blur", "blurr"), "diagnostics")):
            status, answer, _ = self.editor.post("api/picture", {"text": text, "output": "color"})
            self.assertEqual((status, member in answer), (422, True))

    def test_costs_are_measured_and_too_much_work_is_refused(self):
        nodes = {f"k{i}": {"type": "kernel", "inputs": {"color": {"from": f"k{i - 1}.result"}}} for i in range(1, 31)}
        nodes["k0"] = {"type": "checkerboard"}
        hopeless = json.dumps({"version": 1, "nodes": nodes, "outputs": {"color": "k30.result"}})
        for path in ("api/picture", "api/values", "api/cost"):
            status, answer, _ = self.editor.post(path, {"text": hopeless, "output": "color", "size": 8})
            self.assertEqual((status, "evaluations a sample" in answer["error"]), (422, True), path)

        status, cost, _ = self.editor.post("api/cost", {"text": GRAPH, "size": 64})
        self.assertEqual(status, 200)
        nodes = {node["name"]: node for node in cost["nodes"]}
        self.assertEqual(list(nodes), ["tile", "soft"])
        self.assertGreaterEqual(nodes["tile"]["evaluations"], 1)
        self.assertTrue(0 < nodes["tile"]["nanoseconds"] < cost["nanosecondsPerSample"])

    def test_saves_all_or_nothing_and_sees_what_others_save(self):
        start = json.loads(self.editor.ask("GET", "api/start")[1])
        self.assertEqual(start["text"], GRAPH)
        answers = []
        waiting = threading.Thread(target=lambda: answers.append(
            self.editor.ask("GET", f"api/changes?revision={start['revision']}")))
        waiting.start()
        time.sleep(0.2)
        (self.folder / "other").write_text(GRAPH + "\n")
        os.replace(self.folder / "other", self.file)  # as most programs save
        waiting.join()
        changed = json.loads(answers[0][1])
        self.assertEqual(changed["text"], GRAPH + "\n")
        mine = {"text": GRAPH + "\n\n", "revision": start["revision"]}
        status, content, _ = self.editor.ask("PUT", "api/document", mine)
        self.assertEqual((status, json.loads(content)), (409, changed))
        self.assertEqual(self.file.read_text(), GRAPH + "\n")
        status, content, _ = self.editor.ask("PUT", "api/document", {**mine, "revision": changed["revision"]})
        self.assertEqual(status, 200)
        self.assertEqual(self.file.read_text(), GRAPH + "\n\n")
        self.file.unlink()
        self.file.mkdir()
        status, content, _ = self.editor.ask("PUT", "api/document", {**mine, "force": True})
        self.assertEqual((status, "error" in json.loads(content)), (422, True))

    def test_a_newer_request_of_a_lane_stops_the_one_before(self):
        text = GRAPH.replace('"checkerboard", "inputs": { "color1": [2, 0, 0, 1] }', '"noise", "inputs": { "octaves": 30 }')
        slow = {"text": text, "output": "color", "width": 4096, "height": 4096, "lane": "view"}
        answers = []
        first = threading.Thread(target=lambda: answers.append(self.editor.post("api/picture", {**slow, "serial": 1})))
        first.start()
        time.sleep(0.3)
        started = time.monotonic()
        status, _, _ = self.editor.post("api/picture", {**slow, "width": 8, "height": 8, "serial": 2})
        first.join()
        self.assertEqual(status, 200)
        self.assertLess(time.monotonic() - started, 3.0)  # 16 million samples take longer
        self.assertEqual(answers[0][0], 409)

    def test_strangers_learn_nothing(self):
        (self.folder.parent / "secret.png").write_bytes(b"secret")
        os.symlink(self.folder.parent / "secret.png", self.folder / "link.png")
        token = self.editor.address.path
        for root, path, headers, expected in (
                ("/", "", {}, 404),
                ("/" + "0" * 32 + "/", "", {}, 404),
                (token[:-2] + "/", "api/start", {}, 404),
                (token, "api/start", {"Host": "evil.example"}, 403),
                (token, "api/start", {"Host": f"evil.example:{self.editor.port}"}, 403),
                (token, "api/start", {"Origin": "http://evil.example"}, 403),
                (token, "api/start", {"Origin": "null"}, 403),
                (token, "api/start", {"Origin": f"http://127.0.0.1:{self.editor.port}"}, 200),
                (token, "../../../../etc/passwd", {}, 404),
                (token, "..%2f..%2fetc/passwd", {}, 404),
                (token, "api/../../secret.png", {}, 404)):
            status, content, _ = self.editor.ask("GET", path, headers=headers, root=root)
            self.assertEqual(status, expected, (root, path, headers))
            self.assertNotIn(b"root:", content)
        for folder in ("..", "/", "/etc", "../work/..", "a\0b"):
            status, content, _ = self.editor.ask("GET", "api/files?folder=" + folder.replace("\0", "%00"))
            self.assertEqual(json.loads(content)["entries"], [], folder)
        names = [entry["name"] for entry in json.loads(self.editor.ask("GET", "api/files")[1])["entries"]]
        self.assertEqual(names, ["graph.json"])
        text = GRAPH.replace('"type": "checkerboard", "inputs": { "color1": [2, 0, 0, 1] }',
                             '"type": "image", "inputs": { "url": "../secret.png" }')
        status, answer, _ = self.editor.post("api/check", {"text": text})
        self.assertIn("secret.png", json.dumps(answer["diagnostics"]))

    def test_bad_requests_are_answered(self):
        for body in ("", "{", "[]", '{"text": 3}', '{"text": "", "width": 1e9}', "[" * 100000,
                     '{"text": "{}", "output": "a", "shape": "cube"}', '{"text": "{}", "output": "a", "step": 0.5}'):
            status, content, _ = self.editor.ask("POST", "api/picture", body)
            self.assertEqual((status, "error" in json.loads(content)), (400, True), body[:40])
        self.assertEqual(self.editor.ask("GET", "api/picture")[0], 404)
        with socket.create_connection(("127.0.0.1", self.editor.port)) as large:
            head = f"POST {self.editor.address.path}api/check HTTP/1.1\r\nHost: 127.0.0.1:{self.editor.port}\r\n"
            large.sendall((head + "Content-Length: 99999999999\r\n\r\n").encode())
            large.settimeout(10)
            self.assertIn(large.recv(100).split()[1], (b"413", b"400"))

    def test_many_and_slow_clients_keep_nobody_out_for_long(self):
        idle = [socket.create_connection(("127.0.0.1", self.editor.port)) for _ in range(200)]
        for connection in idle[:20]:
            connection.sendall(b"POST /x HTTP/1.1\r\nContent-Length: 100\r\n\r\nslow")
        started = time.monotonic()
        self.assertEqual(self.editor.ask("GET", "api/start")[0], 200)
        self.assertLess(time.monotonic() - started, 45)
        for connection in idle:
            connection.close()

    def test_a_file_that_is_not_there_begins_with_a_picture(self):
        new = Editor(self.velto, str(self.folder / "new.json"))
        start = json.loads(new.ask("GET", "api/start")[1])
        self.assertTrue(start["isNew"])
        self.assertEqual(new.post("api/check", {"text": start["text"]})[1],
                         {"diagnostics": [], "outputs": [{"name": "color", "type": "ColorA"}]})
        self.assertFalse((self.folder / "new.json").exists())
        new.stop()


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--velto", required=True)
    options, left = parser.parse_known_args()
    ServerTest.velto = options.velto
    if not (Path(options.velto).parent / "editor/index.html").exists():
        print("skipped: the editor's page is not built")
        sys.exit(77)
    unittest.main(argv=["server_test.py", *left])
