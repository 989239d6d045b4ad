"""The C interface as ctypes sees it: its records, callback types and function prototypes."""

from __future__ import annotations

import ctypes
from ctypes import POINTER, Structure, c_char_p, c_int32, c_size_t, c_uint32, c_uint64, c_void_p

from .errors import error_for

Handle = c_void_p


class PrinterInfoRecord(Structure):
    _fields_ = [
        ("name", c_char_p),
        ("model", c_char_p),
        ("serial", c_char_p),
        ("channel_path", c_char_p),
        ("status_path", c_char_p),
        ("vendor_id", c_uint32),
        ("product_id", c_uint32),
        ("is_queue_name", c_int32),
        ("is_virtual", c_int32),
    ]


STATUS_FIELD_NAMES = (
    "power",
    "cassette_door",
    "cassette_presence",
    "print_head_temperature",
    "cutter",
    "label",
    "cassette_memory",
    "print",
    "external_power",
    "battery",
    "charging",
)


class StatusRecord(Structure):
    _fields_ = [(name, c_uint32) for name in STATUS_FIELD_NAMES]


class StatusItemRecord(Structure):
    _fields_ = [("kind", c_uint32), ("value", c_uint32)]


class VersionRecord(Structure):
    _fields_ = [("component", c_char_p), ("version", c_char_p)]


class FileEntryRecord(Structure):
    _fields_ = [("name", c_char_p), ("is_directory", c_int32), ("size", c_int32)]


STATUS_ITEM_COUNT = 11

ProgressFunction = ctypes.CFUNCTYPE(c_int32, c_uint64, c_uint64, c_void_p)
PhaseFunction = ctypes.CFUNCTYPE(None, c_int32, c_void_p)
StatusChangedFunction = ctypes.CFUNCTYPE(None, POINTER(StatusItemRecord), c_size_t, c_void_p)
PrintInterruptFunction = ctypes.CFUNCTYPE(None, c_uint32, c_uint32, c_uint32, c_void_p)
LogFunction = ctypes.CFUNCTYPE(None, c_int32, c_char_p, c_void_p)

_P = POINTER
_PROTOTYPES: dict[str, tuple[object, list[object]]] = {
    "qrv_last_error_message": (c_char_p, []),
    "qrv_result_name": (c_char_p, [c_int32]),
    "qrv_version": (c_char_p, []),
    "qrv_free": (None, [c_void_p]),
    "qrv_set_log_level": (c_int32, [c_int32]),
    "qrv_set_log_callback": (c_int32, [LogFunction, c_void_p]),
    "qrv_list_printers": (c_int32, [_P(_P(PrinterInfoRecord)), _P(c_size_t)]),
    "qrv_open": (c_int32, [c_char_p, _P(Handle)]),
    "qrv_close": (c_int32, [Handle]),
    "qrv_get_status": (c_int32, [Handle, _P(StatusRecord)]),
    "qrv_get_error_status": (c_int32, [Handle, _P(StatusItemRecord), _P(c_size_t)]),
    "qrv_get_battery_percentage": (c_int32, [Handle, _P(c_uint32)]),
    "qrv_get_battery_status": (c_int32, [Handle, _P(c_uint32)]),
    "qrv_get_charging_status": (c_int32, [Handle, _P(c_uint32)]),
    "qrv_get_external_power_status": (c_int32, [Handle, _P(c_uint32)]),
    "qrv_get_versions": (c_int32, [Handle, _P(_P(VersionRecord)), _P(c_size_t)]),
    "qrv_get_device_id": (c_int32, [Handle, _P(c_void_p)]),
    "qrv_get_printer_type": (c_int32, [Handle, _P(c_void_p)]),
    "qrv_get_cassette_id": (c_int32, [Handle, _P(c_void_p)]),
    "qrv_get_library_path": (c_int32, [Handle, c_int32, _P(c_void_p)]),
    "qrv_feed": (c_int32, [Handle]),
    "qrv_cut": (c_int32, [Handle]),
    "qrv_resume": (c_int32, [Handle]),
    "qrv_clear_errors": (c_int32, [Handle]),
    "qrv_clear_cutter_jam": (c_int32, [Handle]),
    "qrv_reboot": (c_int32, [Handle]),
    "qrv_set_cutter_mode": (c_int32, [Handle, c_int32]),
    "qrv_put": (c_int32, [Handle, c_char_p, c_char_p, ProgressFunction, c_void_p]),
    "qrv_get": (c_int32, [Handle, c_char_p, c_char_p, ProgressFunction, c_void_p]),
    "qrv_cancel": (c_int32, [Handle]),
    "qrv_rename": (c_int32, [Handle, c_char_p, c_char_p]),
    "qrv_delete": (c_int32, [Handle, c_char_p]),
    "qrv_list_folder": (c_int32, [Handle, c_char_p, _P(_P(FileEntryRecord)), _P(c_size_t)]),
    "qrv_get_log_files": (c_int32, [Handle, _P(_P(c_char_p)), _P(c_size_t)]),
    "qrv_get_disk_space": (c_int32, [Handle, _P(c_uint64), _P(c_uint64)]),
    "qrv_update": (c_int32, [Handle, c_char_p, PhaseFunction, ProgressFunction, c_void_p]),
    "qrv_on_status_changed": (c_int32, [Handle, StatusChangedFunction, c_void_p, _P(c_uint64)]),
    "qrv_on_print_interrupt": (c_int32, [Handle, PrintInterruptFunction, c_void_p, _P(c_uint64)]),
    "qrv_unsubscribe": (c_int32, [Handle, c_uint64]),
}


def declare(library: ctypes.CDLL) -> None:
    """Gives every function of the C interface its prototype, so that ctypes checks arguments."""
    for name, (result, arguments) in _PROTOTYPES.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments


def text(value: bytes | None) -> str:
    """A UTF-8 string of the library as str."""
    return "" if value is None else value.decode("utf-8", "replace")


def check(library: ctypes.CDLL, result: int) -> None:
    """Raises the typed error of a failed call; call it on the thread that made the call."""
    if result != 0:
        raise error_for(result, text(library.qrv_last_error_message()))


def take_string(library: ctypes.CDLL, block: c_void_p) -> str:
    """The text of a string block the library returned, which this frees."""
    try:
        return text(ctypes.cast(block, c_char_p).value)
    finally:
        library.qrv_free(block)
