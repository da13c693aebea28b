import os
import subprocess

import numpy
import pytest
from PIL import Image

SOURCE_DIR = os.environ.get("ORBTEX_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))


def run_orbtex(*arguments):
    """Runs the orbtex program; its completed process."""
    return subprocess.run([os.environ["ORBTEX_PROGRAM"], *map(str, arguments)], capture_output=True, text=True)


@pytest.fixture(scope="session")
def photos(tmp_path_factory):
    """A dozen 256x256 photos made from the repository's demo photo: turned, cropped and tinted."""
    folder = tmp_path_factory.mktemp("photos")
    demo = Image.open(os.path.join(SOURCE_DIR, "CLI", "DemoPhoto.png")).convert("RGB")
    paths = []
    for i in range(12):
        image = demo.rotate(30 * i, resample=Image.BICUBIC, expand=False).resize((256, 256), Image.BICUBIC)
        pixels = numpy.asarray(image, dtype=numpy.float32) * (0.6 + 0.4 * numpy.array([i % 2, i % 3 / 2, 1]))
        path = folder / f"photo{i:02}.png"
        Image.fromarray(pixels.clip(0, 255).astype(numpy.uint8)).save(path)
        paths.append(str(path))
    return paths
