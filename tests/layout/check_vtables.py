#!/usr/bin/env python3
"""Compares the virtual slots of classes, as the compiler has laid them out, with a list.

    check_vtables.py EXPECTATIONS DUMP...

EXPECTATIONS names a class in the first column of a line and below it, indented, its slots in
order; '#' begins a comment. A slot is

    destructor, deleting destructor   the two that a virtual destructor takes
    pure                              one that the class leaves open
    name                              a member function, whoever overrides it
    Scope::Class::name                the member function of just that class

DUMP is what g++ writes with -fdump-lang-class. Only the primary virtual table is looked at. A class
that no dump knows is an error, as is an expectation without slots.
"""

import re
import sys

SLOT = re.compile(r"^\d+ +(?:\(int \(\*\)\(\.\.\.\)\))?(.*)$")
NUMBER = re.compile(r"^-?\d+$")


def read_expectations(text):
    """Returns {class: [slot, ...]}."""
    classes, slots = {}, None
    for number, line in enumerate(text.splitlines(), 1):
        line = line.split("#", 1)[0].rstrip()
        if not line:
            continue
        if line[0].isspace():
            if slots is None:
                raise ValueError(f"line {number}: a slot before any class")
            slots.append(line.strip())
        else:
            if line in classes:
                raise ValueError(f"line {number}: {line} is there twice")
            slots = classes[line] = []
    empty = [name for name, slots in classes.items() if not slots]
    if empty or not classes:
        raise ValueError(f"no slots are expected of {', '.join(empty) or 'any class'}")
    return classes


def read_dump(text):
    """Returns {class: [fully qualified slot, ...]} of every primary virtual table in a dump."""
    classes = {}
    for table in re.split(r"^Vtable for ", text, flags=re.MULTILINE)[1:]:
        name, *lines = table.splitlines()
        # The table ends at an empty line; its own type information stands before the first slot.
        lines = lines[: lines.index("")] if "" in lines else lines
        entries = [match[1] for match in map(SLOT.match, lines) if match]
        start = next(i for i, entry in enumerate(entries) if entry.startswith("(& _ZTI")) + 1
        slots = classes[name] = []
        for entry in entries[start:]:
            # An abstract class has no destructors to put into its table, but keeps their slots.
            is_destructor = "::~" in entry or entry == "0"
            if is_destructor:
                slots.append("deleting destructor" if "destructor" in slots else "destructor")
            elif NUMBER.match(entry):
                break  # Here the tables of further bases begin.
            else:
                slots.append("pure" if entry == "__cxa_pure_virtual" else entry)
    return classes


def compare(expected, actual):
    """Returns one complaint per class that differs."""
    complaints = []
    for name, slots in expected.items():
        if name not in actual:
            complaints.append(f"{name}: no such class, or it has no virtual table")
            continue
        found = actual[name]
        shown = [
            slot if "::" in wanted else slot.rsplit("::", 1)[-1]
            for slot, wanted in zip(found, slots + [""] * len(found))
        ]
        if shown != slots:
            complaints.append(
                f"{name}:\n   expected  {', '.join(slots)}\n   found     {', '.join(shown)}"
            )
    return complaints


def main(arguments):
    if len(arguments) < 2:
        sys.exit(__doc__)
    with open(arguments[0], encoding="utf-8") as file:
        expected = read_expectations(file.read())
    actual = {}
    for path in arguments[1:]:
        with open(path, encoding="utf-8") as file:
            actual.update(read_dump(file.read()))
    complaints = compare(expected, actual)
    print("\n".join(complaints) or f"the slots of {len(expected)} classes are in order")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
