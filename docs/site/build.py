#!/usr/bin/python3
"""Writes the documentation as a site that opens from the disk.

    docs/site/build.py [--velto build/velto] [--out build/docs]

Tables come from `velto nodes --json`, pictures from bakes; what did not change since the last time is not baked again.
"""
import argparse
import html
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parent.parent.parent / "tools"))
try:
    import jinja2
    from markupsafe import Markup
    from guides import Guide, highlight_json
except ImportError as missing:
    sys.exit(f"build.py: {missing}; ./dev setup installs what is missing")
from nodes import CATEGORIES, NodePages, document_pictures, find_uses, grouped, material_views, types_in
from pictures import ROOT, Baker
import references
import screenshots

HERE = Path(__file__).resolve().parent
GUIDES = ["first-graph", "editor", "texture-set", "tiling", "normal-maps", "animation", "coded-graphs", "python", "embed",
          "samples", "write-a-node", "farm", "troubleshooting"]
PAGES = ["ARCHITECTURE.md", "CONTRIBUTING.md", "docs/decisions/README.md"]  # beside docs/*.md


def picture_size(path):
    """Width and height of a PNG file, or of a WebP file without loss."""
    head = path.read_bytes()[:30]
    if head.startswith(b"\x89PNG"):
        return struct.unpack(">II", head[16:24])
    if head[12:16] == b"VP8L":
        bits = struct.unpack("<I", head[21:25])[0]
        return (bits & 0x3FFF) + 1, (bits >> 14 & 0x3FFF) + 1
    raise ValueError(f"{path}: neither PNG nor WebP without loss")


class Site:
    def __init__(self, out):
        self.out = out
        self.index = []
        self.pages = {}  # path of a source to the page made of it
        self.placed = set()  # pictures that are in the site
        self.templates = jinja2.Environment(loader=jinja2.FileSystemLoader(HERE / "templates"), autoescape=True,
                                            undefined=jinja2.StrictUndefined, trim_blocks=True, lstrip_blocks=True)
        self.templates.filters["json"] = lambda value: Markup(highlight_json(value))
        self.templates.filters["prose"] = prose
        self.templates.globals.update(compact=compact, values_of=values_of)
        if out.exists() and any(out.iterdir()) and not (out / "style.css").exists():
            sys.exit(f"build.py: {out} holds something else")
        shutil.rmtree(out, ignore_errors=True)
        for folder in ("nodes", "guides", "reference", "gallery", "pictures", "documents"):
            (out / folder).mkdir(parents=True)
        for file in ("style.css", "search.js", "copy.js"):
            shutil.copyfile(HERE / file, out / file)
        shutil.copyfile(search_library(), out / "minisearch.js")
        self.synonyms = json.loads((HERE / "synonyms.json").read_text())

    def write(self, path, template, **values):
        root = "../" * path.count("/")

        def picture(made, name):
            return self.picture(made, name, root)

        text = self.templates.get_template(template).render(root=root, picture=picture, **values)
        (self.out / path).write_text(text)

    def find_by(self, path, kind, title, name="", help_=""):
        """Lets the search find a page that was written, by all that it says but its code."""
        text = re.search(r'<main id="content">(.*)</main>', (self.out / path).read_text(), re.DOTALL).group(1)
        headings = re.findall(r"<h[23][^>]*>(.*?)</h[23]>", text, re.DOTALL)
        text = re.sub(r"<pre.*?</pre>", " ", text, flags=re.DOTALL)
        stem = path.removesuffix(".html")
        self.index.append({"url": path, "kind": kind, "title": title, "name": name, "help": help_,
                           "synonyms": self.synonyms.pop(stem, ""), "headings": plain(" ".join(headings)),
                           "text": plain(text)})

    def picture(self, made, name, root):
        """The address and size of a picture that was made elsewhere."""
        place = f"pictures/{name}{made.suffix}"
        if not made.exists():
            return {"url": root + place, "width": 1, "height": 1}  # said by the baker
        if place not in self.placed:
            self.placed.add(place)
            shutil.copyfile(made, self.out / place)
        width, height = picture_size(made)
        return {"url": root + place, "width": width, "height": height}

    def url_of(self, path, root):
        if path in self.pages:
            return root + self.pages[path]
        if path.suffix == ".png" and path.exists():
            return self.picture(path, f"{path.parent.name}-{path.stem}", root)["url"]
        return None


def prose(text):
    """Text of a description, whose backquotes say what is code."""
    return Markup(re.sub(r"`([^`]+)`", r"<code>\1</code>", html.escape(text, quote=False)))


def plain(text):
    """What people read of HTML."""
    return " ".join(html.unescape(re.sub(r"<[^>]+>", " ", text)).split())


def search_library():
    """The library of the search, which npm fetches as the lock file has it."""
    library = HERE / "node_modules/minisearch/dist/umd/index.js"
    kept = HERE / "node_modules/.package-lock.json"
    if not kept.exists() or kept.stat().st_mtime < (HERE / "package-lock.json").stat().st_mtime:
        try:
            subprocess.run(["npm", "ci", "--no-progress", "--loglevel=error"], cwd=HERE, check=True)
        except (OSError, subprocess.CalledProcessError) as failure:
            sys.exit(f"build.py: {failure}; ./dev setup installs npm")
    return library


def compact(document):
    """A document with one line for each node, as people write it."""
    parts = ['{\n  "version": 1,\n  "nodes": {']
    nodes = [f"    {json.dumps(name)}: {one_line(node)}" for name, node in document["nodes"].items()]
    parts.append(",\n".join(nodes))
    rest = [f"  {json.dumps(name)}: {one_line(document[name])}" for name in ("outputs", "material") if name in document]
    return "\n".join(parts) + "\n  },\n" + ",\n".join(rest) + "\n}"


def one_line(value):
    if isinstance(value, dict):
        return "{ " + ", ".join(f"{json.dumps(k)}: {one_line(v)}" for k, v in value.items()) + " }" if value else "{}"
    if isinstance(value, list):
        return "[" + ", ".join(one_line(v) for v in value) + "]"
    return json.dumps(value, ensure_ascii=False)


def values_of(path):
    """What eval said, as text: name and value of each output."""
    result = json.loads(path.read_text()) if path.exists() else {}
    shown = [(name, one_line(value)) for name, value in result.get("outputs", {}).items()]
    return shown + [("log", line) for line in result.get("log", [])]


def materials(baker, nodes):
    found = []
    for path in sorted((ROOT / "examples/materials").glob("*.json")) + sorted((ROOT / "examples/sets").glob("*.json")):
        text = path.read_text()
        document = json.loads(text)
        used = [name for name in dict.fromkeys(types_in(document)) if name in nodes]
        title = path.stem.replace("-", " ").replace("_", " ").capitalize()
        made = document_pictures(baker, path, nodes, material_views)
        if not made["pictures"]:
            baker.faults.append(f"{path.relative_to(ROOT)}: has no output that is a picture")
            continue
        found.append({"name": path.stem, "title": title, "path": path, "is_set": path.parent.name == "sets", "text": text, "used": sorted(used), **made,
                      "best": [p for p in made["pictures"] if p["output"] == made["pictures"][0]["output"]][-1]})
    return found


def texts(baker, cache):
    """Guides in the order of reading, pages of reference, decisions; all of them done as they say."""
    guides = [Guide(path, baker, cache / "guides" / path.stem) for path in sorted((ROOT / "docs/guides").glob("*.md"))]
    if (baker.velto.parent / "editor/index.html").exists():
        screenshots.take(baker.velto, cache / "guides/editor")
    else:  # built without the editor's page
        guides = [guide for guide in guides if guide.path.stem != "editor"]
    guides.sort(key=lambda guide: GUIDES.index(guide.path.stem) if guide.path.stem in GUIDES else len(GUIDES))
    start = Guide(ROOT / "docs/start.md", baker, cache / "guides/start")
    start.run()
    start.url = "index.html"
    sources = sorted(set((ROOT / "docs").glob("*.md")) - {start.path}) + [ROOT / name for name in PAGES]
    reference = references.pages(baker) + [Guide(path, baker) for path in sources]
    decisions = [Guide(path, baker) for path in sorted((ROOT / "docs/decisions").glob("*.md")) if path not in sources]
    for guide in guides + reference + decisions:
        guide.run()
        stem = "decisions" if guide.path.name == "README.md" else guide.path.stem.lower()
        guide.url = f"{'guides' if guide.folder else 'reference'}/{stem}.html"
    return start, guides, reference, decisions


def write_nodes(site, pages):
    for page in pages:
        if page["example"]:
            shutil.copyfile(page["example"]["path"], site.out / "documents" / page["example"]["path"].name)
        site.write(f"nodes/{page['name']}.html", "node.html", page=page, section="nodes")
        site.find_by(f"nodes/{page['name']}.html", "Node", page["label"], f"{page['name']} {page['id']}", page["help"])
    site.write("nodes.html", "nodes.html", section="nodes")


def write_gallery(site, gallery):
    for material in gallery:
        shutil.copyfile(material["path"], site.out / "documents" / f"material-{material['path'].name}")
        site.write(f"gallery/{material['name']}.html", "material.html", material=material, section="gallery")
        site.find_by(f"gallery/{material['name']}.html", "Gallery", material["title"])
    site.write("gallery.html", "gallery.html", section="gallery")


def write_texts(site, kind, list_):
    for guide in list_:
        body = Markup(guide.html(lambda path: site.url_of(path, "../")))
        site.write(guide.url, "guide.html", guide=guide, body=body, section=guide.url.split("/")[0])
        site.find_by(guide.url, "C++" if guide.url.endswith("/cpp.html") else kind, guide.title, help_=guide.help)


def build(arguments):
    started = time.monotonic()
    out = arguments.out.resolve()
    cache = (arguments.cache or out.parent / "docs-cache").resolve()
    site = Site(out)
    baker = Baker(arguments.velto, cache, arguments.jobs)
    node_pages = NodePages(baker, json.loads(subprocess.check_output([baker.velto, "nodes", "--json"])))

    # Pictures are asked for first, so that the cores are busy while the guides run.
    pages = [node_pages.page(node) for node in node_pages.nodes.values()]
    gallery = materials(baker, node_pages.nodes)
    start, guides, reference, decisions = texts(baker, cache)
    find_uses(pages, gallery)
    baker.wait()
    node_pages.measure(pages)
    baker.finish()

    site.pages = {ROOT / "README.md": "index.html", start.path: "index.html", ROOT / "examples/nodes": "nodes.html", ROOT / "examples/materials": "gallery.html",
                  ROOT / "examples/sets": "gallery.html#sets"}
    for guide in guides + reference + decisions:
        site.pages[guide.path] = guide.url
    for page in pages:
        site.pages[ROOT / f"module/resource/{page['name']}.json"] = f"nodes/{page['name']}.html"
        site.pages[ROOT / f"examples/nodes/{page['name']}.json"] = f"nodes/{page['name']}.html#example"
    site.templates.globals.update(groups=grouped(pages), guides=guides, reference=reference, gallery=gallery,
                                  known=node_pages.nodes)
    write_nodes(site, pages)
    write_gallery(site, gallery)
    write_texts(site, "Guide", guides)
    write_texts(site, "Reference", reference + decisions)
    site.write("index.html", "index.html", section="home", start=Markup(start.html(lambda path: site.url_of(path, ""))))
    site.find_by("index.html", "Start", "Getting started")
    baker.faults += [f"synonyms.json: there is no page {page}" for page in site.synonyms]
    (out / "search-index.js").write_text(f"const searchPages = {json.dumps(site.index, ensure_ascii=False)};\n")

    for fault in baker.faults:
        print(f"build.py: {fault}", file=sys.stderr)
    size = sum(path.stat().st_size for path in out.rglob("*") if path.is_file())
    print(f"{out / 'index.html'}: {len(list(out.rglob('*.html')))} pages, {size / 2 ** 20:.1f} MiB, "
          f"{baker.baked} pictures baked, {time.monotonic() - started:.0f} s")
    return 1 if baker.faults else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--velto", type=Path, default=ROOT / "build/velto")
    parser.add_argument("--out", type=Path, default=ROOT / "build/docs")
    parser.add_argument("--cache", type=Path, help="where pictures are kept; default: docs-cache beside the site")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    arguments = parser.parse_args()
    if not arguments.velto.exists():
        sys.exit(f"build.py: there is no {arguments.velto}: ./dev build")
    return build(arguments)


if __name__ == "__main__":
    sys.exit(main())
