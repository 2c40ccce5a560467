"""PyVISA backend that shows every VISA call live in the ZelVisa Trace Tool.

Use it with no change to a script::

    PYVISA_LIBRARY=@zeltrace python3 script.py       # wraps pyvisa-py
    PYVISA_LIBRARY=py@zeltrace python3 script.py     # the same, explicitly
    pyvisa.ResourceManager("/usr/lib/libvisa.so@zeltrace")  # wraps a C VISA library

The part before "@zeltrace" names the wrapped backend: "py" (the default) or another PyVISA backend
name, or the path of a C VISA library. Records go through libzeltrace (see zeltrace.h for the
environment variables that choose the segment and locks; ZELTRACE_LIBRARY names the library file).
"""

from .highlevel import ZelTraceVisaLibrary

WRAPPER_CLASS = ZelTraceVisaLibrary

__all__ = ["WRAPPER_CLASS", "ZelTraceVisaLibrary"]
