"""Mutates the library, runs its tests against every mutant, and reports who survives.

One build holds all mutants. Of each test program the mutants that it comes by are learnt first; a
mutant is run against those programs only, the quickest first, and is dead when one of them fails,
crashes or does not end in time.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import random
import re
import resource
import shutil
import subprocess
import sys

from mutants import Finder, Source

ROOT = pathlib.Path(__file__).resolve().parents[2]
SEED_OF_TESTS = {"VELO_HASH_SEED": "1", "RC_PARAMS": "seed=1"}


def say(text):
    print(f"mutate: {text}", file=sys.stderr, flush=True)


def cpu_seconds_of_children():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


class Campaign:
    def __init__(self, options):
        self._options = options
        self._tree = ROOT / "build/mutation/tree"
        self._build = ROOT / "build/mutation/build"
        self._reached_dir = ROOT / "build/mutation/reached"
        self._survivors = ROOT / "build/mutation/survivors.json"

    def run(self):
        self._copy_tree()
        self._find()
        self._explain()
        self._build_all()
        self._try_unmutated()
        return self._report(self._run_mutants())

    # --- The mutants -----------------------------------------------------------------------------

    def _copy_tree(self):
        """The library's own files are mutated in a copy; what stayed the same keeps its time."""
        files = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                               cwd=ROOT, check=True, capture_output=True).stdout.decode().split("\0")
        for name in filter(None, files):
            source, target = ROOT / name, self._tree / name
            if source.is_file() and (not target.exists() or
                                     source.read_bytes() != target.read_bytes()):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)

    def _find(self):
        library = ROOT / "VeloSdkRpc"
        paths = [p for p in sorted(library.rglob("*"))
                 if p.suffix in (".h", ".cpp") and "test" not in p.relative_to(library).parts]
        self._sources = [Source(path) for path in paths]
        finder = Finder(self._sources)
        arguments = ["-std=c++20", "-DVELO_DEBUG_CHECKS=1", f"-I{ROOT}", f"-I{ROOT}/platform",
                     f"-I{ROOT}/platform/entities", "-Wno-everything"]
        for path in paths:
            if path.suffix == ".cpp":
                finder.search(path, arguments)
        for source in self._sources:  # headers that only the tests include
            if source.path.suffix == ".h" and not source.mutants:
                finder.search(source.path, arguments + ["-xc++"])
        self._mutants = [(source, mutant) for source in self._sources
                         for mutant in sorted(source.mutants.values(),
                                              key=lambda m: (m.begin, m.end, m.kind))]
        for number, (_, mutant) in enumerate(self._mutants):
            mutant.id = number
        self._impossible = set()
        say(f"{len(self._mutants)} mutants in {len(paths)} files")

    @staticmethod
    def _name(source, mutant):
        """What it is called whatever else changes in the code."""
        return (str(source.path.relative_to(ROOT)), mutant.function, mutant.kind,
                source.excerpt(mutant))

    def _explain(self):
        """An explanation is of one mutant, or of as many as it says: so that none excuses what nobody
        has thought of."""
        found = {}
        for pair in self._mutants:
            found.setdefault(self._name(*pair), []).append(pair[1].id)
        self._explained = {}
        for listed in json.loads((ROOT / "tests/mutation/explained.json").read_text()):
            key = tuple(listed[part] for part in ("file", "function", "kind", "code"))
            meant = found.get(key, [])
            if len(meant) != listed.get("mutants", 1):
                sys.exit(f"mutate: {len(meant)} mutants are what is explained as {key}")
            self._explained.update(dict.fromkeys(meant, listed["why"]))

    def _write(self):
        for source in self._sources:
            target = self._tree / source.path.relative_to(ROOT)
            text = source.mutated([m for m in source.mutants.values()
                                   if m.id not in self._impossible])
            if target.read_bytes() != text:
                target.write_bytes(text)

    # --- Building --------------------------------------------------------------------------------

    def _build_all(self):
        """What cannot be compiled with a mutant in it is compiled without that mutant."""
        self._write()
        header = ROOT / "tests/mutation/Mutant.h"
        subprocess.run(["cmake", "-S", self._tree, "-B", self._build, "-G", "Ninja",
                        "-D", "CMAKE_BUILD_TYPE=Debug", "-D", "VELO_BUILD_AGENT=OFF",
                        "-D", "CMAKE_CXX_FLAGS_DEBUG=-O1", "-D", "CMAKE_UNITY_BUILD=ON",
                        "-D", f"CMAKE_CXX_FLAGS=-w -include {header}"],
                       check=True, stdout=subprocess.DEVNULL)
        for _ in range(12):
            built = subprocess.run(["cmake", "--build", self._build, "--target",
                                    "VeloSdkRpc/test/all", "--", "-k0"],
                                   capture_output=True, text=True, check=False)
            if built.returncode == 0:
                say(f"{len(self._impossible)} of them cannot be compiled and are left out")
                return
            if not self._leave_out(built.stdout):
                sys.exit(f"mutate: the mutated library cannot be built:\n{built.stdout[-4000:]}")
            self._write()
        sys.exit("mutate: there is no end of mutants that cannot be compiled")

    def _leave_out(self, output):
        """Whether an error pointed at mutants that were still in."""
        before = len(self._impossible)
        numbers = re.compile(rb"VELO_MUTANT\( (\d+) \)")
        places = re.findall(r"^([^:\n]+):(\d+):\d+: (?:error|note: in expansion of macro)",
                            output, re.M)
        for path, line in set(places):
            path = (self._build / path).resolve()
            if not path.is_relative_to(self._tree / "VeloSdkRpc") or "/test/" in str(path):
                continue
            lines = path.read_bytes().split(b"\n")
            found = numbers.findall(lines[int(line) - 1]) or numbers.findall(
                b" ".join(lines[max(0, int(line) - 4):int(line) + 2]))
            self._impossible.update(map(int, found))
        return len(self._impossible) > before

    # --- Running ---------------------------------------------------------------------------------

    def _try_unmutated(self):
        """Learns how long every program takes, and which mutants it comes by."""
        shutil.rmtree(self._reached_dir, ignore_errors=True)
        self._reached_dir.mkdir(parents=True)
        listing = json.loads(subprocess.run(
            ["ctest", "--test-dir", self._build / "VeloSdkRpc/test", "--show-only=json-v1"],
            check=True, capture_output=True).stdout)
        self._programs = []
        for test in listing["tests"]:
            command, reached = test["command"], self._reached_dir / test["name"]
            before = cpu_seconds_of_children()
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, env=os.environ |
                           SEED_OF_TESTS | {"VELO_MUTANTS_REACHED": str(reached)})
            self._programs.append((cpu_seconds_of_children() - before, command,
                                   set(map(int, reached.read_text().split()))))
        self._programs.sort(key=lambda program: program[0])
        say(f"{len(self._programs)} programs, {sum(p[0] for p in self._programs):.0f} s together")

    def _chosen(self):
        chosen = [pair for pair in self._mutants if pair[1].id not in self._impossible]
        if self._options.only:
            chosen = [pair for pair in chosen if self._options.only in str(pair[0].path)]
        if self._options.again:
            survivors = set(map(tuple, json.loads(self._survivors.read_text())))
            chosen = [pair for pair in chosen if self._name(*pair) in survivors]
        if self._options.mutant is not None:
            chosen = [pair for pair in chosen if pair[1].id == self._options.mutant]
        if self._options.sample and self._options.sample < len(chosen):
            chosen = random.Random(self._options.seed).sample(chosen, self._options.sample)
        return chosen

    def _run_mutants(self):
        chosen, fates = self._chosen(), []
        with concurrent.futures.ThreadPoolExecutor(self._options.jobs) as pool:
            for done, fate in enumerate(pool.map(self._fate, chosen), 1):
                fates.append(fate)
                if done % 50 == 0:
                    alive = sum(1 for f in fates if f in ("survived", "not reached"))
                    say(f"{done} of {len(chosen)}, {alive} alive")
        return list(zip(chosen, fates))

    def _fate(self, pair):
        mutant = pair[1]
        programs = [p for p in self._programs if mutant.id in p[2]]
        if not programs:
            return "not reached"
        for seconds, command, _ in programs:
            # What goes round for ever is told by the work it does: another load than ours must not
            # kill a mutant. What waits for ever is told by the clock.
            limit = f"--cpu={int(10 * seconds + 10)}"
            try:
                result = subprocess.run(
                    ["prlimit", limit, *command, "--gtest_fail_fast"], check=False,
                    timeout=100 * seconds + 100, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL,
                    env=os.environ | SEED_OF_TESTS | {"VELO_MUTANT": str(mutant.id)})
            except subprocess.TimeoutExpired:
                return "killed"
            if result.returncode != 0:
                return "killed"
        return "survived"

    # --- What came of it -------------------------------------------------------------------------

    def _report(self, results):
        lines, dead, excused, wrong = [], 0, 0, 0
        for (source, mutant), fate in results:
            reason = self._explained.get(mutant.id)
            if fate == "killed":
                dead += 1
                wrong += reason is not None
                if reason is None:
                    continue
            else:
                excused += reason is not None
            lines.append(f"{source.path.relative_to(ROOT)}:{source.line(mutant)}: "
                         f"{mutant.function}: {mutant.kind}: {source.excerpt(mutant)}"
                         f"   [{mutant.id}, {fate}{'; ' + reason if reason else ''}]")
        self._survivors.write_text(json.dumps(
            [self._name(*pair) for pair, fate in results if fate != "killed"], indent=1))
        print("\n".join(sorted(lines)))
        total = len(results)
        print(f"{total} mutants, {dead} killed ({100 * dead / total:.1f} %), {excused} explained, "
              f"{total - dead - excused} survived unexplained, {wrong} killed though explained")
        return 0 if not wrong and dead + excused >= self._options.goal / 100 * total else 1


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__)
    parser.add_argument("--sample", type=int, metavar="N", help="so many mutants, drawn by --seed")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", metavar="TEXT", help="only in files whose path has TEXT in it")
    parser.add_argument("--again", action="store_true", help="only those that survived the last run")
    parser.add_argument("--mutant", type=int, metavar="NUMBER", help="only this one")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--goal", type=float, default=95, metavar="PERCENT",
                        help="exit code 1 where fewer are killed or explained (95)")
    return Campaign(parser.parse_args()).run()


if __name__ == "__main__":
    sys.exit(main())
