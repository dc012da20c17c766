"""Threads, interrupts, callbacks, processes, and memory over many loads."""
import concurrent.futures
import multiprocessing
import os
import resource
import signal
import sys
import threading
import time
import unittest

import support
import numpy as np
import velto

LARGE = 2048  # longer than any test waits


def bake_in_child(expected):
    return bool(np.array_equal(expected, velto.load(support.CLOUD).bake((300, 200))["color"]))


class Threads(unittest.TestCase):
    def test_one_graph_serves_threads_at_once(self):
        graph = velto.load(support.CLOUD)
        u, v = np.random.default_rng(1).random((2, 20_000))
        expected = graph.sample(u, v, threads=1)["color"]
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            results = list(pool.map(lambda _: graph.sample(u, v, threads=2)["color"], range(8)))
            pictures = list(pool.map(lambda _: graph.bake(64)["color"], range(4)))
        for result in results:
            np.testing.assert_array_equal(expected, result)
        for picture in pictures:
            np.testing.assert_array_equal(pictures[0], picture)

    def test_changes_and_samples_of_threads_take_turns(self):
        graph = velto.load(support.CLOUD)
        allowed = []
        for octaves in (1, 6):
            graph["cloud.octaves"] = octaves
            allowed.append(graph.sample(0.3, 0.3)["grey"])
        done = threading.Event()

        def change():
            for i in range(200):
                graph["cloud.octaves"] = (1, 6)[i % 2]
            done.set()

        changing = threading.Thread(target=change)
        changing.start()
        while not done.is_set():
            values = graph.sample(np.full(100, 0.3), 0.3)["grey"]
            self.assertTrue(any(np.all(values == each) for each in allowed))
        changing.join()

    def test_python_goes_on_meanwhile(self):
        graph = velto.load(support.SLOW)
        counted = 0
        baking = threading.Thread(target=lambda: graph.bake(128, threads=1))
        baking.start()
        while baking.is_alive():
            counted += 1
            time.sleep(0.001)
        self.assertGreater(counted, 5)


class Interrupts(unittest.TestCase):
    def interrupt(self, call):
        """The seconds that the call goes on after an interrupt; the least of some, as others use this machine too."""
        seconds = []
        for _ in range(4):
            sent = []

            def send():
                time.sleep(0.15)
                sent.append(time.monotonic())
                os.kill(os.getpid(), signal.SIGINT)

            sender = threading.Thread(target=send)
            sender.start()
            with self.assertRaises(KeyboardInterrupt):
                call()
                sender.join()
            seconds.append(time.monotonic() - sent[0])
            sender.join()
        return min(seconds)

    def test_bakes_samples_and_rasters_end_soon(self):
        slow = velto.load(support.SLOW)
        raster = velto.parse({"version": 1, "nodes": {**support.SLOW["nodes"], "raster": {
            "type": "cache", "inputs": {"color": {"from": "sum20.result"}, "width": 512, "height": 1024}}},
            "outputs": {"color": "raster.result"}})
        points = np.zeros(1_000_000)
        for name, call in {"bake": lambda: slow.bake(LARGE), "supersampled bake": lambda: slow.bake(64, supersample=64),
                           "sample": lambda: slow.sample(points), "raster": lambda: raster.bake(8),
                           "raster of samples": lambda: raster.sample(0.5)}.items():
            with self.subTest(name):
                self.assertLess(self.interrupt(call), 0.1)
        # Nothing is lost.
        np.testing.assert_array_equal(velto.load(support.SLOW).bake(6)["color"], slow.bake(6)["color"])
        raster.update({"raster.width": 16, "raster.height": 16})
        self.assertTrue(np.isfinite(raster.sample(0.5)["color"]).all())

    def test_progress_comes_at_most_ten_times_a_second(self):
        graph = velto.load(support.SLOW)
        calls = []

        def progress(share):
            calls.append((time.monotonic(), share))
            if len(calls) == 4:
                raise LookupError("enough")

        with self.assertRaisesRegex(LookupError, "enough"):
            graph.bake(LARGE, progress=progress)
        times, shares = zip(*calls)
        self.assertGreaterEqual(min(np.diff(times)), 0.1)
        self.assertEqual(sorted(shares), list(shares))
        self.assertTrue(0 < shares[-1] < 1)

    def test_callbacks_cannot_use_the_graph(self):
        graph = velto.load(support.SLOW)
        with self.assertRaisesRegex(RuntimeError, "at work"):
            graph.bake(LARGE, progress=lambda share: graph.sample(0.5))
        self.assertTrue(np.isfinite(graph.sample(0.5)["color"]).all())


class Processes(unittest.TestCase):
    def test_processes_bake_the_same(self):
        expected = velto.load(support.CLOUD).bake((300, 200), threads=2)["color"]
        for method in ("fork", "spawn"):
            with self.subTest(method), multiprocessing.get_context(method).Pool(2) as pool:
                self.assertTrue(all(pool.map_async(bake_in_child, [expected] * 4).get(120)))

    def test_a_fork_in_the_middle_is_told_so(self):
        graph = velto.load(support.SLOW)
        baking = threading.Thread(target=lambda: graph.bake(256))
        baking.start()
        time.sleep(0.1)
        self.assertTrue(baking.is_alive())
        child = os.fork()
        if child == 0:
            status = 1
            try:
                velto.load(support.CLOUD).sample(0.5)
            except RuntimeError as error:
                status = 0 if "spawn" in str(error) else 2
            finally:
                os._exit(status)
        self.assertEqual(0, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
        baking.join()

    def test_graphs_outlive_their_module(self):
        code = ("import sys, velto; from threads_test import support; graph = velto.load(support.CLOUD)\n"
                "for name in [name for name in sys.modules if name.startswith('velto')]: del sys.modules[name]\n"
                "del velto; import gc; gc.collect(); print(graph.bake(4)['color'].shape)")
        done = support.subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=False,
                                      cwd=os.path.dirname(os.path.abspath(__file__)))
        self.assertEqual(("(4, 4, 4)\n", "", 0), (done.stdout, done.stderr, done.returncode))


class Memory(unittest.TestCase):
    def test_ten_thousand_loads_keep_it_level(self):
        def load(count):
            for i in range(count):
                graph = velto.load(support.CLOUD)
                graph["cloud.octaves"] = i % 5
                graph.sample(0.5, 0.5)
                if i % 16 == 0:
                    graph.bake(2)
                try:
                    velto.load(support.CLOUD, set={"cloud.none": 1})
                except velto.DocumentError:
                    pass

        def resident():
            with open("/proc/self/statm", encoding="ascii") as statm:
                return int(statm.read().split()[1]) * resource.getpagesize()

        load(1000)
        before = resident()
        load(9000)
        self.assertLess(resident() - before, 4 << 20)


if __name__ == "__main__":
    support.main()
