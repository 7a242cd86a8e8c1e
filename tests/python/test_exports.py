"""The shared library exports exactly the C functions that <kelvane/kelvane.h> declares.

A function declared but not exported fails at the host's load time; an unmangled function
exported but not declared is a symbol a host could bind to by accident (or one that a C++
file forgot to keep out of C linkage). C++ symbols (mangled, "_Z...") are the classes'
public interface and are not checked here.
"""
import os
import re
import subprocess
import unittest
from pathlib import Path

HEADER = Path(__file__).resolve().parents[2] / "include" / "kelvane" / "kelvane.h"
DECLARATION = re.compile(r"KELVANE_API\s+[^;(]*?\b(\w+)\s*\(", re.S)
FUNCTION_SYMBOL_TYPES = {"T", "W", "i"}


def declared_functions():
    return set(DECLARATION.findall(HEADER.read_text()))


def exported_unmangled_functions(library):
    listing = subprocess.run(["nm", "-D", "--defined-only", library],
                             check=True, capture_output=True, text=True).stdout
    names = set()
    for line in listing.splitlines():
        fields = line.split()
        if len(fields) == 3 and fields[1] in FUNCTION_SYMBOL_TYPES and not fields[2].startswith("_"):
            names.add(fields[2].split("@")[0])
    return names


class ExportListTest(unittest.TestCase):
    def test_exported_c_functions_are_exactly_those_the_header_declares(self):
        library = os.environ.get("KELVANE_LIBRARY")
        self.assertTrue(library and Path(library).is_file(),
                        "KELVANE_LIBRARY must name the built libKelvane")
        declared = declared_functions()
        self.assertGreaterEqual(len(declared), 17, "the header parse found too few functions")
        exported = exported_unmangled_functions(library)
        self.assertEqual(set(), declared - exported, "declared in kelvane.h but not exported")
        self.assertEqual(set(), exported - declared, "exported with C linkage but not in kelvane.h")


if __name__ == "__main__":
    unittest.main(verbosity=2)
