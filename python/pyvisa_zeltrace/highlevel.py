"""The wrapper backend: delegates every VISA call to another backend and traces it."""

import inspect
import time

from pyvisa import attributes, constants, errors
from pyvisa.highlevel import VisaLibraryBase, get_wrapper_class
from pyvisa.util import LibraryPath

from ._zeltrace import CALL, RETURN, Tracer

_SYSTEM_ERROR = int(constants.StatusCode.error_system_error)
_TEXT_LIMIT = 900  # the record carries 959 characters; leave room for the other arguments
_ADDRESS_LIMIT = 131  # the characters a record's address holds
_RAISED_LIMIT = 200  # of an exception's message, after the call

# Library machinery that is not a VISA operation: inherited as is, or delegated untraced below.
_NOT_TRACED = {
    "_init", "__str__", "__repr__", "handle_return_value", "get_last_status_in_session", "ignore_warning",
    "install_visa_handler", "uninstall_visa_handler", "uninstall_all_visa_handlers", "read_memory",
    "write_memory", "move_in", "move_out", "peek", "poke", "status_description", "get_buffer_from_id",
}

# VISA names that do not follow from the method name.
_VISA_NAMES = {
    "open_default_resource_manager": "viOpenDefaultRM",
    "list_resources": "viFindRsrc",
    "parse_resource": "viParseRsrc",
    "parse_resource_extended": "viParseRsrcEx",
    "read_stb": "viReadSTB",
    "gpib_control_ren": "viGpibControlREN",
    "gpib_control_atn": "viGpibControlATN",
    "gpib_send_ifc": "viGpibSendIFC",
    "read_asynchronously": "viReadAsync",
    "write_asynchronously": "viWriteAsync",
    "move_asynchronously": "viMoveAsync",
    "memory_allocation": "viMemAlloc",
    "memory_free": "viMemFree",
    "buffer_read": "viBufRead",
    "buffer_write": "viBufWrite",
    "set_buffer": "viSetBuf",
    "wait_on_event": "viWaitOnEvent",
}


def visa_name(method):
    return _VISA_NAMES.get(method) or "vi" + "".join(part.capitalize() for part in method.split("_"))


def escaped(data):
    """Text or bytes C-style escaped: control bytes, the backslash, the double quote and bytes beyond
    ASCII, so that what an instrument or a script hands over never breaks a record or a log line."""
    if isinstance(data, str):
        data = data.encode("latin-1", "replace")
    out = []
    for byte in bytes(data):
        char = chr(byte)
        if char == "\n":
            out.append("\\n")
        elif char == "\r":
            out.append("\\r")
        elif char == "\t":
            out.append("\\t")
        elif char in "\\\"":
            out.append("\\" + char)
        elif 32 <= byte < 127:
            out.append(char)
        else:
            out.append("\\x%02x" % byte)
    return "".join(out)


def quoted(data):
    """A C-style quoted text: what an instrument was sent or answered, control bytes escaped."""
    return '"' + escaped(data[:_TEXT_LIMIT]) + ('..."' if len(data) > _TEXT_LIMIT else '"')


def resource_name(value):
    """A resource address as the script gave it, escaped like a text: a name may hold any byte."""
    return escaped(str(value)[:_ADDRESS_LIMIT])


def argument(value):
    if value is None:
        return "NULL"
    if isinstance(value, (bytes, bytearray, str)):
        return quoted(value)
    if isinstance(value, bool):
        return "1" if value else "0"
    if isinstance(value, int):
        return str(int(value))
    if isinstance(value, (tuple, list)):
        return "{" + ", ".join(argument(v) for v in value) + "}"
    return escaped(str(value))


def attribute_name(attribute):
    try:
        return attributes.AttributesByID[int(attribute)].visa_name
    except (KeyError, ValueError, TypeError):
        return "0x%08X" % (int(attribute) & 0xFFFFFFFF)


def split_result(result):
    """(values, status) of what a backend method returned."""
    if isinstance(result, tuple) and result and isinstance(result[-1], constants.StatusCode):
        return list(result[:-1]), int(result[-1])
    if isinstance(result, constants.StatusCode):
        return [], int(result)
    if isinstance(result, tuple) and len(result) == 2 and isinstance(result[1], int) \
            and not isinstance(result[1], bool):
        return [result[0]], int(result[1])
    return ([] if result is None else [result]), 0


def command_text(method, args, values, done):
    """The command column: the call's arguments and, once it returned, its results."""
    name = visa_name(method)
    if method == "write" and len(args) > 1 and isinstance(args[1], (bytes, bytearray, str)):
        session, data = args[0], args[1]
        parts = [argument(session), quoted(data), str(len(data))] + ([argument(values[0])] if done and values else [])
    elif method == "read" and len(args) > 1:
        session, count = args[0], args[1]
        data = values[0] if done and values else b""
        parts = [argument(session), quoted(data), argument(count)] + ([str(len(data))] if done else [])
    elif method in ("get_attribute", "set_attribute") and len(args) > 1 + (method == "set_attribute"):
        parts = [argument(args[0]), "attribute=" + attribute_name(args[1])]
        if method == "set_attribute":
            parts.append("value=" + argument(args[2]))
        elif done and values:
            parts.append("value=" + argument(values[0]))
    else:
        parts = [argument(a) for a in args] + ([argument(v) for v in values] if done else [])
    return "%s(%s)" % (name, ", ".join(parts))


class ZelTraceVisaLibrary(VisaLibraryBase):
    """Wraps the backend named before "@zeltrace" and writes a call and a return record per call."""

    @staticmethod
    def get_library_paths():
        return (LibraryPath("py", "default"),)

    @staticmethod
    def get_debug_info():
        tracer = Tracer()
        return {"Tracing library": "loaded" if tracer.lib is not None else "missing",
                "Problem": tracer.problem()}

    def _init(self):
        inner = str(self.library_path)
        if "/" in inner or inner.endswith(".so") or ".so." in inner:
            self.inner = get_wrapper_class("ivi")(inner)
        else:
            self.inner = get_wrapper_class(inner or "py")("")
        self.tracer = Tracer()
        self.addresses = {}

    def __getattr__(self, name):
        # Anything else the wrapped backend offers (its session table, extras) is its own.
        if name == "inner":
            raise AttributeError(name)
        return getattr(self.inner, name)

    def get_last_status_in_session(self, session):
        return self.inner.get_last_status_in_session(session)

    @property
    def last_status(self):
        return self.inner.last_status

    def ignore_warning(self, session, *warnings_constants):
        return self.inner.ignore_warning(session, *warnings_constants)

    def status_description(self, session, status):
        return self.inner.status_description(session, status)

    def get_buffer_from_id(self, job_id):
        return self.inner.get_buffer_from_id(job_id)

    def _address(self, method, args):
        if method in ("open", "parse_resource", "parse_resource_extended") and len(args) > 1:
            return resource_name(args[1])
        return self.addresses.get(args[0], "") if args and isinstance(args[0], int) else ""

    def _traced(self, method, *args, **kwargs):
        function = getattr(self.inner, method)
        if not self.tracer.enabled():
            return function(*args, **kwargs)
        shown = args + tuple(kwargs.values())
        record_id = self.tracer.next_id()
        session = shown[0] if shown and isinstance(shown[0], int) else 0
        address = self._address(method, shown)
        self._record(record_id, CALL, session, address, 0, 0.0, method, shown, [], False)
        start = time.perf_counter()
        try:
            result = function(*args, **kwargs)
        except errors.VisaIOError as error:
            self._record(record_id, RETURN, session, address, error.error_code, time.perf_counter() - start,
                         method, shown, [], True)
            raise
        except Exception as error:  # pylint: disable=broad-except
            # Not a VISA status: the script sees the exception, the tool its type and message.
            self._record(record_id, RETURN, session, address, _SYSTEM_ERROR, time.perf_counter() - start,
                         method, shown, [], True, raised=error)
            raise
        duration = time.perf_counter() - start
        values, status = split_result(result)
        if method in ("open", "open_default_resource_manager") and values:
            session = int(values[0])
            if method == "open":
                self.addresses[session] = address
        self._record(record_id, RETURN, session, address, status, duration, method, shown, values, True)
        if method == "close" and shown:
            self.addresses.pop(shown[0], None)
        return result

    def _record(self, record_id, kind, session, address, status, duration, method, shown, values, done,
                raised=None):
        # Tracing must never change what the script sees: a record that cannot be made is left out.
        try:
            text = command_text(method, shown, values, done)
            if raised is not None:
                text += " raised %s: %s" % (type(raised).__name__, escaped(str(raised)[:_RAISED_LIMIT]))
            self.tracer.record(record_id, kind, int(session), address, int(status), duration, text)
        except Exception:  # pylint: disable=broad-except
            pass


def _make_traced(method):
    def traced(self, *args, **kwargs):
        return self._traced(method, *args, **kwargs)

    traced.__name__ = method
    traced.__doc__ = getattr(VisaLibraryBase, method).__doc__
    return traced


for _method, _function in list(VisaLibraryBase.__dict__.items()):
    if inspect.isfunction(_function) and not _method.startswith("_") and _method not in _NOT_TRACED:
        setattr(ZelTraceVisaLibrary, _method, _make_traced(_method))
