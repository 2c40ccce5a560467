"""Random input through the PyVISA backend's text building: resource names, data written and read,
and arguments of any kind a script or an instrument may hand over become an address and a command
text of printable ASCII only, so that no byte breaks a record or a line of the log.

usage: fuzz_pyvisa_text.py SECONDS [SEED]      (run by fuzz/run.sh)
       fuzz_pyvisa_text.py --cases N --seed S  (a fixed run, for the test suite)
"""

import random
import sys
import time
import types

from pyvisa_zeltrace import highlevel

METHODS = ["write", "read", "get_attribute", "set_attribute", "open", "parse_resource", "clear", "close",
           "list_resources", "gpib_command", "assert_trigger"]


def random_bytes(rng):
    size = rng.choice([0, 1, 2, 10, 131, 132, 900, 901, 2000])
    return bytes(rng.randrange(256) for _ in range(size))


def random_value(rng, depth=0):
    kind = rng.randrange(9 if depth < 2 else 7)
    if kind == 0:
        return random_bytes(rng)
    if kind == 1:
        return random_bytes(rng).decode("latin-1")
    if kind == 2:
        return "".join(chr(rng.randrange(0x110000)) for _ in range(rng.randrange(20))).encode(
            "utf-8", "surrogatepass").decode("utf-8", "replace")
    if kind == 3:
        return rng.randrange(-2 ** 70, 2 ** 70)
    if kind == 4:
        return rng.choice([None, True, False, 0.5, float("nan"), -1e300])
    if kind == 5:
        return bytearray(random_bytes(rng))
    if kind == 6:
        return types.SimpleNamespace(text=random_bytes(rng).decode("latin-1"))
    return [random_value(rng, depth + 1) for _ in range(rng.randrange(4))]


def printable(text):
    return isinstance(text, str) and all(" " <= c <= "~" for c in text)


def one_case(rng):
    method = rng.choice(METHODS)
    args = tuple(random_value(rng) for _ in range(rng.randrange(1, 4)))
    if method in ("write", "read") and len(args) < 2:
        args += (b"",)
    if method in ("get_attribute", "set_attribute"):
        args = (args[0], rng.randrange(-2 ** 33, 2 ** 33)) + args[1:]
    values = [random_value(rng) for _ in range(rng.randrange(3))]
    owner = types.SimpleNamespace(addresses={})
    address = highlevel.ZelTraceVisaLibrary._address(owner, method, args)
    try:
        text = highlevel.command_text(method, args, values, rng.random() < 0.5)
    except Exception:  # the backend leaves such a record out, as it does for any failure
        text = ""
    if not printable(address) or len(address) > 4 * 131 or not printable(text):
        raise AssertionError("unprintable text from %r %r %r: %r %r" % (method, args, values, address, text))


def main(argv):
    if argv[1:2] == ["--cases"]:
        rng = random.Random(int(argv[4]))
        for _ in range(int(argv[2])):
            one_case(rng)
        return 0
    seed = int(argv[2]) if len(argv) > 2 else random.randrange(2 ** 32)
    print("seed %d" % seed)
    sys.stdout.flush()
    rng = random.Random(seed)
    end = time.monotonic() + float(argv[1])
    cases = 0
    while time.monotonic() < end:
        one_case(rng)
        cases += 1
    print("stat::number_of_executed_units: %d (seed %d)" % (cases, seed))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
