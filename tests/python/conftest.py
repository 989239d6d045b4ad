"""One qrv-sim process per test module ($QRV_SIM or qrv-sim on PATH).

The package and library under test are the ones Python finds: ctest puts the source tree's
python/ on PYTHONPATH and names the built library in $QRV_LIBRARY; without them the installed
ones are tested.
"""

from __future__ import annotations

import os
from collections.abc import Iterator

import pytest

import qrv


@pytest.fixture(scope="module")
def sim() -> Iterator[qrv.Simulator]:
    with qrv.Simulator(name=f"Python Test {os.getpid()}") as simulator:
        yield simulator


@pytest.fixture
def printer(sim: qrv.Simulator) -> Iterator[qrv.Printer]:
    with qrv.open(sim.name) as opened:
        yield opened
