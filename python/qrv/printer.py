"""An open printer: every operation of the library under Python names."""

from __future__ import annotations

import ctypes
import os
import weakref
from ctypes import POINTER, byref, c_char_p, c_size_t, c_uint32, c_uint64, c_void_p
from typing import Callable, Optional, Union

from . import _bindings as b
from ._library import load
from ._transfer import ProgressCallback, Transfer
from .errors import PrinterNotFoundError
from .events import (
    PrintInterruptCallback,
    StatusChangedCallback,
    Subscription,
    Subscriptions,
    print_interrupt_function,
    status_changed_function,
)
from .records import CutterMode, DiskSpace, FileEntry, Library, UpdatePhase
from .status import (
    BatteryStatus,
    ChargingStatus,
    ExternalPowerStatus,
    PrinterStatus,
    StatusField,
    StatusItem,
    field_value,
)

#: A path: str, bytes or os.PathLike.
PathArgument = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
#: Receives each update phase as it begins.
PhaseCallback = Callable[[UpdatePhase], object]


def _host_path(path: PathArgument) -> bytes:
    value = os.fspath(path)
    return value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")


def _printer_path(path: PathArgument) -> bytes:
    value = os.fspath(path)
    if isinstance(value, bytes):
        return value
    # The printer's separator is "/" whatever the host's (a pathlib path on Windows).
    return value.replace(os.sep, "/").encode("utf-8")


def _release(library: ctypes.CDLL, handle: int, subscriptions: Subscriptions) -> None:
    library.qrv_close(handle)
    subscriptions.clear()


class Printer:
    """An open printer; made by qrv.open(name). Close it with close() or a with-block.

    Every method blocks the calling thread for the printer's transaction(s): up to 10 s waiting
    for the printer's access lock (another program may be using it), up to 3 s per USB transfer,
    and the fixed pauses named at each method. Methods marked "retried" are tried up to 10 times,
    500 ms apart, when the printer answers wrongly. Failures raise a qrv.QRVError subclass whose
    message is the library's log line. Any thread may call; calls run one after another. close()
    must not overlap other calls.
    """

    def __init__(self, name: str) -> None:
        """Opens the printer of that exact name (see qrv.open)."""
        self._library = load()
        self._name = name
        handle = c_void_p()
        b.check(self._library, self._library.qrv_open(name.encode("utf-8"), byref(handle)))
        assert handle.value is not None
        self._handle: Optional[int] = handle.value
        self._subscriptions = Subscriptions()
        self._finalizer = weakref.finalize(self, _release, self._library, handle.value, self._subscriptions)

    # ---- life cycle ------------------------------------------------------------------------

    @property
    def name(self) -> str:
        """The name the printer was opened under."""
        return self._name

    @property
    def closed(self) -> bool:
        return self._handle is None

    def close(self) -> None:
        """Stops listening, ends every subscription and releases the printer; again: nothing.

        Blocks until the status monitor thread has stopped (at most 9 s). Not from inside a
        callback of this printer: that raises PrinterError and leaves it open.
        """
        if self._handle is None:
            return
        b.check(self._library, self._library.qrv_close(self._handle))
        self._finalizer.detach()
        self._handle = None
        self._subscriptions.clear()

    def __enter__(self) -> "Printer":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<qrv.Printer {self._name!r}{' closed' if self.closed else ''}>"

    def _open_handle(self) -> int:
        if self._handle is None:
            raise PrinterNotFoundError(f"qrv.Printer: '{self._name}' is closed")
        return self._handle

    def _call(self, function: str, *arguments: object) -> None:
        b.check(self._library, getattr(self._library, function)(self._open_handle(), *arguments))

    def _string(self, function: str, *arguments: object) -> str:
        block = c_void_p()
        self._call(function, *arguments, byref(block))
        return b.take_string(self._library, block)

    def _number(self, function: str) -> int:
        value = c_uint32()
        self._call(function, byref(value))
        return value.value

    # ---- status ----------------------------------------------------------------------------

    def status(self) -> PrinterStatus:
        """The whole status. Retried."""
        record = b.StatusRecord()
        self._call("qrv_get_status", byref(record))
        values = {
            name: field_value(StatusField(index), getattr(record, name))
            for index, name in enumerate(b.STATUS_FIELD_NAMES)
        }
        return PrinterStatus(**values)  # type: ignore[arg-type]

    def errors(self) -> list[StatusItem]:
        """Only the conditions a user has to act on, in field order; [] when none. Retried."""
        items = (b.StatusItemRecord * b.STATUS_ITEM_COUNT)()
        count = c_size_t()
        self._call("qrv_get_error_status", items, byref(count))
        return [
            StatusItem(StatusField(item.kind), field_value(StatusField(item.kind), item.value))
            for item in items[: count.value]
        ]

    def battery_percentage(self) -> int:
        """0, 20, 40, 60, 80 or 100; 0 when the battery reports an error or is unknown. Retried."""
        return self._number("qrv_get_battery_percentage")

    def battery_status(self) -> BatteryStatus:
        """Retried."""
        return BatteryStatus(field_value(StatusField.BATTERY, self._number("qrv_get_battery_status")))

    def charging_status(self) -> ChargingStatus:
        """Retried."""
        return ChargingStatus(field_value(StatusField.CHARGING, self._number("qrv_get_charging_status")))

    def external_power_status(self) -> ExternalPowerStatus:
        """Retried."""
        value = self._number("qrv_get_external_power_status")
        return ExternalPowerStatus(field_value(StatusField.EXTERNAL_POWER, value))

    # ---- identity --------------------------------------------------------------------------

    def versions(self) -> dict[str, str]:
        """The printer's version texts by component ("OS", "Firmware", ..., "RootFS"). Retried."""
        records = POINTER(b.VersionRecord)()
        count = c_size_t()
        self._call("qrv_get_versions", byref(records), byref(count))
        try:
            return {b.text(records[i].component): b.text(records[i].version) for i in range(count.value)}
        finally:
            self._library.qrv_free(records)

    def device_id(self) -> str:
        """The device identifier; "" when the printer gives none. Retried."""
        return self._string("qrv_get_device_id")

    def printer_type(self) -> str:
        """The printer has no type query: "Not implemented yet!". Does not block."""
        return self._string("qrv_get_printer_type")

    def cassette_id(self) -> str:
        """The inserted cassette's identifier (SKU); "" when there is none. Retried."""
        return self._string("qrv_get_cassette_id")

    def library_path(self, library: Library) -> str:
        """The printer path of one of its folders."""
        return self._string("qrv_get_library_path", int(library))

    # ---- control ---------------------------------------------------------------------------

    def feed(self) -> None:
        """Feeds a label; then pauses 5 s while the printer acts."""
        self._call("qrv_feed")

    def cut(self) -> None:
        """Cuts; then pauses 5 s."""
        self._call("qrv_cut")

    def resume(self) -> None:
        """Resumes printing; then pauses 5 s."""
        self._call("qrv_resume")

    def clear_errors(self) -> None:
        """Clears the printer's errors; then pauses 5 s."""
        self._call("qrv_clear_errors")

    def clear_cutter_jam(self) -> None:
        """Clears a cutter jam; then pauses 5 s."""
        self._call("qrv_clear_cutter_jam")

    def reboot(self) -> None:
        """The printer leaves the USB bus and comes back after a while; open it again then."""
        self._call("qrv_reboot")

    def set_cutter_mode(self, mode: CutterMode) -> None:
        """The printer decides how it cuts: the mode is checked and otherwise ignored."""
        self._call("qrv_set_cutter_mode", int(mode))

    # ---- files -----------------------------------------------------------------------------

    def put(
        self, host_path: PathArgument, printer_path: PathArgument, progress: Optional[ProgressCallback] = None
    ) -> None:
        """Copies a host file to the printer; a file of that name already there is an error.

        `progress(done, total)` runs on the calling thread after each chunk; an exception it
        raises cancels the transfer and is raised here. Ctrl+C (KeyboardInterrupt) cancels
        too: the printer stores nothing, stays usable, and the KeyboardInterrupt is raised here.
        Blocks for the transfer and the printer's completion poll.
        """
        handle = self._open_handle()
        transfer = Transfer(self._library, handle, progress)
        with transfer:
            result = self._library.qrv_put(
                handle, _host_path(host_path), _printer_path(printer_path), transfer.function, None
            )
        transfer.finish(result)

    def get(
        self, printer_path: PathArgument, host_path: PathArgument, progress: Optional[ProgressCallback] = None
    ) -> None:
        """Copies a printer file to the host file (replaced when it exists).

        The host file is written under a temporary name and renamed when complete: after a
        failure, a cancel or Ctrl+C it is untouched (or absent). Progress and Ctrl+C as in put().
        """
        handle = self._open_handle()
        transfer = Transfer(self._library, handle, progress)
        with transfer:
            result = self._library.qrv_get(
                handle, _printer_path(printer_path), _host_path(host_path), transfer.function, None
            )
        transfer.finish(result)

    def cancel(self) -> None:
        """Asks the transfer running on this printer (on another thread) to stop at its next chunk.

        That call then raises OperationCancelledError. Never blocks; any thread.
        """
        self._library.qrv_cancel(self._open_handle())

    def listdir(self, printer_path: PathArgument) -> list[FileEntry]:
        """The entries of a printer folder. Pauses 1 s before the listing."""
        records = POINTER(b.FileEntryRecord)()
        count = c_size_t()
        self._call("qrv_list_folder", _printer_path(printer_path), byref(records), byref(count))
        try:
            return [
                FileEntry(b.text(records[i].name), bool(records[i].is_directory), records[i].size)
                for i in range(count.value)
            ]
        finally:
            self._library.qrv_free(records)

    def rename(self, old_path: PathArgument, new_path: PathArgument) -> None:
        """Renames (moves) a printer file."""
        self._call("qrv_rename", _printer_path(old_path), _printer_path(new_path))

    def remove(self, printer_path: PathArgument) -> None:
        """Deletes a printer file."""
        self._call("qrv_delete", _printer_path(printer_path))

    def disk_space(self) -> DiskSpace:
        """Free and used space of the printer's disk in whole KiB."""
        free, used = c_uint64(), c_uint64()
        self._call("qrv_get_disk_space", byref(free), byref(used))
        return DiskSpace(free.value, used.value)

    def log_files(self) -> list[str]:
        """The printer's system log files as full printer paths. Pauses 1 s like listdir()."""
        paths = POINTER(c_char_p)()
        count = c_size_t()
        self._call("qrv_get_log_files", byref(paths), byref(count))
        try:
            return [b.text(paths[i]) for i in range(count.value)]
        finally:
            self._library.qrv_free(paths)

    # ---- firmware update -------------------------------------------------------------------

    def update(
        self,
        package: PathArgument,
        progress: Optional[ProgressCallback] = None,
        phase: Optional[PhaseCallback] = None,
    ) -> None:
        """Installs the firmware update package at that host path.

        Blocks at least 24 s (fixed pauses while the printer installs) plus the copy and the waits
        for a busy updater. `phase` gets each step as it begins; `progress` and Ctrl+C act on the
        copy step as in put(). Do not unplug or reboot the printer meanwhile.
        """
        handle = self._open_handle()
        transfer = Transfer(self._library, handle, progress)

        def on_phase(value: int, _user: Optional[int]) -> None:
            if phase is not None:
                try:
                    phase(UpdatePhase(value))
                except BaseException as error:  # noqa: B036 - raised once the update returns
                    transfer.fail(error)

        phase_function = b.PhaseFunction(on_phase)
        path = os.path.abspath(_host_path(package))
        with transfer:
            result = self._library.qrv_update(handle, path, phase_function, transfer.function, None)
        transfer.finish(result)

    # ---- events ----------------------------------------------------------------------------

    def on_status_changed(self, callback: StatusChangedCallback) -> Subscription:
        """Calls `callback(items)` with the changed fields, in field order, on every change.

        The callback runs on the library's status monitor thread (see qrv.events).
        """
        return self._subscribe("qrv_on_status_changed", status_changed_function(callback))

    def on_print_interrupt(self, callback: PrintInterruptCallback) -> Subscription:
        """Calls `callback(interrupt)` when printing stops, on the library's status monitor thread."""
        return self._subscribe("qrv_on_print_interrupt", print_interrupt_function(callback))

    def _subscribe(self, function: str, c_function: object) -> Subscription:
        ident = c_uint64()
        # Kept before the library can call it.
        self._call(function, c_function, None, byref(ident))
        self._subscriptions.add(ident.value, c_function)
        return Subscription(self._library, self._open_handle, self._subscriptions, ident.value)


def open(name: str) -> Printer:  # noqa: A001 - the package's entry point, as qrv.open
    """Opens the printer of that exact (case-sensitive) name and starts listening to its status.

    Blocks on discovery and one probe of the printer. Raises PrinterCommunicationError when no
    such printer is attached or it answers wrongly.
    """
    return Printer(name)
