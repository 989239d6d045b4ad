"""The package against a real qrv-sim process."""

from __future__ import annotations

import logging
import os
import signal
import threading
import time
from pathlib import Path, PurePosixPath

import pytest

import qrv
from qrv import _bindings, _library

JOBS = PurePosixPath("/mnt/data/jobs")


def wait_for(condition: object, timeout: float = 5.0) -> bool:
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        if condition():  # type: ignore[operator]
            return True
        time.sleep(0.02)
    return False


def test_discovery_and_status(sim: qrv.Simulator, printer: qrv.Printer) -> None:
    (info,) = [p for p in qrv.printers() if p.name == sim.name]
    assert info.is_virtual and not info.is_queue_name and info.model == "VELA QRV 410"
    assert printer.versions()["DeviceID"] == printer.device_id() == info.serial

    sim.command("battery 2")
    sim.command("cutter jammed")
    try:
        status = printer.status()
        assert status.battery is qrv.BatteryStatus.LEVEL_2 and status.cutter is qrv.CutterStatus.JAMMED
        assert status.cassette_door is qrv.DoorStatus.CLOSED
        assert printer.battery_percentage() == 40
        assert qrv.StatusItem(qrv.StatusField.CUTTER, qrv.CutterStatus.JAMMED) in printer.errors()
    finally:
        sim.command("battery 4")
        sim.command("cutter ok")
    assert printer.errors() == []


def test_put_and_get_round_trip(printer: qrv.Printer, tmp_path: Path) -> None:
    data = os.urandom(3 * 1024 * 1024 + 123)
    source, back = tmp_path / "source.bin", tmp_path / "back.bin"
    source.write_bytes(data)
    puts: list[tuple[int, int]] = []
    gets: list[tuple[int, int]] = []
    printer.put(source, JOBS / "round.job", lambda done, total: puts.append((done, total)))
    printer.get(JOBS / "round.job", back, lambda done, total: gets.append((done, total)))
    for seen in (puts, gets):  # growing, each against the file's size, ending at it
        assert seen == sorted(seen) and seen[-1] == (len(data), len(data))
        assert {total for _, total in seen} == {len(data)}
    assert back.read_bytes() == data
    assert qrv.FileEntry("round.job", False, len(data)) in printer.listdir(JOBS)
    printer.remove(str(JOBS / "round.job"))


def test_failures_are_typed_with_the_library_line(printer: qrv.Printer, tmp_path: Path) -> None:
    with pytest.raises(qrv.PrinterFileNotFoundError) as missing:
        printer.get("/mnt/data/jobs/missing.job", tmp_path / "missing")
    assert str(missing.value) == (
        "QRVDeviceGateway::GetFile(): File not Found '/mnt/data/jobs/missing.job': 'Wrong file name'"
    )
    assert not (tmp_path / "missing").exists()
    opening = r"^QRVDeviceGateway::CreateQRVDevice\(\): Printer Communication Error 'No Such Printer': "
    with pytest.raises(qrv.PrinterCommunicationError, match=opening):
        qrv.open("No Such Printer")
    # One class per kind of the library, each named as the library names its code.
    library = _library.load()
    kinds = [cls for cls in qrv.QRVError.__subclasses__() if cls.code]
    assert {cls.code for cls in kinds} >= set(range(1, 11))
    for cls in kinds:
        assert type(qrv.errors.error_for(cls.code, "")) is cls
        assert cls.kind == _bindings.text(library.qrv_result_name(cls.code))


def test_events_arrive_while_another_call_runs(
    sim: qrv.Simulator, printer: qrv.Printer, caplog: pytest.LogCaptureFixture
) -> None:
    changes: list[tuple[float, list[qrv.StatusItem]]] = []
    interrupts: list[qrv.PrintInterrupt] = []
    monitor: set[int] = set()

    def broken(items: list[qrv.StatusItem]) -> None:
        raise RuntimeError("broken subscriber")

    def changed(items: list[qrv.StatusItem]) -> None:
        monitor.add(threading.get_ident())
        changes.append((time.monotonic(), items))

    door = qrv.StatusField.CASSETTE_DOOR
    with (
        printer.on_status_changed(broken),
        printer.on_status_changed(changed),
        printer.on_print_interrupt(interrupts.append),
    ):
        opener = threading.Timer(0.2, sim.command, ["door open"])
        started = time.monotonic()
        opener.start()
        printer.listdir(JOBS)  # pauses 1 s before listing
        ended = time.monotonic()
        opener.join()
        assert changes and started < changes[0][0] < ended
        assert qrv.StatusItem(door, qrv.DoorStatus.OPEN) in changes[0][1]
        assert wait_for(lambda: qrv.InterruptIssue.CASSETTE_DOOR_OPEN in [i.issue for i in interrupts])
        assert monitor and threading.get_ident() not in monitor
        assert "broken subscriber" in caplog.text
        sim.command("door closed")  # the monitor goes on after the raising callback
        assert wait_for(lambda: any(qrv.StatusItem(door, qrv.DoorStatus.CLOSED) in c for _, c in changes))
    count = len(changes)
    sim.command("battery 3")
    time.sleep(0.3)
    sim.command("battery 4")
    assert len(changes) == count  # removed on leaving the with-block


def test_ctrl_c_cancels_a_get(printer: qrv.Printer, tmp_path: Path) -> None:
    # Ctrl+C as at a terminal: a program started in the background of a script inherits SIGINT
    # ignored, and no Ctrl+C ever reaches it.
    previous = signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        ctrl_c_cancels_a_get(printer, tmp_path)
    finally:
        signal.signal(signal.SIGINT, previous)


def ctrl_c_cancels_a_get(printer: qrv.Printer, tmp_path: Path) -> None:
    data = os.urandom(4 * 1024 * 1024)
    (tmp_path / "big.bin").write_bytes(data)
    printer.put(tmp_path / "big.bin", JOBS / "big.job")
    target = tmp_path / "copy.bin"

    def interrupt(done: int, total: int) -> None:
        os.kill(os.getpid(), signal.SIGINT)  # a real SIGINT, handled between byte codes

    with pytest.raises(KeyboardInterrupt):
        printer.get(JOBS / "big.job", target, interrupt)
    assert not target.exists() or target.read_bytes() == data
    assert {p.name for p in tmp_path.iterdir()} <= {"big.bin", "copy.bin"}  # no temporary left
    assert printer.status().power is qrv.PowerStatus.OK  # usable at once
    printer.remove(JOBS / "big.job")


def test_open_and_close_leak_nothing(sim: qrv.Simulator) -> None:
    def counts() -> tuple[int, int]:
        return len(os.listdir("/proc/self/fd")), len(os.listdir("/proc/self/task"))

    with qrv.open(sim.name) as warm:
        warm.status()
    before = counts()
    for _ in range(25):
        with qrv.open(sim.name) as printer:
            printer.on_status_changed(lambda items: None)
            printer.status()
        assert printer.closed
    assert counts() == before
    with pytest.raises(qrv.PrinterNotFoundError):
        printer.status()
