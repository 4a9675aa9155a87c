#!/usr/bin/env python3
"""What report.py counts."""

import unittest

from report import add_line, decisions


def branch(count, fallthrough=False, throw=False):
    return {"count": count, "fallthrough": fallthrough, "throw": throw}


def seen(*instances):
    """One line, as these instances of a function have seen it: count and branches of each."""
    lines = {}
    for count, branches in instances:
        add_line(lines, {"line_number": 1, "count": count, "branches": branches})
    return lines[1]


def condition(yes, no):
    return [branch(yes, fallthrough=True), branch(no)]


CALL = [branch(3, fallthrough=True), branch(0, throw=True)]


class ReportTest(unittest.TestCase):
    def test_the_ways_out_of_a_call_are_no_branches(self):
        self.assertEqual(decisions(CALL), [])
        self.assertEqual(decisions(list(reversed(CALL))), [])
        self.assertEqual(decisions(condition(1, 2) + CALL), condition(1, 2))
        self.assertEqual(decisions(CALL + condition(1, 2)), condition(1, 2))

    def test_a_branch_that_nobody_has_taken_is_seen(self):
        self.assertEqual(list(seen((5, condition(5, 0))).shapes.values()), [[5, 0]])

    def test_instances_count_together(self):
        line = seen((5, condition(5, 0)), (2, condition(0, 2)))
        self.assertEqual(line.count, 7)
        self.assertEqual(list(line.shapes.values()), [[5, 2]])

    def test_an_instance_that_nobody_has_called_says_nothing_of_branches(self):
        line = seen((5, condition(2, 3)), (0, condition(0, 0) * 2))
        self.assertEqual(list(line.shapes.values()), [[2, 3]])

    def test_what_an_instance_has_been_made_differently_for_counts_apart(self):
        line = seen((5, condition(2, 3)), (1, condition(1, 0) * 2))
        self.assertEqual(list(line.shapes.values()), [[2, 3], [1, 0, 1, 0]])

    def test_a_line_that_nobody_has_executed_is_seen(self):
        self.assertEqual(seen((0, [])).count, 0)


if __name__ == "__main__":
    unittest.main()
