"""Plain records and choices of the printer's operations (besides its status)."""

from __future__ import annotations

import enum
from dataclasses import dataclass


@dataclass(frozen=True)
class PrinterInfo:
    """One attached (or simulated) printer as discovery sees it."""

    #: What open() takes: the print-queue name, or "<model> (<serial>)" for a printer without one.
    name: str
    model: str
    serial: str
    channel_path: str
    status_path: str
    vendor_id: int
    product_id: int
    #: True when `name` is a print-queue name, False for the fallback name.
    is_queue_name: bool
    #: True for a printer registered through QRV_VIRTUAL_PRINTERS (a simulator).
    is_virtual: bool


@dataclass(frozen=True)
class FileEntry:
    """One entry of a printer folder."""

    name: str
    is_directory: bool
    size: int


@dataclass(frozen=True)
class DiskSpace:
    """Free and used space of the printer's disk, in whole KiB."""

    free_kib: int
    used_kib: int


class CutterMode(enum.IntEnum):
    EACH_LABEL = 0
    AFTER_JOB = 1
    NONE = 2


class Library(enum.IntEnum):
    """The printer's folders."""

    IMAGE = 0
    JOB_FILE = 1
    TEMPLATE = 2
    UPDATE = 3


class UpdatePhase(enum.IntEnum):
    """The steps of a firmware update, each told as it begins."""

    WAITING_FOR_PRINTER = 0
    COPYING = 1
    APPLYING = 2
    WAITING = 3
    CLEANING_UP = 4
    DONE = 5
