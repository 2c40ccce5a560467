"""A plain PyVISA session against the simulated instrument; the test runs it through @zeltrace."""

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
inst.close()
rm.close()
