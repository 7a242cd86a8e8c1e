"""The shared library exports exactly the C functions that <kelvane/kelvane.h> declares: one
declared but not exported fails at the host's load time, and one exported but undeclared is a
symbol a host could bind to by accident. C++ symbols (mangled, "_Z...") are not checked."""
import re
import subprocess
import unittest
from pathlib import Path

from kelvane_host import required_path

HEADER = Path(__file__).resolve().parents[2] / "include" / "kelvane" / "kelvane.h"


class ExportListTest(unittest.TestCase):
    def test_exported_c_functions_are_exactly_those_the_header_declares(self):
        declared = set(re.findall(r"KELVANE_API\s+[^;(]*?\b(\w+)\s*\(", HEADER.read_text()))
        self.assertGreaterEqual(len(declared), 18, "the header parse found too few functions")
        listing = subprocess.run(["nm", "-D", "--defined-only", required_path("KELVANE_LIBRARY")],
                                 check=True, capture_output=True, text=True).stdout
        exported = {fields[2].split("@")[0] for fields in map(str.split, listing.splitlines())
                    if len(fields) == 3 and fields[1] in ("T", "W", "i") and not fields[2].startswith("_")}
        self.assertEqual(declared, exported, "kelvane.h and the library's C exports differ")


if __name__ == "__main__":
    unittest.main(verbosity=2)
