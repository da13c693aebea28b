import json
import os
import pickle
import subprocess
import threading

import numpy
import pytest
from PIL import Image

import orbtex
from conftest import SOURCE_DIR, run_orbtex


@pytest.mark.parametrize("shape, dtype, layout", [
    ((5, 7, 4), numpy.uint8, None), ((5, 7, 3), numpy.uint16, None), ((3, 5, 7, 1), numpy.float32, None),
    ((5, 7, 2), numpy.uint8, "l8a8"), ((4, 4, 4), numpy.float32, "r32g32b32a32"),
])
def test_numpy_round_trip_through_every_container_kept_bitwise(shape, dtype, layout):
    array = (numpy.random.default_rng(7).random(shape) * 60000).astype(dtype)
    texture = orbtex.from_numpy(array, format=layout)
    for container in ("orb", "ktx"):
        loaded = orbtex.load(texture.to_bytes(container))
        assert loaded.to_numpy().dtype == dtype
        numpy.testing.assert_array_equal(loaded.to_numpy(), array, err_msg=container)
    # A non-contiguous array is taken too.
    numpy.testing.assert_array_equal(orbtex.from_numpy(array[..., ::-1], format=layout).to_numpy(), array[..., ::-1])


def test_numpy_views_share_the_block_and_outlive_changes():
    texture = orbtex.from_numpy(numpy.zeros((8, 8, 4), numpy.uint8))
    view = texture.to_numpy()
    view[2, 3] = (1, 2, 3, 4)
    assert tuple(texture.to_numpy()[2, 3]) == (1, 2, 3, 4)
    texture.resize(4, 4)
    del texture
    assert view.shape == (8, 8, 4) and tuple(view[2, 3]) == (1, 2, 3, 4) and view.sum() == 10


def test_pillow_in_and_out(photos):
    image = Image.open(photos[1])
    texture = orbtex.load(photos[1])
    assert (texture.width, texture.height, texture.format) == (256, 256, "r8g8b8a8")
    assert orbtex.to_pil(texture).tobytes() == image.convert("RGBA").tobytes()
    texture.convert("r8g8b8")
    assert texture.to_pil().mode == "RGB" and texture.to_pil().tobytes() == image.tobytes()


@pytest.mark.parametrize("arguments, convert, extensions", [
    (("--format", "ETC2_RGB", "--quality", "2"), dict(format="ETC2_RGB", quality=2), (".ktx", ".orb")),
    (("--format", "r5g6b5", "--colour-space", "srgb"), dict(format="r5g6b5", colour_space="srgb"), (".orb", ".h")),
    (("--format", "ORBTC_4bpp_RGBA", "--quality", "3"), dict(format="ORBTC_4bpp_RGBA", quality=3, threads=2),
     (".orb",)),
    (("--format", "ORBTC_4bpp_RGB", "--quality", "9"), dict(format="ORBTC_4bpp_RGB", quality=9, threads=2),
     (".orb",)),
])
def test_conversion_bytes_equal_the_programs(photos, tmp_path, arguments, convert, extensions):
    for ext in extensions:
        output = tmp_path / ("out" + ext)
        assert run_orbtex("convert", photos[3], output, *arguments).returncode == 0
        texture = orbtex.load(photos[3])
        texture.convert(**convert)
        assert texture.to_bytes("out" + ext) == output.read_bytes()
        (tmp_path / "py").mkdir(exist_ok=True)
        texture.save(str(tmp_path / "py" / output.name))
        assert (tmp_path / "py" / output.name).read_bytes() == output.read_bytes()


def test_info_matches_the_programs_json(photos, tmp_path):
    path = tmp_path / "t.ktx"
    texture = orbtex.load(photos[0])
    texture.mipmaps()
    texture.convert("ETC2_RGB")
    texture.save(str(path))
    expected = json.loads(run_orbtex("info", "--json", path).stdout)
    assert orbtex.load(str(path)).info() == expected
    described = orbtex.load(path.read_bytes()).info()
    assert described["container"] == "ktx" and described["mipLevels"] == 9 and described["file"] is None


def test_progress_rises_to_one_and_other_threads_run_meanwhile(photos):
    texture = orbtex.load(photos[2])
    seen, ticks, stop = [], [0], threading.Event()

    def ticker():
        while not stop.is_set():
            ticks[0] += 1

    thread = threading.Thread(target=ticker)
    thread.start()
    texture.convert("ETC2_RGB", quality=2, progress=lambda fraction: seen.append((fraction, ticks[0])))
    stop.set()
    thread.join()
    fractions = [fraction for fraction, _ in seen]
    assert fractions == sorted(fractions) and fractions[-1] == 1.0 and len(fractions) > 4
    # The ticker ran while the library worked: the GIL was released.
    assert seen[-1][1] > seen[0][1]


def test_cancel_from_another_thread_and_a_failing_callback_leave_the_texture():
    texture = orbtex.from_numpy(numpy.random.default_rng(3).integers(0, 255, (512, 512, 4), numpy.uint8))
    before = texture.to_bytes()
    cancel = threading.Event()
    threading.Thread(target=lambda: (threading.Event().wait(0.05), cancel.set())).start()
    with pytest.raises(orbtex.CancelledError, match="cancelled"):
        texture.convert("ETC1", quality=3, cancel=cancel)
    assert texture.to_bytes() == before

    def refuse(fraction):
        raise KeyError("stop here")

    with pytest.raises(KeyError, match="stop here"):
        texture.convert("ETC1", progress=refuse)
    assert texture.to_bytes() == before


def test_errors_carry_the_librarys_reason(tmp_path):
    with pytest.raises(orbtex.BadFileError, match="first word"):
        orbtex.load(b"not a texture at all")
    with pytest.raises(orbtex.FileError) as missing:
        orbtex.load(str(tmp_path / "none.ktx"))
    assert isinstance(missing.value, OSError) and missing.value.errno == 2 and missing.value.kind == "FileError"
    texture = orbtex.from_numpy(numpy.zeros((30, 30, 4), numpy.uint8))
    with pytest.raises(orbtex.Error, match="30x30"):
        texture.convert("ORBTC_2bpp_RGB", quality=2)
    with pytest.raises(orbtex.Error, match="unknown format"):
        texture.convert("ETC9")
    texture.convert("ETC1")
    for call in (texture.to_numpy, lambda: texture.resize(8, 8), lambda: texture.normal_map()):
        with pytest.raises(orbtex.Error) as raised:
            call()
        assert raised.value.reason
    with pytest.raises(orbtex.UnsupportedError, match="r16g16b16 UnsignedShortNorm has no DDS format code"):
        orbtex.from_numpy(numpy.zeros((4, 4, 3), numpy.uint16)).save(str(tmp_path / "rgb16.dds"))
    with pytest.raises(orbtex.FileError):
        texture.save(str(tmp_path / "no" / "such" / "folder.ktx"))
    assert not (tmp_path / "no").exists() and not (tmp_path / "rgb16.dds").exists()
    error = pickle.loads(pickle.dumps(orbtex.SizeError("too big")))
    assert type(error) is orbtex.SizeError and str(error) == "too big"


def test_image_operations_and_comparison(photos):
    photo = orbtex.load(photos[4])
    texture = photo.copy()
    texture.mipmaps(filter="cubic")
    assert texture.mip_levels == 9 and texture.to_numpy(level=8).shape == (1, 1, 4)
    with pytest.raises(orbtex.Error, match="has 9 MIP levels"):
        texture.to_numpy(level=9)
    texture.resize(100, 50)
    assert (texture.width, texture.height, texture.mip_levels) == (100, 50, 1)
    same = photo.compare(pickle.loads(pickle.dumps(photo)))
    assert same["psnr"]["overall"] == float("inf") and same["max"]["overall"] == 0
    etc = photo.copy()
    etc.convert("ETC1")
    measures = photo.compare(etc)
    assert set(measures) == {"max", "mean", "rms", "stddev", "psnr"} and 25 < measures["psnr"]["overall"] < 60
    heights = orbtex.from_numpy(numpy.tile(numpy.arange(16, dtype=numpy.uint8)[None, :, None], (16, 1, 4)))
    heights.normal_map(scale=2.0)
    assert heights.channel_type == "SignedFloat" and heights.info()["metadata"][0]["description"].startswith("bump")


def test_bad_files_raise_and_never_crash(tmp_path):
    """Every fuzz seed and past finding through load, as bytes and as a file, in a child process."""
    seeds = tmp_path / "seeds"
    subprocess.run([os.environ["ORBTEX_FUZZ_SEEDS"], str(seeds)], check=True)
    inputs = [str(p) for root in (seeds, os.path.join(SOURCE_DIR, "Fuzz", "regressions"))
              for p in sorted(__import__("pathlib").Path(root).rglob("*")) if p.is_file()]
    script = """
import sys, orbtex
loaded = 0
for path in sys.argv[1:]:
    data = open(path, "rb").read()
    for source in (data, path):
        try:
            texture = orbtex.load(source)
            texture.info(); texture.to_bytes("orb")
            loaded += 1
        except orbtex.Error as error:
            assert error.reason
print(loaded)
"""
    done = subprocess.run([__import__("sys").executable, "-c", script, *inputs], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr[-2000:]
    assert len(inputs) > 50 and int(done.stdout) > 0
