"""kelvane-tec-plot as installed by pip, on the CSV files of a real monitoring run: the library's
workers sampling two slots of kelvane-sim with faults injected, switched on twice."""
import os
import re
import shutil
import struct
import subprocess
import sys
from pathlib import Path

from conftest import built

PACKAGE = Path(__file__).resolve().parents[1]


def install_package(folder):
    """The package installed offline into a virtual environment over the system's packages; the
    command-line entry of the environment."""
    source = folder / "source"
    shutil.copytree(PACKAGE, source, ignore=shutil.ignore_patterns("tests", "build", "*.egg-info"))
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip",
                    folder / "venv"], check=True)
    subprocess.run([folder / "venv" / "bin" / "python", "-m", "pip", "install", "--quiet",
                    "--no-build-isolation", "--no-index", source], check=True)
    return folder / "venv" / "bin" / "kelvane-tec-plot"


def test_the_plot_and_summary_of_a_monitoring_run_with_faults(simulator, tmp_path):
    simulator.control("sim.set", {"tec_faults": [
        {"kind": "low_reading", "slot": 1, "sensor": 1, "times": 1},  # below and apart
        {"kind": "low_reading", "slot": 1, "sensor": 4, "times": 2},  # below only
        {"kind": "send_refused", "slot": 2, "times": 1},  # a missing reply
        {"kind": "sensor_offset", "slot": 2, "times": 3}]})
    run = subprocess.run([built("KELVANE_TEC_WORKER_RUN"), str(simulator.port), tmp_path / "root", "3", "2", "1", "2"],
                         check=True, capture_output=True, text=True, timeout=120)
    records, *csv_files = run.stdout.split()
    tool = install_package(tmp_path)

    environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    plotted = subprocess.run([tool, "--summary", "--dpi", "40", "-o", tmp_path / "tec.png", *csv_files],
                             check=True, capture_output=True, text=True, env=environment)
    summary = plotted.stdout
    assert re.search(r"^failure records: (\d+) ", summary, re.M).group(1) == records, summary
    assert int(records) >= 3, "the injected faults failed the checks"
    assert summary.count(" 2 switch-ons") == 2 and "Unit2: " in summary, summary
    assert int(re.search(r"Unit2: \d+ samples, (\d+) with missing", summary).group(1)) >= 1, summary
    png = (tmp_path / "tec.png").read_bytes()
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR"
    assert struct.unpack(">II", png[16:24]) == (400, 260), "10 x 6.5 inches at 40 dpi"
