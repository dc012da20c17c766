"""What Python gets is what the command prints and writes, to the last bit, for all examples."""
import hashlib
import json
import tempfile
import unittest
import warnings
from pathlib import Path

import support
import numpy as np
import velto

PLACES = [(0.13, 0.21), (1.7, -0.4)]


def numbers(value):
    return np.asarray([float(number) for number in value] if isinstance(value, list) else float(value))


class Bits(unittest.TestCase):
    def setUp(self):
        warnings.simplefilter("ignore", velto.VeltoWarning)

    def test_samples_are_those_of_eval(self):
        # A sample with its neighbours, as nodes filter by these.
        contexts = [{"uvw": [u, v, 0], "uvwPlusDeltaU": [u + 0.01, v, 0], "uvwPlusDeltaV": [u, v + 0.02, 0],
                     "shadingNormal": [0.6, 0, 0.8], "rayDirection": [0, 0.6, -0.8], "time": 0.25}
                    for u, v in PLACES]
        uv = np.array(PLACES)
        uvw = np.concatenate([uv, np.zeros((len(uv), 1))], axis=1)
        compared = 0
        for file in support.documents():
            with self.subTest(file=file.name):
                graph = velto.load(file)
                sampled = graph.sample(
                    uvw=uvw, uvw_plus_du=uvw + [0.01, 0, 0], uvw_plus_dv=uvw + [0, 0.02, 0],
                    shading_normal=[0.6, 0, 0.8], ray_direction=[0, 0.6, -0.8], time=0.25)
                for i, context in enumerate(contexts):  # one a time: what nodes keep starts anew
                    done = support.run("eval", file, "--samples", "-", input=json.dumps([context]))
                    outputs = json.loads(done.stdout)["results"][0]["outputs"]
                    for name, values in sampled.items():
                        compared += 1
                        np.testing.assert_array_equal(values[i], numbers(outputs[name]), f"{name} at {PLACES[i]}")
        self.assertGreater(compared, 200)

    def test_pictures_are_those_of_bake(self):
        compared = 0
        with tempfile.TemporaryDirectory() as folder:
            for i, file in enumerate(support.documents()):
                shape, size, supersample = (("plane", (37, 21), 2), ("sphere", (30, 30), 1))[i % 2]
                graph = velto.load(file)
                if not all(output.channels for output in graph.outputs.values()):
                    continue  # texts, which the command does not bake
                with self.subTest(file=file.name, shape=shape):
                    done = support.run(
                        "bake", file, "-o", Path(folder) / "{output}.exr", "--json", "--size", "%dx%d" % size,
                        "--supersample", supersample, "--shape", shape, "--frame", 6, "--depth", "float")
                    self.assertEqual(0, done.returncode, done.stderr)
                    pictures = graph.bake(size, supersample=supersample, shape=shape, time=6 / 25, threads=2)
                    for written in json.loads(done.stdout)["files"]:
                        compared += 1
                        picture = pictures[written["output"]]
                        self.assertEqual((size[1], size[0]), picture.shape[:2])
                        self.assertEqual(written["pixels"], hashlib.sha256(picture).hexdigest(), written["output"])
        self.assertGreater(compared, 60)


if __name__ == "__main__":
    support.main()
