/* Formatted I/O with C varargs against the simulated instrument: printf, queries and scans into
 * several variables, and the buffer forms. It prints everything it got, so that runs with and
 * without tracing can be compared.
 * usage: visa-formatted PORT */
#include "visa.h"

#include <stdio.h>

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    ViSession rm = 0, vi = 0;
    char name[256];
    snprintf(name, sizeof name, "TCPIP0::127.0.0.1::%s::SOCKET", argv[1]);
    viOpenDefaultRM(&rm);
    if (viOpen(rm, name, VI_NO_LOCK, 0, &vi) < VI_SUCCESS)
        return 1;
    viSetAttribute(vi, VI_ATTR_TERMCHAR_EN, VI_TRUE);
    viSetAttribute(vi, VI_ATTR_TMO_VALUE, 2000);

    ViStatus status = viPrintf(vi, "%s%d\n", "SIM:DELAY ", 0);
    printf("printf %d\n", (int)status);

    char maker[64] = "", model[64] = "";
    int serial = -1;
    double version = -1;
    viPrintf(vi, "*IDN?\n");
    status = viScanf(vi, "%63[^,],%63[^,],%d,%lf", maker, model, &serial, &version);
    printf("scanf %d [%s] [%s] %d %.2f\n", (int)status, maker, model, serial, version);

    viPrintf(vi, "%-6s\n", "BOGUS");
    int code = 0;
    char message[64] = "";
    status = viQueryf(vi, "%s\n", "%d,\"%63[^\"]", "SYST:ERR?", &code, message);
    printf("queryf %d %d [%s]\n", (int)status, code, message);

    double volts = 0;
    status = viQueryf(vi, "MEAS:VOLT?\n", "%lf", &volts);
    printf("queryf %d %.3f\n", (int)status, volts);
    short one = 0;
    status = viQueryf(vi, "*OPC?\n", "%hd", &one);
    printf("queryf %d %hd\n", (int)status, one);

    ViUInt32 count = 0;
    status = viBufWrite(vi, (ViConstBuf) "*OPC?\n", 6, &count);
    printf("bufwrite %d %u\n", (int)status, count);
    status = viFlush(vi, VI_WRITE_BUF);
    unsigned char answer[16] = "";
    status = viBufRead(vi, answer, sizeof answer - 1, &count);
    printf("flush, bufread %d %u %.*s", (int)status, count, (int)count, (const char*)answer);
    if (count == 0 || answer[count - 1] != '\n')
        printf("\n");

    ViChar text[128] = "";
    status = viSPrintf(vi, (ViPBuf)text, "%05.1f|%-4s|%x|%*d|%%", 3.14159, "ab", 255u, 4, 7);
    printf("sprintf %d [%s]\n", (int)status, text);
    int first = 0, second = 0;
    float third = 0;
    char word[16] = "";
    status = viSScanf(vi, (ViConstBuf) "12 0x1f 2.5e3 word", "%d %i %f %15s", &first, &second, &third, word);
    printf("sscanf %d %d %d %.1f [%s]\n", (int)status, first, second, (double)third, word);

    status = viPrintf(vi, "%y\n", 1);
    printf("unsupported %d\n", (int)status);
    viClose(vi);
    viClose(rm);
    return 0;
}
