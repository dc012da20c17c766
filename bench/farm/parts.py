#!/usr/bin/env python3
"""Measures what parts and their merge cost beside a plain bake of a graph that takes about 200 ns a sample.

    bench/farm/parts.py build/velto [--size N] [--shards N] [--rounds N]

Times are those of the processor, user and system, so that what else the machine does counts less; each ratio is the
median over rounds, within each of which everything is run once.
"""
import argparse
import json
import os
import statistics
import subprocess
import tempfile
from pathlib import Path

GRAPH = {"version": 1, "nodes": {
    "n": {"type": "noise", "inputs": {"octaves": 3}},
    "g": {"type": "gradient", "inputs": {"input": {"from": "n.result"}, "gradient": [
        {"position": 0, "color": [0.1, 0.2, 0.4, 1]}, {"position": 1, "color": [1, 0.8, 0.5, 1]}]}}},
    "outputs": {"color": "g.result"}}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("velto")
    parser.add_argument("--size", default="2048")
    parser.add_argument("--shards", type=int, default=4)
    parser.add_argument("--rounds", type=int, default=5)
    given = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        graph = folder / "graph.json"
        graph.write_text(json.dumps(GRAPH))

        def seconds(command, file, *options):
            arguments = [given.velto, command, graph, "-o", file, "--size", given.size, "--no-fuse", *options]
            process = subprocess.Popen(arguments)
            _, status, usage = os.wait4(process.pid, 0)
            if status != 0:
                raise SystemExit(f"{command} {file} failed")
            return usage.ru_utime + usage.ru_stime

        for suffix in ("exr", "png"):
            merges, parts, bakes = [], [], []
            for _ in range(given.rounds):
                whole = seconds("bake", folder / f"whole.{suffix}")
                split = sum(seconds("bake", folder / f"x.{suffix}", "--shard", f"{k}/{given.shards}")
                            for k in range(1, given.shards + 1))
                merge = seconds("merge", folder / f"x.{suffix}", "--remove-parts")
                if (folder / f"whole.{suffix}").read_bytes() != (folder / f"x.{suffix}").read_bytes():
                    raise SystemExit("the merged file is another")
                bakes.append(whole)
                parts.append(split / whole)
                merges.append(merge / whole)
            print(f"{suffix}: plain {statistics.median(bakes):.2f} s, {given.shards} parts "
                  f"{100 * statistics.median(parts):.1f} % of it, merge {100 * statistics.median(merges):.1f} %")


if __name__ == "__main__":
    main()
