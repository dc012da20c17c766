"""A graph that a program builds: discs along a golden spiral, each a node over the ones before.

    python3 build_graph.py spiral.png
"""
import colorsys
import math
import sys
from typing import Any

import velto


def sunflower(count: int) -> dict[str, Any]:
    """A document of `count` discs."""
    nodes: dict[str, Any] = {"ground": {"type": "composecolora",
                                        "inputs": {"red": 0.01, "green": 0.02, "blue": 0.03, "alpha": 1}}}
    below = "ground.result"
    for i in range(count):
        angle = i * math.pi * (3 - math.sqrt(5))
        radius = 0.44 * math.sqrt((i + 0.5) / count)
        side = 0.035 + 0.05 * i / count
        nodes[f"place{i}"] = {"type": "placement2d", "inputs": {
            "localLength": [side, side], "localDecalU": True, "localDecalV": True,
            "localOffset": [radius * math.cos(angle), radius * math.sin(angle)]}}
        nodes[f"disc{i}"] = {"type": "circle", "inputs": {
            "contextLocal": {"from": f"place{i}.result"}, "innersoftness": 0.6,
            "fill": [*colorsys.hsv_to_rgb(0.12 - 0.12 * i / count, 0.9, 1), 1]}}
        nodes[f"over{i}"] = {"type": "blend", "inputs": {
            "background": {"from": below}, "foreground": {"from": f"disc{i}.result"},
            "maskblend": {"from": f"disc{i}.mask"}}}
        below = f"over{i}.result"
    return {"version": 1, "nodes": nodes, "outputs": {"color": below}}


def main(file: str) -> None:
    graph = velto.load(sunflower(90))
    velto.write(file, graph.bake(512, supersample=2)["color"])


if __name__ == "__main__":
    main(sys.argv[1])
