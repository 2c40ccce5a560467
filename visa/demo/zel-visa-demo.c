/* Demo traffic for `make run`: an ordinary C measurement program, linked with the VISA library
 * (libvisa-sim here), against the simulated instrument. Nothing in it knows about tracing;
 * run-demo.sh starts it through zel-run. It runs until it is stopped.
 * usage: zel-visa-demo PORT */
#include "visa.h"

#include <stdio.h>
#include <time.h>

static ViStatus _VI_FUNCH onServiceRequest(ViSession vi, ViEventType type, ViEvent context, ViAddr userHandle)
{
    (void)type;
    (void)context;
    (void)userHandle;
    ViUInt16 status = 0;
    viReadSTB(vi, &status);
    return VI_SUCCESS;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: zel-visa-demo PORT\n");
        return 2;
    }
    ViSession rm = 0, vi = 0;
    char name[64];
    snprintf(name, sizeof name, "TCPIP0::127.0.0.1::%s::SOCKET", argv[1]);
    if (viOpenDefaultRM(&rm) < VI_SUCCESS || viOpen(rm, name, VI_NO_LOCK, 0, &vi) < VI_SUCCESS) {
        fprintf(stderr, "zel-visa-demo: cannot open %s\n", name);
        return 1;
    }
    viSetAttribute(vi, VI_ATTR_TERMCHAR_EN, VI_TRUE);
    viSetAttribute(vi, VI_ATTR_TMO_VALUE, 500);
    viInstallHandler(vi, VI_EVENT_SERVICE_REQ, onServiceRequest, VI_NULL);
    viEnableEvent(vi, VI_EVENT_SERVICE_REQ, VI_HNDLR, VI_NULL);
    char identity[128] = "";
    viQueryf(vi, "*IDN?\n", "%127[^\n]", identity);
    for (unsigned cycle = 0;; ++cycle) {
        double volts = 0, amps = 0;
        viQueryf(vi, "MEAS:VOLT:DC?\n", "%lf", &volts);
        viPrintf(vi, "MEAS:CURR?\n");
        viScanf(vi, "%lf", &amps);
        if (cycle % 6 == 0) {
            int code = 0;
            char message[128] = "";
            viPrintf(vi, "OUTP:STAT %s\n", "ON"); /* not understood: an entry in the error queue */
            viQueryf(vi, "SYST:ERR?\n", "%d,%127[^\n]", &code, message);
        }
        if (cycle % 10 == 9)
            viPrintf(vi, "SIM:SRQ 50\n"); /* the handler reads the status byte */
        nanosleep(&(struct timespec) {0, 300000000}, NULL);
    }
}
