"""A million samples at random points: each where the cloud is, higher where that is bright.

    python3 scatter.py scatter.png
"""
import sys

import matplotlib
import numpy as np
import velto

matplotlib.use("Agg")
from matplotlib import pyplot as plt  # noqa: E402

GRAPH: velto.Document = {
    "version": 1,
    "nodes": {
        "cloud": {"type": "noise", "inputs": {"octaves": 6, "seed": 5}},
        "tint": {"type": "gradient", "inputs": {"input": {"from": "cloud.result"}, "gradient": [
            {"position": 0, "color": [0, 0.02, 0.1, 1]}, {"position": 0.3, "color": [0.5, 0.05, 0.2, 1]},
            {"position": 0.6, "color": [1, 0.7, 0.2, 1]}]}},
    },
    "outputs": {"height": "cloud.result", "color": "tint.result"},
}


def main(file: str) -> None:
    u, v = np.random.default_rng(1).random((2, 1_000_000))
    values = velto.load(GRAPH).sample(u, v)
    shown = np.clip(values["color"][:, :3], 0, 1) ** (1 / 2.2)
    front_last = np.argsort(-v)
    figure = plt.figure(figsize=(8, 5))
    axes = figure.add_axes((0, 0, 1, 1), facecolor="0.03")
    axes.scatter((u + 0.3 * v)[front_last], (0.6 * values["height"] - v * 0.6)[front_last], c=shown[front_last],
                 s=0.4, marker=",", linewidths=0)
    axes.set(xticks=[], yticks=[])
    figure.savefig(file, dpi=100)


if __name__ == "__main__":
    main(sys.argv[1])
