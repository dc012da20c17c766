"""What a document may use: node types, described."""

from __future__ import annotations

import dataclasses
import difflib
import functools
from collections.abc import Mapping
from typing import Any

from . import _velto


@dataclasses.dataclass(frozen=True)
class Port:
    """An input or an output of a node type."""

    name: str
    type: str
    """``Float``, ``ColorA``, ...; ``bundle`` for a list of objects."""
    label: str
    help: str = ""
    default: Any = None
    """What an input holds that a document leaves out; None: zero, false or empty."""
    minimum: float | None = None
    """The least usual value; others work too."""
    maximum: float | None = None
    values: tuple[str, ...] = ()
    """What an enumeration knows."""
    variadic: bool = False
    """Whether it takes a list."""
    members: tuple[Port, ...] = ()
    """Of a bundle: what its objects hold."""


@dataclasses.dataclass(frozen=True)
class Node:
    """A node type."""

    id: str
    name: str
    """What a document may call it: the last word of the id."""
    label: str
    category: str
    help: str
    inputs: Mapping[str, Port]
    outputs: Mapping[str, Port]


def _port(described: dict[str, Any]) -> Port:
    return Port(
        name=described["name"], type=described["type"], label=described["label"], help=described.get("help", ""),
        default=described.get("default"), minimum=described.get("min"), maximum=described.get("max"),
        values=tuple(described.get("values", ())), variadic=described.get("variadic", False),
        members=tuple(_port(member) for member in described.get("members", ())))


def _node(described: dict[str, Any]) -> Node:
    ports = {direction: {port["name"]: _port(port) for port in described["ports"] if port["direction"] == direction}
             for direction in ("in", "out")}
    return Node(described["id"], described["name"], described["label"], described["category"], described["help"],
                ports["in"], ports["out"])


@functools.cache
def _all() -> dict[str, Node]:
    return {node.name: node for node in map(_node, _velto.nodes())}


def nodes() -> list[Node]:
    """All described node types, in the order of the module that brings them."""
    return list(_all().values())


def node(name: str) -> Node:
    """A node type by its id or the last word of it. Raises a KeyError that says what is near."""
    by_name = _all()
    found = by_name.get(name) or next((each for each in by_name.values() if each.id == name), None)
    if found is None:
        near = difflib.get_close_matches(name, by_name, 1)
        raise KeyError(f"there is no node {name!r}" + (f"; did you mean {near[0]!r}?" if near else ""))
    return found
