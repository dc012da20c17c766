"""A contact sheet over two parameters: octaves from left to right, gain from top to bottom.

    python3 wedge.py wedge.png
"""
import sys

import numpy as np
import velto

GRAPH: velto.Document = {
    "version": 1,
    "nodes": {
        "cloud": {"type": "noise", "inputs": {"noiseType": "net.velto.render.rendernoiseclass.fbm",
                                              "octaves": 1, "gain": 0.5, "absolute": False}},
        "tint": {"type": "gradient", "inputs": {"input": {"from": "cloud.result"}, "gradient": [
            {"position": -0.6, "color": [0.02, 0.05, 0.2, 1]},
            {"position": 0, "color": [0.3, 0.45, 0.6, 1]},
            {"position": 0.6, "color": [1, 0.95, 0.85, 1]}]}},
    },
    "outputs": {"color": "tint.result"},
}


def main(file: str) -> None:
    graph = velto.load(GRAPH)
    rows = []
    for gain in (0.35, 0.5, 0.65, 0.8):
        graph["cloud.gain"] = gain
        row = []
        for octaves in (1, 2, 3, 5, 8):
            graph["cloud.octaves"] = octaves
            row.append(np.pad(graph.bake(120, supersample=2)["color"], ((4, 4), (4, 4), (0, 0)), constant_values=1))
        rows.append(np.hstack(row))
    velto.write(file, np.vstack(rows))


if __name__ == "__main__":
    main(sys.argv[1])
