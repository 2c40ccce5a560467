/* Calls every function of the VISA C API once, from the library named on the command line (opened
 * with dlopen, the functions looked up with dlsym), and prints per call its status, the errno it
 * left and a digest of everything it wrote: a run through libzelvisa must print what a run against
 * the library itself prints. Session 2, outputs filled with a pattern before each call.
 * usage: visa-every-call LIBRARY */
#include "visa.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static struct Outputs
{
    ViUInt8 u8;
    ViUInt16 u16, u16b;
    ViInt16 i16;
    ViUInt32 u32, u32b;
    ViUInt64 u64;
    ViSession session;
    ViAddr address;
    ViEventType type;
    ViEvent event;
    ViJobId job;
    ViChar text[256], text2[256], text3[256];
    ViByte buf[64];
    ViUInt8 a8[8];
    ViUInt16 a16[8];
    ViUInt32 a32[8];
    ViUInt64 a64[8];
    ViInt16 lines[2], buses[2];
} o;

static void* library;

static void* lookup(const char* name)
{
    return dlsym(library, name);
}

static unsigned long long digest(void)
{
    unsigned long long h = 1469598103934665603ull;
    const unsigned char* p = (const unsigned char*)&o;
    for (size_t i = 0; i < sizeof o; ++i)
        h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

static void reset(void)
{
    memset(&o, 0xA5, sizeof o);
    memcpy(o.buf, "*IDN?\n", 6);
    errno = 4242;
}

static void report(const char* name, int present, ViStatus status, int error)
{
    if (present)
        printf("%s %d %d %016llx\n", name, (int)status, error, digest());
    else
        printf("%s missing\n", name);
}

/* Calls `name` as `call` says, with `f` its function, if the library has it. */
#define INVOKE(name, call)                                                                                             \
    do {                                                                                                               \
        __typeof__(name)* f = (__typeof__(name)*)lookup(#name);                                                        \
        ViStatus status = 0;                                                                                           \
        int error = 0;                                                                                                 \
        if (f) {                                                                                                       \
            reset();                                                                                                   \
            status = (call);                                                                                           \
            error = errno;                                                                                             \
        }                                                                                                              \
        report(#name, f != NULL, status, error);                                                                       \
    } while (0)
#define CALL(name, ...) INVOKE(name, f(__VA_ARGS__))
#define CALL_LIST(name, via, ...) INVOKE(name, via(f, __VA_ARGS__))
#define CALL_VOID(name, ...) INVOKE(name, (f(__VA_ARGS__), 0))

static ViStatus handler(ViSession vi, ViEventType type, ViEvent event, ViAddr user)
{
    (void)vi;
    (void)type;
    (void)event;
    (void)user;
    return VI_SUCCESS;
}

/* The va_list forms, called as a program calls them: with a list of its own arguments. */
static ViStatus list1(__typeof__(viVPrintf)* f, ViSession vi, ViConstString format, ...)
{
    va_list args;
    va_start(args, format);
    const ViStatus status = f(vi, format, args);
    va_end(args);
    return status;
}

static ViStatus list2(__typeof__(viVQueryf)* f, ViSession vi, ViConstString write, ViConstString read, ...)
{
    va_list args;
    va_start(args, read);
    const ViStatus status = f(vi, write, read, args);
    va_end(args);
    return status;
}

static ViStatus listTo(__typeof__(viVSPrintf)* f, ViSession vi, ViPBuf buf, ViConstString format, ...)
{
    va_list args;
    va_start(args, format);
    const ViStatus status = f(vi, buf, format, args);
    va_end(args);
    return status;
}

static ViStatus listFrom(__typeof__(viVSScanf)* f, ViSession vi, ViConstBuf buf, ViConstString format, ...)
{
    va_list args;
    va_start(args, format);
    const ViStatus status = f(vi, buf, format, args);
    va_end(args);
    return status;
}

int main(int argc, char** argv)
{
    if (argc < 2 || !(library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL))) {
        fprintf(stderr, "usage: visa-every-call LIBRARY (%s)\n", dlerror());
        return 2;
    }
    const ViSession vi = 2;
    CALL(viAssertIntrSignal, vi, 1, 0x1234);
    CALL(viAssertTrigger, vi, VI_TRIG_PROT_DEFAULT);
    CALL(viAssertUtilSignal, vi, VI_UTIL_ASSERT_SYSRESET);
    CALL(viBufRead, vi, o.buf, 16, &o.u32);
    CALL(viBufWrite, vi, o.buf, 6, &o.u32);
    CALL(viClear, vi);
    CALL(viClose, 7);
    CALL(viDisableEvent, vi, VI_ALL_ENABLED_EVENTS, VI_ALL_MECH);
    CALL(viDiscardEvents, vi, VI_EVENT_SERVICE_REQ, VI_QUEUE);
    CALL(viEnableEvent, vi, VI_EVENT_SERVICE_REQ, VI_QUEUE, VI_NULL);
    CALL(viFindNext, 3, o.text);
    CALL(viFindRsrc, 1, "?*::INSTR", &o.session, &o.u32, o.text);
    CALL(viFlush, vi, VI_WRITE_BUF);
    CALL(viGetAttribute, vi, VI_ATTR_TMO_VALUE, &o.u32);
    CALL(viGpibCommand, vi, o.buf, 6, &o.u32);
    CALL(viGpibControlATN, vi, VI_GPIB_ATN_ASSERT);
    CALL(viGpibControlREN, vi, VI_GPIB_REN_ASSERT);
    CALL(viGpibPassControl, vi, 5, VI_NO_SEC_ADDR);
    CALL(viGpibSendIFC, vi);
    CALL(viIn16, vi, VI_A16_SPACE, 0x10, &o.u16);
    CALL(viIn16Ex, vi, VI_A16_SPACE, 0x10, &o.u16);
    CALL(viIn32, vi, VI_A24_SPACE, 0x20, &o.u32);
    CALL(viIn32Ex, vi, VI_A24_SPACE, 0x20, &o.u32);
    CALL(viIn64, vi, VI_A32_SPACE, 0x40, &o.u64);
    CALL(viIn64Ex, vi, VI_A32_SPACE, 0x40, &o.u64);
    CALL(viIn8, vi, VI_A16_SPACE, 0x08, &o.u8);
    CALL(viIn8Ex, vi, VI_A16_SPACE, 0x08, &o.u8);
    CALL(viInstallHandler, vi, VI_EVENT_SERVICE_REQ, handler, &o);
    CALL(viLock, vi, VI_SHARED_LOCK, 100, "key", o.text);
    CALL(viMapAddress, vi, VI_A16_SPACE, 0x100, 0x10, VI_FALSE, VI_NULL, &o.address);
    CALL(viMapAddressEx, vi, VI_A16_SPACE, 0x100, 0x10, VI_FALSE, VI_NULL, &o.address);
    CALL(viMapTrigger, vi, VI_TRIG_TTL0, VI_TRIG_TTL1, VI_NULL);
    CALL(viMemAlloc, vi, 64, &o.u64);
    CALL(viMemAllocEx, vi, 64, &o.u64);
    CALL(viMemFree, vi, 0x1000);
    CALL(viMemFreeEx, vi, 0x1000);
    CALL(viMove, vi, VI_A16_SPACE, 0x10, VI_WIDTH_16, VI_A24_SPACE, 0x20, VI_WIDTH_16, 4);
    CALL(viMoveAsync, vi, VI_A16_SPACE, 0x10, VI_WIDTH_16, VI_A24_SPACE, 0x20, VI_WIDTH_16, 4, &o.job);
    CALL(viMoveAsyncEx, vi, VI_A16_SPACE, 0x10, VI_WIDTH_16, VI_A24_SPACE, 0x20, VI_WIDTH_16, 4, &o.job);
    CALL(viMoveEx, vi, VI_A16_SPACE, 0x10, VI_WIDTH_16, VI_A24_SPACE, 0x20, VI_WIDTH_16, 4);
    CALL(viMoveIn16, vi, VI_A16_SPACE, 0x10, 8, o.a16);
    CALL(viMoveIn16Ex, vi, VI_A16_SPACE, 0x10, 8, o.a16);
    CALL(viMoveIn32, vi, VI_A16_SPACE, 0x10, 8, o.a32);
    CALL(viMoveIn32Ex, vi, VI_A16_SPACE, 0x10, 8, o.a32);
    CALL(viMoveIn64, vi, VI_A16_SPACE, 0x10, 8, o.a64);
    CALL(viMoveIn64Ex, vi, VI_A16_SPACE, 0x10, 8, o.a64);
    CALL(viMoveIn8, vi, VI_A16_SPACE, 0x10, 8, o.a8);
    CALL(viMoveIn8Ex, vi, VI_A16_SPACE, 0x10, 8, o.a8);
    CALL(viMoveOut16, vi, VI_A16_SPACE, 0x10, 8, o.a16);
    CALL(viMoveOut16Ex, vi, VI_A16_SPACE, 0x10, 8, o.a16);
    CALL(viMoveOut32, vi, VI_A16_SPACE, 0x10, 8, o.a32);
    CALL(viMoveOut32Ex, vi, VI_A16_SPACE, 0x10, 8, o.a32);
    CALL(viMoveOut64, vi, VI_A16_SPACE, 0x10, 8, o.a64);
    CALL(viMoveOut64Ex, vi, VI_A16_SPACE, 0x10, 8, o.a64);
    CALL(viMoveOut8, vi, VI_A16_SPACE, 0x10, 8, o.a8);
    CALL(viMoveOut8Ex, vi, VI_A16_SPACE, 0x10, 8, o.a8);
    CALL(viOpen, 1, "TCPIP0::stub::5025::SOCKET", VI_NO_LOCK, 0, &o.session);
    CALL(viOpenDefaultRM, &o.session);
    CALL(viOut16, vi, VI_A16_SPACE, 0x10, 0xBEEF);
    CALL(viOut16Ex, vi, VI_A16_SPACE, 0x10, 0xBEEF);
    CALL(viOut32, vi, VI_A16_SPACE, 0x10, 0xDEADBEEF);
    CALL(viOut32Ex, vi, VI_A16_SPACE, 0x10, 0xDEADBEEF);
    CALL(viOut64, vi, VI_A16_SPACE, 0x10, 0x0123456789ABCDEFull);
    CALL(viOut64Ex, vi, VI_A16_SPACE, 0x10, 0x0123456789ABCDEFull);
    CALL(viOut8, vi, VI_A16_SPACE, 0x10, 0x7F);
    CALL(viOut8Ex, vi, VI_A16_SPACE, 0x10, 0x7F);
    CALL(viParseRsrc, 1, "TCPIP::stub::5025::SOCKET", &o.u16, &o.u16b);
    CALL(viParseRsrcEx, 1, "TCPIP::stub::5025::SOCKET", &o.u16, &o.u16b, o.text, o.text2, o.text3);
    CALL_VOID(viPeek16, vi, (ViAddr)0x1234, &o.u16);
    CALL_VOID(viPeek32, vi, (ViAddr)0x1234, &o.u32);
    CALL_VOID(viPeek64, vi, (ViAddr)0x1234, &o.u64);
    CALL_VOID(viPeek8, vi, (ViAddr)0x1234, &o.u8);
    CALL_VOID(viPoke16, vi, (ViAddr)0x1234, 0x55AA);
    CALL_VOID(viPoke32, vi, (ViAddr)0x1234, 0x55AA55AA);
    CALL_VOID(viPoke64, vi, (ViAddr)0x1234, 0x55AA55AA55AA55AAull);
    CALL_VOID(viPoke8, vi, (ViAddr)0x1234, 0x55);
    CALL(viPrintf, vi, "%s%d\n", "VOLT ", 5);
    o.lines[0] = o.lines[1] = o.buses[0] = o.buses[1] = 1;
    CALL(viPxiReserveTriggers, vi, 2, o.buses, o.lines, &o.i16);
    CALL(viQueryf, vi, "%s\n", "%d", "*OPC?", &o.u32);
    CALL(viRead, vi, o.buf, 16, &o.u32);
    CALL(viReadAsync, vi, o.buf, 16, &o.job);
    CALL(viReadSTB, vi, &o.u16);
    CALL(viReadToFile, vi, "/nonexistent/file", 16, &o.u32);
    CALL(viSPrintf, vi, o.buf, "%d-%s", 42, "x");
    CALL(viSScanf, vi, (ViConstBuf) "17 abc", "%u %s", &o.u32, o.text);
    CALL(viScanf, vi, "%d", &o.u32);
    CALL(viSetAttribute, vi, VI_ATTR_TMO_VALUE, 1500);
    CALL(viSetBuf, vi, VI_READ_BUF, 4096);
    CALL(viStatusDesc, vi, VI_SUCCESS, o.text);
    CALL(viTerminate, vi, VI_NULL, 9);
    CALL(viUninstallHandler, vi, VI_EVENT_SERVICE_REQ, handler, &o);
    CALL(viUnlock, vi);
    CALL(viUnmapAddress, vi);
    CALL(viUnmapTrigger, vi, VI_TRIG_TTL0, VI_TRIG_TTL1);
    CALL(viUsbControlIn, vi, 0xC0, 6, 0x0100, 0, 18, o.buf, &o.u16);
    CALL(viUsbControlOut, vi, 0x40, 1, 0, 0, 6, o.buf);
    CALL_LIST(viVPrintf, list1, vi, "%s%d\n", "VOLT ", 6);
    CALL_LIST(viVQueryf, list2, vi, "*OPC?\n", "%d", &o.u32);
    CALL_LIST(viVSPrintf, listTo, vi, o.buf, "%05.1f|%x", 3.14159, 255u);
    CALL_LIST(viVSScanf, listFrom, vi, (ViConstBuf) "8 9", "%d %d", &o.u32, &o.u32b);
    CALL_LIST(viVScanf, list1, vi, "%d", &o.u32);
    CALL(viVxiCommandQuery, vi, VI_VXI_CMD16_RESP16, 0xFCFF, &o.u32);
    CALL(viWaitOnEvent, vi, VI_EVENT_SERVICE_REQ, 0, &o.type, &o.event);
    CALL(viWrite, vi, o.buf, 6, &o.u32);
    CALL(viWriteAsync, vi, o.buf, 6, &o.job);
    CALL(viWriteFromFile, vi, "/nonexistent/file", 16, &o.u32);
    return 0;
}
