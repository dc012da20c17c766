"""What can go wrong, and what is worth a warning."""

from __future__ import annotations

import dataclasses
from collections.abc import Sequence
from typing import Literal


@dataclasses.dataclass(frozen=True)
class Diagnostic:
    """One thing that is wrong with a document, or unusual."""

    place: str
    """Where in the document: ``nodes.wood.inputs.scale``. Empty: all of it."""
    text: str
    severity: Literal["error", "warning"]
    file: str
    """Empty: the document has none."""


class DocumentError(ValueError):
    """A document, or a value given for one of its inputs, is wrong.

    ``diagnostics`` holds all faults and warnings; the message is that of the first fault.
    """

    def __init__(self, text: str, diagnostics: Sequence[Diagnostic] = ()) -> None:
        super().__init__(text)
        self.diagnostics: tuple[Diagnostic, ...] = tuple(diagnostics)


class EvaluationError(RuntimeError):
    """A graph could not be evaluated.

    Attributes:
        kind: The error's id, such as ``net.velto.error.illegalstate``.
        node: The name of the node at fault, or None.
        sample: The index of the first sample that failed, as if all were in one row; None where it was no sample.
        pixel: Of a bake, the x and y of that sample in the whole picture; else None.
    """

    def __init__(self, text: str, kind: str, node: str | None = None, sample: int | None = None,
                 pixel: tuple[int, int] | None = None) -> None:
        super().__init__(text)
        self.kind = kind
        self.node = node
        self.sample = sample
        self.pixel = pixel


class VeltoWarning(UserWarning):
    """Something unusual in a document, or met while it was evaluated, such as a picture that is not there."""
