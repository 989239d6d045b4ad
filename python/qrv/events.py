"""Subscriptions to a printer's status changes and print interrupts.

The callbacks run on the library's status monitor thread, never on the thread that subscribed,
one call after another; the printer's next report waits for each, so they must return quickly
(hand work over to another thread with a queue). They may call into the printer, except close().
An exception raised inside a callback is logged on the "qrv" logger and the monitor goes on.
"""

from __future__ import annotations

import ctypes
import logging
import threading
from typing import Callable, Optional

from ._bindings import PrintInterruptFunction, StatusChangedFunction, StatusItemRecord, check
from .status import InterruptIssue, PrintInterrupt, StatusField, StatusItem, field_value

_log = logging.getLogger("qrv")

StatusChangedCallback = Callable[[list[StatusItem]], object]
PrintInterruptCallback = Callable[[PrintInterrupt], object]


def status_changed_function(callback: StatusChangedCallback) -> object:
    """The C callback that hands the changed items to `callback` and logs what it raises."""

    def call(items: "ctypes._Pointer[StatusItemRecord]", count: int, _user: Optional[int]) -> None:
        try:
            fields = [StatusField(items[i].kind) for i in range(count)]
            callback([StatusItem(f, field_value(f, items[i].value)) for i, f in enumerate(fields)])
        except BaseException:  # noqa: B036 - nothing may leave a callback of the monitor thread
            _log.exception("qrv: a status-changed callback raised; the monitor goes on")

    return StatusChangedFunction(call)


def print_interrupt_function(callback: PrintInterruptCallback) -> object:
    """The C callback that hands each print interrupt to `callback` and logs what it raises."""

    def call(issue: int, code: int, value: int, _user: Optional[int]) -> None:
        try:
            try:
                typed = InterruptIssue(issue)
            except ValueError:
                typed = InterruptIssue.OTHER_ERROR
            callback(PrintInterrupt(typed, code, value))
        except BaseException:  # noqa: B036 - nothing may leave a callback of the monitor thread
            _log.exception("qrv: a print-interrupt callback raised; the monitor goes on")

    return PrintInterruptFunction(call)


class Subscriptions:
    """The C callbacks of one printer, kept alive as long as the library may call them."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._active: dict[int, object] = {}
        # Removed ones: a call the monitor has begun may still run, so they live until close.
        self._retired: list[object] = []

    def add(self, ident: int, function: object) -> None:
        with self._lock:
            self._active[ident] = function

    def retire(self, ident: int) -> bool:
        with self._lock:
            function = self._active.pop(ident, None)
            if function is None:
                return False
            self._retired.append(function)
            return True

    def is_active(self, ident: int) -> bool:
        with self._lock:
            return ident in self._active

    def clear(self) -> None:
        """Drops every callback; only once the monitor thread has stopped."""
        with self._lock:
            self._active.clear()
            self._retired.clear()


class Subscription:
    """One subscription; remove() ends it (also as a context manager)."""

    def __init__(
        self, library: ctypes.CDLL, handle: Callable[[], int], subscriptions: Subscriptions, ident: int
    ) -> None:
        self._library = library
        self._handle = handle
        self._subscriptions = subscriptions
        self._ident = ident

    @property
    def active(self) -> bool:
        """True until removed (or the printer closed)."""
        return self._subscriptions.is_active(self._ident)

    def remove(self) -> None:
        """Ends the subscription; a call the monitor has already begun may still run.

        Does nothing when it has already ended. Never blocks except on a brief lock; allowed
        inside any callback, its own included.
        """
        if self._subscriptions.retire(self._ident):
            check(self._library, self._library.qrv_unsubscribe(self._handle(), self._ident))

    def __enter__(self) -> "Subscription":
        return self

    def __exit__(self, *_: object) -> None:
        self.remove()
