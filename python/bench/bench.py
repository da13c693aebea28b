"""Speed of the Python package against the C++ call, and of Dask batches.

    PYTHONPATH=build/python /usr/bin/python3 python/bench/bench.py build/python/orbtex_transcode_timer

1. Texture.convert of a 2048x2048 photo to ETC1 at quality 0 against
   Transcode called from C++ on the same texture (medians of RUNS calls).
2. orbtex.batch.convert of 48 photos to ETC2_RGB at quality 1, one thread a
   task, on a local Dask cluster of one worker and of two.
"""

import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy
from PIL import Image

import orbtex
import orbtex.batch

HERE = os.path.dirname(os.path.abspath(__file__))
RUNS = int(os.environ.get("RUNS", "7"))


def photo(size, seed):
    """The demo photo, turned and scaled up, with a little noise for texture."""
    demo = Image.open(os.path.join(HERE, "..", "..", "CLI", "DemoPhoto.png")).convert("RGB")
    image = demo.rotate(seed * 37 % 360, resample=Image.BICUBIC).resize((size, size), Image.BICUBIC)
    noise = numpy.random.default_rng(seed).normal(0, 6, (size, size, 3))
    return Image.fromarray((numpy.asarray(image) + noise).clip(0, 255).astype(numpy.uint8))


def convert_against_cpp(timer, folder):
    texture = orbtex.from_pil(photo(2048, 1))
    path = os.path.join(folder, "photo2048.orb")
    texture.save(path)
    # Rounds alternate the two sides, so that a change of load on a shared
    # machine falls on both.
    cpp_times, times = [], []
    for _ in range(RUNS):
        cpp_times.append(float(subprocess.run([timer, path, "ETC1", "0", "1"], check=True, capture_output=True,
                                              text=True).stdout))
        copy = texture.copy()
        start = time.perf_counter()
        copy.convert("ETC1", quality=0)
        times.append((time.perf_counter() - start) * 1000)
    cpp = statistics.median(cpp_times)
    python = statistics.median(times)
    print(f"2048x2048 ETC1 q0: C++ {cpp:.1f} ms, Python {python:.1f} ms ({(python / cpp - 1) * 100:+.1f} %)")


def dask_batch(folder):
    from distributed import Client, LocalCluster

    inputs = []
    for i in range(48):
        inputs.append(os.path.join(folder, f"p{i:02}.png"))
        photo(512, i).save(inputs[-1])
    options = {"format": "ETC2_RGB", "quality": 1, "ext": ".ktx", "threads": 1}
    seconds = {}
    for workers in (1, 2):
        with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=None,
                          silence_logs=50) as cluster, Client(cluster) as client:
            client.run(lambda: __import__("orbtex"))
            start = time.perf_counter()
            results = orbtex.batch.convert(inputs, os.path.join(folder, f"out{workers}"), options, client=client)
            seconds[workers] = time.perf_counter() - start
            assert not [r for r in results if r.error]
    print(f"48 photos 512x512 ETC2_RGB q1: 1 worker {seconds[1]:.2f} s, 2 workers {seconds[2]:.2f} s "
          f"({seconds[1] / seconds[2]:.2f} times faster)")


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        print(f"load average {os.getloadavg()[0]:.2f} on {os.cpu_count()} cores")
        convert_against_cpp(sys.argv[1], folder)
        dask_batch(folder)
        print(f"load average {os.getloadavg()[0]:.2f}")
