"""Graphs: documents that are read, sampled and baked."""

from __future__ import annotations

import dataclasses
import operator
import os
from collections.abc import Callable, Iterable, Mapping
from typing import Any, Literal, NoReturn, SupportsIndex

import numpy as np
import numpy.typing as npt

from . import _velto

Document = Mapping[str, Any]
Array = npt.ArrayLike


@dataclasses.dataclass(frozen=True)
class Input:
    """An input that a document gives by value, or a parameter of the document."""

    name: str
    """``NODE.PORT``, ``NODE.PORT[2]`` for an element of a list, or the parameter's name."""
    type: str
    value: Any
    """A number, a tuple of numbers, or a text; None: a parameter that no node takes."""
    values: tuple[str, ...] = ()
    """What an enumeration knows."""


@dataclasses.dataclass(frozen=True)
class Output:
    """An output of a document."""

    name: str
    type: str
    numbers: int
    """How many numbers a value consists of: the last axis in what ``sample`` gives; 0: it is none."""
    channels: int
    """How many channels it has in a picture; 0: it is no picture."""


def _index(name: str, value: SupportsIndex) -> int:
    try:
        return operator.index(value)
    except TypeError:
        raise ValueError(f"{name}: expected a whole number, got {value!r}") from None


def _size(size: SupportsIndex | tuple[SupportsIndex, SupportsIndex]) -> tuple[int, int]:
    if isinstance(size, SupportsIndex):
        side = _index("size", size)
        return side, side
    try:
        width, height = size
    except (TypeError, ValueError):
        raise ValueError(f"size: expected a number or (width, height), got {size!r}") from None
    return _index("size", width), _index("size", height)


def _threads(threads: SupportsIndex | None) -> int:
    count = 0 if threads is None else _index("threads", threads)
    if threads is not None and not 1 <= count <= 1024:
        raise ValueError(f"threads: expected 1 to 1024, got {count}")
    return count


def _names(outputs: Iterable[str] | str | None) -> list[str] | None:
    return None if outputs is None else [outputs] if isinstance(outputs, str) else list(outputs)


def _paths(paths: Iterable[str | os.PathLike[str]]) -> list[str]:
    return [os.fspath(path) for path in ([paths] if isinstance(paths, (str, os.PathLike)) else paths)]


class Graph:
    """A document as a graph that can be sampled and baked. ``load`` and ``parse`` make it.

    ``graph["cloud.octaves"]`` is an input that the document gives by value; assigning it computes again what depends
    on it, when that is next needed. The document itself is read once: what becomes of its file later changes nothing.

    Any number of threads may sample a graph at once. A bake or a change has it alone, and the others wait. A graph
    cannot be pickled: what is sent to other processes is the document.
    """

    def __init__(self, graph: _velto.Graph, name: str) -> None:
        self._graph = graph
        self._name = name

    def __repr__(self) -> str:
        return f"<velto.Graph {self._name or 'without a file'}, outputs {', '.join(self.outputs)}>"

    def __reduce__(self) -> NoReturn:
        raise TypeError("a velto.Graph cannot be pickled: send its document, and load that in the other process")

    @property
    def inputs(self) -> dict[str, Input]:
        """What can be changed: the inputs that the document gives by value, and its parameters, by name."""
        return {name: Input(name, type_, value, tuple(values or ()))
                for name, type_, value, values in self._graph.inputs()}

    @property
    def outputs(self) -> dict[str, Output]:
        """The outputs of the document, by name."""
        return {each[0]: Output(*each) for each in self._graph.outputs()}

    def __getitem__(self, name: str) -> Any:
        """The value of an input."""
        found = self.inputs.get(name)
        if found is None:
            raise KeyError(f"{name}: the document gives no value for this input")
        return found.value

    def __setitem__(self, name: str, value: Any) -> None:
        """Changes an input. Raises a KeyError where there is none, a DocumentError where it cannot take the value."""
        self.update({name: value})

    def update(self, values: Mapping[str, Any]) -> None:
        """Changes several inputs at once: all of them or, where one is wrong, none."""
        try:
            self._graph.change_inputs(dict(values))
        finally:
            _velto.flush()

    def bake(self, size: SupportsIndex | tuple[SupportsIndex, SupportsIndex] = 1024, *,
             outputs: Iterable[str] | str | None = None, supersample: int = 1, threads: int | None = None,
             crop: tuple[int, int, int, int] | None = None, time: float = 0.0, frame_rate: float = 25.0,
             shape: Literal["plane", "sphere"] = "plane", progress: Callable[[float], object] | None = None,
             ) -> dict[str, npt.NDArray[np.float32]]:
        """Bakes outputs to pictures: the same pixels as the command writes to float files.

        Other threads of Python run meanwhile. An interrupt (Ctrl-C) ends the bake soon and leaves the graph as it was.

        Args:
            size: The width and height of the picture in pixels, or one number for both.
            outputs: The names of those that are wanted. Default: all that are pictures.
            supersample: How many samples along each side of a pixel; a pixel is their mean.
            threads: How many. Default: as many as the process has cores.
            crop: Only this window of the picture: x and y of its upper left corner, width, height, in pixels.
            time: In seconds.
            frame_rate: In frames a second.
            shape: ``plane``: the unit square, v = 0 at the top row. ``sphere``: a unit sphere seen from the front,
                transparent around it.
            progress: Is called on this thread, at most ten times a second, with the share that is done, 0 to 1. What it
                raises ends the bake. It cannot use the graph.

        Returns:
            By the output's name, an array of float32 in C order: (height, width, channels), or (height, width) where
            there is one channel. Row 0 is the top.

        Raises:
            ValueError: An argument is wrong; it is named.
            EvaluationError: A sample fails.
        """
        if shape not in ("plane", "sphere"):
            raise ValueError(f"shape: expected plane or sphere, got {shape!r}")
        window = None if crop is None else tuple(_index("crop", number) for number in crop)
        if window is not None and len(window) != 4:
            raise ValueError(f"crop: expected (x, y, width, height), got {crop!r}")
        try:
            return self._graph.bake(_size(size), _names(outputs), _index("supersample", supersample),
                                    _threads(threads), window, float(time), float(frame_rate), shape == "sphere",
                                    progress)
        finally:
            _velto.flush()

    def sample(self, u: Array | None = None, v: Array | None = None, *, outputs: Iterable[str] | str | None = None,
               threads: int | None = None, uvw: Array | None = None, uvw_plus_du: Array | None = None,
               uvw_plus_dv: Array | None = None, normal: Array | None = None, geometric_normal: Array | None = None,
               second_normal: Array | None = None, shading_normal: Array | None = None,
               sample_position: Array | None = None, sample_position_plus_du: Array | None = None,
               sample_position_plus_dv: Array | None = None, tangent: Array | None = None,
               bitangent: Array | None = None, pixel: Array | None = None, subpixel: Array | None = None,
               time: Array | None = None, frame_rate: Array | None = None, ray_origin: Array | None = None,
               ray_direction: Array | None = None, ray_origin_plus_du: Array | None = None,
               ray_origin_plus_dv: Array | None = None, ray_direction_plus_du: Array | None = None,
               ray_direction_plus_dv: Array | None = None, uvw_valid: bool | None = None,
               tile_mode_u: int | None = None, tile_mode_v: int | None = None, filter_off: bool | None = None,
               ) -> dict[str, npt.NDArray[np.float64]]:
        """Samples outputs at points: arrays in, arrays out.

        All fields are arrays of numbers, or scalars, and are broadcast against each other as numpy does it. Arrays of
        float64 (``pixel``: int64) are read where they lie, whatever their strides; others are converted. No sample
        depends on those before it. Not a number and infinity are values like any other.

        Args:
            u, v: Texture coordinates, of the shape of the samples; for ``uvw`` with w = 0.
            outputs: The names of those that are wanted. Default: all that consist of numbers.
            threads: How many. Default: as many as the process has cores, where there is enough to do.
            uvw: Texture coordinates, of that shape and 3 as a last axis, as all that follows but where it says so.
            uvw_plus_du, uvw_plus_dv: Those of the neighbours along u and v: places, not differences; what lies between
                is filtered. Default: the sample itself, which is not filtered.
            normal: Stands for the three that follow.
            geometric_normal, second_normal, shading_normal: Of unit length.
            sample_position, sample_position_plus_du, sample_position_plus_dv: Points in space.
            tangent, bitangent: Along u and along v, of unit length.
            pixel, subpixel: Whole numbers, and the place within; 2 as a last axis.
            time: Seconds; of the shape of the samples.
            frame_rate: Frames a second; of the shape of the samples.
            ray_origin, ray_direction: The ray that hits the sample.
            ray_origin_plus_du, ray_origin_plus_dv, ray_direction_plus_du, ray_direction_plus_dv: Of the neighbours.
            uvw_valid: Whether there is a texture coordinate; without one generators give their empty result.
            tile_mode_u, tile_mode_v: Outside of 0 to 1: 0 nothing in particular, 1 clamp, 2 repeat, 3 mirror.
            filter_off: Whether the colour treatment of pictures is off.

        Returns:
            By the output's name, an array of float64: the shape of the samples and, for outputs of several numbers,
            these as the last axis.

        Raises:
            ValueError: An argument is wrong; it is named, with what was expected and what came.
            EvaluationError: A sample fails; of several, the first is told.
        """
        given = {
            "u": u, "v": v, "uvw": uvw, "uvw_plus_du": uvw_plus_du, "uvw_plus_dv": uvw_plus_dv, "normal": normal,
            "geometric_normal": geometric_normal, "second_normal": second_normal, "shading_normal": shading_normal,
            "sample_position": sample_position, "sample_position_plus_du": sample_position_plus_du,
            "sample_position_plus_dv": sample_position_plus_dv, "tangent": tangent, "bitangent": bitangent,
            "pixel": pixel, "subpixel": subpixel, "time": time, "frame_rate": frame_rate, "ray_origin": ray_origin,
            "ray_direction": ray_direction, "ray_origin_plus_du": ray_origin_plus_du,
            "ray_origin_plus_dv": ray_origin_plus_dv, "ray_direction_plus_du": ray_direction_plus_du,
            "ray_direction_plus_dv": ray_direction_plus_dv, "uvw_valid": uvw_valid, "tile_mode_u": tile_mode_u,
            "tile_mode_v": tile_mode_v, "filter_off": filter_off}
        try:
            return self._graph.sample(given, _names(outputs), _threads(threads))
        finally:
            _velto.flush()


def _make(document: object, file: str, name: str, settings: Mapping[str, Any] | None, presets: Iterable[str],
          search_paths: Iterable[str | os.PathLike[str]], libraries: Iterable[str | os.PathLike[str]],
          outputs: Iterable[str] | None, render_mode: int, force: bool) -> Graph:
    try:
        made = _velto.Graph(document, file, dict(settings or {}), _names(presets) or [], _paths(search_paths),
                            _paths(libraries), _names(outputs) or [], render_mode, force)
    finally:
        _velto.flush()
    return Graph(made, name)


def load(source: str | os.PathLike[str] | Document, *, set: Mapping[str, Any] | None = None,
         presets: Iterable[str] = (), search_paths: Iterable[str | os.PathLike[str]] = (),
         libraries: Iterable[str | os.PathLike[str]] = (), outputs: Iterable[str] | None = None,
         render_mode: int = 0, force: bool = False) -> Graph:
    """Reads a document from a file, or takes a dict that is one.

    Args:
        source: The file's name, or the document: a dict of what JSON can hold, of numpy's arrays and scalars, of paths.
        set: Other values of inputs and parameters, by ``NODE.PORT`` or the parameter's name.
        presets: The document's presets to apply, in order, before ``set``.
        search_paths: Directories where files are looked for that the document names, before the document's own, and
            before those of the environment variable VELTO_SEARCH_PATH.
        libraries: Directories of documents that go by their names; those of VELTO_LIBRARY follow.
        outputs: Those that are wanted; what only others need is left out. Default: all.
        render_mode: What nodes read as the mode of rendering: 0 to 2.
        force: Sample and bake however much work a sample is. Default: a billion evaluations a sample are refused with
            an EvaluationError that says what takes them, as nothing could interrupt one.

    Raises:
        DocumentError: The document is wrong, or a setting.
        OSError: The file cannot be read.
    """
    if isinstance(source, Mapping):
        return _make(dict(source), "", "", set, presets, search_paths, libraries, outputs, render_mode, force)
    file = os.fspath(source)
    with open(file, encoding="utf-8", errors="surrogateescape") as opened:
        text = opened.read()
    return _make(text.encode("utf-8", "surrogateescape"), file, file, set, presets, search_paths, libraries, outputs,
                 render_mode, force)


def parse(text: str | Document, *, file: str | os.PathLike[str] = "", set: Mapping[str, Any] | None = None,
          presets: Iterable[str] = (), search_paths: Iterable[str | os.PathLike[str]] = (),
          libraries: Iterable[str | os.PathLike[str]] = (), outputs: Iterable[str] | None = None,
          render_mode: int = 0, force: bool = False) -> Graph:
    """Reads a document from a text, or takes a dict that is one.

    Args:
        text: The document.
        file: The file that it stands for: what it names is looked for beside that, and errors tell it.

    The other arguments, and what is raised, are as with ``load``.
    """
    name = os.fspath(file)
    document: object = dict(text) if isinstance(text, Mapping) else text.encode("utf-8")
    return _make(document, name, name, set, presets, search_paths, libraries, outputs, render_mode, force)
