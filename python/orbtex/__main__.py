"""python3 -m orbtex convert IN... -o DIR [--scheduler tcp://HOST:8786]"""

import argparse
import os
import sys

from . import IMAGE_EXTENSIONS, TEXTURE_EXTENSIONS, batch


def _files(inputs):
    """Each input, and in place of a folder the image and texture files in it, by name."""
    files = []
    for path in inputs:
        if os.path.isdir(path):
            files += sorted(os.path.join(path, name) for name in os.listdir(path)
                            if name.lower().endswith(IMAGE_EXTENSIONS + TEXTURE_EXTENSIONS))
        else:
            files.append(path)
    return files


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m orbtex", description="Texture batches, locally or on Dask.")
    commands = parser.add_subparsers(dest="command", required=True)
    c = commands.add_parser("convert", help="convert files to DIR/NAME.EXT",
                            description="Converts every IN (a folder stands for its image and texture files) "
                                        "to DIR/NAME.EXT, on every core here or on a Dask cluster.")
    c.add_argument("inputs", nargs="+", metavar="IN")
    c.add_argument("-o", dest="out_dir", required=True, metavar="DIR")
    c.add_argument("--format", help="target format (default: the source's)")
    c.add_argument("--type", help="channel type")
    c.add_argument("--colour-space", choices=("linear", "srgb"))
    c.add_argument("--input-colour-space", choices=("linear", "srgb"), default="linear",
                   help="colour space of image files (default linear)")
    c.add_argument("--quality", type=int, default=0, help="compressor quality (see help(orbtex.Texture.convert))")
    c.add_argument("--ext", default=".orb", help="output container by extension (default .orb)")
    c.add_argument("--threads", type=int, default=1, help="threads a file (default 1)")
    c.add_argument("--jobs", type=int, help="files at once without --scheduler (default: every core)")
    c.add_argument("--scheduler", metavar="ADDRESS", help="a Dask scheduler, such as tcp://HOST:8786")
    c.add_argument("--transfer", choices=("paths", "bytes"), default="paths",
                   help="with --scheduler: workers read and write shared paths, or get and give bytes")
    c.add_argument("--quiet", action="store_true", help="print failures only")
    args = parser.parse_args(argv)

    ext = args.ext if args.ext.startswith(".") else "." + args.ext
    options = batch.Options(format=args.format, type=args.type, colour_space=args.colour_space,
                            quality=args.quality, ext=ext, input_colour_space=args.input_colour_space,
                            threads=args.threads, transfer=args.transfer)
    files = _files(args.inputs)

    def progress(result, done, total):
        if result.error:
            print(f"{result.input}: {result.error}", file=sys.stderr, flush=True)
        elif not args.quiet:
            print(f"[{done}/{total}] {result.input} -> {result.output}", flush=True)

    client = None
    if args.scheduler:
        from distributed import Client

        client = Client(args.scheduler)
    try:
        results = batch.convert(files, args.out_dir, options, client=client, progress=progress, jobs=args.jobs)
    finally:
        if client is not None:
            client.close()
    failed = sum(1 for result in results if result.error)
    if failed and not args.quiet:
        print(f"{failed} of {len(results)} files failed", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
