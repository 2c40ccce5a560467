"""ctypes binding of libzeltrace. When the library cannot be loaded, tracing is simply off."""

import ctypes
import ctypes.util
import os

CALL = 0
RETURN = 1


def _declare(lib):
    lib.zeltrace_enabled.restype = ctypes.c_int
    lib.zeltrace_enabled.argtypes = []
    lib.zeltrace_next_id.restype = ctypes.c_uint64
    lib.zeltrace_next_id.argtypes = []
    lib.zeltrace_record.restype = ctypes.c_int
    lib.zeltrace_record.argtypes = [ctypes.c_uint64, ctypes.c_uint32, ctypes.c_uint32, ctypes.c_char_p,
                                    ctypes.c_int32, ctypes.c_double, ctypes.c_char_p]
    lib.zeltrace_problem.restype = ctypes.c_char_p
    lib.zeltrace_problem.argtypes = []


class Tracer:
    def __init__(self):
        self.lib = None
        candidates = []
        if os.environ.get("ZELTRACE_LIBRARY"):
            candidates.append(os.environ["ZELTRACE_LIBRARY"])
        candidates.append("libzeltrace.so.1")
        found = ctypes.util.find_library("zeltrace")
        if found:
            candidates.append(found)
        for candidate in candidates:
            try:
                lib = ctypes.CDLL(candidate)
                _declare(lib)
            except (OSError, AttributeError):
                continue
            self.lib = lib
            break

    def enabled(self):
        return self.lib is not None and self.lib.zeltrace_enabled() != 0

    def next_id(self):
        return self.lib.zeltrace_next_id()

    def record(self, record_id, kind, session, address, status, duration, text):
        self.lib.zeltrace_record(record_id, kind, session & 0xFFFFFFFF, address.encode("latin-1", "replace"),
                                 ctypes.c_int32(status).value, duration, text.encode("latin-1", "replace"))

    def problem(self):
        if self.lib is None:
            return "libzeltrace could not be loaded"
        return self.lib.zeltrace_problem().decode("latin-1")
