"""Converting many files: on this machine's cores, or on a Dask cluster.

    from dask.distributed import Client
    results = orbtex.batch.convert(paths, "out", {"format": "ETC2_RGB", "quality": 2, "ext": ".ktx"},
                                   client=Client("tcp://scheduler:8786"))

Each file is one task. With a client every worker loads the extension itself;
inputs and outputs are paths on storage the workers share, or, with
transfer="bytes", the client reads the inputs, sends their bytes and writes
the outputs the workers send back. A task that fails is retried once, and a
file that still fails is reported in its Result without stopping the others.
The files written are the same bytes whichever way the batch runs.
"""

import concurrent.futures
import dataclasses
import os

from . import Error, load

__all__ = ["Options", "Result", "convert", "convert_one", "output_path"]


@dataclasses.dataclass
class Options:
    """How each file is converted; the fields follow Texture.convert."""

    format: str = None  # None keeps the source's format
    type: str = None
    colour_space: str = None
    quality: int = 0
    ext: str = ".orb"  # the output container, by extension
    input_colour_space: str = "linear"  # of image files
    threads: int = 1  # threads a file, in each task
    transfer: str = "paths"  # or "bytes": the client reads inputs and writes outputs

    @classmethod
    def of(cls, options):
        if options is None:
            return cls()
        if isinstance(options, cls):
            return options
        return cls(**options)


@dataclasses.dataclass
class Result:
    """The outcome of one file: error is None when output was written."""

    input: str
    output: str
    error: str = None
    kind: str = None  # the orbtex.Error subclass's name, or the exception's
    worker: str = None  # the Dask worker that converted it


def output_path(input, out_dir, options):
    """DIR/NAME.ext, NAME being the input's name without its extension."""
    stem = os.path.splitext(os.path.basename(input))[0]
    return os.path.join(os.fspath(out_dir), stem + Options.of(options).ext)


def convert_one(source, options, name=None):
    """Converts one file given by path or bytes; returns the output file's bytes."""
    options = Options.of(options)
    if isinstance(source, bytes) and name and name.lower().endswith(_image_extensions()):
        texture = _image_from_bytes(source, options.input_colour_space)
    elif isinstance(source, bytes):
        texture = load(source, name=name)
    else:
        texture = load(source, colour_space=options.input_colour_space)
    if options.format or options.type or options.colour_space:
        texture.convert(options.format or texture.format, type=options.type, colour_space=options.colour_space,
                        quality=options.quality, threads=options.threads)
    return texture.to_bytes(options.ext)


def _image_extensions():
    from . import IMAGE_EXTENSIONS

    return IMAGE_EXTENSIONS


def _image_from_bytes(data, colour_space):
    import io

    from PIL import Image

    from . import from_pil

    with Image.open(io.BytesIO(data)) as image:
        image.load()
        return from_pil(image, colour_space)


def _write(path, data):
    """Writes through a temporary file in the same folder, so no partial file is left."""
    temporary = os.path.join(os.path.dirname(path), ".orbtex-" + os.urandom(8).hex() + ".tmp")
    try:
        with open(temporary, "xb") as file:
            file.write(data)
        os.replace(temporary, path)
    except BaseException:
        if os.path.exists(temporary):
            os.unlink(temporary)
        raise


def _task(source, output, options, name):
    """One file on a worker: writes the output (paths) or returns its bytes."""
    data = convert_one(source, options, name)
    worker = None
    try:
        from distributed import get_worker

        worker = get_worker().address
    except (ImportError, ValueError):
        pass
    if output is None:
        return data, worker
    _write(output, data)
    return None, worker


def _failure(result, error):
    result.error = getattr(error, "reason", None) or str(error) or type(error).__name__
    result.kind = getattr(error, "kind", None) or type(error).__name__
    return result


def convert(inputs, out_dir, options=None, client=None, progress=None, jobs=None):
    """Converts every input to out_dir/NAME.ext; returns a Result a file, in input order.

    options: an Options or a dict of its fields. client: a
    dask.distributed.Client to run one task a file on its workers (retried
    once on failure); without one the files are converted here, on jobs
    threads (default: every core). progress: called as progress(result, done,
    total) as each file finishes. Two inputs with the same output, and an
    output that would write over an input, are failures of their own.
    """
    options = Options.of(options)
    if options.transfer not in ("paths", "bytes"):
        raise ValueError("transfer must be 'paths' or 'bytes'")
    inputs = [os.fspath(path) for path in inputs]
    os.makedirs(out_dir, exist_ok=True)
    results = [Result(path, output_path(path, out_dir, options)) for path in inputs]
    seen = {os.path.realpath(path) for path in inputs}
    outputs = set()
    pending = []
    for result in results:
        real = os.path.realpath(result.output)
        if real in outputs:
            _failure(result, Error("output " + result.output + " is another input's output too"))
        elif real in seen:
            _failure(result, Error("output " + result.output + " would write over an input"))
        else:
            pending.append(result)
        outputs.add(real)
    done = [len(results) - len(pending)]
    for result in results:
        if result.error and progress:
            progress(result, 0, len(results))

    def finished(result):
        done[0] += 1
        if progress:
            progress(result, done[0], len(results))

    if client is None:
        _run_locally(pending, options, jobs, finished)
    else:
        _run_on_cluster(pending, options, client, finished)
    return results


def _run_locally(pending, options, jobs, finished):
    def one(result):
        try:
            _task(_read(result.input) if options.transfer == "bytes" else result.input,
                  result.output, options, os.path.basename(result.input))
        except Exception as error:  # reported with the file; the others go on
            _failure(result, error)
        return result

    with concurrent.futures.ThreadPoolExecutor(jobs or os.cpu_count() or 1) as pool:
        for future in concurrent.futures.as_completed([pool.submit(one, result) for result in pending]):
            finished(future.result())


def _read(path):
    with open(path, "rb") as file:
        return file.read()


def _run_on_cluster(pending, options, client, finished):
    from distributed import as_completed

    futures = {}
    for result in pending:
        if options.transfer == "bytes":
            try:
                source, output = _read(result.input), None
            except OSError as error:
                _failure(result, error)
                finished(result)
                continue
        else:
            source, output = os.path.abspath(result.input), os.path.abspath(result.output)
        future = client.submit(_task, source, output, options, os.path.basename(result.input), retries=1,
                               pure=False, key="orbtex-convert-" + os.path.basename(result.input) + "-" +
                               os.urandom(6).hex())
        futures[future] = result
    for future in as_completed(list(futures)):
        result = futures.pop(future)
        try:
            data, result.worker = future.result()
            if data is not None:
                _write(result.output, data)
        except Exception as error:
            _failure(result, error)
        finished(result)
