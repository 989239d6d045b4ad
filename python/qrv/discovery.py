"""The printers attached to this machine."""

from __future__ import annotations

from ctypes import POINTER, byref, c_size_t

from . import _bindings as b
from ._library import load
from .records import PrinterInfo


def printers() -> list[PrinterInfo]:
    """The supported printers attached to this machine, real ones first, then simulated ones.

    Blocks on device enumeration and, on Linux, one request to the print scheduler (at most 3 s
    to connect, 5 s to answer).
    """
    library = load()
    records = POINTER(b.PrinterInfoRecord)()
    count = c_size_t()
    b.check(library, library.qrv_list_printers(byref(records), byref(count)))
    try:
        return [
            PrinterInfo(
                name=b.text(r.name),
                model=b.text(r.model),
                serial=b.text(r.serial),
                channel_path=b.text(r.channel_path),
                status_path=b.text(r.status_path),
                vendor_id=r.vendor_id,
                product_id=r.product_id,
                is_queue_name=bool(r.is_queue_name),
                is_virtual=bool(r.is_virtual),
            )
            for r in records[: count.value]
        ]
    finally:
        library.qrv_free(records)


def library_version() -> str:
    """The loaded library's version, "MAJOR.MINOR.PATCH"."""
    return b.text(load().qrv_version())
