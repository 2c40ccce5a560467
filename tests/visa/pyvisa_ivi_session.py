"""The session of visa_session.c as an unchanged PyVISA script on the @ivi backend: it loads the
C library PYVISA_LIBRARY names (zel-run --visa sets it) with ctypes. Both give the same records.
usage: pyvisa_ivi_session.py PORT
"""

import sys

import pyvisa

rm = pyvisa.ResourceManager()
inst = rm.open_resource("TCPIP::127.0.0.1::%s::SOCKET" % sys.argv[1], read_termination="\n",
                        write_termination="\n", timeout=300)
print(inst.query("*IDN?").strip())
print(inst.query("MEAS:VOLT?").strip())
inst.write("BOGUS")
print(inst.query("SYST:ERR?").strip())
print(inst.query_binary_values("TRAC:DATA?", datatype="B"))
inst.write("SIM:SILENT ON")
try:
    inst.query("*IDN?")
except pyvisa.errors.VisaIOError as error:
    print("timeout", error.error_code)
inst.close()
rm.close()
