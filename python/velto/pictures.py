"""Pictures to files."""

from __future__ import annotations

import os
from typing import Literal

import numpy as np
import numpy.typing as npt

from . import _velto

_Depth = Literal["uint8", "uint16", "half", "float"]

_DEPTHS = (None, "uint8", "uint16", "half", "float")
_COLORSPACES = (None, "srgb", "linear")


def _choice(name: str, value: str | None, choices: tuple[str | None, ...]) -> int:
    if value not in choices:
        raise ValueError(f"{name}: expected one of {', '.join(filter(None, choices))}, got {value!r}")
    return choices.index(value)


def write(file: str | os.PathLike[str], picture: npt.ArrayLike, *, depth: _Depth | None = None,
          colorspace: Literal["srgb", "linear"] | None = None) -> None:
    """Writes a picture to a file, whose suffix is the format: png, jpg, tif, exr, hdr, tga and others.

    The file takes its name when it is complete: whatever goes wrong, what bore the name before is there still.

    Args:
        file: Where to.
        picture: An array of the shape (height, width) or (height, width, channels) with 1, 3 or 4 channels, of linear
            floats; 1.0 is white. float32 in C order is written without a copy.
        depth: How pixels are stored. Default: as is usual for the format.
        colorspace: How values are encoded. Default: sRGB for 8 and 16 bits, linear for floats.

    Raises:
        ValueError: An argument is wrong; it is named.
        OSError: The file cannot be written.
    """
    pixels = np.asarray(picture)
    if pixels.dtype.kind != "f":
        raise ValueError(f"picture: expected floats, got {pixels.dtype} with the shape {pixels.shape}")
    if pixels.ndim == 2:
        pixels = pixels[:, :, np.newaxis]
    if pixels.ndim != 3 or pixels.shape[2] not in (1, 3, 4) or 0 in pixels.shape:
        raise ValueError("picture: expected the shape (height, width) or (height, width, 1, 3 or 4), "
                         f"got {np.shape(picture)}")
    try:
        _velto.write(os.fspath(file), np.ascontiguousarray(pixels, np.float32), _choice("depth", depth, _DEPTHS),
                     _choice("colorspace", colorspace, _COLORSPACES))
    finally:
        _velto.flush()
