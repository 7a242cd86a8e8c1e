"""kelvane-tec-plot as installed by pip, on the CSV files of two slots each switched on twice, with
readings on both sides of the library's checks and one with a missing reply."""
import struct
import subprocess

from conftest import without_source_tree
from kelvane.tec import CSV_HEADER

# The sensors of each reading (PWM -35.20, current 1.25); None: the second sensor's reply missing.
SLOTS = {1: [CSV_HEADER, ("21.49", "25.00", "25.00", "25.00"),  # below the floor and apart
             ("25.00", "25.00", "25.00", "21.50"), CSV_HEADER,  # sensor 4 only on the floor
             ("25.00", "25.00", "25.00", "21.49"), ("25.00", "28.00", "25.00", "25.00")],
         2: [CSV_HEADER, None, ("25.00", "28.01", "25.00", "25.00"), CSV_HEADER,
             ("25.00", "25.00", "25.00", "25.00")]}


def write_csv(folder, slot, lines):
    path = folder / f"TecTemp_Fixture1_Unit{slot}.csv"
    answer = "TEC temp: 25.00 C OK"
    with path.open("w", newline="") as file:
        for second, line in enumerate(lines):
            stamp = f"01/02/2026 14:04:{second:02}.006,"
            if line is None:
                file.write(f"{stamp}{answer},,{answer},{answer},(null) get null value.\r\n")
            else:
                file.write(line + "\r\n" if line == CSV_HEADER else f"{stamp}{','.join(line)},-35.20,1.25,step\r\n")
    return path


def test_the_plot_and_summary_of_two_slots_switched_on_twice(tmp_path, installed_package):
    csv_files = [write_csv(tmp_path, slot, lines) for slot, lines in SLOTS.items()]
    summary = subprocess.run([installed_package / "bin" / "kelvane-tec-plot", "--summary", "--dpi", "40", "-o", tmp_path / "tec.png", *csv_files],
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
