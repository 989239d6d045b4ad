"""The library's own log lines: how many, and where they go.

By default the library writes warnings and errors to standard error ("qrv warning: ..."), or to
the file $QRV_LOG_FILE; $QRV_LOG_LEVEL (off, error, warning, info) sets the level. A Python
program can send them to the logging module instead, on the "qrv.library" logger.
"""

from __future__ import annotations

import enum
import logging
import threading
from typing import Optional

from ._bindings import LogFunction, check
from ._library import load


class LogLevel(enum.IntEnum):
    OFF = -1
    ERROR = 0
    WARNING = 1
    INFO = 2


_TO_LOGGING: dict[int, int] = {LogLevel.ERROR: logging.ERROR, LogLevel.WARNING: logging.WARNING, LogLevel.INFO: logging.INFO}
_lock = threading.Lock()
# Every C callback ever installed: one that was replaced may still run on another thread.
_installed: list[object] = []


def set_log_level(level: LogLevel) -> None:
    """Lines at or below `level` are logged; LogLevel.OFF turns the library's logging off."""
    library = load()
    check(library, library.qrv_set_log_level(int(level)))


def log_to_logging(enabled: bool = True) -> None:
    """Sends the library's lines to the "qrv.library" logger (False: back to the default).

    The lines arrive on the thread that logs: the caller's or the status monitor thread.
    """
    library = load()
    logger = logging.getLogger("qrv.library")

    def forward(level: int, line: Optional[bytes], _user: Optional[int]) -> None:
        try:
            text = (line or b"").decode("utf-8", "replace")
            logger.log(_TO_LOGGING.get(level, logging.INFO), "%s", text)
        except BaseException:  # noqa: B036 - nothing may leave a callback of the library
            pass

    with _lock:
        function = LogFunction(forward) if enabled else None
        if function is not None:
            _installed.append(function)
        # A NULL function pointer restores the default.
        check(library, library.qrv_set_log_callback(function or LogFunction(0), None))
