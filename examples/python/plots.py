"""What nodes compute, plotted: a spline, and the chromaticities of glowing bodies.

    python3 plots.py plots.png
"""
import sys

import matplotlib
import numpy as np
import velto

matplotlib.use("Agg")
from matplotlib import pyplot as plt  # noqa: E402

# From linear Rec. 709 to CIE XYZ.
XYZ = np.array([[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]])

SPLINE: velto.Document = {"version": 1, "nodes": {"curve": {"type": "spline", "inputs": {"input": 0, "points": [
    {"positionx": 0, "positiony": 0.1}, {"positionx": 0.3, "positiony": 0.9}, {"positionx": 0.6, "positiony": 0.3},
    {"positionx": 1, "positiony": 0.8}]}}}, "outputs": {"y": "curve.result"}}

BODY: velto.Document = {"version": 1, "nodes": {"body": {"type": "blackbody", "inputs": {"temperature": 0}}},
                        "outputs": {"color": "body.result"}}


def main(file: str) -> None:
    figure, (left, right) = plt.subplots(1, 2, figsize=(9, 4), layout="constrained")

    spline = velto.load(SPLINE)
    x = np.linspace(0, 1, 300)
    y = np.empty_like(x)
    for i, place in enumerate(x):
        spline["curve.input"] = place
        y[i] = spline.sample()["y"]
    left.plot(x, y)
    left.set(title="A spline of four points", xlabel="input", ylabel="result")

    body = velto.load(BODY)
    for kelvin in np.geomspace(1000, 12000, 60):
        body["body.temperature"] = kelvin / 100
        rgb = body.sample()["color"][:3]
        xyz = XYZ @ rgb
        shown = np.clip(rgb / rgb.max(), 0, 1) ** (1 / 2.2)
        right.plot(*(xyz[:2] / xyz.sum()), "o", color=shown, markeredgecolor="0.4", markeredgewidth=0.3)
    right.set(title="Glowing bodies, 1000 K to 12000 K", xlabel="x", ylabel="y", facecolor="0.15")
    figure.savefig(file, dpi=110)


if __name__ == "__main__":
    main(sys.argv[1])
