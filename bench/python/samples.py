#!/usr/bin/python3
"""What Python adds: a million samples against the same in C++, taking turns; one sample; the import.

    PYTHONPATH=build/python bench/python/samples.py build
"""
import json
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import velto

GRAPH = {"version": 1, "nodes": {
    "cloud": {"type": "noise", "inputs": {"octaves": 1}},
    "tint": {"type": "exposure", "inputs": {"color": {"from": "cloud.result"}, "exposure": 1}}},
    "outputs": {"color": "tint.result"}}
COUNT = 1_000_000
ROUNDS = 9


def seconds_of(call):
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def million(build):
    i = np.arange(COUNT)
    u, v = (i % 1000) / 1000, (i // 1000) / 1000
    graph = velto.load(GRAPH)
    graph.sample(u[:10], v[:10])
    python, native = [], []
    with tempfile.NamedTemporaryFile("w", suffix=".json") as document:
        json.dump(GRAPH, document)
        document.flush()
        with subprocess.Popen([build / "bench/velto_python_bench", build, document.name, str(COUNT), str(ROUNDS)],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as other:
            for turn in range(ROUNDS):
                native.append(float(other.stdout.readline()))
                python.append(seconds_of(lambda: graph.sample(u, v, threads=1)))
                if turn < ROUNDS - 1:
                    other.stdin.write("\n")
                    other.stdin.flush()
    print(f"a million samples: C++ {min(native) * 1e3:.1f} ms, Python {min(python) * 1e3:.1f} ms: "
          f"{100 * (min(python) / min(native) - 1):+.1f} percent; the medians of {ROUNDS} rounds "
          f"{statistics.median(native) * 1e3:.1f} ms and {statistics.median(python) * 1e3:.1f} ms")
    calls = [seconds_of(lambda: graph.sample(0.5, 0.25)) for _ in range(5000)]
    print(f"one sample: {statistics.median(calls) * 1e6:.1f} microseconds")


def imports():
    times = {"numpy": [], "velto": []}
    for _ in range(ROUNDS):
        for name, seconds in times.items():
            seconds.append(seconds_of(lambda: subprocess.run([sys.executable, "-c", f"import {name}"], check=True)))
    numpy, package = (1e3 * min(seconds) for seconds in times.values())
    print(f"import numpy {numpy:.0f} ms, import velto {package:.0f} ms: {package - numpy:+.0f} ms")


if __name__ == "__main__":
    million(Path(sys.argv[1]).resolve())
    imports()
