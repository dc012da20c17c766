#!/usr/bin/env python3
"""Checks what no compiler and no formatter sees.

    tools/lint.py                     text, includes, descriptions, examples
    tools/lint.py --command velto     also: every core node is described, every description is taken
    tools/lint.py --headers           also: every header compiles alone
"""
import argparse
import concurrent.futures
import json
import os
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CODE = (".h", ".cpp", ".py", ".sh", ".cmake", ".ts", ".svelte")
HOUSES = ("include", "module", "toolkit", "host", "cli", "editor", "test", "bench", "python",
          "examples", "tools", "docs", "cmake")
MODULES = ("module", "toolkit")  # houses that are loaded
faults = []


def fault(place, text):
    faults.append(f"{place}: {text}")


def name(path):
    return path.relative_to(ROOT).as_posix()


def files(*houses, suffixes):
    found = (p for house in houses for p in (ROOT / house).rglob("*") if p.suffix in suffixes and p.is_file()
             and "node_modules" not in p.parts)
    return sorted(found)


def check_text():
    top = [p for p in ROOT.iterdir() if p.is_file() and (p.suffix in (".md", ".json", ".txt") or p.name == "dev")]
    lists = [p for p in files(*HOUSES, suffixes=(".txt",)) if p.name == "CMakeLists.txt"]
    for path in top + lists + files(*HOUSES, suffixes=CODE + (".md", ".json")):
        lines = path.read_text().splitlines()
        for number, line in enumerate(lines, 1):
            if "\t" in line:
                fault(f"{name(path)}:{number}", "a tab")
            if line != line.rstrip():
                fault(f"{name(path)}:{number}", "a space at the end")
            # Texts are not broken, nor is what continues a macro moved.
            if len(line.rstrip("\\ ")) > 120 and path.suffix not in (".md", ".json") and '"' not in line:
                fault(f"{name(path)}:{number}", "more than 120 columns")


def includes(path):
    return re.findall(r'^\s*#include ["<]([^">]+)[">]', path.read_text(), re.MULTILINE)


def check_includes():
    public = set(re.findall(r"[\w/]+\.h", re.search(r"set\(public_headers([^)]*)", (ROOT / "host/CMakeLists.txt")
                                                    .read_text()).group(1)))
    for house, banned in (("include", ("host/", "module/", "toolkit/", "cli/")),
                          ("module", ("host/", "toolkit/", "cli/", "test/")),
                          ("toolkit", ("host/", "module/", "cli/", "test/")),
                          ("host", ("module/", "toolkit/", "cli/", "test/")), ("cli", ("module/", "toolkit/", "test/")),
                          ("python", ("module/", "toolkit/", "cli/", "test/"))):
        for path in files(house, suffixes=(".h", ".cpp")):
            for included in includes(path):
                target = ROOT / included
                if not target.exists():
                    beside = (path.parent / included).resolve()
                    target = beside if beside.exists() and beside.is_relative_to(ROOT) else target
                relative = target.relative_to(ROOT).as_posix()
                if relative.startswith(banned):
                    fault(name(path), f"{house} must not include {relative}")
                is_host = relative.startswith("host/") and relative[5:] not in public
                if is_host and (house in ("cli", "python") or name(path)[5:] in public):
                    fault(name(path), f"{relative} is no public header")
                if name(path)[5:] in public and re.match(r"(fmt|spdlog|nlohmann|tbb|oneapi|OpenImageIO|hwy)/", included):
                    fault(name(path), f"a public header includes <{included}>")


# What lies in a folder of `host/` includes its own folder and those before it.
HOST_ORDER = ("system", "text", "math", "registry", "corenode", "picture", "decode", "noise", "texture", "blend",
              "graph", "runtime", "fuse", "bake", "loader")


def check_host_order():
    graph = {}
    for path in files("host", suffixes=(".h", ".cpp")):
        found = [path.parent / included if (path.parent / included).exists() else ROOT / included
                 for included in includes(path)]
        graph[path] = [target for target in found if target.exists() and target.is_relative_to(ROOT / "host")]
        folder = path.parent.name
        if folder == "host":
            continue
        if folder not in HOST_ORDER:
            fault(name(path), f"host/{folder} has no place in HOST_ORDER of tools/lint.py")
            continue
        for target in graph[path]:
            other = target.parent.name
            if other not in HOST_ORDER or HOST_ORDER.index(other) > HOST_ORDER.index(folder):
                fault(name(path), f"host/{folder} comes before {name(target)} and must not include it")
    # A header and its source are one: `a.cpp` may use `b.h` only where nothing of b uses a.
    units = {}
    for path, targets in graph.items():
        unit = units.setdefault(path.with_suffix(""), set())
        unit.update(target.with_suffix("") for target in targets if target.stem != path.stem)
    seen = {}

    def visit(unit, road):
        if seen.get(unit) == "done":
            return
        if unit in road:
            cycle = road[road.index(unit):] + [unit]
            fault(name(unit), "a cycle of includes: " + ", ".join(part.stem for part in cycle))
            return
        for target in sorted(units.get(unit, ())):
            visit(target, road + [unit])
        seen[unit] = "done"

    for unit in sorted(units):
        visit(unit, [])


def check_readme():
    shown = re.search(r"```json\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)
    if shown.group(1) != (ROOT / "examples/demo.json").read_text():
        fault("README.md", "its first graph is not examples/demo.json")


def check_troubleshooting():
    """The page quotes messages: what stands between its dots is in the sources."""
    page = ROOT / "docs/guides/troubleshooting.md"
    sources = "".join(p.read_text() for p in files("host", "cli", "module", "editor", suffixes=(".h", ".cpp")))
    literals = re.sub(r'"\s*\n\s*"', "", sources).replace('\\"', '"').replace("{{", "{").replace("}}", "}")
    for row in re.findall(r"^\| (.*?) \|", page.read_text(), re.MULTILINE):
        for quoted in re.findall(r"`([^`]+)`", row):
            for piece in filter(None, (p.strip(' "') for p in re.split(r'\.\.\.|"', quoted))):
                if piece not in literals:
                    fault(name(page), f'nothing says "{piece}"')


def check_port(place, port, is_input):
    for member in port.get("bundle", []):
        check_port(f"{place}.{port['name']}", member, is_input)
    place = f"{place}: {port['name']}"
    if not port.get("label"):
        fault(place, "no label")
    if "default" not in port and "values" in port:
        fault(place, "no default")
    if not is_input or "values" not in port:
        return
    ids = [value["id"] for value in port["values"]]
    if len(set(ids)) != len(ids):
        fault(place, "a value stands twice")
    if "default" in port and port["default"] not in ids:
        fault(place, f"the default {port['default']!r} is none of the values")
    if not all(value.get("label") for value in port["values"]):
        fault(place, "a value without a label")


def whole_description(path):
    """A description with the lists that it includes."""
    def items(name):
        return json.loads((path.parent / "lists" / f"{name}.json").read_text())

    def ports(described):
        for port in described:
            for included in items(port["include"]) if "include" in port else ():
                default = port.get("defaults", {}).get(included["name"], included.get("default"))
                yield {**included, "default": default}
            if "include" in port:
                continue
            if isinstance(port.get("values"), str):
                port["values"] = items(port["values"])
            if "bundle" in port:
                port["bundle"] = list(ports(port["bundle"]))
            yield port

    text = json.loads(path.read_text())
    text["inputs"] = list(ports(text["inputs"]))
    return text


def check_descriptions(command):
    described = {}
    core_used = set()
    values = set()
    for path in files(*(f"{module}/resource" for module in MODULES), suffixes=(".json",)):
        if path.parent.name == "lists":
            continue
        text = whole_description(path)
        described[text["id"]] = path
        if text["id"].rsplit(".", 1)[-1] != path.stem:
            fault(name(path), f"the file of {text['id']} is named after its last word")
        core_used.update(inner["type"] for inner in text["nodes"].values())
        for port in text["inputs"]:
            check_port(name(path), port, True)
            for shown in [port] + port.get("bundle", []):
                values.update(value["id"] for value in shown.get("values", []))
        for port in text["outputs"]:
            check_port(name(path), port, False)
        example = ROOT / "examples/nodes" / path.name
        if not example.exists():
            fault(name(path), f"there is no {name(example)}")
        elif path.stem not in (node["type"] for node in json.loads(example.read_text())["nodes"].values()):
            fault(name(example), f"shows no {path.stem}")
    for path in files(*(f"{module}/source" for module in MODULES), suffixes=(".cpp",)):
        source = path.read_text()
        for known in re.findall(r'VELTO_INTERNED_ID\(\w+, "([^"]+)"\)', source):
            if "VELTO_CORE_NODE" in source and known not in values:
                fault(name(path), f"no description offers the value {known!r}")
    if not command:
        return

    def ask(*arguments):
        return {entry["id"] for entry in json.loads(subprocess.check_output([command, "nodes", "--json", *arguments]))}

    for core in sorted(ask("--core") - core_used):
        if "." in core:  # else it is a second name
            fault("resource", f"no description uses {core}")
    for missing in sorted(described.keys() - ask()):
        fault(name(described[missing]), f"the command does not list {missing}")


def check_headers():
    compiler = os.environ.get("CXX", "g++")
    llvm = Path("/usr/lib/llvm-16/include")  # which not everybody has

    def compile_alone(path):
        done = subprocess.run([compiler, "-std=c++20", "-fsyntax-only", "-x", "c++", f"-I{ROOT}/include", f"-I{ROOT}",
                               f"-isystem{llvm}", str(path)], capture_output=True, text=True, check=False)
        errors = [line for line in done.stderr.splitlines() if "error" in line]
        return path, errors[:1] if done.returncode else []

    headers = [path for path in files("include", *MODULES, "host", "cli", suffixes=(".h",))
               if llvm.exists() or path.parent != ROOT / "host/fuse"]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for path, errors in pool.map(compile_alone, headers):
            for error in errors:
                fault(name(path), f"does not compile alone: {error}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--command", help="the velto command, with its module")
    parser.add_argument("--headers", action="store_true")
    arguments = parser.parse_args()
    check_text()
    check_includes()
    check_host_order()
    check_readme()
    check_troubleshooting()
    check_descriptions(arguments.command)
    if arguments.headers:
        check_headers()
    print("\n".join(faults), file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
