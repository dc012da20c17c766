"""Documents in, errors out, inputs changed."""
import copy
import json
import logging
import os
import pickle
import tempfile
import unittest
import warnings
from pathlib import Path

import support
import numpy as np
import velto


class Documents(unittest.TestCase):
    def test_files_texts_and_values_are_the_same(self):
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder) / "cloud.json"
            file.write_text(json.dumps(support.CLOUD))
            expected = velto.load(file).bake(8)["color"]
            for graph in (velto.load(str(file)), velto.load(support.CLOUD), velto.parse(support.CLOUD),
                          velto.parse(json.dumps(support.CLOUD))):
                np.testing.assert_array_equal(expected, graph.bake(8)["color"])
            # What becomes of a file does not matter to those who have read it.
            graph = velto.load(file)
            file.write_text("{")
            np.testing.assert_array_equal(expected, graph.bake(8)["color"])
            file.unlink()
            np.testing.assert_array_equal(expected, graph.bake(8)["color"])
            with self.assertRaises(FileNotFoundError):
                velto.load(file)

    def test_values_of_numpy_stand_in_documents(self):
        document = copy.deepcopy(support.CLOUD)
        document["nodes"]["tint"]["inputs"]["background"] = np.array([0.05, 0.2, 0.5, 1])
        document["nodes"]["cloud"]["inputs"]["octaves"] = np.float32(4)
        np.testing.assert_array_equal(velto.load(support.CLOUD).bake(8)["color"], velto.load(document).bake(8)["color"])
        for wrong, error in ((object(), TypeError), ({1: 2}, TypeError), (1 << 70, ValueError),
                             ("\ud800", UnicodeEncodeError), (b"x", TypeError)):
            document["nodes"]["cloud"]["inputs"]["octaves"] = wrong
            with self.assertRaises(error):
                velto.load(document)
        document["nodes"]["cloud"]["inputs"] = document  # in itself
        with self.assertRaises(ValueError):
            velto.load(document)

    def test_faults_have_their_places(self):
        with self.assertRaises(velto.DocumentError) as raised:
            velto.parse({"version": 1, "nodes": {"n": {"type": "nois"}, "m": {"type": "noise", "inputs": {"seed": "x"}}},
                         "outputs": {"o": "n.result"}}, file="wrong.json")
        diagnostics = raised.exception.diagnostics
        self.assertIn("nodes.n.type", [each.place for each in diagnostics])
        self.assertIn("nodes.m.inputs.seed", [each.place for each in diagnostics])
        self.assertTrue(all(each.severity == "error" and each.file == "wrong.json" for each in diagnostics))
        self.assertIn("wrong.json: nodes.n.type", str(raised.exception))
        self.assertIn("more", str(raised.exception))
        for broken in ("", "{", "[]", "\0"):
            with self.assertRaises(velto.DocumentError):
                velto.parse(broken)
        with self.assertRaises(velto.DocumentError):
            velto.load(support.CLOUD, set={"cloud.octave": 6})
        with self.assertRaises(velto.DocumentError):
            velto.load(support.CLOUD, outputs=["none"])

    def test_failures_say_node_and_sample(self):
        scatter = velto.parse({"version": 1, "nodes": {"s": {"type": "net.velto.pattern.corenode.generator.scatter"}},
                               "outputs": {"mask": "s.mask"}})
        with self.assertRaises(velto.EvaluationError) as raised:
            scatter.sample(np.zeros((2, 3)))
        self.assertEqual(("net.velto.error.nullptr", "s", 0), (raised.exception.kind, raised.exception.node,
                                                               raised.exception.sample))
        with self.assertRaises(velto.EvaluationError) as raised:
            scatter.bake(8, crop=(2, 3, 4, 4), threads=1)
        self.assertEqual(("s", 0, (2, 3)), (raised.exception.node, raised.exception.sample, raised.exception.pixel))

    def test_warnings_and_logs_are_pythons(self):
        document = {"version": 1, "nodes": {
            "picture": {"type": "image", "inputs": {"url": "not_there.png"}}}, "outputs": {"color": "picture.result"}}
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            graph = velto.parse(document)
            graph.bake(8)
        self.assertIn("not_there.png", " ".join(str(each.message) for each in caught))
        self.assertEqual({velto.VeltoWarning}, {each.category for each in caught})
        self.assertEqual({os.path.basename(__file__)}, {os.path.basename(each.filename) for each in caught})
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            with self.assertRaises(velto.VeltoWarning):
                velto.parse(document).bake(8)
        # The graph went its way, and so do others.
        self.assertEqual((8, 8, 4), velto.load(support.CLOUD).bake(8)["color"].shape)
        printing = velto.parse({"version": 1, "nodes": {"say": {"type": "print", "inputs": {"string": "hello"}}},
                                "outputs": {"text": "say.passthrough"}})
        with self.assertLogs("velto", logging.INFO) as logs:
            self.assertEqual({}, printing.sample())
        self.assertIn("hello", logs.output[0])

    def test_graphs_cannot_be_pickled(self):
        graph = velto.load(support.CLOUD)
        for attempt in (pickle.dumps, copy.copy, copy.deepcopy):
            with self.assertRaisesRegex(TypeError, "cannot be pickled"):
                attempt(graph)


class Inputs(unittest.TestCase):
    def test_a_change_gives_what_its_document_gives(self):
        graph = velto.load(support.CLOUD)
        before = graph.bake(16)["color"]
        for name, value in (("cloud.octaves", 1), ("place.localRepetitions", (5, 1)),
                            ("tint.foreground", np.array([0, 1, 0, 1])), ("cloud.octaves", 4.0)):
            graph[name] = value
            self.assertEqual(value if np.isscalar(value) else tuple(value), graph[name])
        expected = velto.load(support.CLOUD, set={"place.localRepetitions": [5, 1], "tint.foreground": [0, 1, 0, 1]})
        np.testing.assert_array_equal(expected.bake(16)["color"], graph.bake(16)["color"])
        np.testing.assert_array_equal(expected.sample(0.3, 0.4)["color"], graph.sample(0.3, 0.4)["color"])
        graph.update({"place.localRepetitions": [3, 3], "tint.foreground": [1, 0.9, 0.7, 1]})
        np.testing.assert_array_equal(before, graph.bake(16)["color"])

    def test_wrong_changes_change_nothing(self):
        graph = velto.load(support.CLOUD)
        before = {name: each.value for name, each in graph.inputs.items()}
        for name, value, error in (("cloud.octave", 1, KeyError), ("cloud.seed", 1, KeyError),
                                   ("cloud.octaves", "many", velto.DocumentError),
                                   ("tint.foreground", [1, 2], velto.DocumentError),
                                   ("tint.foreground", object(), TypeError)):
            with self.assertRaises(error):
                graph[name] = value
            with self.assertRaises(error):
                graph.update({"place.localRepetitions": [9, 9], name: value})
        with self.assertRaises(KeyError):
            graph["none"]
        self.assertEqual(before, {name: each.value for name, each in graph.inputs.items()})

    def test_what_there_is_is_described(self):
        graph = velto.load(support.CLOUD)
        self.assertEqual({"cloud.octaves", "place.localRepetitions", "tint.background", "tint.foreground"},
                         set(graph.inputs))
        self.assertEqual("ColorA", graph.inputs["tint.background"].type)
        self.assertEqual(["color", "grey"], list(graph.outputs))
        self.assertEqual(4, graph.outputs["color"].channels)
        octaves = velto.node("noise").inputs["octaves"]
        self.assertEqual((5.0, 0.0, 16.0, "Float"), (octaves.default, octaves.minimum, octaves.maximum, octaves.type))
        listed = json.loads(support.run("nodes", "--json").stdout)
        self.assertEqual([each["id"] for each in listed], [each.id for each in velto.nodes()])
        with self.assertRaisesRegex(KeyError, "noise"):
            velto.node("nois")


class Limits(unittest.TestCase):
    def test_hopeless_samples_are_refused_unless_forced(self):
        nodes = {f"k{i}": {"type": "kernel", "inputs": {"color": {"from": f"k{i - 1}.result"}}} for i in range(1, 11)}
        document = {"version": 1, "nodes": {**nodes, "k0": {"type": "checkerboard"}},
                    "outputs": {"cheap": "k1.result", "color": "k10.result"}}
        for work in (lambda graph: graph.bake(1), lambda graph: graph.sample(0.5, 0.5)):
            with self.assertRaisesRegex(velto.EvaluationError, "force=True"):
                work(velto.load(document))
        forced = velto.load(document, outputs="cheap", force=True)
        np.testing.assert_array_equal(forced.bake(4)["cheap"], velto.load(document, outputs="cheap").bake(4)["cheap"])


class Files(unittest.TestCase):
    def test_written_files_are_those_of_the_command(self):
        with tempfile.TemporaryDirectory() as folder:
            document = Path(folder) / "cloud.json"
            document.write_text(json.dumps(support.CLOUD))
            picture = velto.load(document).bake((40, 30))["color"]
            for suffix, options in (("exr", {}), ("png", {}), ("png", {"depth": "uint16", "colorspace": "linear"})):
                mine = Path(folder) / f"mine.{suffix}"
                theirs = Path(folder) / f"theirs.{suffix}"
                velto.write(mine, picture, **options)
                flags = [text for name, value in options.items() for text in (f"--{name}", value)]
                support.run("bake", document, "-o", theirs, "--size", "40x30", "--output", "color", *flags)
                self.assertEqual(theirs.read_bytes(), mine.read_bytes(), (suffix, options))
            velto.write(mine, picture[::2, ::-1, 0].astype(np.float64))
            for wrong in (np.zeros((3, 3, 2)), np.zeros((0, 3)), np.zeros(3), np.zeros((3, 3), np.uint8)):
                with self.assertRaisesRegex(ValueError, "picture: "):
                    velto.write(mine, wrong)
            with self.assertRaises(ValueError):
                velto.write(Path(folder) / "mine.none", picture)
            with self.assertRaises(ValueError):
                velto.write(mine, picture, depth="bits")
            with self.assertRaises(OSError):
                velto.write(Path(folder) / "none" / "mine.png", picture)


if __name__ == "__main__":
    support.main()
