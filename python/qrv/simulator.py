"""qrv.Simulator: a qrv-sim process that this process's library finds as an attached printer."""

from __future__ import annotations

import os
import queue
import shutil
import subprocess
import tempfile
import threading
from typing import IO, Optional

from .errors import SimulatorError

#: Names the qrv-sim program to run when none is given (else it is looked up on PATH).
SIMULATOR_VARIABLE = "QRV_SIM"
#: The variable through which the library finds simulated printers.
VIRTUAL_PRINTERS_VARIABLE = "QRV_VIRTUAL_PRINTERS"
_PREFIX = VIRTUAL_PRINTERS_VARIABLE + "="


class Simulator:
    """Starts qrv-sim, registers its printer for this process, and stops it on stop()/exit.

    The printer is found by qrv.printers() and qrv.open(name) while the simulator runs: its
    entry is added to this process's QRV_VIRTUAL_PRINTERS (and removed again on stop). command()
    sends a line command to it, such as "door open" or "battery 2" (see `qrv-sim --help`).

        with qrv.Simulator(name="Test Printer") as sim, qrv.open(sim.name) as printer:
            sim.command("door open")
    """

    def __init__(
        self,
        name: str = "QRV Simulator",
        model: str = "410",
        *,
        hid: bool = True,
        serial: Optional[str] = None,
        executable: Optional[str] = None,
        start_timeout: float = 10.0,
    ) -> None:
        """Starts the simulator; `model` is "410" or "210", `hid=False` sends no status reports.

        The program is `executable`, else $QRV_SIM, else qrv-sim on PATH. Raises SimulatorError
        when it cannot be started or does not announce itself within `start_timeout` seconds.
        """
        self._name = name
        program = executable or os.environ.get(SIMULATOR_VARIABLE) or shutil.which("qrv-sim")
        if not program:
            raise SimulatorError(f"qrv-sim not found (give its path, or set ${SIMULATOR_VARIABLE})")
        arguments = [program, "--name", name, "--model", model]
        if serial is not None:
            arguments += ["--serial", serial]
        if not hid:
            arguments.append("--no-hid")
        self._errors: IO[bytes] = tempfile.TemporaryFile()
        self._lock = threading.Lock()
        self._lines: "queue.Queue[Optional[str]]" = queue.Queue()
        try:
            self._process: subprocess.Popen[str] = subprocess.Popen(
                arguments,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=self._errors,
                text=True,
                encoding="utf-8",
                bufsize=1,
            )
        except OSError as error:
            self._errors.close()
            raise SimulatorError(f"cannot start {program}: {error}") from error
        self._reader = threading.Thread(target=self._read, name="qrv-sim output", daemon=True)
        self._reader.start()
        self._entry = ""
        try:
            line = self._next_line(start_timeout)
            if not line.startswith(_PREFIX):
                raise SimulatorError(f"qrv-sim said {line!r} instead of its {VIRTUAL_PRINTERS_VARIABLE} line")
        except SimulatorError:
            self.stop()
            raise
        self._entry = line[len(_PREFIX) :]
        current = os.environ.get(VIRTUAL_PRINTERS_VARIABLE, "")
        os.environ[VIRTUAL_PRINTERS_VARIABLE] = f"{current};{self._entry}" if current else self._entry

    @property
    def name(self) -> str:
        """The printer's name, for qrv.open()."""
        return self._name

    @property
    def entry(self) -> str:
        """Its QRV_VIRTUAL_PRINTERS entry (name|channel|hid|model|serial)."""
        return self._entry

    @property
    def running(self) -> bool:
        return self._process.poll() is None

    def _read(self) -> None:
        assert self._process.stdout is not None
        for line in self._process.stdout:
            self._lines.put(line.rstrip("\r\n"))
        self._lines.put(None)

    def _next_line(self, timeout: float) -> str:
        try:
            line = self._lines.get(timeout=timeout)
        except queue.Empty:
            raise SimulatorError(f"qrv-sim did not answer within {timeout} s") from None
        if line is None:
            self._lines.put(None)  # stays at its end for later readers
            self._errors.seek(0)
            detail = self._errors.read().decode("utf-8", "replace").strip()
            raise SimulatorError(f"qrv-sim ended (exit status {self._process.wait()}): {detail}")
        return line

    def command(self, line: str, timeout: float = 5.0) -> str:
        """Sends one line command and returns its answer ("ok" or a value).

        Thread-safe. Raises SimulatorError for an "error: ..." answer or a simulator that ended.
        """
        with self._lock:
            if self._process.stdin is None or not self.running:
                raise SimulatorError("qrv-sim is not running")
            try:
                self._process.stdin.write(line + "\n")
                self._process.stdin.flush()
            except OSError as error:
                raise SimulatorError(f"qrv-sim is not reading commands: {error}") from error
            answer = self._next_line(timeout)
        if answer.startswith("error:"):
            raise SimulatorError(f"qrv-sim refused {line!r}: {answer}")
        return answer

    def stop(self, timeout: float = 10.0) -> None:
        """Stops the process and removes its entry from QRV_VIRTUAL_PRINTERS; again: nothing."""
        if self._entry:
            entries = os.environ.get(VIRTUAL_PRINTERS_VARIABLE, "").split(";")
            kept = [e for e in entries if e and e != self._entry]
            if kept:
                os.environ[VIRTUAL_PRINTERS_VARIABLE] = ";".join(kept)
            else:
                os.environ.pop(VIRTUAL_PRINTERS_VARIABLE, None)
            self._entry = ""
        if self._process.poll() is None:
            self._process.terminate()
            try:
                self._process.wait(timeout)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
        if self._process.stdin is not None:
            try:
                self._process.stdin.close()
            except OSError:
                pass
        self._reader.join(timeout)
        if self._process.stdout is not None:
            self._process.stdout.close()
        self._errors.close()

    def __enter__(self) -> "Simulator":
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def __repr__(self) -> str:
        return f"<qrv.Simulator {self._name!r} {'running' if self.running else 'stopped'}>"
