"""kelvane.tec's copy of the TEC CSV file's layout and checks, held against the library's: a
C++ program prints what the library writes for samples on both sides of each check, and how the
library judges them. The browser pages' copy of the floor is held against it too."""
import json
import re
import subprocess
from datetime import datetime

from conftest import PACKAGE, built
from kelvane import tec


def test_the_package_reads_and_judges_the_csv_lines_as_the_library_writes_and_judges_them():
    facts = json.loads(subprocess.run([built("KELVANE_TEC_CSV_REFERENCE")], check=True,
                                      capture_output=True, text=True).stdout)
    assert facts["header"] == tec.CSV_HEADER + "\r\n"
    assert (facts["floor"], facts["band"]) == (tec.FLOOR_CELSIUS, tec.AGREEMENT_BAND_CELSIUS)
    tools = PACKAGE.parent / "tools"
    drawings = (tools / "web" / "assets" / "drawings.js").read_text()
    panel = (tools / "kelvane-sim" / "panel" / "index.html").read_text()
    assert re.findall(r"const temperatureFloor = ([\d.]+);", drawings) == [str(facts["floor"])]
    assert re.findall(r"the ([\d.]+) °C floor", panel) == [str(facts["floor"])]
    for reading in facts["readings"]:
        record = tec.parse_tec_record(reading["line"])
        assert (record.timestamp, record.item) == (datetime(2026, 1, 2, 14, 4, 5, 250000), "step")
        assert (tec.below_floor(record), tec.sensors_apart(record)) == (reading["below"], reading["apart"]), reading
    assert tec.parse_tec_record(facts["missing"]).missing == ("sensor3", "power")
