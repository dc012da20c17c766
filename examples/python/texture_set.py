"""A texture set, packed: cavities, roughness and metal in the channels of one picture, and normals made of the height.

    python3 texture_set.py packed.png normal.png
"""
import sys

import numpy as np
import velto

GRAPH: velto.Document = {
    "version": 1,
    "nodes": {
        "place": {"type": "placement2d", "inputs": {"localRepetitions": [6, 6], "localModeU": "repeat",
                                                    "localModeV": "repeat"}},
        "rivet": {"type": "circle", "inputs": {"contextLocal": {"from": "place.result"}, "scale": 0.6,
                                               "innersoftness": 0.5}},
        "wear": {"type": "noise", "inputs": {"octaves": 6, "seed": 3}},
        "rust": {"type": "spline", "inputs": {"input": {"from": "wear.result"}, "points": [
            {"positionx": 0.2, "positiony": 0}, {"positionx": 0.35, "positiony": 1}]}},
        "bumps": {"type": "blend", "inputs": {"background": {"from": "rivet.result"},
                                              "foreground": {"from": "wear.result"}, "maskblend": 0.3}},
        "height": {"type": "colortofloat", "inputs": {"color": {"from": "bumps.result"}}},
    },
    "outputs": {"height": "height.result", "rust": "rust.result"},
}


def main(packed: str, normal: str) -> None:
    maps = velto.load(GRAPH).bake(512, supersample=2)
    height, rust = maps["height"], np.clip(maps["rust"], 0, 1)
    cavity = np.clip(0.6 + 0.8 * (height - height.mean()), 0, 1)
    velto.write(packed, np.dstack([cavity, 0.35 + 0.5 * rust, 1 - rust]), colorspace="linear")
    # The slope along y and x, with wrapped borders.
    dy, dx = ((np.roll(height, -1, axis) - np.roll(height, 1, axis)) * 12 for axis in (0, 1))
    normals = np.dstack([-dx, dy, np.ones_like(height)])
    normals /= np.linalg.norm(normals, axis=2, keepdims=True)
    velto.write(normal, normals / 2 + 0.5, colorspace="linear")


if __name__ == "__main__":
    main(*sys.argv[1:])
