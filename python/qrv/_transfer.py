"""One transfer call (put, get, update) with its progress callback and Ctrl+C handling.

ctypes releases the GIL during the call, and Python runs its signal handlers only between byte
codes of the main thread. So a SIGINT that arrives during a transfer is handled either inside the
progress callback (Python code on the calling thread) or right after the call returns. A
KeyboardInterrupt raised at the entry of a ctypes callback would be lost ("ignored on calling
ctypes callback function"), so while the call runs on the main thread, SIGINT gets a handler
that does not raise: it asks the library to cancel and notes the interrupt, which is raised once
the library has finished or cancelled the transfer.
"""

from __future__ import annotations

import ctypes
import signal
import threading
from types import FrameType, TracebackType
from typing import Callable, Optional

from ._bindings import ProgressFunction, check

#: Receives (bytes done, file size) after each chunk; raising cancels the transfer.
ProgressCallback = Callable[[int, int], object]


class Transfer:
    """Runs one transfer call; a context manager around the ctypes call."""

    def __init__(self, library: ctypes.CDLL, handle: int, progress: Optional[ProgressCallback]) -> None:
        self._library = library
        self._handle = handle
        self._progress = progress
        self._pending: Optional[BaseException] = None
        self._previous_handler: object = None
        self._handler_installed = False
        # Kept alive by this object for the whole call.
        self.function = ProgressFunction(self._on_progress)

    def _on_progress(self, done: int, total: int, _user: Optional[int]) -> int:
        if self._pending is None and self._progress is not None:
            try:
                self._progress(done, total)
            except BaseException as error:  # noqa: B036 - re-raised by the caller once cancelled
                self._pending = error
        return 0 if self._pending is None else 1

    def _on_interrupt(self, _signal: int, _frame: Optional[FrameType]) -> None:
        self.fail(KeyboardInterrupt())

    def fail(self, error: BaseException) -> None:
        """Cancels the transfer; `error` (the first one) is raised by finish()."""
        if self._pending is None:
            self._pending = error
        self._library.qrv_cancel(self._handle)

    def __enter__(self) -> "Transfer":
        if (
            threading.current_thread() is threading.main_thread()
            and signal.getsignal(signal.SIGINT) is signal.default_int_handler
        ):
            self._previous_handler = signal.signal(signal.SIGINT, self._on_interrupt)
            self._handler_installed = True
        return self

    def __exit__(
        self,
        _type: Optional[type[BaseException]],
        _value: Optional[BaseException],
        _traceback: Optional[TracebackType],
    ) -> None:
        if self._handler_installed:
            signal.signal(signal.SIGINT, self._previous_handler)  # type: ignore[arg-type]

    def finish(self, result: int) -> None:
        """Raises what interrupted the transfer, else the call's typed error, if any."""
        if self._pending is not None:
            pending, self._pending = self._pending, None
            raise pending
        check(self._library, result)
