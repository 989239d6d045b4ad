"""Finding and loading the shared library ``libqrv.so.0`` / ``qrv.dll``."""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
import threading

from .errors import LibraryNotFoundError

#: Names a library file to load instead of the installed one (for a build tree, for example).
LIBRARY_VARIABLE = "QRV_LIBRARY"

_lock = threading.Lock()
_loaded: ctypes.CDLL | None = None
_dll_folders: list[object] = []


def library_name(platform: str = sys.platform) -> str:
    """The file name under which the system's loader finds the installed library."""
    if platform.startswith("win") or platform == "cygwin":
        return "qrv.dll"
    if platform == "darwin":
        return "libqrv.0.dylib"
    return "libqrv.so.0"


def _open(path: str) -> ctypes.CDLL:
    if sys.platform == "win32":
        if not os.path.dirname(path):
            # Python's loader does not search PATH for a bare DLL name; find_library does.
            path = ctypes.util.find_library("qrv") or path
        if os.path.dirname(path):
            # The DLL's own folder is searched for what it depends on, too.
            _dll_folders.append(os.add_dll_directory(os.path.dirname(os.path.abspath(path))))
    return ctypes.CDLL(path)


def load() -> ctypes.CDLL:
    """The loaded library, loaded and prepared on first use.

    Raises LibraryNotFoundError when neither $QRV_LIBRARY nor the system's loader yields it.
    """
    global _loaded
    with _lock:
        if _loaded is None:
            path = os.environ.get(LIBRARY_VARIABLE) or library_name()
            try:
                library = _open(path)
            except OSError as error:
                raise LibraryNotFoundError(
                    f"cannot load the QRV library '{path}': {error} "
                    f"(install it, or name the file in ${LIBRARY_VARIABLE})"
                ) from error
            from ._bindings import declare

            declare(library)
            _loaded = library
        return _loaded
