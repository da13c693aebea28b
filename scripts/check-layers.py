#!/usr/bin/env python3
"""Checks that includes between Source folders follow the layer order.

Layers, lowest first: Tools, Model, Files and Codecs, Pixels, Operations.
Public headers in Source/ belong to the layer of their implementation. An
include that runs upwards must carry a comment on its own line saying why
(a line ending in `// layer: ...`); at most four such includes are allowed.
Prints every offending include and exits 1 if there is one.
"""
import os
import re
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "Source")
LAYER = {"Tools": 0, "Bitmap": 0, "Model": 1, "Files": 2, "Codecs": 2, "Pixels": 3, "Operations": 4}
PUBLIC = {
    "ORBTexture.h": "Model", "ORBTextureHeader.h": "Model", "ORBTextureFormat.h": "Model",
    "ORBTextureInfo.h": "Model", "ORBTextureLegacy.h": "Files", "ORBTPixelConversion.h": "Pixels",
    "ORBTextureUtilities.h": "Pixels", "ORBTextureDiffTools.h": "Operations",
}
ALLOWED_EXCEPTIONS = 4
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"(.*)$')


def folder_of(path):
    rel = os.path.relpath(path, ROOT)
    parts = rel.split(os.sep)
    if len(parts) == 1:
        return PUBLIC.get(parts[0])
    return parts[0]


def resolve(including, name):
    for base in (os.path.dirname(including), ROOT):
        candidate = os.path.normpath(os.path.join(base, name))
        if os.path.isfile(candidate):
            return candidate
    return None


def main():
    upward, bad = [], []
    for dirpath, _, files in os.walk(ROOT):
        for f in sorted(files):
            if not f.endswith((".h", ".cpp")):
                continue
            path = os.path.join(dirpath, f)
            own = folder_of(path)
            with open(path, encoding="utf-8") as src:
                for number, line in enumerate(src, 1):
                    m = INCLUDE.match(line)
                    if not m:
                        continue
                    target = resolve(path, m.group(1))
                    other = folder_of(target) if target else None
                    if own is None or other is None or LAYER[other] <= LAYER[own]:
                        continue
                    where = "%s:%d includes %s (%s above %s)" % (
                        os.path.relpath(path, ROOT), number, m.group(1), other, own)
                    (upward if "// layer:" in m.group(2) else bad).append(where)
    for w in bad:
        print("upward include without a reason: " + w)
    if len(upward) > ALLOWED_EXCEPTIONS:
        for w in upward:
            print("upward include: " + w)
        print("%d upward includes, at most %d allowed" % (len(upward), ALLOWED_EXCEPTIONS))
    return 1 if bad or len(upward) > ALLOWED_EXCEPTIONS else 0


if __name__ == "__main__":
    sys.exit(main())
