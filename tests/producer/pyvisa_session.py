"""A plain PyVISA session against the simulated instrument; the test runs it through @zeltrace.

pyvisa_session.trace is what it must leave in the segment, one line per call: the call's address
and text, "=>", then the return's status and text ("=" when unchanged). A is the address as given,
A0 its canonical form, RM and S the two sessions; 1073676293 is VI_SUCCESS_TERM_CHAR and
-1073807339 VI_ERROR_TMO and -1073807360 VI_ERROR_SYSTEM_ERROR. The binary block holds a line feed: the
first read stops there and the rest of the block follows.
"""

import sys

import pyvisa

rm = pyvisa.ResourceManager()
inst = rm.open_resource("TCPIP::127.0.0.1::%s::SOCKET" % sys.argv[1], read_termination="\n",
                        write_termination="\n", timeout=1500)
inst.query("*IDN?")
inst.query("MEAS:VOLT?")
inst.write("BOGUS")
inst.query("SYST:ERR?")
inst.query_binary_values("TRAC:DATA?", datatype="B")
inst.write("SIM:SILENT ON")
try:
    inst.query("*IDN?")
except pyvisa.errors.VisaIOError as error:
    print("timeout", error.error_code)
# An exception inside the backend, not a VISA status: the script sees it, the tool its text.
try:
    rm.visalib.write(inst.session, 0.5)
except TypeError as error:
    print("raised", type(error).__name__)
inst.close()
rm.close()
