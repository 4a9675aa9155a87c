#!/usr/bin/env python3
"""What check_vtables.py must notice."""

import unittest

from check_vtables import compare, read_dump, read_expectations

DUMP = """
Vtable for N::Abstract
N::Abstract::_ZTVN1N3AbsE: 8 entries
0     (int (*)(...))0
8     (int (*)(...))(& _ZTIN1N3AbsE)
16    0
24    0
32    (int (*)(...))N::Base::last
40    (int (*)(...))__cxa_pure_virtual

Class N::Abstract
   size=8 align=8
N::Abstract (0x0x7f762f20e1a0) 0 nearly-empty

Vtable for N::Both
N::Both::_ZTVN1N4BothE: 11 entries
0     (int (*)(...))0
8     (int (*)(...))(& _ZTIN1N4BothE)
16    (int (*)(...))N::Both::~Both
24    (int (*)(...))N::Both::~Both
32    (int (*)(...))N::Base::last
40    (int (*)(...))N::Both::push
48    (int (*)(...))-8
56    (int (*)(...))(& _ZTIN1N4BothE)
64    (int (*)(...))N::Both::_ZThn8_N1N4BothD1Ev
"""

BOTH = "N::Both\n   destructor\n   deleting destructor\n   last\n   push\n"


def complaints(expectations):
    return compare(read_expectations(expectations), read_dump(DUMP))


class CheckVtables(unittest.TestCase):
    def test_accepts_the_slots_in_their_order(self):
        self.assertEqual(complaints(BOTH), [])

    def test_sees_the_open_slots_and_the_destructors_of_an_abstract_class(self):
        self.assertEqual(
            read_dump(DUMP)["N::Abstract"],
            ["destructor", "deleting destructor", "N::Base::last", "pure"],
        )

    def test_tells_whose_function_stands_in_a_slot(self):
        self.assertEqual(complaints(BOTH.replace("last", "N::Base::last")), [])
        self.assertEqual(len(complaints(BOTH.replace("last", "N::Both::last"))), 1)

    def test_refuses_swapped_slots(self):
        self.assertEqual(len(complaints(BOTH.replace("last", "x").replace("push", "last"))), 1)

    def test_refuses_a_slot_too_many_and_one_too_few(self):
        self.assertEqual(len(complaints(BOTH + "   more\n")), 1)
        self.assertEqual(len(complaints(BOTH.replace("   push\n", ""))), 1)

    def test_refuses_a_class_that_is_not_there(self):
        self.assertEqual(
            complaints("N::Gone\n   f\n"), ["N::Gone: no such class, or it has no virtual table"]
        )

    def test_refuses_expectations_that_expect_nothing(self):
        for text in ["", "# only a comment\n", "N::Both\n", "   slot\n", BOTH + BOTH]:
            with self.assertRaises(ValueError):
                read_expectations(text)


if __name__ == "__main__":
    unittest.main()
