"""orbtex: load, convert, compress, compare and save GPU textures.

    import orbtex
    texture = orbtex.load("photo.png")            # images through Pillow
    texture.convert("ETC2_RGB", quality=2)
    texture.save("photo.ktx")

Textures convert in place (convert, resize, mipmaps, normal_map); copy()
keeps the original. Errors are orbtex.Error subclasses carrying the
library's reason. orbtex.batch converts many files, locally or on a Dask
cluster.
"""

import os as _os

from ._orbtex import (
    ArgumentError,
    BadFileError,
    CancelledError,
    Error,
    FileError,
    OutOfMemoryError,
    SizeError,
    Texture,
    ToolError,
    UnsupportedError,
    formats,
)
from . import _orbtex

__all__ = [
    "ArgumentError", "BadFileError", "CancelledError", "Error", "FileError", "OutOfMemoryError", "SizeError",
    "Texture", "ToolError", "UnsupportedError", "formats", "load", "from_numpy", "from_pil", "to_pil",
    "IMAGE_EXTENSIONS", "TEXTURE_EXTENSIONS",
]

# Files read through Pillow rather than the library.
IMAGE_EXTENSIONS = (".png", ".jpg", ".jpeg", ".tga", ".bmp", ".gif", ".tif", ".tiff", ".webp")
TEXTURE_EXTENSIONS = (".orb", ".dds", ".ktx", ".ktx2", ".astc")

# The first bytes of each container, for data loaded without a name.
_SIGNATURES = (
    (b"\xabKTX 20\xbb\r\n\x1a\n", "texture.ktx2"),
    (b"\xabKTX 11\xbb\r\n\x1a\n", "texture.ktx"),
    (b"DDS ", "texture.dds"),
    (b"\x13\xab\xa1\x5c", "texture.astc"),
)


def _name_of(data):
    head = bytes(memoryview(data)[:12])
    for signature, name in _SIGNATURES:
        if head.startswith(signature):
            return name
    return "texture.orb"


def load(source, name=None, colour_space="linear"):
    """Loads a texture from a path or from bytes.

    A path's extension chooses the reader: .orb (native and legacy), .dds,
    .ktx, .astc and every other container the library reads; image files
    (IMAGE_EXTENSIONS) are read by Pillow as RGBA, 8 bits a channel (16 for
    16-bit greyscale), in colour_space. Bytes are read as the container that
    'name' names by its extension, or that their first bytes show (native
    otherwise). Raises orbtex.Error subclasses with the library's reason.
    """
    if isinstance(source, (bytes, bytearray, memoryview)):
        return _orbtex.load_bytes(source, name or _name_of(source))
    path = _os.fspath(source)
    if path.lower().endswith(IMAGE_EXTENSIONS):
        try:
            from PIL import Image
        except ImportError as error:  # pragma: no cover
            raise UnsupportedError(f"{path}: reading images needs Pillow") from error
        try:
            with Image.open(path) as image:
                image.load()
                return from_pil(image, colour_space)
        except FileNotFoundError as error:
            raise FileError(f"cannot open file: {error.strerror}") from error
        except OSError as error:
            raise BadFileError(f"not a readable image: {error}") from error
    return _orbtex.load_file(path)


def from_numpy(array, format=None, colour_space="linear", type=None):
    """A texture of one surface from an array of H x W x C or D x H x W x C.

    uint8, uint16 and float32 arrays (also int8, int16, uint32, int32 and
    float16) give unsigned-norm, signed-norm or float channels; format names
    a channel layout of C channels of the element's width (default r, rg, rgb
    or rgba). A C-contiguous array is copied once, straight into the block the
    texture owns; any other is made contiguous first.
    """
    return _orbtex.from_numpy(array, format, colour_space, type)


def from_pil(image, colour_space="linear"):
    """A texture from a Pillow image: RGBA 8 bits a channel, or 16-bit grey as l16."""
    import numpy

    if image.mode in ("I;16", "I;16L"):
        return from_numpy(numpy.asarray(image, dtype=numpy.uint16)[..., None], "l16", colour_space)
    if image.mode != "RGBA":
        image = image.convert("RGBA")
    return from_numpy(numpy.asarray(image), None, colour_space)


def to_pil(texture, level=0, member=0, face=0):
    """A Pillow image of one surface of an 8-bit texture of 1 to 4 channels (convert first)."""
    from PIL import Image

    array = texture.to_numpy(level, member, face)
    if array.ndim != 3 or array.dtype.itemsize != 1:
        raise UnsupportedError("to_pil needs a 2D texture of 8 bits a channel; convert it to r8g8b8a8 first")
    modes = {1: "L", 2: "LA", 3: "RGB", 4: "RGBA"}
    return Image.fromarray(array, modes[array.shape[2]])


Texture.to_pil = to_pil
__version__ = "0.1.0"
from . import batch  # noqa: E402  (orbtex.batch after import orbtex)
