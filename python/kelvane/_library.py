"""Finding and loading libKelvane, with the prototypes of its C interface.

The library is loaded on first use, not at import, so that the parts of the package that do not
drive a fixture (the TEC CSV reader and plot) work on a machine without it.
"""
from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
import sysconfig
import threading
from pathlib import Path
from typing import List, Optional

LIBRARY_VARIABLE = "KELVANE_LIBRARY"
# The installed file names: the SONAME first, then the development link.
FILE_NAMES = {"darwin": ("libKelvane.0.dylib", "libKelvane.dylib")}.get(
    sys.platform, ("libKelvane.so.0", "libKelvane.so"))


class LibraryNotFound(OSError):
    """libKelvane could not be loaded from any of the places tried (listed in the message)."""


class KelvaneOptions(ctypes.Structure):
    """The settings of one device, as <kelvane/kelvane.h> declares them; 0 and None are the
    defaults. `size` must be set to ctypes.sizeof(KelvaneOptions)."""
    _fields_ = [("size", ctypes.c_size_t), ("port", ctypes.c_int), ("callTimeoutMs", ctypes.c_int),
                ("traceFile", ctypes.c_char_p), ("traceMaxMB", ctypes.c_size_t), ("log", ctypes.c_char_p)]


_handle, _text, _int = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
_PROTOTYPES = {
    "createKelvaneDev": (_handle, [_text]),
    "createKelvaneDevWithOptions": (_handle, [_text, ctypes.POINTER(KelvaneOptions)]),
    "destroyKelvaneDev": (None, [_handle]),
    "getConnectFlag": (_int, [_handle]),
    "initialFixture": (ctypes.c_bool, [_handle]),
    "checkPositionSensor": (_text, [_handle]),
    "checkDUTSensor": (_text, [_handle]),
    "trayUp": (_text, [_handle]),
    "trayDown": (_text, [_handle]),
    "trayIn": (_text, [_handle]),
    "trayOut": (_text, [_handle]),
    "fixtureLock": (_text, [_handle, _text]),
    "fixtureInit": (_text, [_handle]),
    "setFanSpeed": (_int, [_handle, _int, _int]),
    "getFanSpeed": (_text, [_handle, _int]),
    "setIO": (_text, [_handle, _int, _int]),
    "tecTempRecord": (_text, [_handle, _int]),
    # A malloc'ed buffer the caller frees: kept as an address, not converted to bytes.
    "stringFromHexString": (ctypes.c_void_p, [_text]),
    "isPureFloat": (ctypes.c_bool, [_text]),
}
EXPORTS = frozenset(_PROTOTYPES)


def installed_candidates() -> List[Path]:
    """The files an installed libKelvane may be, most likely first: the lib folders of this
    Python's prefixes, then of the usual system prefixes."""
    system = ["/usr/local", "/opt/homebrew"] if sys.platform == "darwin" else ["/usr/local", "/usr"]
    multiarch = sysconfig.get_config_var("MULTIARCH")
    folders = []
    for prefix in dict.fromkeys([sys.prefix, sys.base_prefix, *system]):
        folders.append(Path(prefix, "lib"))
        if multiarch:
            folders.append(Path(prefix, "lib", multiarch))
    return [folder / name for folder in dict.fromkeys(folders) for name in FILE_NAMES]


def _open(tried: List[str]) -> ctypes.CDLL:
    named = os.environ.get(LIBRARY_VARIABLE)
    if named:
        try:
            return ctypes.CDLL(named)
        except OSError as error:
            raise LibraryNotFound(f"{LIBRARY_VARIABLE}={named} cannot be loaded: {error}") from None
    tried.append(f"{LIBRARY_VARIABLE} (not set)")
    for path in installed_candidates():
        if path.exists():
            try:
                return ctypes.CDLL(str(path))
            except OSError as error:
                tried.append(f"{path} ({error})")
        else:
            tried.append(str(path))
    # The system loader's own search (LD_LIBRARY_PATH, ld.so.cache, DYLD_* on macOS).
    for name in dict.fromkeys([ctypes.util.find_library("Kelvane"), *FILE_NAMES]):
        if name:
            try:
                return ctypes.CDLL(name)
            except OSError:
                tried.append(f"{name} through the system loader")
    raise LibraryNotFound("libKelvane not found; tried:\n  " + "\n  ".join(tried))


_lock = threading.Lock()
_library: Optional[ctypes.CDLL] = None


def library() -> ctypes.CDLL:
    """libKelvane with its prototypes declared, loaded on the first call.

    Raises LibraryNotFound naming every place tried."""
    global _library
    with _lock:
        if _library is None:
            lib = _open([])
            for name, (result, arguments) in _PROTOTYPES.items():
                function = getattr(lib, name)
                function.restype, function.argtypes = result, arguments
            _library = lib
        return _library


def free(address: int) -> None:
    """Releases a buffer the library allocated for the caller (stringFromHexString's)."""
    release = ctypes.CDLL(None).free  # the process's C library, the one libKelvane uses
    release.argtypes, release.restype = [ctypes.c_void_p], None
    release(address)
