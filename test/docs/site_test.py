#!/usr/bin/python3
"""Builds the documentation and looks at every page of it with a browser.

    test/docs/site_test.py --velto build/velto --out build/docs
"""
import argparse
import json
import subprocess
import sys
import time
from pathlib import Path
from urllib.parse import unquote, urldefrag, urlparse

sys.dont_write_bytecode = True
ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
import browser as browsers

WIDTH = 400  # of a telephone
MIB = 2 ** 20

# What one page shows: pictures are asked for at once, and decoded.
LOOK = """
const done = arguments[arguments.length - 1];
const faults = [];
document.querySelectorAll("details").forEach(details => details.open = true);
const images = [...document.images];
images.forEach(image => image.loading = "eager");
Promise.all(images.map(image => image.decode().then(
    () => image.naturalWidth > 1 || faults.push(`an empty picture: ${image.src}`),
    () => faults.push(`no picture: ${image.src}`)))).then(() => {
    images.filter(image => !image.hasAttribute("alt")).forEach(image => faults.push(`no words for ${image.src}`));
    if (document.querySelectorAll("h1").length !== 1) faults.push("not one heading of the first order");
    if (!document.title) faults.push("no title");
    const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    while (texts.nextNode())
        if (texts.currentNode.data.includes("`") && !texts.currentNode.parentElement.closest("pre, code, script"))
            faults.push(`a backquote: ${texts.currentNode.data.trim().slice(0, 60)}`);
    const wide = document.documentElement.scrollWidth - innerWidth;
    if (wide > 0) faults.push(`${wide} pixels too wide`);
    done({
        faults,
        ids: [...document.querySelectorAll("[id]")].map(element => element.id),
        links: [...document.querySelectorAll("a[href]")].map(link => link.href),
        loaded: performance.getEntriesByType("resource").map(entry => entry.name),
    });
});
"""

# The first three hits for what somebody types.
SEARCH = """
const [query, done] = arguments;
const box = document.querySelector("#search"), found = document.querySelector("#found");
new MutationObserver((_, observer) => {
    observer.disconnect();
    done([...found.querySelectorAll("a")].slice(0, 3).map(link => link.href));
}).observe(found, { childList: true });
box.value = query;
box.dispatchEvent(new Event("input"));
"""
# What newcomers type, and the pages that they want; so many of these words have to lead there.
WORDS = json.loads((ROOT / "test/docs/search_words.json").read_text())
FEWEST_FOUND = 38


def start_browser():
    browser = browsers.start(WIDTH, 800, "--disable-gpu")
    # A page of the disk has no need of anything else.
    browser.execute_cdp_cmd("Network.enable", {})
    browser.execute_cdp_cmd("Network.emulateNetworkConditions",
                            {"offline": True, "latency": 0, "downloadThroughput": 0, "uploadThroughput": 0})
    return browser


def look_at(browser, site):
    """All pages, and the faults that show on a page alone."""
    pages, faults = {}, []
    for path in sorted(site.rglob("*.html")):
        name = path.relative_to(site).as_posix()
        browser.get(path.as_uri())
        seen = browser.execute_async_script(LOOK)
        faults += [f"{name}: {fault}" for fault in seen["faults"]]
        faults += [f"{name}: console: {entry['message']}" for entry in browser.get_log("browser")]
        faults += [f"{name}: not of the disk: {url}" for url in seen["loaded"] if not url.startswith(("file:", "data:"))]
        pages[path.resolve()] = seen
    return pages, faults


def dead_links(pages, site):
    faults = []
    for path, page in pages.items():
        for link in page["links"]:
            if urlparse(link).scheme != "file":
                continue
            target, fragment = urldefrag(link)
            file = Path(unquote(urlparse(target).path)).resolve()
            is_dead = not file.is_file() or (fragment and file in pages and fragment not in pages[file]["ids"])
            if is_dead or not file.is_relative_to(site):
                faults.append(f"{path.relative_to(site).as_posix()}: a dead link: {link}")
    return faults


def search(browser, site, nodes):
    """Each node is among the first hits for its id and for its label, and what newcomers look for for their words."""
    faults = []
    browser.get((site / "index.html").as_uri())
    for node in nodes:
        page = (site / "nodes" / f"{node['name']}.html").as_uri()
        for words in (node["name"], node["id"], node["label"]):
            if page not in browser.execute_async_script(SEARCH, words):
                faults.append(f"search: {words!r} does not find {node['name']}")
    missed = []
    for words, wanted in WORDS.items():
        hits = [link.removeprefix(site.as_uri() + "/").removesuffix(".html")
                for link in browser.execute_async_script(SEARCH, words)]
        if not set(hits) & set(wanted):
            missed.append(f"{words!r} finds {', '.join(hits)}")
    print(f"{len(WORDS) - len(missed)} of {len(WORDS)} words lead to their pages; {'; '.join(missed)}")
    if len(WORDS) - len(missed) < FEWEST_FOUND:
        faults.append(f"search: {'; '.join(missed)}")
    # From another folder, by keys alone.
    browser.get((site / "nodes/noise.html").as_uri())
    box = browser.find_element("id", "search")
    box.send_keys("voronoi noise\n")
    deadline = time.monotonic() + 10
    while browser.current_url.endswith("/nodes/noise.html") and time.monotonic() < deadline:
        time.sleep(0.05)
    if not browser.current_url.endswith("/nodes/voronoinoise.html"):
        faults.append(f"search: the enter key leads to {browser.current_url}")
    return faults


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--velto", type=Path, required=True)
    parser.add_argument("--out", type=Path, required=True)
    arguments = parser.parse_args()
    browser = start_browser()
    try:
        built = subprocess.run(["/usr/bin/python3", ROOT / "docs/site/build.py", "--velto", arguments.velto, "--out",
                                arguments.out], check=False)
        if built.returncode:
            return built.returncode
        site = arguments.out.resolve()
        nodes = json.loads(subprocess.check_output([arguments.velto, "nodes", "--json"]))
        pages, faults = look_at(browser, site)
        faults += [f"nodes/{node['name']}.html: is missing" for node in nodes
                   if site / "nodes" / f"{node['name']}.html" not in pages]
        faults += dead_links(pages, site)
        faults += search(browser, site, nodes)
    finally:
        browser.quit()
    size = sum(path.stat().st_size for path in site.rglob("*") if path.is_file())
    if size > 30 * MIB:
        faults.append(f"the site has {size / MIB:.1f} MiB, more than 30")
    for fault in faults:
        print(f"site_test.py: {fault}", file=sys.stderr)
    print(f"{len(pages)} pages, {sum(len(page['links']) for page in pages.values())} links, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
