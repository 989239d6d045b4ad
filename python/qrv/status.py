"""The printer's status: its fields, their values, and the records events carry."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from typing import Union, cast


class StatusField(enum.IntEnum):
    """The status fields, in order."""

    POWER = 0
    CASSETTE_DOOR = 1
    CASSETTE_PRESENCE = 2
    PRINT_HEAD_TEMPERATURE = 3
    CUTTER = 4
    LABEL = 5
    CASSETTE_MEMORY = 6
    PRINT = 7
    EXTERNAL_POWER = 8
    BATTERY = 9
    CHARGING = 10


class PowerStatus(enum.IntEnum):
    OK = 0
    LOW = 1
    CRITICAL = 2
    UNKNOWN = 3


class DoorStatus(enum.IntEnum):
    CLOSED = 0
    OPEN = 1
    ERROR = 2
    UNKNOWN = 3


class CassettePresence(enum.IntEnum):
    PRESENT = 0
    ABSENT = 1
    PRESENT_UNVERIFIED = 2
    UNKNOWN = 3
    INVALID = 4


class PrintHeadTemperature(enum.IntEnum):
    NORMAL = 0
    WARM = 1
    HOT = 2
    UNKNOWN = 3
    INVALID = 4


class CutterStatus(enum.IntEnum):
    OK = 0
    BUSY = 1
    JAMMED = 2
    BLADE_ERROR = 3
    ERROR = 4
    UNKNOWN = 5


class LabelStatus(enum.IntEnum):
    OK = 0
    OUT = 1
    JAMMED = 2
    LOW = 3
    NOT_TAKEN = 4
    ERROR = 5
    UNKNOWN = 6


class CassetteMemoryStatus(enum.IntEnum):
    OK = 0
    UNREADABLE = 1
    ERROR = 2
    UNKNOWN = 3


class PrintStatus(enum.IntEnum):
    IDLE = 0
    PRINTING = 1
    PAUSED = 2
    ABORTED = 3
    COOLING = 4
    ERROR = 5
    UNKNOWN = 6


class ExternalPowerStatus(enum.IntEnum):
    DISCONNECTED = 0
    CONNECTED = 1
    ERROR = 2
    UNKNOWN = 3


class BatteryStatus(enum.IntEnum):
    """The battery's charge level, EMPTY to FULL in six steps."""

    EMPTY = 0
    LEVEL_1 = 1
    LEVEL_2 = 2
    LEVEL_3 = 3
    LEVEL_4 = 4
    FULL = 5
    ERROR = 6
    UNKNOWN = 7


class ChargingStatus(enum.IntEnum):
    OFF = 0
    ON = 1
    ERROR = 2
    UNKNOWN = 3


#: The value of any one status field.
StatusValue = Union[
    PowerStatus,
    DoorStatus,
    CassettePresence,
    PrintHeadTemperature,
    CutterStatus,
    LabelStatus,
    CassetteMemoryStatus,
    PrintStatus,
    ExternalPowerStatus,
    BatteryStatus,
    ChargingStatus,
]

#: The enumeration of each field's values, in field order.
FIELD_VALUES: tuple[type[StatusValue], ...] = (
    PowerStatus,
    DoorStatus,
    CassettePresence,
    PrintHeadTemperature,
    CutterStatus,
    LabelStatus,
    CassetteMemoryStatus,
    PrintStatus,
    ExternalPowerStatus,
    BatteryStatus,
    ChargingStatus,
)


def field_value(field: StatusField, value: int) -> StatusValue:
    """The typed value of one field; a number the field does not know reads as its UNKNOWN."""
    values = FIELD_VALUES[field]
    try:
        return values(value)
    except ValueError:
        return cast(StatusValue, values["UNKNOWN"])


@dataclass(frozen=True)
class StatusItem:
    """One status field and its value (an item of errors() and of status-change events)."""

    field: StatusField
    value: StatusValue


@dataclass(frozen=True)
class PrinterStatus:
    """The whole status of the printer, one attribute per field."""

    power: PowerStatus
    cassette_door: DoorStatus
    cassette_presence: CassettePresence
    print_head_temperature: PrintHeadTemperature
    cutter: CutterStatus
    label: LabelStatus
    cassette_memory: CassetteMemoryStatus
    print: PrintStatus
    external_power: ExternalPowerStatus
    battery: BatteryStatus
    charging: ChargingStatus


class InterruptIssue(enum.IntEnum):
    """Why printing stopped."""

    CASSETTE_DOOR_OPEN = 0
    CASSETTE_MISSING = 1
    CASSETTE_MEMORY_ERROR = 2
    LABEL_JAMMED = 3
    LABEL_LOW = 4
    BATTERY_LOW = 5
    POWER_LOW = 6
    POWER_CRITICAL = 7
    CUTTER_BLADE_ERROR = 10
    CUTTER_JAMMED_OR_LABEL_NOT_TAKEN = 11
    OTHER_ERROR = 12


@dataclass(frozen=True)
class PrintInterrupt:
    """A print interrupt: the issue, the printer's own code and the status record's value."""

    issue: InterruptIssue
    code: int
    value: int
