"""kelvane-tec-plot: draws the TEC CSV files of a fixture's slots as a PNG, and summarises them.

The upper panel shows the four sensors of each file over time with the 21.5 °C floor; samples
failing the library's checks are marked (a sensor below the floor; sensors 1 to 3 more than
3 degrees apart), a reading with missing answers leaves a gap, and each switch-on of the
monitoring is a vertical line. The lower panel shows the PWM and the current.
"""
from __future__ import annotations

import argparse
import math
import sys
from dataclasses import dataclass, field
from datetime import datetime
from pathlib import Path
from typing import List, Optional, Sequence

from kelvane.tec import (FLOOR_CELSIUS, SwitchOn, TecRecord, below_floor, read_tec_csv,
                         sensors_apart)

FIGURE_INCHES = (10.0, 6.5)
SENSOR_COLOURS = ("tab:blue", "tab:orange", "tab:green", "tab:purple")
FILE_LINE_STYLES = ("-", "--", ":", "-.")


@dataclass
class SlotLog:
    """One CSV file laid out for drawing: a gap (None) for each reading with missing replies and
    at each switch-on, so that no line joins across them."""

    name: str
    samples: List[Optional[TecRecord]] = field(default_factory=list)
    switch_ons: List[datetime] = field(default_factory=list)
    missing: List[datetime] = field(default_factory=list)

    @classmethod
    def read(cls, path: Path) -> "SlotLog":
        log = cls(path.stem.removeprefix("TecTemp_"))
        pending_switch_on = False
        for entry in read_tec_csv(path):
            if isinstance(entry, SwitchOn):
                pending_switch_on = True
                continue
            if pending_switch_on:
                # A header carries no time: the switch-on shows at the first reading after it.
                log.switch_ons.append(entry.timestamp)
                log.samples.append(None)
                pending_switch_on = False
            if entry.complete:
                log.samples.append(entry)
            else:
                log.missing.append(entry.timestamp)
                log.samples.append(None)
        return log

    @property
    def complete(self) -> List[TecRecord]:
        return [sample for sample in self.samples if sample is not None]


def _column(samples: Sequence[Optional[TecRecord]], value) -> List[float]:
    return [math.nan if s is None else value(s) for s in samples]


def _times(log: SlotLog) -> List[datetime]:
    # A gap takes the time of its neighbour, so the axis stays in order.
    times, last = [], None
    for sample in log.samples:
        last = sample.timestamp if sample is not None else last
        times.append(last)
    first = next((t for t in times if t is not None), None)
    return [t if t is not None else first for t in times]


def draw(logs: List[SlotLog], output: Path, dpi: int, title: str) -> None:
    import matplotlib
    matplotlib.use("Agg")  # no display needed
    import matplotlib.dates
    import matplotlib.pyplot as plt

    figure, (temperatures, power) = plt.subplots(
        2, 1, sharex=True, figsize=FIGURE_INCHES, gridspec_kw={"height_ratios": [2, 1]})
    current = power.twinx()
    for index, log in enumerate(logs):
        _draw_slot(log, FILE_LINE_STYLES[index % len(FILE_LINE_STYLES)], temperatures, power, current)
    temperatures.axhline(FLOOR_CELSIUS, color="black", linewidth=0.8, label="21.5 °C floor")
    temperatures.plot([], [], "--", color="grey", linewidth=0.8, label="switch-on")
    temperatures.set_ylabel("°C")
    temperatures.set_title(title)
    # One entry per label, the first file's, however many files drew it.
    entries = {}
    for handle, label in zip(*temperatures.get_legend_handles_labels()):
        entries.setdefault(label, handle)
    temperatures.legend(entries.values(), entries.keys(), fontsize="small", loc="upper left",
                        bbox_to_anchor=(1.01, 1.0))
    figure.subplots_adjust(left=0.07, right=0.78)
    power.set_ylabel("PWM (%)", color="tab:red")
    current.set_ylabel("current (A)", color="tab:brown")
    power.xaxis.set_major_formatter(matplotlib.dates.DateFormatter("%H:%M:%S"))
    power.set_xlabel("time")
    figure.autofmt_xdate()
    figure.savefig(output, dpi=dpi, format="png")
    plt.close(figure)


def _draw_slot(log: SlotLog, style: str, temperatures, power, current) -> None:
    times = _times(log)
    # Colour tells the sensor, line style the file.
    for sensor in range(4):
        temperatures.plot(times, _column(log.samples, lambda s: s.sensors[sensor]), style,
                          color=SENSOR_COLOURS[sensor], linewidth=1, label=f"sensor {sensor + 1}")
    temperatures.plot([], [], style, color="black", linewidth=1, label=log.name)
    power.plot(times, _column(log.samples, lambda s: s.pwm), style, color="tab:red", linewidth=1)
    current.plot(times, _column(log.samples, lambda s: s.current), style, color="tab:brown",
                 linewidth=1)
    _mark_failures(temperatures, log)
    for axis in (temperatures, power):
        for moment in log.switch_ons:
            axis.axvline(moment, color="grey", linestyle="--", linewidth=0.8)
    if log.missing:
        temperatures.plot(log.missing, [FLOOR_CELSIUS] * len(log.missing), "|", color="grey",
                          markersize=12, label="missing reply")


def _mark_failures(axis, log: SlotLog) -> None:
    low = [(s.timestamp, t) for s in log.complete if below_floor(s)
           for t in s.sensors if t < FLOOR_CELSIUS]
    apart = [(s.timestamp, t) for s in log.complete if sensors_apart(s) for t in s.sensors[:3]]
    for points, marker, colour, label in ((low, "v", "red", "below the floor"),
                                          (apart, "x", "magenta", "sensors 1–3 apart")):
        if points:
            axis.plot(*zip(*points), marker, color=colour, markersize=7, linestyle="none",
                      label=label)


def summary(logs: List[SlotLog]) -> str:
    lines = []
    totals = {"below": 0, "apart": 0}
    for log in logs:
        complete = log.complete
        lines.append(f"{log.name}: {len(complete)} samples, {len(log.missing)} with missing "
                     f"replies, {len(log.switch_ons)} switch-ons")
        for sensor in range(4):
            values = [s.sensors[sensor] for s in complete]
            if values:
                lines.append(f"  sensor {sensor + 1}: min {min(values):.2f}  "
                             f"mean {sum(values) / len(values):.2f}  max {max(values):.2f}")
        below = sum(below_floor(s) for s in complete)
        apart = sum(sensors_apart(s) for s in complete)
        lines.append(f"  failures: {below} below the floor, {apart} sensors apart")
        totals["below"] += below
        totals["apart"] += apart
    lines.append(f"failure records: {totals['below'] + totals['apart']} "
                 f"({totals['below']} below the floor, {totals['apart']} sensors apart)")
    return "\n".join(lines)


def _arguments(argv: Optional[Sequence[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="kelvane-tec-plot",
        description="Draw the TEC CSV files libKelvane writes (TecTemp_<fixture>_Unit<n>.csv) "
                    "as a PNG, and print their summary.")
    parser.add_argument("files", nargs="+", type=Path, metavar="CSV", help="TEC CSV files")
    parser.add_argument("-o", "--output", type=Path, metavar="FILE", help="the PNG to write")
    parser.add_argument("--summary", action="store_true",
                        help="print each sensor's minimum, mean and maximum and the failure counts; "
                             "the last line's count is that of the library's failure records")
    parser.add_argument("--dpi", type=int, default=100,
                        help="dots per inch; the image is 10 x 6.5 inches (default: 100)")
    parser.add_argument("--title", default="TEC temperatures", help="the plot's title")
    arguments = parser.parse_args(argv)
    if arguments.output is None and not arguments.summary:
        parser.error("nothing to do: give -o FILE, --summary or both")
    return arguments


def main(argv: Optional[Sequence[str]] = None) -> int:
    arguments = _arguments(argv)
    try:
        logs = [SlotLog.read(path) for path in arguments.files]
    except (OSError, ValueError) as error:
        print(f"kelvane-tec-plot: {error}", file=sys.stderr)
        return 1
    if arguments.summary:
        print(summary(logs))
    if arguments.output is not None:
        try:
            draw(logs, arguments.output, arguments.dpi, arguments.title)
        except ImportError:
            print("kelvane-tec-plot: drawing needs matplotlib (Debian: python3-matplotlib)",
                  file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
