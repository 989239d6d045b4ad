"""The library's file name per platform: the one part of the Windows path that runs here."""

import pytest

import qrv


@pytest.mark.parametrize(
    "platform, name",
    [("linux", "libqrv.so.0"), ("win32", "qrv.dll"), ("cygwin", "qrv.dll"), ("darwin", "libqrv.0.dylib")],
)
def test_library_name(platform: str, name: str) -> None:
    assert qrv.library_name(platform) == name
