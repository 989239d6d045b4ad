"""qrv: drive QRV label printers from Python, over the QRV library's C interface (ctypes).

    import qrv

    for info in qrv.printers():
        print(info.name, info.model, info.serial)
    with qrv.open("Label Printer") as printer:
        print(printer.status())
        printer.put("label.job", "/mnt/data/jobs/label.job", progress=lambda done, total: None)

The shared library (libqrv.so.0, qrv.dll) is loaded on first use: the file named by
$QRV_LIBRARY, else the installed one. Failures raise subclasses of qrv.QRVError carrying the
library's message line. Event callbacks run on the library's status monitor thread (qrv.events).
"""

from ._library import library_name
from .discovery import library_version, printers
from .errors import (
    InternalError,
    InvalidArgumentError,
    InvalidDirectoryNameError,
    InvalidFileNameError,
    LibraryNotFoundError,
    NonzeroResultError,
    OperationCancelledError,
    OutOfDiskspaceError,
    OutOfMemoryError,
    PrinterAccessViolationError,
    PrinterCommunicationError,
    PrinterDirectoryNotFoundError,
    PrinterError,
    PrinterFileNotFoundError,
    PrinterNotFoundError,
    QRVError,
    SimulatorError,
)
from .events import Subscription
from .logs import LogLevel, log_to_logging, set_log_level
from .printer import Printer, open
from .records import CutterMode, DiskSpace, FileEntry, Library, PrinterInfo, UpdatePhase
from .simulator import Simulator
from .status import (
    BatteryStatus,
    CassetteMemoryStatus,
    CassettePresence,
    ChargingStatus,
    CutterStatus,
    DoorStatus,
    ExternalPowerStatus,
    InterruptIssue,
    LabelStatus,
    PowerStatus,
    PrinterStatus,
    PrintHeadTemperature,
    PrintInterrupt,
    PrintStatus,
    StatusField,
    StatusItem,
    StatusValue,
)

__version__ = "0.1.0"

__all__ = [
    "BatteryStatus",
    "CassetteMemoryStatus",
    "CassettePresence",
    "ChargingStatus",
    "CutterMode",
    "CutterStatus",
    "DiskSpace",
    "DoorStatus",
    "ExternalPowerStatus",
    "FileEntry",
    "InternalError",
    "InterruptIssue",
    "InvalidArgumentError",
    "InvalidDirectoryNameError",
    "InvalidFileNameError",
    "LabelStatus",
    "Library",
    "LibraryNotFoundError",
    "LogLevel",
    "NonzeroResultError",
    "OperationCancelledError",
    "OutOfDiskspaceError",
    "OutOfMemoryError",
    "PowerStatus",
    "PrintHeadTemperature",
    "PrintInterrupt",
    "PrintStatus",
    "Printer",
    "PrinterAccessViolationError",
    "PrinterCommunicationError",
    "PrinterDirectoryNotFoundError",
    "PrinterError",
    "PrinterFileNotFoundError",
    "PrinterInfo",
    "PrinterNotFoundError",
    "PrinterStatus",
    "QRVError",
    "Simulator",
    "SimulatorError",
    "StatusField",
    "StatusItem",
    "StatusValue",
    "Subscription",
    "UpdatePhase",
    "library_name",
    "library_version",
    "log_to_logging",
    "open",
    "printers",
    "set_log_level",
]
