"""Bakes pictures and evaluates values with the velto command, and keeps what it made."""
import concurrent.futures
import hashlib
import json
import os
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent


def digest(*parts):
    sum_ = hashlib.sha256()
    for part in parts:
        sum_.update(part if isinstance(part, bytes) else str(part).encode())
        sum_.update(b"\0")
    return sum_.hexdigest()[:24]


def without_words(value):
    """A description without what people read: no picture depends on it."""
    if isinstance(value, dict):
        return {key: without_words(member) for key, member in value.items() if key not in ("help", "label", "category")}
    return [without_words(element) for element in value] if isinstance(value, list) else value


class Baker:
    """Pictures by the content of their documents: `bake` and `evaluate` return at once the path of what will be there."""

    def __init__(self, velto, cache, jobs):
        self.velto = Path(velto).resolve()
        self.cache = Path(cache).resolve()
        self.faults = []
        self.baked = 0
        self.used = set()
        self.begun = []
        self.pool = concurrent.futures.ThreadPoolExecutor(jobs)
        self.base = self.tool_digest()
        for folder in ("documents", "pictures", "results"):
            (self.cache / folder).mkdir(parents=True, exist_ok=True)
        self.make_shown_pictures()

    def tool_digest(self):
        folder = self.velto.parent
        # The command holds its commit; what it is linked of does not.
        host = folder / "host/libvelto_host.a"
        binaries = [host if host.exists() else self.velto, *sorted(folder.glob("libvelto*.so")),
                    *sorted((folder / "modules").glob("*.module"))]
        descriptions = [path for module in sorted((folder / "resource/modules").iterdir())
                        for path in sorted(module.glob("**/*.json"))]
        return digest(*(path.read_bytes() for path in binaries),
                      *(json.dumps(without_words(json.loads(path.read_text()))) for path in descriptions))

    def make_shown_pictures(self):
        """What the image node shows."""
        script = ROOT / "examples/make_pictures.sh"
        made_from = [script, ROOT / "examples/nodes/gradientplacement.json", ROOT / "examples/flames.json"]
        key = digest(self.base, *(path.read_bytes() for path in made_from))
        stamp = self.cache / "pictures/key"
        if not stamp.exists() or stamp.read_text() != key:
            subprocess.run(["sh", script, self.velto, self.cache / "pictures"], check=True)
            stamp.write_text(key)
        self.shown = key

    def run(self, *arguments, cwd=None, place=""):
        """Standard output; a warning is a fault."""
        done = subprocess.run([self.velto, *arguments], capture_output=True, text=True, check=False, cwd=cwd)
        if done.returncode or done.stderr:
            self.faults.append(f"{place}: {done.stderr.strip() or f'exit status {done.returncode}'}")
        return done.stdout

    def start(self, text, arguments, suffix, work):
        shown = self.shown if "/pictures/" in text else ""
        key = digest(self.base, shown, text, *arguments)
        result = self.cache / "results" / (key + suffix)
        self.used |= {result.name, self.facts_of(result).name}
        if not result.exists() or (suffix == ".webp" and not self.facts_of(result).exists()):
            self.begun.append(self.pool.submit(work, key, result))
        return result

    def bake(self, document, place, size, shape="plane", output=None, frame=None, supersample=2):
        """A picture of `size` pixels a side; `document` is a dictionary, or the path of a file."""
        arguments = ["--size", str(size), "--shape", shape, "--supersample", str(supersample), "--threads", "1"]
        arguments += ["--output", output] if output else []
        arguments += ["--frame", str(frame)] if frame is not None else []
        text = document.read_text() if isinstance(document, Path) else json.dumps(document, indent=2)

        def work(key, result):
            partial = result.with_name("part-" + result.name)
            printed = self.run("bake", self.file_of(document, text, key), "-o", partial, "--depth", "uint8",
                               "--search-path", self.cache / "documents", "--json", *arguments, place=place)
            if partial.exists():
                self.facts_of(result).write_text(json.dumps(json.loads(printed)["files"][0]))
                os.replace(partial, result)
                self.baked += 1

        return self.start(text, arguments, ".webp", work)

    @staticmethod
    def facts_of(result):
        """Where the command's words about a picture are kept."""
        return result.with_name(result.name + ".json")

    def pixels(self, result):
        """The hash of a picture's pixels, once it is baked."""
        facts = self.facts_of(result)
        return json.loads(facts.read_text())["pixels"] if facts.exists() else ""

    def cost(self, document, shape, place):
        """Nanoseconds a sample on one thread, and what is baked ahead; the quickest of some runs, on idle cores."""
        text = json.dumps(document, indent=2)
        key = digest(self.base, self.shown if "/pictures/" in text else "", text, shape, "cost")
        result = self.cache / "results" / (key + ".json")
        self.used.add(result.name)
        if not result.exists():
            file = self.file_of(document, text, key)
            best = None
            for _ in range(3):
                done = subprocess.run([self.velto, "bake", file, "-o", self.cache / "cost.tga", "--size", "128", "--shape", shape,
                                       "--threads", "1", "--no-fuse", "--stats"], capture_output=True, text=True, check=False)
                if done.returncode:
                    self.faults.append(f"{place}: {done.stderr.strip()}")
                    return None
                stats = json.loads(done.stderr[done.stderr.index("{\n"):])
                if best is None or stats["sampleSeconds"] < best["sampleSeconds"]:
                    best = stats
                if best["sampleSeconds"] > 0.3:
                    break
            result.write_text(json.dumps({"nanoseconds": best["sampleSeconds"] / best["samples"] * 1e9, "rasters": best["rasters"]}))
        return json.loads(result.read_text())

    def evaluate(self, document, place):
        """The outputs at the middle of the picture."""
        text = document.read_text() if isinstance(document, Path) else json.dumps(document, indent=2)

        def work(key, result):
            printed = self.run("eval", self.file_of(document, text, key), place=place)
            if printed:
                result.write_text(json.dumps(json.loads(printed)["results"][0]))

        return self.start(text, ["eval"], ".json", work)

    def file_of(self, document, text, key):
        if isinstance(document, Path):
            return document
        path = self.cache / "documents" / (key + ".json")
        path.write_text(text)
        return path

    def wait(self):
        for future in self.begun:
            future.result()

    def finish(self):
        """Waits for all, and forgets what nobody asked for."""
        self.wait()
        for path in (self.cache / "results").iterdir():
            if path.name not in self.used:
                path.unlink()
        for path in (self.cache / "documents").iterdir():
            path.unlink()
