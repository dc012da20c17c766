"""From the host's lines to Python's warnings and logs."""

from __future__ import annotations

import logging
import os
import sys
import warnings

from .errors import VeltoWarning

_logger = logging.getLogger("velto")
_package = os.path.dirname(__file__)


def _stack_level() -> int:
    """That of the innermost caller outside of this package, as ``warnings.warn`` counts from its caller."""
    level = 1
    frame = sys._getframe(1)
    while frame.f_back is not None and os.path.dirname(frame.f_code.co_filename) == _package:
        frame = frame.f_back
        level += 1
    return level


def emit(lines: list[tuple[bool, str]]) -> None:
    """Passes lines on: (whether it is a warning, text)."""
    for is_warning, text in lines:
        if is_warning:
            warnings.warn(text, VeltoWarning, stacklevel=_stack_level())
        else:
            _logger.info("%s", text)
