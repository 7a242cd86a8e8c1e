"""TEC readings as the library writes them: one line per reading, and the CSV files of a slot's
monitoring, with the checks the library makes on each sample.

The layout and the checks copy the library's (src/protocol/include/kelvane/protocol/tec_csv.hpp);
tests/test_tec_csv.py holds the copy against what the library writes."""
from __future__ import annotations

import struct
from dataclasses import dataclass
from datetime import datetime
from pathlib import Path
from typing import List, Optional, Tuple, Union

TIME_STAMP_FORMAT = "%m/%d/%Y %H:%M:%S.%f"
CSV_HEADER = "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname"
# A reading with an answer missing ends in this after the answers as they came.
MISSING_MARK = " get null value."
REPLY_NAMES = ("sensor1", "sensor2", "sensor3", "sensor4", "power")
NO_REPLY = "(null)"

# The library's checks of a monitored sample.
FLOOR_CELSIUS = 21.5
AGREEMENT_BAND_CELSIUS = 3.0


@dataclass(frozen=True)
class TecRecord:
    """One TEC reading of a slot.

    A complete reading has the four sensors in degrees Celsius, the PWM in percent and the
    current in amperes, and `missing` is empty. A reading for which the controller left answers
    out names them in `missing` (of "sensor1" to "sensor4" and "power") and has no numbers.
    `item` is the test step running in the slot, None when there was none.
    """

    timestamp: datetime
    sensors: Tuple[Optional[float], Optional[float], Optional[float], Optional[float]]
    pwm: Optional[float]
    current: Optional[float]
    item: Optional[str]
    missing: Tuple[str, ...] = ()

    @property
    def complete(self) -> bool:
        return not self.missing


def parse_tec_record(line: str) -> TecRecord:
    """Parses one reading line (with or without its line ending). Raises ValueError for a line
    that is not one, such as the CSV header."""
    line = line.rstrip("\r\n")
    stamp, _, rest = line.partition(",")
    try:
        timestamp = datetime.strptime(stamp, TIME_STAMP_FORMAT)
        if rest.endswith(MISSING_MARK):
            return _missing_reply_record(timestamp, rest[: -len(MISSING_MARK)])
        fields = rest.split(",", 6)
        numbers = [float(field) for field in fields[:6]]
        item = fields[6]
    except (ValueError, IndexError):
        raise ValueError(f"not a TEC reading: {line!r}") from None
    return TecRecord(timestamp, tuple(numbers[:4]), numbers[4], numbers[5],
                     None if item == NO_REPLY else item)


def _missing_reply_record(timestamp: datetime, answers: str) -> TecRecord:
    # The answers stand as they came, and the power answer holds commas of its own; the
    # temperature answers hold none, so the first four commas separate the five.
    parts = answers.split(",", 4)
    if len(parts) != len(REPLY_NAMES):
        raise ValueError(answers)
    missing = tuple(name for name, part in zip(REPLY_NAMES, parts) if part in (NO_REPLY, ""))
    # When an answer's own commas hide which one was missing, none of them counts.
    return TecRecord(timestamp, (None, None, None, None), None, None, None,
                     missing or REPLY_NAMES)


def _single(value: float) -> float:
    """The value as the library holds it: a 32-bit float."""
    return struct.unpack("f", struct.pack("f", value))[0]


def below_floor(record: TecRecord) -> bool:
    """The library's minimum-temperature check: any of the four sensors below 21.5 °C."""
    return record.complete and any(FLOOR_CELSIUS > _single(s) for s in record.sensors)


def sensors_apart(record: TecRecord) -> bool:
    """The library's agreement check: two of sensors 1 to 3 more than 3 degrees apart (sensor 4
    is left out). Compared in 32-bit floats, as the library does, so a sample on the band's
    edge counts the same here."""
    if not record.complete:
        return False
    s = [_single(value) for value in record.sensors[:3]]
    return any(abs(_single(a - b)) > AGREEMENT_BAND_CELSIUS
               for a, b in ((s[0], s[1]), (s[0], s[2]), (s[1], s[2])))


def failure_records(record: TecRecord) -> int:
    """How many failure records the library keeps for this sample: one per failed check."""
    return int(below_floor(record)) + int(sensors_apart(record))


@dataclass(frozen=True)
class SwitchOn:
    """A header line: the slot's monitoring was switched on here."""


def read_tec_csv(path: Union[str, Path]) -> List[Union[TecRecord, SwitchOn]]:
    """The lines of a slot's TEC CSV file in order: a SwitchOn for each header line, a TecRecord
    for each reading. Every reading in the file is a monitored sample the library checked (the
    warm-up passes write none). Raises ValueError naming the file and line of anything else."""
    entries: List[Union[TecRecord, SwitchOn]] = []
    text = Path(path).read_bytes().decode("ascii", errors="replace")
    # Only "\n" ends a line: an answer kept in a missing-reply line may hold other controls.
    for number, line in enumerate(text.split("\n"), start=1):
        line = line.rstrip("\r")
        if not line:
            continue
        if line == CSV_HEADER:
            entries.append(SwitchOn())
            continue
        try:
            entries.append(parse_tec_record(line))
        except ValueError as error:
            raise ValueError(f"{path}:{number}: {error}") from None
    return entries
