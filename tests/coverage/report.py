#!/usr/bin/env python3
"""Says which lines and branches of a directory a run of instrumented programs has executed.

    report.py GCOV SOURCES BUILD...

GCOV is the gcov of the compiler, SOURCES the directory in question, BUILD directories that are
searched for counts. Both are below the current directory; tests are left out.

What many programs or many instances of a template do counts together: a branch is executed if one
of them has taken it. The way out of a call that an exception takes is no branch, and a brace alone
is no line.
"""

import collections
import json
import pathlib
import subprocess
import sys

Line = collections.namedtuple("Line", "count shapes")  # shapes: the branches, by how they look


def decisions(branches):
    """The branches that are no way out of a call."""
    kept = list(branches)
    for at, branch in enumerate(branches):
        if not branch["throw"]:
            continue
        kept[at] = None
        if at > 0 and branches[at - 1]["fallthrough"]:
            kept[at - 1] = None
        elif at + 1 < len(branches) and branches[at + 1]["fallthrough"]:
            kept[at + 1] = None
    return [branch for branch in kept if branch]


def add_line(lines, found):
    """Adds what one instance of a function has seen of a line."""
    number, count = found["line_number"], found["count"]
    before = lines.get(number, Line(0, {}))
    shapes = dict(before.shapes)
    branches = decisions(found["branches"])
    if count > 0 and branches:
        shape = tuple(branch["fallthrough"] for branch in branches)
        sums = shapes.get(shape, [0] * len(branches))
        shapes[shape] = [sum_ + branch["count"] for sum_, branch in zip(sums, branches)]
    lines[number] = Line(before.count + count, shapes)


def executed(gcov, sources, builds):
    """The lines of each file, by its name and their numbers."""
    files = collections.defaultdict(dict)
    counts = [str(path) for build in builds for path in sorted(pathlib.Path(build).rglob("*.gcda"))]
    command = [gcov, "--json-format", "--stdout", "--branch-probabilities", *counts]
    told = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    here = pathlib.Path.cwd()
    for report in map(json.loads, told.splitlines()):
        for file in report["files"]:
            name = (here / report["current_working_directory"] / file["file"]).resolve()
            if not name.is_relative_to(here / sources) or "test" in name.parts:
                continue
            for line in file["lines"]:
                add_line(files[name.relative_to(here).as_posix()], line)
    return files


def share(done, of):
    return f"{done:5} of {of:5} {100 * done / of:6.1f} %" if of else f"{'-':>23}"


def print_report(files):
    total = collections.Counter()
    missed = []
    for name in sorted(files):
        lines = files[name]
        text = pathlib.Path(name).read_text(encoding="utf-8").splitlines()
        here = collections.Counter()
        for number, line in sorted(lines.items()):
            if text[number - 1].strip() == "}":
                continue
            taken = [count > 0 for counts in line.shapes.values() for count in counts]
            here.update({"lines": 1, "lines done": line.count > 0})
            here.update({"branches": len(taken), "branches done": sum(taken)})
            if line.count == 0 or not all(taken):
                what = f"{taken.count(False)} of {len(taken)}" if line.count else "never"
                missed.append(f"{name}:{number}: {what:>8}   {text[number - 1].strip()}")
        show(name, here)
        total.update(here)
    show("all", total)
    print("\nLines that were never executed, and how many branches of others:\n")
    print("\n".join(missed))


def show(name, sums):
    print(f"{name:56} lines {share(sums['lines done'], sums['lines'])}"
          f"   branches {share(sums['branches done'], sums['branches'])}")


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    FILES = executed(sys.argv[1], sys.argv[2], sys.argv[3:])
    if not FILES:
        sys.exit(f"there are no counts for {sys.argv[2]} in {' '.join(sys.argv[3:])}")
    print_report(FILES)
