#!/usr/bin/env python3
"""What check_layers.py must notice."""

import unittest

from check_layers import complaints_about, layer_of, read_layers

LAYERS = read_layers(
    """
# the lowest first
platform/Lumo
platform/Quon   # over Lumo
platform/entities/Mpls
VeloSdkRpc
agent
tests
"""
)
FILES = {
    "platform/Lumo/Lumo.h",
    "platform/Quon/Quon.h",
    "platform/entities/Mpls/Mpls.h",
    "VeloSdkRpc/Mgr.h",
    "VeloSdkRpc/test/Loop.h",
    "agent/Agent.h",
    "tests/fuzz/Fuzz.h",
}


def complaints(path, text):
    return complaints_about(path, text, LAYERS, FILES)


class CheckLayersTest(unittest.TestCase):
    def test_what_is_below_may_be_included(self):
        self.assertEqual(complaints("VeloSdkRpc/Mgr.cpp", '#include "Mpls/Mpls.h"\n'), [])
        self.assertEqual(complaints("agent/Agent.cpp", '#include "VeloSdkRpc/Mgr.h"\n'), [])

    def test_what_is_above_may_not(self):
        self.assertIn(
            '"Quon/Quon.h" is above: platform/Lumo must not know it',
            complaints("platform/Lumo/Node.cpp", '#include "Quon/Quon.h"\n')[0],
        )
        self.assertIn(
            "VeloSdkRpc must not know it",
            complaints("VeloSdkRpc/Mgr.h", 'x\n  #  include "agent/Agent.h"\n')[0],
        )

    def test_a_sibling_is_found_by_its_name_alone(self):
        self.assertEqual(complaints("agent/Other.cpp", '#include "Agent.h"\n'), [])

    def test_what_does_not_exist_is_told(self):
        self.assertIn('there is no "Gone.h"', complaints("agent/A.h", '#include "Gone.h"\n')[0])

    def test_a_dependency_of_the_agent_stays_there(self):
        include = "#include <grpcpp/grpcpp.h>\n"
        self.assertEqual(complaints("agent/A.cpp", include), [])
        self.assertIn("only the agent", complaints("VeloSdkRpc/Mgr.cpp", include)[0])
        generated = '#include "velo/rpc/v1/x.pb.h"\n'
        self.assertEqual(complaints("agent/A.cpp", generated), [])
        self.assertIn("is the agent's", complaints("platform/Quon/A.cpp", generated)[0])

    def test_lean_code_may_use_the_language_the_system_and_fmt(self):
        text = "#include <vector>\n#include <unistd.h>\n#include <arpa/inet.h>\n#include <fmt/format.h>\n"
        self.assertEqual(complaints("platform/Quon/A.cpp", text), [])

    def test_what_is_for_tests_stays_there(self):
        include = '#include "VeloSdkRpc/test/Loop.h"\n'
        self.assertEqual(complaints("VeloSdkRpc/test/A_test.cpp", include), [])
        self.assertEqual(complaints("tests/fuzz/A_fuzz.cpp", include), [])
        self.assertIn("for tests only", complaints("agent/A.cpp", include)[0])

    def test_a_file_that_belongs_nowhere_is_told(self):
        self.assertIn("no part", complaints("platform/New/A.h", "")[0])

    def test_the_most_specific_part_counts(self):
        layers = ["a", "a/b", "c"]
        self.assertEqual(layer_of("a/b/x.h", layers), 1)
        self.assertEqual(layer_of("a/bc/x.h", layers), 0)
        self.assertIsNone(layer_of("d/x.h", layers))


if __name__ == "__main__":
    unittest.main()
