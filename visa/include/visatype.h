/* Basic VISA data types, as the VISA C API defines them for 64-bit Linux.
 *
 * Written for the ZelVisa Trace Tool from the public VISA standard (VPP-4.3.2). The guard has the
 * standard's name, so that a program that also sees a vendor's visatype.h gets one set of types. */
#ifndef __VISATYPE_HEADER__
#define __VISATYPE_HEADER__

#include <stdarg.h>

#define _VI_FAR
#define _VI_FUNC
#define _VI_FUNCC
#define _VI_FUNCH
#define _VI_SIGNED signed
#define _VI_ERROR (-2147483647L - 1)
#define _VI_PTR *

typedef unsigned long long ViUInt64;
typedef signed long long ViInt64;
typedef unsigned int ViUInt32;
typedef signed int ViInt32;
typedef unsigned short ViUInt16;
typedef signed short ViInt16;
typedef unsigned char ViUInt8;
typedef signed char ViInt8;
typedef char ViChar;
typedef unsigned char ViByte;
typedef void* ViAddr;
typedef float ViReal32;
typedef double ViReal64;

typedef ViUInt64* ViPUInt64;
typedef ViUInt64* ViAUInt64;
typedef ViInt64* ViPInt64;
typedef ViInt64* ViAInt64;
typedef ViUInt32* ViPUInt32;
typedef ViUInt32* ViAUInt32;
typedef ViInt32* ViPInt32;
typedef ViInt32* ViAInt32;
typedef ViUInt16* ViPUInt16;
typedef ViUInt16* ViAUInt16;
typedef ViInt16* ViPInt16;
typedef ViInt16* ViAInt16;
typedef ViUInt8* ViPUInt8;
typedef ViUInt8* ViAUInt8;
typedef ViInt8* ViPInt8;
typedef ViInt8* ViAInt8;
typedef ViChar* ViPChar;
typedef ViChar* ViAChar;
typedef ViByte* ViPByte;
typedef ViByte* ViAByte;
typedef ViAddr* ViPAddr;
typedef ViAddr* ViAAddr;
typedef ViReal32* ViPReal32;
typedef ViReal32* ViAReal32;
typedef ViReal64* ViPReal64;
typedef ViReal64* ViAReal64;

typedef ViPByte ViBuf;
typedef const ViByte* ViConstBuf;
typedef ViPByte ViPBuf;
typedef ViPByte* ViABuf;

typedef ViPChar ViString;
typedef const ViChar* ViConstString;
typedef ViPChar ViPString;
typedef ViPChar* ViAString;

typedef ViString ViRsrc;
typedef ViConstString ViConstRsrc;
typedef ViString ViPRsrc;
typedef ViString* ViARsrc;

typedef ViUInt16 ViBoolean;
typedef ViBoolean* ViPBoolean;
typedef ViBoolean* ViABoolean;

typedef ViInt32 ViStatus;
typedef ViStatus* ViPStatus;
typedef ViStatus* ViAStatus;

typedef ViUInt32 ViVersion;
typedef ViVersion* ViPVersion;
typedef ViVersion* ViAVersion;

typedef ViUInt32 ViObject;
typedef ViObject* ViPObject;
typedef ViObject* ViAObject;

typedef ViObject ViSession;
typedef ViSession* ViPSession;
typedef ViSession* ViASession;

typedef ViUInt32 ViAttr;

#define VI_SUCCESS (0L)
#define VI_NULL (0)
#define VI_TRUE (1)
#define VI_FALSE (0)

#endif
