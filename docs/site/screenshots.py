"""Pictures of the editor's page, for its guide."""
import subprocess
import time

from pictures import ROOT

import browser as browsers  # in tools/

WIDTH, HEIGHT = 1200, 760
WAIT = 60
HANDLE = '[data-id="{}"] .svelte-flow__handle.{}[data-handleid="{}"]'


class Page:
    def __init__(self, velto, document):
        self.process = subprocess.Popen([velto, "edit", document, "--no-browser"], stdout=subprocess.PIPE, text=True)
        self.browser = browsers.start(WIDTH, HEIGHT, "--enable-unsafe-swiftshader")
        self.browser.get(self.process.stdout.readline().strip())
        self.wait("document.querySelector('.stage canvas')?.dataset.step === '1'")
        self.settle()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.browser.quit()
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()

    def wait(self, condition):
        end = time.monotonic() + WAIT
        while not self.browser.execute_script(f"return {condition}"):
            if time.monotonic() > end:
                raise TimeoutError(f"the editor's page does not come to {condition}")
            time.sleep(0.1)

    def settle(self):
        """Until the page has looked the same for a while: small pictures come one after the other."""
        last = None
        for _ in range(20):
            time.sleep(1.5)
            now = self.browser.get_screenshot_as_png()
            if now == last:
                return
            last = now

    def find(self, selector):
        self.wait(f"document.querySelector({selector!r})")
        return self.browser.find_element("css selector", selector)

    def act(self):
        from selenium.webdriver.common.action_chains import ActionChains
        return ActionChains(self.browser)

    def choose(self, node):
        self.act().send_keys("/").pause(0.3).send_keys(node).pause(0.3).send_keys("\n").perform()
        self.settle()

    def keep(self, path):
        self.browser.save_screenshot(str(path))


def take(velto, folder):
    """Writes the pictures that docs/guides/editor.md shows."""
    with Page(velto, ROOT / "examples/nodes/gradient.json") as page:
        page.find('[data-id="map"] header').click()
        page.settle()
        page.keep(folder / "editor.png")
        page.act().move_to_element(page.find(HANDLE.format("dunes", "source", "result"))).click_and_hold() \
            .move_by_offset(60, 10).move_by_offset(0, 230).pause(0.3).release().pause(0.5).send_keys("curve").perform()
        page.settle()
        page.keep(folder / "search.png")
    with Page(velto, ROOT / "examples/materials/ceramic_tiles.json") as page:
        page.keep(folder / "tiles.png")
    with Page(velto, ROOT / "examples/material.json") as page:
        page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": "dark"}]})
        next(b for b in page.browser.find_elements("css selector", "[role=toolbar] button") if b.text == "Lit").click()
        page.choose("glaze")
        page.keep(folder / "lit.png")
