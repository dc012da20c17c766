"""Node graphs as textures and shading values.

>>> import velto
>>> graph = velto.load("marble.json", set={"cloud.octaves": 6})
>>> picture = graph.bake(size=(1024, 512), supersample=2)["color"]   # float32, (512, 1024, 4)
>>> values = graph.sample(u, v)["color"]                             # float64, the shape of u and v, and 4
>>> velto.write("marble.exr", picture)

Warnings are of the category ``VeltoWarning``; what nodes log goes to the logger ``velto``. Graphs work in processes
that are forked while no other thread is at work in this package, on one thread there; a process that is forked
meanwhile is told so by a RuntimeError.
"""

from ._velto import __version__
from .errors import Diagnostic, DocumentError, EvaluationError, VeltoWarning
from .graph import Document, Graph, Input, Output, load, parse
from .nodes import Node, Port, node, nodes
from .pictures import write

__all__ = ["Diagnostic", "Document", "DocumentError", "EvaluationError", "Graph", "Input", "Node", "Output", "Port",
           "VeltoWarning", "__version__", "load", "node", "nodes", "parse", "write"]
