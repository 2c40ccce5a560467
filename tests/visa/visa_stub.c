/* A VISA library for tests and benchmarks that does nothing but answer at once, the same way each
 * time: every function leaves its own errno value (viAssertTrigger leaves it as it was) and writes
 * its outputs, so that a program can show whether what it sees through libzelvisa is what the
 * library did. Session 2 is open; the others are invalid. viBufWrite calls the library's own
 * viWrite, as real libraries do. */
#include "visa.h"

#include <errno.h>
#include <string.h>

#define STUB __attribute__((visibility("default")))

static ViStatus session(ViSession vi, int error)
{
    errno = error;
    return vi == 2 ? VI_SUCCESS : VI_ERROR_INV_OBJECT;
}

/* Leaves errno alone: what the program set must come back unchanged, whatever tracing did meanwhile
 * (it is the first function of the program that calls them all, when tracing attaches). */
STUB ViStatus viAssertTrigger(ViSession vi, ViUInt16 protocol)
{
    return vi == 2 && protocol == VI_TRIG_PROT_DEFAULT ? VI_SUCCESS : VI_ERROR_INV_OBJECT;
}

STUB ViStatus viOpenDefaultRM(ViPSession vi)
{
    *vi = 1;
    errno = 1001;
    return VI_SUCCESS;
}

STUB ViStatus viOpen(ViSession sesn, ViConstRsrc name, ViAccessMode mode, ViUInt32 timeout, ViPSession vi)
{
    (void)mode;
    (void)timeout;
    errno = 1002;
    if (sesn != 1 || !name)
        return VI_ERROR_INV_OBJECT;
    *vi = 2;
    return VI_SUCCESS;
}

STUB ViStatus viClose(ViObject vi)
{
    return session(vi, 1003);
}

STUB ViStatus viWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    (void)buf;
    if (retCnt)
        *retCnt = cnt;
    return session(vi, 1004);
}

STUB ViStatus viBufWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    const ViStatus status = viWrite(vi, buf, cnt, retCnt);
    errno = 1005;
    return status;
}

STUB ViStatus viRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    static const char answer[] = "+1.25E+00\n";
    const ViUInt32 n = cnt < sizeof answer - 1 ? cnt : (ViUInt32)(sizeof answer - 1);
    memcpy(buf, answer, n);
    if (retCnt)
        *retCnt = n;
    const ViStatus status = session(vi, 1006);
    return status == VI_SUCCESS ? VI_SUCCESS_TERM_CHAR : status;
}

STUB ViStatus viGetAttribute(ViObject vi, ViAttr attrName, void* attrValue)
{
    if (attrName != VI_ATTR_TMO_VALUE) {
        errno = 1007;
        return VI_ERROR_NSUP_ATTR;
    }
    *(ViUInt32*)attrValue = 2000;
    return session(vi, 1007);
}

STUB ViStatus viSetAttribute(ViObject vi, ViAttr attrName, ViAttrState attrValue)
{
    (void)attrName;
    (void)attrValue;
    return session(vi, 1008);
}

STUB ViStatus viIn8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt8 val8)
{
    *val8 = (ViUInt8)(offset + space);
    return session(vi, 1009);
}

STUB ViStatus viOut8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViUInt8 val8)
{
    (void)space;
    (void)offset;
    (void)val8;
    return session(vi, 1010);
}

STUB ViStatus viIn32(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt32 val32)
{
    *val32 = (ViUInt32)(offset * 3 + space);
    return session(vi, 1011);
}

STUB void viPeek16(ViSession vi, ViAddr address, ViPUInt16 val16)
{
    *val16 = (ViUInt16)(size_t)address;
    errno = vi == 2 ? 1012 : 1013;
}

STUB ViStatus viReadSTB(ViSession vi, ViPUInt16 status)
{
    *status = 64;
    return session(vi, 1014);
}

STUB ViStatus viStatusDesc(ViObject vi, ViStatus status, ViChar desc[])
{
    (void)vi;
    strcpy(desc, status == VI_SUCCESS ? "Operation completed successfully." : "Some failure.");
    errno = 1015;
    return VI_SUCCESS;
}

STUB ViStatus viFindRsrc(ViSession sesn, ViConstString expr, ViPFindList vi, ViPUInt32 retCnt, ViChar desc[])
{
    (void)expr;
    errno = 1016;
    if (sesn != 1)
        return VI_ERROR_INV_OBJECT;
    *vi = 3;
    *retCnt = 1;
    strcpy(desc, "TCPIP0::stub::5025::SOCKET");
    return VI_SUCCESS;
}

STUB ViStatus viMoveIn16(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt16 buf16)
{
    for (ViBusSize i = 0; i < length; ++i)
        buf16[i] = (ViUInt16)(space + offset + i);
    return session(vi, 1017);
}

STUB ViStatus viVPrintf(ViSession vi, ViConstString writeFmt, ViVAList params)
{
    (void)writeFmt;
    (void)params;
    return session(vi, 1018);
}

/* The library's own viWrite and viIn8, which a lookup through libzelvisa's dlsym never gives: the
 * benchmarks' baseline. Hidden aliases bind inside the library, whatever the process preloads. */
extern __typeof__(viWrite) stubWrite __attribute__((alias("viWrite"), visibility("hidden")));
extern __typeof__(viIn8) stubIn8 __attribute__((alias("viIn8"), visibility("hidden")));

STUB void* visaStubOwn(const char* name)
{
    return strcmp(name, "viWrite") == 0 ? (void*)stubWrite : strcmp(name, "viIn8") == 0 ? (void*)stubIn8 : NULL;
}
