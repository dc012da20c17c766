"""Pages of reference that are written from what they describe: the schema, the command, headers, docstrings."""
import ast
import json
import re
import subprocess
from pathlib import Path

from guides import Guide
from pictures import ROOT

HERE = Path(__file__).resolve().parent
VALUES = {  # of each type, one as it stands in a document
    "Float": "0.5", "Int": "8", "Int32": "8", "UInt32": "8", "Bool": "true", "ColorA": "[0.8, 0.2, 0.1, 1]",
    "Color": "[0.8, 0.2, 0.1]", "Vector2d": "[4, 4]", "Vector": "[0, 0, 1]", "Vector4d": "[0, 0, 1, 1]",
    "Id": '"net.velto.node.if"', "InternedId": '"repeat"', "TimeValue": "1.5", "RenderMode": "0", "String": '"front"',
    "Url": '"wood.png"', "LayerSet": '"diffuse"', "DataDictionary": '{ "count": 40 }', "ShadingContext": None,
}


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ")


def code(text):
    return f"`{cell(text)}`"


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


class Format:
    """The format of documents, by its schema; every key stands in one document that is read like any other."""

    def __init__(self, baker):
        self.schema = json.loads(baker.run("schema", place="velto schema"))
        self.path = HERE / "format.json"
        self.baker = baker
        baker.run("check", self.path, "--library", self.path.parent, place=self.path.relative_to(ROOT).as_posix())
        self.document = json.loads(self.path.read_text())

    def resolved(self, part):
        """What a reference refers to, with what is said beside it."""
        if "$ref" in part:
            target = self.schema["$defs"][part["$ref"].rsplit("/", 1)[1]]
            part = {**self.resolved(target), **{key: value for key, value in part.items() if key != "$ref"}}
        return part

    def form(self, part):
        """What a value looks like, in words."""
        part = self.resolved(part)
        if "const" in part:
            return code(json.dumps(part["const"]))
        if "enum" in part:
            return ", ".join(code(str(value)) for value in part["enum"])
        if "if" in part:
            forms = [self.form(part["then"]), self.form(part["else"])]
            if part["then"].get("enum") == ["nan", "inf", "-inf"]:
                return forms[1]
            return " or ".join(form for form in forms if form != "any value")
        if "prefixItems" in part:
            return f"{len(part['prefixItems'])} numbers"
        if part.get("type") == "integer":
            low, high = part["minimum"], part["maximum"]
            return f"a whole number, {code(str(low))} to {code(str(high))}"
        if "from" in part.get("properties", {}) and "parameter" in part["properties"]:
            return "a [link](#links)"
        names = {"string": "a text", "number": "a number", "boolean": "`true` or `false`", "array": "an array",
                 "object": "an object"}
        kinds = part.get("type", [])
        kinds = [kinds] if isinstance(kinds, str) else kinds
        return " or ".join(names[kind] for kind in kinds) or "any value"

    def example(self, key, objects):
        for value in objects:
            if isinstance(value, dict) and key in value:
                text = json.dumps(value[key], ensure_ascii=False)
                if len(text) > 90 and isinstance(value[key], dict):
                    name, member = next(iter(value[key].items()))
                    text = json.dumps({name: member}, ensure_ascii=False)[:-1] + ", ...}"
                return code(f'"{key}": {text}')
        self.baker.faults.append(f"{self.path.name}: nothing has the key {key}")
        return ""

    def keys(self, part, objects, required=()):
        objects = list(objects)
        rows = []
        for key, member in self.resolved(part)["properties"].items():
            member = self.resolved(member)
            needed = " (required)" if key in required or key in part.get("required", []) else ""
            limit = f", at most {member['maxProperties']:,}" if "maxProperties" in member else ""
            rows.append([code(key), cell(self.form(member) + limit + needed), cell(member.get("description", "")),
                         self.example(key, objects)])
        return table(["key", "is", "holds", "example"], rows)

    def text(self):
        schema, document = self.schema, self.document
        definitions = schema["$defs"]
        links = list(self.links(document["nodes"]))
        output = definitions["output"]["then"]
        example = json.loads((ROOT / "examples/material.json").read_text())["material"]
        types = [[code(name), self.value_form(name), code(VALUES[name]) if VALUES.get(name) else ""]
                 for name in definitions["parameter"]["properties"]["type"]["enum"]]
        missing = set(definitions["parameter"]["properties"]["type"]["enum"]) - set(VALUES)
        self.baker.faults += [f"references.py: no value of the type {name}" for name in sorted(missing)]
        channels = [[code(key), cell(self.form(member)), self.shown_example(example, key)]
                    for key, member in definitions["material"]["properties"].items() if key != "comment"]
        return f"""# The document's format

Every key of a graph document, what it holds, and one as it stands in a document. `velto schema` prints the same for
editors, with the inputs of every node; [graph documents](documents.md) tells what it means.

This document has all of them:

```json {self.path.name}
{self.path.read_text().rstrip()}
```

## The document

{self.keys(schema, [document])}

## A node

{self.keys(definitions["node"], document["nodes"].values())}

## Links

Where a value may stand, a link may: an object with one of these.

{self.keys(definitions["link"], links)}

## A parameter

{self.keys(definitions["parameter"], document["parameters"].values())}

## An output

The short form is a text: `"NODE.PORT"`. The long one is an object.

{self.keys(output, document["outputs"].values())}

## A material

{table(["channel", "is", "example"], channels)}

## Values

{table(["type", "is written as", "example"], types)}

A number that JSON cannot write is `"nan"`, `"inf"` or `"-inf"`.

## Conversions

Where a link joins ports of different types, the value is converted; a pair that has no mark is a fault.

{self.conversions()}
"""

    def shown_example(self, example, key):
        if key not in example:
            return ""
        return code(f'"{key}": {json.dumps(example[key])}')

    def value_form(self, name):
        for condition in self.schema["$defs"]["parameter"]["allOf"]:
            if condition["if"]["properties"]["type"]["const"] == name:
                return cell(self.form(condition["then"]["properties"]["default"]))
        return "a link only"

    def links(self, value):
        if isinstance(value, dict):
            if "from" in value or "parameter" in value:
                yield value
            for member in value.values():
                yield from self.links(member)
        elif isinstance(value, list):
            for member in value:
                yield from self.links(member)

    def conversions(self):
        """By trying each: a parameter of one type at a port of the other."""
        ports = {}
        for node in json.loads(self.baker.run("nodes", "--json")):
            for port in node["ports"]:
                if port["direction"] == "in" and not port.get("values") and not port.get("members") and \
                        not port.get("variadic") and port["type"] in VALUES and VALUES[port["type"]]:
                    ports.setdefault(port["type"], (node, port["name"]))
        names = [name for name in VALUES if name in ports]
        rows = []
        for source in names:
            row = [code(source)]
            for target in names:
                node, port = ports[target]
                output = next(p["name"] for p in node["ports"] if p["direction"] == "out")
                document = {"version": 1, "parameters": {"it": {"type": source, "default": json.loads(VALUES[source])}},
                            "nodes": {"a": {"type": node["id"], "inputs": {port: {"parameter": "it"}}}},
                            "outputs": {"o": f"a.{output}"}}
                done = subprocess.run([self.baker.velto, "check", "-"], input=json.dumps(document), text=True,
                                      capture_output=True, check=False)
                row.append("•" if done.returncode == 0 else "")
            rows.append(row)
        return table(["from, to"] + [code(name) for name in names], rows)


def cpp_page():
    """The public headers: what each is for, and what it declares for others."""
    listed = re.search(r"set\(public_headers([^)]*)", (ROOT / "host/CMakeLists.txt").read_text()).group(1).split()
    front = re.findall(r'#include "host/([\w/.]+)"', (ROOT / "host/host.h").read_text())
    parts = ["""# The C++ interface

The public headers of the host: what a program that has velto inside may call. `#include <host/host.h>` brings the first
of them, and what they need; [Embed the host in an engine](guides/embed.md) leads through the most of it.
Comments say on which threads a function may be called, where that matters.
"""]
    for title, headers in (("Through the front door", front),
                           ("Further headers", [name for name in listed if name not in front and name != "host.h"])):
        parts.append(f"## {title}\n")
        for name in headers:
            text = (ROOT / "host" / name).read_text()
            head, _, rest = text.partition("#pragma once")
            help_ = " ".join(line.lstrip("/ ") for line in head.strip().splitlines())
            body = re.sub(r"^#include.*\n", "", rest, flags=re.MULTILINE)
            body = re.sub(r"^private:\n.*?^(?=\};|public:|protected:)", "", body, flags=re.MULTILINE | re.DOTALL)
            body = re.sub(r"\n{3,}", "\n\n", body).strip()
            parts.append(f"### host/{name}\n\n{help_}\n\n```cpp\n{body}\n```\n")
    return "\n".join(parts)


def docstring(text):
    """Markdown of a docstring: its sections are lists of what has a name."""
    lines, result, in_section = text.splitlines(), [], False
    for line in lines:
        section = re.fullmatch(r"(Args|Returns|Raises|Attributes|Yields):", line)
        entry = re.fullmatch(r"    (\S.*)", line)
        if section:
            in_section = section.group(1)
            result += ["", f"**{in_section}**", ""]
        elif in_section and entry and in_section != "Returns":
            name, colon, help_ = entry.group(1).partition(": ")
            names = ", ".join(f"`{part.strip()}`" for part in name.split(","))
            result.append(f"- {names}: {help_}" if colon else f"- {entry.group(1)}")
        elif in_section:
            if line.strip():
                result.append(("  " if in_section != "Returns" else "") + line.strip())
        else:
            result.append(line)
    return re.sub(r"``(.+?)``", r"`\1`", "\n".join(result))


def python_page():
    """The names that the package exports, by their docstrings."""
    folder = ROOT / "python/velto"
    package = ast.parse((folder / "__init__.py").read_text())
    exported = next(ast.literal_eval(node.value) for node in package.body
                    if isinstance(node, ast.Assign) and node.targets[0].id == "__all__")
    found = {}
    for path in sorted(folder.glob("*.py")):
        for node in ast.parse(path.read_text()).body:
            if isinstance(node, (ast.ClassDef, ast.FunctionDef)) and node.name in exported:
                found[node.name] = node

    def signature(node, owner=""):
        arguments = ast.unparse(node.args)
        arguments = re.sub(r"^self(, )?", "", arguments)
        returns = f" -> {ast.unparse(node.returns)}" if node.returns else ""
        text = f"{owner}{node.name}({arguments}){returns}"
        if len(text) > 100:
            text = text.replace(", ", ",\n    ") if "[" not in arguments else re.sub(r", (?=\w+: |\*)", ",\n    ", text)
        return f"```py\n{text}\n```\n"

    intro = ast.get_docstring(package).split("\n\n")
    parts = [f"# The Python interface\n\nThe package `velto`: {intro[0][0].lower()}{intro[0][1:]} "
             "[velto in Python](guides/python.md) leads through it.\n\n" + docstring(intro[-1]) + "\n"]
    functions = [name for name in exported if isinstance(found.get(name), ast.FunctionDef)]
    classes = [name for name in exported if isinstance(found.get(name), ast.ClassDef)]
    for name in functions:
        parts.append(f"## {name}\n\n{signature(found[name])}\n{docstring(ast.get_docstring(found[name]) or '')}\n")
    for name in classes:
        node = found[name]
        parts.append(f"## {name}\n\n{docstring(ast.get_docstring(node) or '')}\n")
        fields = [member for member in node.body if isinstance(member, ast.AnnAssign)]
        if fields:
            parts.append("```py\n" + "\n".join(ast.unparse(field) for field in fields) + "\n```\n")
        for member in node.body:
            if isinstance(member, ast.FunctionDef) and ast.get_docstring(member) and \
                    (not member.name.startswith("_") or member.name in ("__getitem__", "__setitem__")):
                is_property = any(isinstance(d, ast.Name) and d.id == "property" for d in member.decorator_list)
                title = f"{name}.{member.name}"
                shown = f"```py\n{name}.{member.name}: {ast.unparse(member.returns)}\n```\n" \
                    if is_property and member.returns else signature(member, f"{name}.")
                parts.append(f"### {title}\n\n{shown}\n{docstring(ast.get_docstring(member))}\n")
    return "\n".join(parts)


def pages(baker):
    """Guides without a file of their own."""
    texts = {"document-format": Format(baker).text(),
             "command-line": baker.run("manual", "--format", "markdown", place="velto manual"),
             "cpp": cpp_page(), "python-interface": python_page()}
    return [Guide(ROOT / f"docs/{stem}.md", baker, text=text) for stem, text in texts.items()]
