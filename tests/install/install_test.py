"""What `cmake --install` leaves behind, as somebody finds it who has nothing else of this project.

The prefix is moved to another place before anything is asked of it.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
CONSUMER = os.path.join(HERE, "consumer")

# Programs and libraries must find each other without help from outside.
ENVIRONMENT = {
    name: value
    for name, value in os.environ.items()
    if name in ("PATH", "HOME") or name.startswith("CCACHE_")
}
OPTIONS = None


def run(*command, **extra):
    done = subprocess.run(
        [str(word) for word in command],
        env={**ENVIRONMENT, **extra},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
    )
    if done.returncode:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def files_below(directory):
    return {
        os.path.relpath(os.path.join(parent, name), directory)
        for parent, _, names in os.walk(directory)
        for name in names
    }


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(OPTIONS.scratch, ignore_errors=True)
        first = os.path.join(OPTIONS.scratch, "first")
        cls.prefix = os.path.join(OPTIONS.scratch, "elsewhere", "prefix")
        run(OPTIONS.cmake, "--install", OPTIONS.build, "--prefix", first)
        os.makedirs(os.path.dirname(cls.prefix))
        os.rename(first, cls.prefix)
        cls.include = os.path.join(cls.prefix, "include")
        cls.pkg_config = {
            "PKG_CONFIG_PATH": os.path.join(cls.prefix, OPTIONS.libdir, "pkgconfig")
        }

    def scratch(self, name):
        path = os.path.join(OPTIONS.scratch, name)
        os.makedirs(path)
        return path

    def flags(self, *what):
        return run("pkg-config", *what, "VeloSdkRpcExt", **self.pkg_config).split()

    def test_the_headers_are_those_that_the_interface_includes_and_no_others(self):
        """An umbrella header is called as its directory; in VeloSdkRpc/ every header is public."""
        headers = {name for name in files_below(self.include) if name.endswith(".h")}
        interface = [
            name
            for name in sorted(headers)
            if re.fullmatch(r"VeloSdkRpc/\w+\.h|(?:.*/)?(\w+)/\1\.h", name)
        ]
        source = os.path.join(self.scratch("headers"), "all.cpp")
        with open(source, "w", encoding="utf-8") as file:
            file.writelines(
                f'#include "{name.removeprefix("velo-platform/")}"\n' for name in interface
            )
        rule = run(OPTIONS.compiler, "-std=c++20", "-MM", *self.flags("--cflags"), source)
        reached = {
            os.path.relpath(os.path.realpath(word), os.path.realpath(self.include))
            for word in rule.replace("\\\n", " ").split()
            if word.endswith(".h")
        }
        self.assertIn("VeloSdkRpc/PbrCountersMgr.h", interface)
        self.assertIn("velo-platform/Lumo/Lumo.h", interface)
        self.assertEqual(headers, reached)

    def test_a_consumer_finds_it_with_find_package(self):
        build = self.scratch("find_package")
        run(
            OPTIONS.cmake,
            *("-S", CONSUMER, "-B", build, "-G", "Ninja"),
            f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_COMPILER={OPTIONS.compiler}",
            f"-DCMAKE_CXX_COMPILER_LAUNCHER={OPTIONS.launcher}",
        )
        run(OPTIONS.cmake, "--build", build)
        self.assertEqual("", run(os.path.join(build, "consumer")))

    def test_a_consumer_finds_it_with_pkg_config(self):
        program = os.path.join(self.scratch("pkg_config"), "consumer")
        run(
            OPTIONS.compiler,
            *("-std=c++20", os.path.join(CONSUMER, "main.cpp"), "-o", program),
            *self.flags("--cflags", "--libs"),
        )
        libraries = os.path.join(self.prefix, OPTIONS.libdir)
        self.assertEqual("", run(program, LD_LIBRARY_PATH=libraries))

    def test_the_programs_run(self):
        programs = os.path.join(self.prefix, "bin")
        self.assertEqual({"velo-agent", "veloctl"}, files_below(programs))
        for program in "velo-agent", "veloctl":
            version = run(os.path.join(programs, program), "--version")
            self.assertIn(OPTIONS.version, version)

    def test_the_agent_comes_with_what_runs_and_explains_it(self):
        files = files_below(self.prefix)
        for path in (
            "share/man/man8/velo-agent.8",
            "share/man/man1/veloctl.1",
            "share/velo-agent/proto/velo/rpc/v1/pbr_counters.proto",
        ):
            self.assertIn(path, files)
        with open(
            os.path.join(self.prefix, "lib/systemd/system/velo-agent.service"), encoding="utf-8"
        ) as file:
            start = re.search(r"^ExecStart=(\S+) --config (\S+)$", file.read(), re.MULTILINE)
        # A unit must name whole paths: those of the place that was installed to.
        first = os.path.join(OPTIONS.scratch, "first")
        self.assertEqual(f"{first}/bin/velo-agent", start[1])
        self.assertEqual(f"{first}/etc/velo-agent.conf", start[2])
        self.assertIn("etc/velo-agent.conf", files)

    def test_a_configuration_that_is_there_stays(self):
        prefix = self.scratch("again")
        configuration = os.path.join(prefix, "etc", "velo-agent.conf")
        os.makedirs(os.path.dirname(configuration))
        with open(configuration, "w", encoding="utf-8") as file:
            file.write("source = none\n")
        run(OPTIONS.cmake, "--install", OPTIONS.build, "--component", "agent", "--prefix", prefix)
        with open(configuration, encoding="utf-8") as file:
            self.assertEqual("source = none\n", file.read())


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in "build", "cmake", "compiler", "launcher", "libdir", "scratch", "version":
        parser.add_argument(f"--{option}", required=True)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
