"""kelvane.tec's copy of the TEC CSV file's layout and checks, held against the library's (a C++
program prints what the library writes for samples on both sides of each check, and how it judges
them) and against the browser pages' copy of the floor; and kelvane-tec-plot, as installed by pip,
on the CSV files of two slots each switched on twice, with readings on both sides of the checks
and one with a missing reply."""
import json
import re
import struct
import subprocess
from datetime import datetime

from conftest import PACKAGE, built, without_source_tree
from kelvane import tec

# The sensors of each reading (PWM -35.20, current 1.25); None: the second sensor's reply missing.
SLOTS = {1: [tec.CSV_HEADER, ("21.49", "25.00", "25.00", "25.00"),  # below the floor and apart
             ("25.00", "25.00", "25.00", "21.50"), tec.CSV_HEADER,  # sensor 4 only on the floor
             ("25.00", "25.00", "25.00", "21.49"), ("25.00", "28.00", "25.00", "25.00")],
         2: [tec.CSV_HEADER, None, ("25.00", "28.01", "25.00", "25.00"), tec.CSV_HEADER,
             ("25.00", "25.00", "25.00", "25.00")]}


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


def test_the_plot_and_summary_of_two_slots_switched_on_twice(tmp_path, installed_package):
    answer = "TEC temp: 25.00 C OK"
    for slot, lines in SLOTS.items():
        with (tmp_path / f"TecTemp_Fixture1_Unit{slot}.csv").open("w", newline="") as file:
            for second, line in enumerate(lines):
                stamp = f"01/02/2026 14:04:{second:02}.006,"
                file.write(line + "\r\n" if line == tec.CSV_HEADER else
                           f"{stamp}{answer},,{answer},{answer},(null) get null value.\r\n" if line is None else
                           f"{stamp}{','.join(line)},-35.20,1.25,step\r\n")
    summary = subprocess.run([installed_package / "bin" / "kelvane-tec-plot", "--summary", "--dpi", "40", "-o",
                              tmp_path / "tec.png", *sorted(tmp_path.glob("TecTemp_*.csv"))],
                             check=True, capture_output=True, text=True, env=without_source_tree()).stdout
    for line in ("Fixture1_Unit1: 4 samples, 0 with missing replies, 2 switch-ons",
                 "  sensor 1: min 21.49  mean 24.12  max 25.00",
                 "  failures: 2 below the floor, 1 sensors apart",
                 "Fixture1_Unit2: 2 samples, 1 with missing replies, 2 switch-ons",
                 "  failures: 0 below the floor, 1 sensors apart",
                 "failure records: 4 (2 below the floor, 2 sensors apart)"):
        assert line in summary.splitlines(), summary
    png = (tmp_path / "tec.png").read_bytes()
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR"
    assert struct.unpack(">II", png[16:24]) == (400, 260), "10 x 6.5 inches at 40 dpi"
