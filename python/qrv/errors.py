"""The exceptions of the package: one class per failure kind of the library, under QRVError.

Each carries the library's message line for the failure exactly as the library logged it
(``str(error)`` and ``error.message``), its result code and the code's stable name.
"""

from __future__ import annotations


class QRVError(Exception):
    """Base of every failure the package reports."""

    #: The C result code of this kind (0 for failures found in Python).
    code: int = 0
    #: The stable name of the code, as the library names it.
    kind: str = ""

    def __init__(self, message: str) -> None:
        super().__init__(message)
        self.message = message


class LibraryNotFoundError(QRVError):
    """The shared library could not be loaded."""


class PrinterNotFoundError(QRVError):
    """No printer open, or it is unusable."""

    code, kind = 1, "PrinterNotFoundException"


class PrinterAccessViolationError(QRVError):
    """The printer refused access to a file or folder."""

    code, kind = 2, "PrinterAccessViolationException"


class PrinterFileNotFoundError(QRVError):
    """A file is missing, on the printer or on the host."""

    code, kind = 3, "FileNotFoundException"


class PrinterDirectoryNotFoundError(QRVError):
    """A folder is missing on the printer."""

    code, kind = 4, "DirectoryNotFoundException"


class OutOfDiskspaceError(QRVError):
    """The printer's disk is full."""

    code, kind = 5, "OutOfDiskspaceException"


class InvalidFileNameError(QRVError):
    """The file name is not allowed, or such a file already exists on the printer."""

    code, kind = 6, "InvalidFileNameException"


class InvalidDirectoryNameError(QRVError):
    """The folder name is not allowed."""

    code, kind = 7, "InvalidDirectoryNameException"


class PrinterCommunicationError(QRVError):
    """The printer answered wrongly, stayed busy, or is absent."""

    code, kind = 8, "PrinterCommunicationException"


class OperationCancelledError(QRVError):
    """A transfer was cancelled (Printer.cancel, or a progress callback that raised)."""

    code, kind = 9, "OperationCancelledException"


class PrinterError(QRVError):
    """A failure of the USB channel, of the system, or another failure of the library."""

    code, kind = 10, "PrinterException"


class InvalidArgumentError(QRVError):
    """A value out of its range, or an unknown subscription."""

    code, kind = 101, "InvalidArgument"


class NonzeroResultError(QRVError):
    """The operation ended without a failure kind but did not complete."""

    code, kind = 102, "NonzeroResult"


class OutOfMemoryError(QRVError):
    """The library ran out of memory."""

    code, kind = 103, "OutOfMemory"


class InternalError(QRVError):
    """Any other failure inside the library, or a misuse of its C interface."""

    code, kind = 104, "InternalError"


class SimulatorError(QRVError):
    """The qrv-sim process could not be started or refused a command."""


_BY_CODE: dict[int, type[QRVError]] = {
    cls.code: cls
    for cls in (
        PrinterNotFoundError,
        PrinterAccessViolationError,
        PrinterFileNotFoundError,
        PrinterDirectoryNotFoundError,
        OutOfDiskspaceError,
        InvalidFileNameError,
        InvalidDirectoryNameError,
        PrinterCommunicationError,
        OperationCancelledError,
        PrinterError,
        InvalidArgumentError,
        NonzeroResultError,
        OutOfMemoryError,
        InternalError,
    )
}


def error_for(code: int, message: str) -> QRVError:
    """The exception for a failed call's result code and message line."""
    cls = _BY_CODE.get(code)
    if cls is None:
        # A code this package does not know (a newer library): still a typed failure.
        error = InternalError(message or f"result {code}")
        error.code = code
        return error
    return cls(message)
