#!/usr/bin/env python3
"""Looks whether every #include goes down, never up.

    check_layers.py ROOT LAYERS

LAYERS lists the parts of the tree below ROOT, the lowest first. A file of a part may include files
of its own part and of those before it. Beside that

    the library and what is below it use no dependency but {fmt}, the C++ library and the system
    what stands in a directory "test" is for tests only
    what is included between double quotes exists
"""

import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
ROOTS = ["", "platform", "platform/entities"]  # of includes between double quotes, beside one's own
LEAN = ["platform", "VeloSdkRpc"]
LEAN_MAY_USE = re.compile(r"[^/]+|(fmt|sys|arpa|netinet)/.*")
TESTS_MAY_USE = re.compile(r"(gtest|gmock|rapidcheck)/.*")
GENERATED = "velo/rpc/v1/"


def read_layers(text):
    lines = (line.split("#", 1)[0].strip() for line in text.splitlines())
    return [line for line in lines if line]


def is_below(path, directory):
    return path == directory or path.startswith(directory + "/")


def layer_of(path, layers):
    """The number of the part that a file belongs to, the most specific one; None if there is none."""
    found = [at for at, layer in enumerate(layers) if is_below(path, layer)]
    return max(found, key=lambda at: len(layers[at]), default=None)


def is_for_tests(path):
    parts = path.split("/")
    return path.endswith("_test.cpp") or not {"test", "tests", "bench"}.isdisjoint(parts[:-1])


def resolved(name, by, files):
    for root in [by.rpartition("/")[0], *ROOTS]:
        path = f"{root}/{name}".lstrip("/")
        if path in files:
            return path
    return None


def complaints_about(path, text, layers, files):
    """What is wrong with the includes of the file `path`, given all `files` that exist."""
    own = layer_of(path, layers)
    if own is None:
        return [f"{path}: belongs to no part that layers.txt lists"]
    complaints = []
    for kind, name in INCLUDE.findall(text):
        if name.startswith(GENERATED):
            if any(is_below(path, lean) for lean in LEAN):
                complaints.append(f"{path}: <{name}> is the agent's")
        elif kind == "<":
            allowed = LEAN_MAY_USE.fullmatch(name) or TESTS_MAY_USE.fullmatch(name)
            if any(is_below(path, lean) for lean in LEAN) and not allowed:
                complaints.append(f"{path}: <{name}> is a dependency that only the agent may have")
        else:
            complaints += complaints_about_own(path, own, name, layers, files)
    return complaints


def complaints_about_own(path, own, name, layers, files):
    target = resolved(name, path, files)
    if target is None:
        return [f'{path}: there is no "{name}"']
    complaints = []
    if layer_of(target, layers) > own:
        complaints.append(f'{path}: "{name}" is above: {layers[own]} must not know it')
    if is_for_tests(target) and not is_for_tests(path):
        complaints.append(f'{path}: "{name}" is for tests only')
    return complaints


def main(root, layers_file):
    root = pathlib.Path(root)
    layers = read_layers(pathlib.Path(layers_file).read_text(encoding="utf-8"))
    paths = [
        path
        for top in sorted({layer.split("/", 1)[0] for layer in layers})
        for suffix in ("h", "cpp")
        for path in sorted((root / top).rglob(f"*.{suffix}"))
    ]
    files = {path.relative_to(root).as_posix() for path in paths}
    complaints = []
    for layer in layers:
        if not any(is_below(path, layer) for path in files):
            complaints.append(f"layers.txt: there is nothing in {layer}")
    for path in paths:
        complaints += complaints_about(
            path.relative_to(root).as_posix(), path.read_text(encoding="utf-8"), layers, files
        )
    print("\n".join(complaints) if complaints else f"{len(files)} files include downwards only")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
