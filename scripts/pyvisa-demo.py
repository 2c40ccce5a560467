"""Demo traffic for `make run`: an ordinary PyVISA measurement loop against the simulated instrument.

Nothing in it knows about tracing; run-demo.sh starts it with PYVISA_LIBRARY=py@zeltrace.
Usage: pyvisa-demo.py PORT
"""

import sys
import time

import pyvisa

rm = pyvisa.ResourceManager()
inst = rm.open_resource("TCPIP::127.0.0.1::%s::SOCKET" % sys.argv[1], read_termination="\n",
                        write_termination="\n", timeout=300)
inst.write("*RST")
print(inst.query("*IDN?"))
cycle = 0
while True:
    inst.query("MEAS:VOLT:DC?")
    inst.query("MEAS:CURR?")
    if cycle % 5 == 0:
        inst.write("SENS:VOLT:RANG 10")  # not understood: leaves an entry in the error queue
        inst.query("SYST:ERR?")
    if cycle % 7 == 0:
        inst.query_binary_values("TRAC:DATA?", datatype="B")
    if cycle % 20 == 19:
        # A silent instrument: the read times out, and the tool shows the error.
        inst.write("SIM:SILENT ON")
        try:
            inst.query("*OPC?")
        except pyvisa.errors.VisaIOError:
            pass
        inst.write("SIM:SILENT OFF")
    cycle += 1
    time.sleep(0.2)
