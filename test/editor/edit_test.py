#!/usr/bin/python3
"""Uses the editor as people do: the command, a file, a browser.

    test/editor/edit_test.py --velto build/velto [NAME...]

Figures are printed, and fail only where they are far from what is wanted: the machine may be busy.
"""
import argparse
import json
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.dont_write_bytecode = True
ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
import browser as browsers

WAIT = 30
GRAPH = """{
  "version": 1,
  "comment": "kept as it is",
  "nodes": {
    "cloud": { "type": "noise",  "inputs": { "noiseType": "fbm", "octaves": 4 }, "ui": {"x":1.0} },
    "tint": { "type": "blend", "inputs": { "background": [0.05, 0.2, 0.5, 1], "foreground": [1, 0.9, 0.7, 1],
      "maskblend": { "from": "cloud.result" } } }
  },
  "outputs": { "color": "tint.result" }
}
"""

# The pixels of a square picture that fits into the view, row by row: the middle of each on the screen.
PIXELS = """
const canvas = document.querySelector(".stage canvas");
const side = arguments[0], zoom = Math.min(canvas.width / side, canvas.height / side);
const left = (canvas.width - side * zoom) / 2, top = (canvas.height - side * zoom) / 2;
const seen = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
const pixels = [];
for (let y = 0; y < side; y++)
    for (let x = 0; x < side; x++) {
        const at = 4 * (Math.floor(top + (y + 0.5) * zoom) * canvas.width + Math.floor(left + (x + 0.5) * zoom));
        pixels.push(seen.data[at], seen.data[at + 1], seen.data[at + 2]);
    }
return pixels;
"""

# Milliseconds from the moves of a slider to the coarse picture and to the whole one.
TURN = """
const [label, count, done] = arguments;
const slider = document.querySelector(`input[type=range][aria-label="${label}"]`);
const canvas = document.querySelector(".stage canvas");
const times = [];
(async () => {
    for (let i = 0; i < count; i++) {
        const start = performance.now();
        let coarse;
        await new Promise((resolve) => {
            const observer = new MutationObserver(() => {
                if (canvas.dataset.step !== "1") coarse ??= performance.now() - start;
                else if (coarse !== undefined) {
                    observer.disconnect();
                    times.push([coarse, performance.now() - start]);
                    resolve();
                }
            });
            observer.observe(canvas, { attributes: true });
            slider.value = Number(slider.min) + (0.3 + (0.4 * i) / count) * (slider.max - slider.min);
            slider.dispatchEvent(new Event("input", { bubbles: true }));
        });
        await new Promise((resolve) => setTimeout(resolve, 150));
    }
    done(times);
})();
"""

# Frames a second while the graph is dragged about.
PAN = """
const done = arguments[0], pane = document.querySelector(".svelte-flow__pane");
const send = (type, x, buttons) => pane.dispatchEvent(new MouseEvent(type, {
    bubbles: true, view: window, button: 0, buttons, clientX: x, clientY: 400 }));
send("mousedown", 300, 1);
const start = performance.now();
let frames = 0;
const step = () => {
    const passed = performance.now() - start;
    send("mousemove", 300 + 200 * Math.sin(passed / 200), 1);
    frames++;
    if (passed < 2000) return requestAnimationFrame(step);
    send("mouseup", 300, 0);
    done((1000 * frames) / passed);
};
requestAnimationFrame(step);
"""

# Keeps what the page has asked its server, once that is answered.
LISTEN = """
const ask = window.fetch;
window.answered = [];
window.fetch = async (address, ...rest) => {
    const answer = await ask(address, ...rest);
    window.answered.push([address, rest[0]?.body ?? ""]);
    return answer;
};
"""

# Whether that text was checked since, and something of it shown in full that has a picture.
FOLLOWED = """
const asked = (address) => window.answered.filter((entry) => entry[0] === address);
if (!asked("api/check").some(([, body]) => JSON.parse(body).text === arguments[0])) return false;
if (!document.querySelector('[aria-label="Output"] option') || document.querySelector(".picture [role=alert]")) return true;
return asked("api/picture").length > 0 && document.querySelector(".stage canvas")?.dataset.step === "1";
"""


class Editor:
    """`velto edit`, or `velto view`, of a file, and the page that shows it."""

    def __init__(self, test, path, command="edit", *arguments):
        self.test, self.path, self.browser = test, Path(path), test.browser
        started = time.monotonic()
        self.process = subprocess.Popen([test.velto, command, path, "--no-browser", *arguments], text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.address = self.process.stdout.readline().strip()
        assert re.match(r"http://127\.0\.0\.1:\d+/\w{16,}/$", self.address), self.address
        self.browser.get(self.address)
        self.find(".svelte-flow__node" if command == "edit" else ".stage")
        self.seconds = time.monotonic() - started

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        # Without what was not saved, so that the next page opens without a question.
        self.browser.get("about:blank") if failure[0] else self.leave()
        self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise
        finally:
            self.process.stdout.close()

    def leave(self):
        self.browser.execute_script("window.addEventListener('beforeunload', e => e.stopImmediatePropagation(), true)")
        self.browser.get("about:blank")

    def until(self, condition, what):
        end = time.monotonic() + WAIT
        while time.monotonic() < end:
            found = condition()
            if found:
                return found
            time.sleep(0.05)
        raise AssertionError(f"not within {WAIT} s: {what}")

    def all(self, selector):
        return self.browser.find_elements("css selector", selector)

    def find(self, selector):
        return self.until(lambda: self.all(selector), selector)[0]

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def keys(self, *keys):
        from selenium.webdriver.common.action_chains import ActionChains
        ActionChains(self.browser).send_keys(*keys).perform()

    def with_control(self, key):
        from selenium.webdriver.common.action_chains import ActionChains
        from selenium.webdriver.common.keys import Keys
        ActionChains(self.browser).key_down(Keys.CONTROL).send_keys(key).key_up(Keys.CONTROL).perform()

    def drag(self, start, *ends):
        """Along elements and offsets."""
        from selenium.webdriver.common.action_chains import ActionChains
        chain = ActionChains(self.browser).move_to_element(start).click_and_hold()
        for end in ends:
            chain = chain.move_by_offset(*end) if isinstance(end, tuple) else chain.move_to_element(end)
        chain.pause(0.2).release().perform()

    def handle(self, node, kind, port):
        return self.find(f'[data-id="{node}"] .svelte-flow__handle.{kind}[data-handleid="{port}"]')

    def choose(self, node):
        self.find(f'[data-id="{node}"] header').click()
        self.until(lambda: self.chosen() == node, f"{node} is chosen")

    def chosen(self):
        names = self.all('[aria-label="Name of the node"]')
        return names[0].get_attribute("value") if names else None

    def has_picture(self):
        return self.script("return document.querySelector('.stage canvas')?.dataset.step") == "1"

    def wires(self):
        return set(self.script("return [...document.querySelectorAll('.svelte-flow__edge')].map(edge => edge.dataset.id)"))

    def fitted(self, names):
        """How many of the nodes there are when the graph is fitted into its view; others are not drawn."""
        self.keys("f")
        shown = self.script("return [...document.querySelectorAll('.svelte-flow__node')].map(node => node.dataset.id)")
        return len(names.intersection(shown))

    def is_dirty(self):
        return self.browser.title.startswith("•")

    def save(self):
        self.with_control("s")
        self.until(lambda: not self.is_dirty(), "the document is saved")

    def resize(self, side):
        size = self.find('[aria-label="Size"]')
        if size.get_attribute("value") != str(side):
            size.clear()
            size.send_keys(f"{side}\t")
            self.until(self.has_picture, "a picture")

    def small_pixels(self):
        """Bytes of the picture at 32 x 32, once the page has all of it and it no longer changes."""
        self.resize(32)
        last = None
        for _ in range(40):
            pixels = self.script(PIXELS, 32)
            if pixels == last:
                return pixels
            last = pixels
            time.sleep(0.3)
        raise AssertionError("the picture goes on changing")

    def follow(self, text):
        """Another program writes the file; returns when the page shows that."""
        self.script("window.answered = []; document.querySelector('.stage canvas')?.removeAttribute('data-step')")
        self.path.write_text(text)
        self.until(lambda: self.script(FOLLOWED, text), "the new text is checked and shown")

    def faults(self):
        return self.script("return [...document.querySelectorAll('[aria-label=Faults] li')].map(entry => entry.innerText)")


class Test:
    def __init__(self, velto, folder):
        self.velto, self.folder = velto, folder
        self.browser = browsers.start(1400, 900, "--enable-unsafe-swiftshader")
        self.figures = {}

    def file(self, name="graph.json", text=GRAPH):
        path = self.folder / name
        path.write_text(text)
        return path

    def console(self):
        """What the page itself complains about. Requests that are refused or no longer wanted are no faults of it."""
        severe = [entry["message"] for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        return [message for message in severe if "Failed to load resource" not in message or "404" in message]

    def baked(self, path):
        """Bytes of what the command writes, at 32 x 32."""
        subprocess.run([self.velto, "bake", path, "-o", self.folder / "baked.ppm", "--size", "32"], check=True)
        data = (self.folder / "baked.ppm").read_bytes()
        return list(data[len(data) - 32 * 32 * 3:])

    def check_same_as_baked(self, editor):
        shown, baked = editor.small_pixels(), self.baked(editor.path)
        most = max(abs(a - b) for a, b in zip(shown, baked))
        assert most <= 1, f"the page and the file differ by {most} of 255"

    # What is tested, by name

    def examples(self):
        """Every example is shown without a fault, and has a picture where it has one: by a page a folder, which follows."""
        folder = self.folder / "examples"
        shutil.copytree(ROOT / "examples", folder)
        subprocess.run([folder / "make_pictures.sh"], check=False, capture_output=True)
        folders = {}
        for path in sorted(folder.rglob("*.json")):
            if '"version"' in path.read_text():  # else the description of a node
                folders.setdefault(path.parent, []).append(path)
        for beside, paths in folders.items():
            with Editor(self, self.file(beside / "shown.json")) as editor:
                editor.resize(32)
                editor.script(LISTEN)
                for path in paths:
                    editor.follow(path.read_text())
                    names = set(json.loads(path.read_text())["nodes"]) - {"comment"}
                    editor.until(lambda: editor.fitted(names) >= min(len(names), 3), f"nodes of {path.name}")
                    assert not editor.all('[aria-label="Faults"] li.error'), f"{path.name}: {editor.faults()}"
                    assert not editor.is_dirty(), f"{path.name}: opening is no change"
                    assert not self.console(), f"{path.name}: {self.console()}"

    def mouse(self):
        """A node is added by search, wired, turned; pixels change; all is undone byte for byte, then saved."""
        with Editor(self, self.file()) as editor:
            first = editor.small_pixels()
            self.check_same_as_baked(editor)
            editor.keys("a")
            editor.find('[aria-label="Add a node"]')
            editor.keys("brightness")
            assert editor.find("#choices li").text.startswith("Exposure"), "a synonym finds the node"
            editor.keys("\n")
            editor.until(lambda: editor.chosen() == "exposure", "the new node is chosen")

            # Only what takes a colour lights up.
            source = editor.handle("tint", "source", "result")
            from selenium.webdriver.common.action_chains import ActionChains
            hold = ActionChains(self.browser).move_to_element(source).click_and_hold().move_by_offset(30, 30)
            hold.pause(0.2).perform()
            lit = {handle.get_attribute("data-nodeid") for handle in editor.all(".svelte-flow__handle.may")}
            assert lit == {"exposure", "$outputs"}, lit
            ActionChains(self.browser).move_to_element(editor.handle("exposure", "target", "color")).pause(0.2).release().perform()
            editor.until(lambda: "tint.result>exposure:color" in editor.wires(), "the wire")
            editor.drag(editor.handle("exposure", "source", "result"), (20, 0), editor.handle("$outputs", "target", "color"))
            editor.until(lambda: "exposure.result>$outputs:color" in editor.wires(), "the output's wire")

            editor.choose("exposure")
            field = editor.find('input[type=text][aria-label="Exposure"]')
            field.click()
            field.send_keys("\b\b\b\b-1.5\n")
            editor.until(lambda: editor.small_pixels() != first, "darker pixels")
            editor.save()
            saved = editor.path.read_text()
            for kept in ('"comment": "kept as it is"', '"type": "noise",  "inputs"', '"ui": {"x":1.0}'):
                assert kept in saved, f"{kept} is lost"
            assert json.loads(saved)["nodes"]["exposure"]["inputs"]["exposure"] == -1.5, saved
            subprocess.run([self.velto, "check", editor.path, "--strict"], check=True)
            self.check_same_as_baked(editor)

            editor.script("document.activeElement.blur()")
            for _ in range(20):
                editor.with_control("z")
            editor.until(lambda: "tint.result>$outputs:color" in editor.wires(), "the first wires")
            editor.save()
            assert editor.path.read_text() == GRAPH, "the first state, byte for byte"
            assert editor.small_pixels() == first

            # A wire that ends on the floor asks for a node that takes it.
            editor.drag(editor.handle("cloud", "source", "result"), (60, 10), (30, 300))
            editor.find('[role=combobox]')
            editor.keys("spline\n")
            editor.until(lambda: "cloud.result>spline:input" in editor.wires(), "the wire to the new node")
            editor.with_control("d")
            editor.until(lambda: editor.all('[data-id="spline_2"]'), "a copy")
            editor.with_control("g")
            editor.until(lambda: editor.all(".svelte-flow__node-frame"), "a frame")
            editor.choose("spline_2")
            editor.with_control("c")
            editor.keys("\ue017")
            editor.until(lambda: not editor.all('[data-id="spline_2"]'), "the copy is gone")
            editor.with_control("v")
            editor.until(lambda: editor.all('[data-id="spline_2"]'), "the copy is back")
            # Where nodes are put is kept.
            editor.drag(editor.find('[data-id="cloud"] header'), (10, 40), (0, 30))
            editor.save()
            place = json.loads(editor.path.read_text())["nodes"]["cloud"]["ui"]["place"]
        with Editor(self, editor.path) as editor:
            moved = editor.script("""return document.querySelector('.svelte-flow__node[data-id="cloud"]').style.transform""")
            assert re.findall(r"-?[\d.]+", moved) == [str(number) for number in place], (moved, place)

    def keyboard(self):
        """The same by keys alone."""
        from selenium.webdriver.common.keys import Keys
        with Editor(self, self.file()) as editor:
            first = editor.small_pixels()
            editor.script("document.activeElement.blur()")
            costs = lambda: [each.text for each in editor.all(".node header span") if each.text.endswith(" ns")]
            editor.keys("h")
            editor.until(lambda: len(costs()) == 2, "the cost of both nodes")
            editor.keys("h")
            editor.until(lambda: not costs(), "no cost")
            editor.keys("a", "exposure", Keys.ENTER)
            editor.until(lambda: editor.chosen() == "exposure", "the new node is chosen")
            editor.keys("/", "tint", Keys.ENTER)
            editor.until(lambda: editor.chosen() == "tint", "the other node is chosen")
            editor.keys("l", "exposure colour", Keys.ENTER)
            editor.until(lambda: "tint.result>exposure:color" in editor.wires(), "the wire")
            editor.keys("/", "exposure", Keys.ENTER)
            editor.until(lambda: editor.chosen() == "exposure", "the node is chosen")
            editor.keys("l", "outputs: color", Keys.ENTER)
            editor.until(lambda: "exposure.result>$outputs:color" in editor.wires(), "the output's wire")
            for _ in range(80):
                editor.keys(Keys.TAB)
                if editor.script("return document.activeElement.matches('input[type=range][aria-label=Exposure]') &&"
                                 "document.activeElement.closest('[aria-label=Inspector]') !== null"):
                    break
            else:
                raise AssertionError("the tab key does not reach the slider")
            editor.keys(*[Keys.ARROW_LEFT] * 8)
            editor.until(lambda: editor.small_pixels() != first, "darker pixels")
            editor.save()
            self.check_same_as_baked(editor)
            for _ in range(20):
                editor.with_control("z")
            editor.save()
            assert editor.path.read_text() == GRAPH, "the first state, byte for byte"

    def outside(self):
        """Another editor beside the page: its changes, its faults, and a conflict."""
        with Editor(self, self.file()) as editor:
            editor.until(editor.has_picture, "a picture")
            editor.path.write_text(GRAPH.replace('"type": "noise"', '"type": "nosie"'))
            editor.until(lambda: any("nodes.cloud.type" in fault for fault in editor.faults()), "the fault")
            editor.until(lambda: editor.all('[data-id="cloud"] .isBad'), "the mark at the node")
            editor.path.write_text(GRAPH[:-20])
            editor.until(lambda: any("no JSON" in fault for fault in editor.faults()), "half a file")
            editor.path.write_text(GRAPH.replace('"octaves": 4', '"octaves": 400'))
            editor.until(lambda: "1 warning" in editor.find('[aria-label="Faults"] button').text, "the warning")
            editor.choose("cloud")
            editor.until(lambda: editor.all('[aria-label="Inspector"] p.warning'), "the warning at its port")
            editor.path.write_text(GRAPH)
            editor.until(lambda: not editor.all('[aria-label="Faults"]'), "no fault")
            assert not editor.is_dirty()

            for answer, typed, expected in (("Keep mine", 9, 9), ("Take the file", 7, 2)):
                editor.choose("cloud")
                field = editor.find('input[type=text][aria-label="Octaves"]')
                field.click()
                field.send_keys(f"\b\b\b{typed}\n")
                editor.until(editor.is_dirty, "a change")
                editor.path.write_text(GRAPH.replace('"octaves": 4', '"octaves": 2'))
                editor.until(lambda: editor.all("dialog[open]"), "the question")
                next(button for button in editor.all("dialog[open] button") if answer in button.text).click()
                editor.until(lambda: not editor.all("dialog[open]"), "the answer is taken")
                if answer == "Keep mine":
                    assert editor.is_dirty()
                    editor.save()
                value = json.loads(editor.path.read_text())["nodes"]["cloud"]["inputs"]["octaves"]
                assert value == expected, (answer, value)
            assert not editor.is_dirty()

    def view(self):
        """The view alone follows the file, and knows its values."""
        with Editor(self, self.file(), "view") as editor:
            assert not editor.all(".svelte-flow"), "there is no graph"
            first = editor.small_pixels()
            editor.path.write_text(GRAPH.replace("[0.05, 0.2, 0.5, 1]", "[0.5, 0.2, 0.05, 1]"))
            editor.until(lambda: editor.small_pixels() != first, "another picture")
            self.check_same_as_baked(editor)
            from selenium.webdriver.common.action_chains import ActionChains
            ActionChains(self.browser).move_to_element(editor.find(".stage")).perform()
            shown = editor.until(lambda: re.match(r"(\d+), (\d+)\s+color (.+)", editor.find(".values").text), "values")
            u, v = ((int(shown[i]) + 0.5) / 32 for i in (1, 2))
            step = 1 / 32
            sample = [{"uvw": [u, v, 0], "uvwPlusDeltaU": [u + step, v, 0], "uvwPlusDeltaV": [u, v + step, 0]}]
            told = subprocess.run([self.velto, "eval", editor.path, "--samples", "-"], input=json.dumps(sample), text=True,
                                  capture_output=True, check=True)
            expected = json.loads(told.stdout)["results"][0]["outputs"]["color"]
            difference = max(abs(float(a) - b) for a, b in zip(shown[3].split(), expected))
            assert difference < 1e-5, (shown[0], expected)

    def speed(self):
        """How soon pictures follow a slider, how fast a large graph moves, how soon the page is there."""
        with Editor(self, self.file()) as editor:
            self.figures["from the command to the page, s"] = editor.seconds
            editor.until(editor.has_picture, "a picture")
            editor.choose("cloud")
            editor.find('input[type=range][aria-label="Gain"]')
            times = self.browser.execute_async_script(TURN, "Gain", 25)
        coarse, whole = (sorted(values)[len(values) // 2] for values in zip(*times))
        self.figures["from a slider to the coarse picture, ms, median of 25"] = coarse
        self.figures["from a slider to 512 x 512, ms, median of 25"] = whole
        nodes = {f"n{i}": {"type": "blend", "inputs": {"background": {"from": f"n{i // 2}.result"}} if i else {}}
                 for i in range(500)}
        many = json.dumps({"version": 1, "nodes": nodes, "outputs": {"color": "n499.result"}})
        with Editor(self, self.file("many.json", many)) as editor:
            time.sleep(8)  # until the nodes have their places
            frames = self.browser.execute_async_script(PAN)
        self.figures["frames a second of 500 nodes"] = frames
        assert whole < 2000 and frames > 1, "far too slow"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--velto", type=Path, required=True)
    parser.add_argument("names", nargs="*", help="of what is tested")
    arguments = parser.parse_args()
    if not (arguments.velto.resolve().parent / "editor/index.html").exists():
        print("skipped: the editor's page is not built")
        return 77
    failed = False
    with tempfile.TemporaryDirectory() as folder:
        test = Test(arguments.velto.resolve(), Path(folder))
        try:
            for name in arguments.names or ("mouse", "keyboard", "outside", "view", "speed", "examples"):
                started = time.monotonic()
                try:
                    getattr(test, name)()
                    console = test.console()
                    assert not console, console
                    print(f"passed: {name}, {time.monotonic() - started:.0f} s", flush=True)
                except AssertionError as failure:
                    failed = True
                    print(f"failed: {name}: {failure}", flush=True)
        finally:
            test.browser.quit()
    for name, value in test.figures.items():
        print(f"{name}: {value:.3g}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
