"""The pages of the nodes: what they show, from the command's list, the examples and variations.json."""
import json
import math
import re
from collections import Counter
from pathlib import Path

from pictures import ROOT

HERE = Path(__file__).resolve().parent
SMALL = 128
SIZE = 256
LARGE = 384
MATERIAL = 512
PICTURES = {"ColorA", "Color", "Float", "Vector", "Vector2d", "Vector4d", "Int", "Int32", "UInt32", "Bool"}
SEEN_FROM_A_SIDE = {"fresnelconductor", "fresneldielectric", "thinfilm", "flakes", "bump"}
# Units as the descriptions have them.
UNIT = re.compile(r"\b[Ii]n (radians|seconds|pixels|nanometres|cells|bricks|hundredths|ten-thousandths of the tile|texture space"
                  r"|(?:widths|heights) of an? [a-z]+|(?:widths|heights) of the [a-z]+)")
COMPANIONS = 6
# What a context is to a node; the descriptions leave it to the host.
CONTEXT_HELP = {
    "contextLocal": "Where the pattern lies: link a placement here.",
    "context": "The sample that the node sees: a context node may stand ahead of it.",
}
# As users look for them.
CATEGORIES = {
    "Generator": ("Generators", "Patterns, images and random values."),
    "Shape": ("Shapes", "One figure each, with a soft edge."),
    "Colour": ("Colour", "Adjust colours, mix them, exchange their channels."),
    "Context": ("Context", "Change what the nodes behind them know of the sample: where it lies, and when."),
    "Filter": ("Filters", "Look at a colour in more than one place."),
    "Shading": ("Shading", "Depend on the view, or bend the normal."),
    "Maths": ("Maths", "Choose, scale, move points, noise at any place."),
    "Conversion": ("Conversion", "From one type or one space to another."),
    "String": ("Strings", "Texts: names of files, labels."),
}


def number(value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return json.dumps(value, ensure_ascii=False)
    for factor, text in ((1, "π"), (2, "2π"), (0.5, "π/2"), (0.25, "π/4")):
        if math.isclose(abs(value), factor * math.pi):
            return ("−" if value < 0 else "") + text
    return f"{value:,}".replace(",", " ").replace("-", "−") if isinstance(value, int) else f"{value:.12g}"


def show(value):
    """A value as it stands in tables."""
    if isinstance(value, list) and all(isinstance(x, (int, float)) for x in value):
        return "[" + ", ".join(number(x) for x in value) + "]"
    if isinstance(value, dict) and set(value) == {"from"}:
        return value["from"]
    if isinstance(value, str) and value.startswith("net.velto."):
        return last_word(value)
    return number(value)


def last_word(text):
    return text.rsplit(".", 1)[-1]


def value_labels(node):
    """What the description calls the values of enumerations, by port and id; the list of nodes has the ids alone."""
    path = next((path for module in ("module", "toolkit")
                 if (path := ROOT / module / "resource" / f"{node['name']}.json").exists()), ROOT / "none")
    ports = json.loads(path.read_text())["inputs"] if path.exists() else []
    ports += [member for port in ports for member in port.get("bundle", [])]
    labels = {}
    for port in ports:
        values = port.get("values", [])
        if isinstance(values, str):
            values = json.loads((path.parent / f"lists/{values}.json").read_text())
        labels[port.get("name")] = {value["id"]: value["label"] for value in values}
    return labels


def port_rows(ports, labels):
    """What the table of the ports says, members of a bundle below it."""
    rows = []
    for port in ports:
        values = port.get("values", [])
        prefix = ""
        if values and all("." in value for value in values):
            prefix = values[0].rsplit(".", 1)[0] + "."
        limits = ""
        if port.get("min") is not None or port.get("max") is not None:
            low, high = port.get("min"), port.get("max")
            if all(isinstance(limit, list) and len(set(limit)) == 1 for limit in (low, high)):
                low, high = low[0], high[0]
            limits = (f"at least {show(low)}" if high is None else f"at most {show(high)}" if low is None
                      else f"{show(low)} to {show(high)}")
        default = port.get("default")
        unit = UNIT.search(port.get("help") or "")
        rows.append({
            **port, "limits": limits, "unit": unit.group(1) if unit else "",
            "copied": None if default is None else f"{json.dumps(port['name'])}: {json.dumps(default, ensure_ascii=False)}", "prefix": prefix,
            "names": [(value[len(prefix):], labels.get(port["name"], {}).get(value, "")) for value in values],
            "shown": None if default is None else show(default),
            "variadic": port.get("variadic", False), "help": port.get("help") or CONTEXT_HELP.get(port["name"], ""), "member": False,
        })
        rows += [{**row, "member": True} for row in port_rows(port.get("members", []), labels)]
    return rows


def merge(base, extra):
    merged = {**base, **extra}
    for part in ("nodes", "inputs"):
        merged[part] = {**base.get(part, {}), **extra.get(part, {})}
    # null takes away what a stage links.
    merged["inputs"] = {name: value for name, value in merged["inputs"].items() if value is not None}
    return merged


def upstream(nodes, names):
    """The nodes that the named ones need, in the given order."""
    needed, open_ = set(), list(names)

    while open_:
        name = open_.pop()
        if name not in needed and name in nodes:
            needed.add(name)
            open_ += linked(nodes[name])
    return {name: node for name, node in nodes.items() if name in needed}


class NodePages:
    def __init__(self, baker, listed):
        self.baker = baker
        self.plan = json.loads((HERE / "variations.json").read_text())
        self.nodes = {node["name"]: node for node in listed}
        for name in sorted(self.plan["nodes"].keys() - self.nodes.keys()):
            baker.faults.append(f"variations.json: there is no node {name}")

    def document(self, node, setting):
        """The graph of a picture: the node, called `it`, on its stage."""
        it = {"type": node["name"]}
        if "arguments" in setting:
            it["arguments"] = setting["arguments"]
        if setting["inputs"]:
            it["inputs"] = setting["inputs"]
        nodes = {**setting["nodes"], "it": it}
        outputs = [port for port in node["ports"] if port["direction"] == "out"]
        shown = setting.get("show", f"it.{outputs[0]['name']}")
        if "material" in setting:
            return {"version": 1, "nodes": upstream(nodes, ["it"]), "material": setting["material"]}
        return {"version": 1, "nodes": upstream(nodes, [shown.split(".")[0]]), "outputs": {"shown": shown}}

    def figure(self, node, setting, size):
        document = self.document(node, setting)
        place = f"variations.json: {node['name']}: {setting.get('label', 'default')}"
        outputs = [port for port in node["ports"] if port["direction"] == "out"]
        as_values = setting.get("values") or (outputs[0]["type"] not in PICTURES and "show" not in setting)
        figure = {"label": setting.get("label", ""), "document": document, "output": "", "picture": None, "values": None}
        if as_values:
            figure["values"] = self.baker.evaluate(document, place)
        else:
            figure["picture"] = self.baker.bake(document, place, size, setting.get("shape", "plane"),
                                                frame=setting.get("frame"))
        return figure

    def page(self, node):
        plan = self.plan["nodes"].get(node["name"])
        if plan is None:
            self.baker.faults.append(f"variations.json: nothing about {node['name']}")
            plan = {}
        setting = merge(self.plan["stages"].get(plan.get("stage", "bare"), {}), plan)
        variations = setting.pop("variations", [])
        default = self.figure(node, setting, LARGE)
        default["label"] = setting.get("label", "")
        shown = []
        for variation in variations:
            figure = self.figure(node, merge(setting, variation), SIZE)
            figure["changes"] = {name: show(value) for name, value in
                                 {**variation.get("arguments", {}), **variation.get("inputs", {})}.items()}
            if "show" in variation and variation["show"].startswith("it."):
                figure["output"] = variation["show"][3:]
            shown.append(figure)
        labels = value_labels(node)
        return {
            **node, "figure": default, "variations": shown, "every": self.every(node, setting),
            "example": self.example(node), "shape": setting.get("shape", "plane"),
            "inputs": port_rows((p for p in node["ports"] if p["direction"] == "in"), labels),
            "outputs": port_rows((p for p in node["ports"] if p["direction"] == "out"), labels),
        }

    def measure(self, pages):
        """Puts to each page that has a picture what a sample of it costs, against the cheapest, and its hash."""
        for page in pages:
            figure = page["figure"]
            page["cost"] = page["hash"] = None
            if figure["picture"]:
                page["hash"] = self.baker.pixels(figure["picture"])
                page["cost"] = self.baker.cost(figure["document"], page["shape"], page["name"])
        least = min((page["cost"]["nanoseconds"] for page in pages if page["cost"]), default=1)
        for page in pages:
            if page["cost"]:
                page["cost"]["ratio"] = two_figures(page["cost"]["nanoseconds"] / least)

    def every(self, node, setting):
        """A picture for each value of the enumeration that a node is chosen for."""
        port = next((port for port in node["ports"] if port["name"] == setting.get("every")), None)
        return port and {"label": port["label"], "figures": [
            {"name": last_word(value), "picture": self.figure(node, merge(setting, {"inputs": {port["name"]: value}}),
                                                              SMALL)["picture"]} for value in port["values"]]}

    def example(self, node):
        path = ROOT / "examples/nodes" / f"{node['name']}.json"
        if not path.exists():
            self.baker.faults.append(f"there is no examples/nodes/{path.name}")
            return None
        return {"path": path, "text": path.read_text(), **document_pictures(self.baker, path, self.nodes, example_views)}


def two_figures(value):
    return f"{value:.1f}" if value < 10 else f"{float(f'{value:.2g}'):,.0f}"


def find_uses(pages, gallery):
    """Puts to each page the nodes that its node is linked with in documents, and the documents that it is in."""
    by_name = {page["name"]: page for page in pages}
    together = {name: Counter() for name in by_name}
    for page in pages:
        page["materials"], page["examples"] = [], []
    documents = [(page, json.loads(page["example"]["text"]), "examples") for page in pages if page["example"]]
    documents += [(material, json.loads(material["text"]), "materials") for material in gallery]
    for source, document, kind in documents:
        types = {name: last_word(node["type"]) for name, node in document["nodes"].items()}
        for used in sorted(set(types.values()) & by_name.keys() - {source["name"]}):
            by_name[used][kind].append(source)
        links = {(types.get(link), types[name]) for name, node in document["nodes"].items() for link in linked(node)}
        for a, b in links:
            if a != b and a in together and b in together:
                together[a][b] += 1
                together[b][a] += 1
    for page in pages:
        best = sorted(together[page["name"]].items(), key=lambda pair: (-pair[1], pair[0]))[:COMPANIONS]
        page["companions"] = [by_name[name] for name, _ in best]


def linked(value):
    """The names of the nodes that links lead to."""
    if isinstance(value, dict):
        if isinstance(value.get("from"), str):
            yield value["from"].split(".")[0]
        for member in value.values():
            yield from linked(member)
    elif isinstance(value, list):
        for element in value:
            yield from linked(element)


def types_in(document):
    return [last_word(node["type"]) for node in document["nodes"].values()]


def output_types(document, nodes):
    """Name to type of the outputs that a document states."""
    types = {}
    for name, place in document.get("outputs", {}).items():
        node, port = (place["from"] if isinstance(place, dict) else place).split(".", 1)
        ports = nodes.get(last_word(document["nodes"][node]["type"]), {"ports": []})["ports"]
        types[name] = next((p["type"] for p in ports if p["direction"] == "out" and p["name"] == port), "ColorA")
    return types


def channels(document):
    """What a material's layers are given by links."""
    found = []
    for number_, layer in enumerate(document.get("material", {}).get("bsdflayers", []), 1):
        node = document["nodes"][layer["bsdflayer"]["from"].split(".")[0]]
        found += [f"layer{number_}.{name}" for name, value in node.get("inputs", {}).items() if isinstance(value, dict)]
    return found


def document_pictures(baker, path, nodes, views):
    """Pictures of what a document gives, or its values where it gives no pictures.

    `views` chooses by the names of the outputs, and whether they depend on the view: name, size and shape of each.
    """
    document = json.loads(path.read_text())
    place = path.relative_to(ROOT).as_posix()
    types = {**output_types(document, nodes), **dict.fromkeys(channels(document), "Color")}
    names = [name for name, type_ in types.items() if type_ in PICTURES]
    if not names or "length" in types:
        return {"values": baker.evaluate(path, place), "pictures": []}
    is_seen = bool(SEEN_FROM_A_SIDE.intersection(types_in(document)))
    return {"values": None, "pictures": [
        {"output": name, "shape": shape, "picture": baker.bake(path, place, size, shape, output=name,
                                                                 supersample=2 if name == names[0] else 1)}
        for name, size, shape in views(names, is_seen)]}


def example_views(names, is_seen):
    shown = names if names[0].startswith("layer1.") else names[:1]
    return [(name, SIZE, "sphere" if is_seen else "plane") for name in shown]


def material_views(names, is_seen):
    """The first output large, on the sphere too where that matters; the others small beside it."""
    first = [(names[0], MATERIAL, "plane")] + ([(names[0], MATERIAL, "sphere")] if is_seen else [])
    return first + [(name, SIZE, "plane") for name in names[1:]]


def grouped(pages):
    """The pages by category; one that is not known here comes last under its own name."""
    known = list(CATEGORIES)
    found = sorted({page["category"] for page in pages}, key=lambda c: known.index(c) if c in known else len(known))
    return [{"id": category.lower(), "title": CATEGORIES.get(category, (category, ""))[0],
             "help": CATEGORIES.get(category, ("", ""))[1],
             "pages": sorted((p for p in pages if p["category"] == category), key=lambda p: p["label"].lower())}
            for category in found]


