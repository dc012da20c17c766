#!/usr/bin/env python3
"""The schema of documents against the command: what one refuses, the other does.

    schema_test.py --command velto

Examples and the defaults of every node validate, and examples pass a strict check. Documents that are broken in one
place, each in a way that is a fault wherever it stands, do not, and `velto check` refuses them too.
"""
import argparse
import collections
import concurrent.futures
import copy
import json
import random
import subprocess
import sys
import tempfile
from pathlib import Path

try:
    import jsonschema
except ImportError:
    print("skipped: python3-jsonschema is not installed")
    sys.exit(77)

ROOT = Path(__file__).resolve().parent.parent.parent
BROKEN = 200
SEED = 20


def places(value, wanted, path=()):
    """The places in nested values whose value is wanted, as the container and the key."""
    items = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ()
    for key, inner in list(items):
        if wanted(inner):
            yield value, key
        yield from places(inner, wanted, path + (key,))


class Breaker:
    """Ways to break a document; each returns whether it found something to break."""

    def __init__(self, nodes):
        self.types = {}
        for node in nodes:
            ports = {port["name"]: port["type"] for port in node["ports"] if port["direction"] == "in"}
            self.types[node["id"]] = self.types[node["name"]] = ports

    def ways(self):
        return [getattr(self, name) for name in sorted(dir(self)) if name.startswith("break_")]

    def inputs(self, document, chance, *types):
        """An input whose port is of one of the types and whose value stands there; the inputs and its name."""
        found = [(node["inputs"], name) for node in document["nodes"].values() if isinstance(node, dict)
                 for name, value in node.get("inputs", {}).items()
                 if self.types.get(node["type"], {}).get(name) in types and not isinstance(value, (dict, str))]
        return chance.choice(found) if found else None

    def node(self, document, chance):
        return chance.choice([node for node in document["nodes"].values() if isinstance(node, dict)])

    def break_member_missing(self, document, chance):
        names = ["version", "nodes"] + ["outputs"] * ("material" not in document)
        return document.pop(chance.choice(names), None) is not None

    def break_member_unknown(self, document, chance):
        chance.choice([document, self.node(document, chance)])["colour"] = 1
        return True

    def break_version(self, document, chance):
        document["version"] = chance.choice([0, 2, "1", 1.5, None])
        return True

    def break_kind(self, document, chance):
        name = chance.choice(["nodes", "outputs", "parameters", "presets", "ui", "$schema"])
        document[name] = chance.choice([[], 3, True])
        return True

    def break_comment(self, document, chance):
        chance.choice([document, self.node(document, chance)])["comment"] = chance.choice([7, ["a", 1], None])
        return True

    def break_node(self, document, chance):
        document["nodes"][chance.choice(list(document["nodes"]))] = chance.choice([1, "noise", []])
        return True

    def break_node_name(self, document, chance):
        document["nodes"][chance.choice(["1st", "a-b", "", "a.b", "n" * 257])] = {"type": "noise"}
        return True

    def break_type(self, document, chance):
        self.node(document, chance)["type"] = chance.choice(["nose", "", 5, "net.velto.nothing", None])
        return True

    def break_type_missing(self, document, chance):
        return self.node(document, chance).pop("type") is not None

    def break_input_name(self, document, chance):
        inputs = self.node(document, chance).get("inputs", {})
        if not inputs:
            return False
        name = chance.choice(list(inputs))
        inputs[name + "x"] = inputs.pop(name)
        return True

    def break_inputs(self, document, chance):
        self.node(document, chance)["inputs"] = chance.choice([[], 1, "a"])
        return True

    def break_arguments(self, document, chance):
        self.node(document, chance)["arguments"] = chance.choice([[], 1, {"nothing": 1}])
        return True

    def break_number(self, document, chance):
        found = self.inputs(document, chance, "Float", "FloatFunction")
        if found:
            found[0][found[1]] = chance.choice(["text", True, [1], None, {}, {"form": "a.b"}])
        return bool(found)

    def break_whole_number(self, document, chance):
        found = self.inputs(document, chance, "Int", "Int32", "UInt32")
        if found:
            found[0][found[1]] = chance.choice([0.5, 1e19, "1", False])
        return bool(found)

    def break_switch(self, document, chance):
        found = self.inputs(document, chance, "Bool", "BoolFunction")
        if found:
            found[0][found[1]] = chance.choice([0, 1, "true", []])
        return bool(found)

    def break_components(self, document, chance):
        found = self.inputs(document, chance, "ColorA", "Color", "Vector", "Vector2d", "Vector4d", "ColorAFunction")
        if found:
            given = found[0][found[1]]
            found[0][found[1]] = chance.choice([given + [1], given[:-1], given[:-1] + ["x"], 1, "red"])
        return bool(found)

    def break_link(self, document, chance):
        links = list(places(document["nodes"],
                            lambda value: isinstance(value, dict) and isinstance(value.get("from"), str)))
        if not links:
            return False
        container, key = chance.choice(links)
        link = container[key]
        container[key] = chance.choice([{"from": link["from"].split(".")[0]}, {**link, "port": "x"}, {"from": 1},
                                        {"to": link["from"]}, {**link, "parameter": "x"}])
        return True

    def break_element(self, document, chance):
        bundles = list(places(document["nodes"], lambda value: isinstance(value, dict) and "position" in value))
        if not bundles:
            return False
        container, key = chance.choice(bundles)
        if chance.random() < 0.5:
            container[key]["postion"] = container[key].pop("position")
        else:
            container[key] = 0.5
        return True

    def break_output(self, document, chance):
        if not document.get("outputs"):
            return False
        name = chance.choice(list(document["outputs"]))
        given = document["outputs"][name]
        source = given if isinstance(given, str) else given["from"]
        document["outputs"][name] = chance.choice([1, {}, {"from": source, "encoding": "srgb"}, "nowhere",
                                                   {"from": source, "depth": 16}, {"from": source, "bits": 8},
                                                   {"from": source, "encoding": "data", "colorspace": "srgb"}])
        return True

    def break_output_name(self, document, chance):
        if not document.get("outputs"):
            return False
        names = list(document["outputs"])
        document["outputs"][chance.choice(["", "1st", "../a", "a b", ".a", "a."])] = document["outputs"][names[0]]
        return True

    def break_parameter(self, document, chance):
        document["parameters"] = chance.choice([
            {"p": {"type": "Flaot", "default": 1}}, {"p": {"type": "Float"}}, {"p": {"default": 1}},
            {"p": {"type": "Float", "default": "x"}}, {"p.q": {"type": "Float", "default": 1}}, {"p": 1},
            {"p": {"type": "Float", "default": 1, "min": "0"}}, {"p": {"type": "Color", "default": [1, 1]}},
            {"p": {"type": "Int", "default": 1, "step": 1}}, {"p": {"type": "Id", "default": "a", "values": "a"}}])
        return True

    def break_preset(self, document, chance):
        document["presets"] = chance.choice([{"a.b": {}}, {"a": 1}, {"a": []}])
        return True

    def break_material(self, document, chance):
        if "material" not in document:
            return False
        material = document["material"]
        chance.choice([lambda: material.pop("bsdflayers"), lambda: material.update(bsdflayers=[]),
                       lambda: material.update(colour=[1, 1, 1]), lambda: material.update(ior="x"),
                       lambda: material["bsdflayers"][0].pop("bsdflayer"),
                       lambda: material.update(aovs=[{"color": [1, 1, 1]}])])()
        return True


def broken_documents(examples, nodes):
    chance = random.Random(SEED)
    ways = Breaker(nodes).ways()
    known = set()
    made = []
    while len(made) < BROKEN:
        way = ways[len(known) % len(ways)] if len(known) < 3 * len(ways) else chance.choice(ways)
        path = chance.choice(list(examples))
        document = copy.deepcopy(examples[path])
        if not way(document, chance):
            continue
        text = json.dumps(document)
        if text not in known:
            known.add(text)
            made.append((way.__name__.removeprefix("break_"), path, document))
    return made


def with_defaults(node):
    # That of a port with elements which arguments name is the default of each.
    inputs = {port["name"]: port["default"] for port in node["ports"] if port["direction"] == "in"
              and port["default"] is not None and (port["type"] == "bundle" or not port.get("variadic"))}
    return {"version": 1, "nodes": {"n": {"type": node["id"], "inputs": inputs}}, "outputs": {"o": "n.result"}}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--command", required=True, help="the velto command")
    command = parser.parse_args().command
    schema = json.loads(subprocess.check_output([command, "schema"]))
    nodes = json.loads(subprocess.check_output([command, "nodes", "--json"]))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    faults = []

    examples = {}
    for path in sorted((ROOT / "examples").rglob("*.json")):
        document = json.loads(path.read_text())
        if "version" in document:
            examples[path] = document
    for path, document in examples.items():
        for error in validator.iter_errors(document):
            faults.append(f"{path.relative_to(ROOT)}: {error.json_path}: {error.message[:200]}")
    for node in nodes:
        for error in validator.iter_errors(with_defaults(node)):
            faults.append(f"the defaults of {node['id']}: {error.json_path}: {error.message[:200]}")

    # But for the pictures that a script makes.
    for path in examples:
        said = subprocess.run([command, "check", "--strict", path], capture_output=True, text=True, check=False).stderr
        faults += [line for line in said.splitlines() if "no such file in" not in line]

    with tempfile.TemporaryDirectory() as folder:
        def check(number, path, document):
            file = Path(folder) / f"{number}.json"
            file.write_text(json.dumps(document))
            return subprocess.run([command, "check", file, "--search-path", path.parent], capture_output=True,
                                  check=False).returncode

        broken = broken_documents(examples, nodes)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            statuses = list(pool.map(lambda each: check(each[0], *each[1][1:]), enumerate(broken)))
    for (way, path, document), status in zip(broken, statuses):
        place = f"{path.relative_to(ROOT)}, broken by {way}"
        if validator.is_valid(document):
            faults.append(f"{place}: validates: {json.dumps(document)[:400]}")
        if status != 2:
            faults.append(f"{place}: the check ends with {status}: {json.dumps(document)[:400]}")
    for way, count in collections.Counter(way for way, _, _ in broken).items():
        print(f"{count:3} broken by {way}")
    print(f"{len(examples)} examples, {len(nodes)} nodes, {len(broken)} broken documents, {len(faults)} faults")
    print("\n".join(faults), file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
