"""One qrv-sim process per test module, found through $QRV_SIM; the library through $QRV_LIBRARY."""

from __future__ import annotations

import os
import sys
from collections.abc import Iterator

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "python"))

import qrv  # noqa: E402


@pytest.fixture(scope="module")
def sim() -> Iterator[qrv.Simulator]:
    with qrv.Simulator(name=f"Python Test {os.getpid()}") as simulator:
        yield simulator


@pytest.fixture
def printer(sim: qrv.Simulator) -> Iterator[qrv.Printer]:
    with qrv.open(sim.name) as opened:
        yield opened
