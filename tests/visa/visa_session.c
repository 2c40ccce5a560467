/* A short instrument session written in C, the calls PyVISA makes for pyvisa_ivi_session.py, so that
 * both give the same records. Built twice: linked with the VISA library (VISA_LINKED), and loading
 * it at run time with dlopen, by the name or path given, and dlsym on the handle.
 * It prints what each call returned, so that runs with and without tracing can be compared.
 * usage: visa-session PORT [LIBRARY] */
#include "visa.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define FUNCTION(name) __typeof__(name)* name
static struct
{
    FUNCTION(viOpenDefaultRM);
    FUNCTION(viParseRsrcEx);
    FUNCTION(viOpen);
    FUNCTION(viSetAttribute);
    FUNCTION(viWrite);
    FUNCTION(viRead);
    FUNCTION(viDisableEvent);
    FUNCTION(viDiscardEvents);
    FUNCTION(viClose);
} visa;

static int load(const char* library)
{
#ifdef VISA_LINKED
    (void)library;
#define TAKE(name) visa.name = name
#else
    void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        fprintf(stderr, "%s\n", dlerror());
        return 0;
    }
#define TAKE(name) visa.name = (__typeof__(name)*)dlsym(handle, #name)
#endif
    TAKE(viOpenDefaultRM);
    TAKE(viParseRsrcEx);
    TAKE(viOpen);
    TAKE(viSetAttribute);
    TAKE(viWrite);
    TAKE(viRead);
    TAKE(viDisableEvent);
    TAKE(viDiscardEvents);
    TAKE(viClose);
    return visa.viClose != NULL;
}

static ViSession vi;
static unsigned char answer[20480];

static void command(const char* line)
{
    ViUInt32 count = 0;
    const ViStatus status = visa.viWrite(vi, (ViConstBuf)line, (ViUInt32)strlen(line), &count);
    printf("write %d %u\n", (int)status, count);
}

/* What PyVISA's read does: read until the termination character, in pieces of 20480 or as many as
 * a block still lacks. */
static ViUInt32 readAnswer(ViUInt32 size)
{
    ViUInt32 count = 0;
    const ViStatus status = visa.viRead(vi, answer, size, &count);
    printf("read %d %u ", (int)status, count);
    for (ViUInt32 i = 0; i < count; ++i)
        printf(answer[i] >= 32 && answer[i] < 127 ? "%c" : "\\x%02x", answer[i]);
    printf("\n");
    return count;
}

int main(int argc, char** argv)
{
    if (argc < 2 || !load(argc > 2 ? argv[2] : NULL))
        return 2;
    ViSession rm = 0;
    ViUInt16 type = 0, board = 0;
    char rsrcClass[256], expanded[256], alias[256], name[256];
    snprintf(name, sizeof name, "TCPIP::127.0.0.1::%s::SOCKET", argv[1]);
    printf("rm %d\n", (int)visa.viOpenDefaultRM(&rm));
    printf("parse %d %s\n", (int)visa.viParseRsrcEx(rm, name, &type, &board, rsrcClass, expanded, alias), expanded);
    printf("open %d\n", (int)visa.viOpen(rm, expanded, VI_NO_LOCK, 0, &vi));
    visa.viSetAttribute(vi, VI_ATTR_TERMCHAR, '\n');
    visa.viSetAttribute(vi, VI_ATTR_TERMCHAR_EN, VI_TRUE);
    visa.viSetAttribute(vi, VI_ATTR_TMO_VALUE, 300);
    command("*IDN?\n");
    readAnswer(sizeof answer);
    command("MEAS:VOLT?\n");
    readAnswer(sizeof answer);
    command("BOGUS\n");
    command("SYST:ERR?\n");
    readAnswer(sizeof answer);
    command("TRAC:DATA?\n");
    const ViUInt32 first = readAnswer(sizeof answer);
    /* "#216" and 16 bytes and a line feed: what the first read left of the block. */
    readAnswer(4 + 16 + 1 - first);
    command("SIM:SILENT ON\n");
    command("*IDN?\n");
    readAnswer(sizeof answer);
    visa.viDisableEvent(vi, VI_ALL_ENABLED_EVENTS, VI_ALL_MECH);
    visa.viDiscardEvents(vi, VI_ALL_ENABLED_EVENTS, VI_ALL_MECH);
    const ViStatus closed = visa.viClose(vi);
    printf("close %d %d\n", (int)closed, (int)visa.viClose(rm));
    return 0;
}
