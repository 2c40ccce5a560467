/* The VISA C API for 64-bit Linux: types, functions, attributes, events and status codes.
 *
 * Written for the ZelVisa Trace Tool from the public VISA standard (VPP-4.3.2, VPP-4.3.3), so that the
 * forwarding library, the simulated library and programs built here need no vendor header. On
 * 64-bit Linux ViBusAddress, ViBusSize and ViAttrState are 64 bits wide. */
#ifndef __VISA_HEADER__
#define __VISA_HEADER__

#include <stdarg.h>

#include "visatype.h"

#define VI_SPEC_VERSION (0x00700000UL)

#ifdef __cplusplus
extern "C" {
#endif

typedef ViObject ViEvent;
typedef ViEvent* ViPEvent;
typedef ViObject ViFindList;
typedef ViFindList* ViPFindList;
typedef ViUInt64 ViBusAddress;
typedef ViUInt64 ViBusSize;
typedef ViUInt64 ViAttrState;
typedef ViUInt64 ViBusAddress64;
typedef ViBusAddress64* ViPBusAddress64;
typedef ViUInt32 ViEventType;
typedef ViEventType* ViPEventType;
typedef ViEventType* ViAEventType;
typedef void* ViPAttrState;
typedef ViAttr* ViPAttr;
typedef ViAttr* ViAAttr;
typedef ViString ViKeyId;
typedef ViConstString ViConstKeyId;
typedef ViPString ViPKeyId;
typedef ViUInt32 ViJobId;
typedef ViJobId* ViPJobId;
typedef ViUInt32 ViAccessMode;
typedef ViAccessMode* ViPAccessMode;
typedef ViBusAddress* ViPBusAddress;
typedef ViUInt32 ViEventFilter;
typedef va_list ViVAList;

typedef ViStatus(_VI_FUNCH _VI_PTR ViHndlr)(ViSession vi, ViEventType eventType, ViEvent event, ViAddr userHandle);

/* Resource manager and resources */
ViStatus _VI_FUNC viOpenDefaultRM(ViPSession vi);
ViStatus _VI_FUNC viFindRsrc(ViSession sesn, ViConstString expr, ViPFindList vi, ViPUInt32 retCnt, ViChar desc[]);
ViStatus _VI_FUNC viFindNext(ViFindList vi, ViChar desc[]);
ViStatus _VI_FUNC viParseRsrc(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum);
ViStatus _VI_FUNC viParseRsrcEx(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum,
                                ViChar rsrcClass[], ViChar expandedUnaliasedName[], ViChar aliasIfExists[]);
ViStatus _VI_FUNC viOpen(ViSession sesn, ViConstRsrc name, ViAccessMode mode, ViUInt32 timeout, ViPSession vi);

/* Resource template operations */
ViStatus _VI_FUNC viClose(ViObject vi);
ViStatus _VI_FUNC viSetAttribute(ViObject vi, ViAttr attrName, ViAttrState attrValue);
ViStatus _VI_FUNC viGetAttribute(ViObject vi, ViAttr attrName, void* attrValue);
ViStatus _VI_FUNC viStatusDesc(ViObject vi, ViStatus status, ViChar desc[]);
ViStatus _VI_FUNC viTerminate(ViObject vi, ViUInt16 degree, ViJobId jobId);
ViStatus _VI_FUNC viLock(ViSession vi, ViAccessMode lockType, ViUInt32 timeout, ViConstKeyId requestedKey,
                         ViChar accessKey[]);
ViStatus _VI_FUNC viUnlock(ViSession vi);
ViStatus _VI_FUNC viEnableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism, ViEventFilter context);
ViStatus _VI_FUNC viDisableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism);
ViStatus _VI_FUNC viDiscardEvents(ViSession vi, ViEventType eventType, ViUInt16 mechanism);
ViStatus _VI_FUNC viWaitOnEvent(ViSession vi, ViEventType inEventType, ViUInt32 timeout, ViPEventType outEventType,
                                ViPEvent outContext);
ViStatus _VI_FUNC viInstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle);
ViStatus _VI_FUNC viUninstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle);

/* Basic I/O */
ViStatus _VI_FUNC viRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viReadAsync(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPJobId jobId);
ViStatus _VI_FUNC viReadToFile(ViSession vi, ViConstString filename, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viWriteAsync(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPJobId jobId);
ViStatus _VI_FUNC viWriteFromFile(ViSession vi, ViConstString filename, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viAssertTrigger(ViSession vi, ViUInt16 protocol);
ViStatus _VI_FUNC viReadSTB(ViSession vi, ViPUInt16 status);
ViStatus _VI_FUNC viClear(ViSession vi);

/* Formatted and buffered I/O */
ViStatus _VI_FUNC viSetBuf(ViSession vi, ViUInt16 mask, ViUInt32 size);
ViStatus _VI_FUNC viFlush(ViSession vi, ViUInt16 mask);
ViStatus _VI_FUNC viBufWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viBufRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNCC viPrintf(ViSession vi, ViConstString writeFmt, ...);
ViStatus _VI_FUNC viVPrintf(ViSession vi, ViConstString writeFmt, ViVAList params);
ViStatus _VI_FUNCC viSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ...);
ViStatus _VI_FUNC viVSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ViVAList parms);
ViStatus _VI_FUNCC viScanf(ViSession vi, ViConstString readFmt, ...);
ViStatus _VI_FUNC viVScanf(ViSession vi, ViConstString readFmt, ViVAList params);
ViStatus _VI_FUNCC viSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ...);
ViStatus _VI_FUNC viVSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ViVAList parms);
ViStatus _VI_FUNCC viQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ...);
ViStatus _VI_FUNC viVQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ViVAList params);

/* Memory I/O */
ViStatus _VI_FUNC viIn8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt8 val8);
ViStatus _VI_FUNC viOut8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViUInt8 val8);
ViStatus _VI_FUNC viIn16(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt16 val16);
ViStatus _VI_FUNC viOut16(ViSession vi, ViUInt16 space, ViBusAddress offset, ViUInt16 val16);
ViStatus _VI_FUNC viIn32(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt32 val32);
ViStatus _VI_FUNC viOut32(ViSession vi, ViUInt16 space, ViBusAddress offset, ViUInt32 val32);
ViStatus _VI_FUNC viIn64(ViSession vi, ViUInt16 space, ViBusAddress offset, ViPUInt64 val64);
ViStatus _VI_FUNC viOut64(ViSession vi, ViUInt16 space, ViBusAddress offset, ViUInt64 val64);
ViStatus _VI_FUNC viIn8Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViPUInt8 val8);
ViStatus _VI_FUNC viOut8Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViUInt8 val8);
ViStatus _VI_FUNC viIn16Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViPUInt16 val16);
ViStatus _VI_FUNC viOut16Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViUInt16 val16);
ViStatus _VI_FUNC viIn32Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViPUInt32 val32);
ViStatus _VI_FUNC viOut32Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViUInt32 val32);
ViStatus _VI_FUNC viIn64Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViPUInt64 val64);
ViStatus _VI_FUNC viOut64Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViUInt64 val64);
ViStatus _VI_FUNC viMoveIn8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt8 buf8);
ViStatus _VI_FUNC viMoveOut8(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt8 buf8);
ViStatus _VI_FUNC viMoveIn16(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt16 buf16);
ViStatus _VI_FUNC viMoveOut16(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt16 buf16);
ViStatus _VI_FUNC viMoveIn32(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt32 buf32);
ViStatus _VI_FUNC viMoveOut32(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt32 buf32);
ViStatus _VI_FUNC viMoveIn64(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt64 buf64);
ViStatus _VI_FUNC viMoveOut64(ViSession vi, ViUInt16 space, ViBusAddress offset, ViBusSize length, ViAUInt64 buf64);
ViStatus _VI_FUNC viMoveIn8Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt8 buf8);
ViStatus _VI_FUNC viMoveOut8Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt8 buf8);
ViStatus _VI_FUNC viMoveIn16Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt16 buf16);
ViStatus _VI_FUNC viMoveOut16Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt16 buf16);
ViStatus _VI_FUNC viMoveIn32Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt32 buf32);
ViStatus _VI_FUNC viMoveOut32Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt32 buf32);
ViStatus _VI_FUNC viMoveIn64Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt64 buf64);
ViStatus _VI_FUNC viMoveOut64Ex(ViSession vi, ViUInt16 space, ViBusAddress64 offset, ViBusSize length, ViAUInt64 buf64);
ViStatus _VI_FUNC viMove(ViSession vi, ViUInt16 srcSpace, ViBusAddress srcOffset, ViUInt16 srcWidth, ViUInt16 destSpace,
                         ViBusAddress destOffset, ViUInt16 destWidth, ViBusSize srcLength);
ViStatus _VI_FUNC viMoveAsync(ViSession vi, ViUInt16 srcSpace, ViBusAddress srcOffset, ViUInt16 srcWidth,
                              ViUInt16 destSpace, ViBusAddress destOffset, ViUInt16 destWidth, ViBusSize srcLength,
                              ViPJobId jobId);
ViStatus _VI_FUNC viMoveEx(ViSession vi, ViUInt16 srcSpace, ViBusAddress64 srcOffset, ViUInt16 srcWidth,
                           ViUInt16 destSpace, ViBusAddress64 destOffset, ViUInt16 destWidth, ViBusSize srcLength);
ViStatus _VI_FUNC viMoveAsyncEx(ViSession vi, ViUInt16 srcSpace, ViBusAddress64 srcOffset, ViUInt16 srcWidth,
                                ViUInt16 destSpace, ViBusAddress64 destOffset, ViUInt16 destWidth, ViBusSize srcLength,
                                ViPJobId jobId);
ViStatus _VI_FUNC viMapAddress(ViSession vi, ViUInt16 mapSpace, ViBusAddress mapOffset, ViBusSize mapSize,
                               ViBoolean access, ViAddr suggested, ViPAddr address);
ViStatus _VI_FUNC viMapAddressEx(ViSession vi, ViUInt16 mapSpace, ViBusAddress64 mapOffset, ViBusSize mapSize,
                                 ViBoolean access, ViAddr suggested, ViPAddr address);
ViStatus _VI_FUNC viUnmapAddress(ViSession vi);
void _VI_FUNC viPeek8(ViSession vi, ViAddr address, ViPUInt8 val8);
void _VI_FUNC viPoke8(ViSession vi, ViAddr address, ViUInt8 val8);
void _VI_FUNC viPeek16(ViSession vi, ViAddr address, ViPUInt16 val16);
void _VI_FUNC viPoke16(ViSession vi, ViAddr address, ViUInt16 val16);
void _VI_FUNC viPeek32(ViSession vi, ViAddr address, ViPUInt32 val32);
void _VI_FUNC viPoke32(ViSession vi, ViAddr address, ViUInt32 val32);
void _VI_FUNC viPeek64(ViSession vi, ViAddr address, ViPUInt64 val64);
void _VI_FUNC viPoke64(ViSession vi, ViAddr address, ViUInt64 val64);

/* Shared memory */
ViStatus _VI_FUNC viMemAlloc(ViSession vi, ViBusSize size, ViPBusAddress offset);
ViStatus _VI_FUNC viMemFree(ViSession vi, ViBusAddress offset);
ViStatus _VI_FUNC viMemAllocEx(ViSession vi, ViBusSize size, ViPBusAddress64 offset);
ViStatus _VI_FUNC viMemFreeEx(ViSession vi, ViBusAddress64 offset);

/* Interface-specific operations */
ViStatus _VI_FUNC viGpibControlREN(ViSession vi, ViUInt16 mode);
ViStatus _VI_FUNC viGpibControlATN(ViSession vi, ViUInt16 mode);
ViStatus _VI_FUNC viGpibSendIFC(ViSession vi);
ViStatus _VI_FUNC viGpibCommand(ViSession vi, ViConstBuf cmd, ViUInt32 cnt, ViPUInt32 retCnt);
ViStatus _VI_FUNC viGpibPassControl(ViSession vi, ViUInt16 primAddr, ViUInt16 secAddr);
ViStatus _VI_FUNC viVxiCommandQuery(ViSession vi, ViUInt16 mode, ViUInt32 cmd, ViPUInt32 response);
ViStatus _VI_FUNC viAssertUtilSignal(ViSession vi, ViUInt16 line);
ViStatus _VI_FUNC viAssertIntrSignal(ViSession vi, ViInt16 mode, ViUInt32 statusID);
ViStatus _VI_FUNC viMapTrigger(ViSession vi, ViInt16 trigSrc, ViInt16 trigDest, ViUInt16 mode);
ViStatus _VI_FUNC viUnmapTrigger(ViSession vi, ViInt16 trigSrc, ViInt16 trigDest);
ViStatus _VI_FUNC viUsbControlOut(ViSession vi, ViInt16 bmRequestType, ViInt16 bRequest, ViUInt16 wValue,
                                  ViUInt16 wIndex, ViUInt16 wLength, ViConstBuf buf);
ViStatus _VI_FUNC viUsbControlIn(ViSession vi, ViInt16 bmRequestType, ViInt16 bRequest, ViUInt16 wValue,
                                 ViUInt16 wIndex, ViUInt16 wLength, ViPBuf buf, ViPUInt16 retCnt);
ViStatus _VI_FUNC viPxiReserveTriggers(ViSession vi, ViInt16 cnt, ViAInt16 trigBuses, ViAInt16 trigLines,
                                       ViPInt16 failureIndex);

/* Attributes */
#define VI_ATTR_RSRC_IMPL_VERSION (0x3FFF0003UL)
#define VI_ATTR_RSRC_LOCK_STATE (0x3FFF0004UL)
#define VI_ATTR_MAX_QUEUE_LENGTH (0x3FFF0005UL)
#define VI_ATTR_USER_DATA_32 (0x3FFF0007UL)
#define VI_ATTR_USER_DATA (0x3FFF000AUL)
#define VI_ATTR_USER_DATA_64 (0x3FFF000AUL)
#define VI_ATTR_FDC_CHNL (0x3FFF000DUL)
#define VI_ATTR_FDC_MODE (0x3FFF000FUL)
#define VI_ATTR_FDC_GEN_SIGNAL_EN (0x3FFF0011UL)
#define VI_ATTR_FDC_USE_PAIR (0x3FFF0013UL)
#define VI_ATTR_SEND_END_EN (0x3FFF0016UL)
#define VI_ATTR_TERMCHAR (0x3FFF0018UL)
#define VI_ATTR_TMO_VALUE (0x3FFF001AUL)
#define VI_ATTR_GPIB_READDR_EN (0x3FFF001BUL)
#define VI_ATTR_IO_PROT (0x3FFF001CUL)
#define VI_ATTR_DMA_ALLOW_EN (0x3FFF001EUL)
#define VI_ATTR_ASRL_BAUD (0x3FFF0021UL)
#define VI_ATTR_ASRL_DATA_BITS (0x3FFF0022UL)
#define VI_ATTR_ASRL_PARITY (0x3FFF0023UL)
#define VI_ATTR_ASRL_STOP_BITS (0x3FFF0024UL)
#define VI_ATTR_ASRL_FLOW_CNTRL (0x3FFF0025UL)
#define VI_ATTR_RD_BUF_OPER_MODE (0x3FFF002AUL)
#define VI_ATTR_RD_BUF_SIZE (0x3FFF002BUL)
#define VI_ATTR_WR_BUF_OPER_MODE (0x3FFF002DUL)
#define VI_ATTR_WR_BUF_SIZE (0x3FFF002EUL)
#define VI_ATTR_SUPPRESS_END_EN (0x3FFF0036UL)
#define VI_ATTR_TERMCHAR_EN (0x3FFF0038UL)
#define VI_ATTR_DEST_ACCESS_PRIV (0x3FFF0039UL)
#define VI_ATTR_DEST_BYTE_ORDER (0x3FFF003AUL)
#define VI_ATTR_SRC_ACCESS_PRIV (0x3FFF003CUL)
#define VI_ATTR_SRC_BYTE_ORDER (0x3FFF003DUL)
#define VI_ATTR_SRC_INCREMENT (0x3FFF0040UL)
#define VI_ATTR_DEST_INCREMENT (0x3FFF0041UL)
#define VI_ATTR_WIN_ACCESS_PRIV (0x3FFF0045UL)
#define VI_ATTR_WIN_BYTE_ORDER (0x3FFF0047UL)
#define VI_ATTR_GPIB_ATN_STATE (0x3FFF0057UL)
#define VI_ATTR_GPIB_ADDR_STATE (0x3FFF005CUL)
#define VI_ATTR_GPIB_CIC_STATE (0x3FFF005EUL)
#define VI_ATTR_GPIB_NDAC_STATE (0x3FFF0062UL)
#define VI_ATTR_GPIB_SRQ_STATE (0x3FFF0067UL)
#define VI_ATTR_GPIB_SYS_CNTRL_STATE (0x3FFF0068UL)
#define VI_ATTR_GPIB_HS488_CBL_LEN (0x3FFF0069UL)
#define VI_ATTR_CMDR_LA (0x3FFF006BUL)
#define VI_ATTR_VXI_DEV_CLASS (0x3FFF006CUL)
#define VI_ATTR_MAINFRAME_LA (0x3FFF0070UL)
#define VI_ATTR_VXI_VME_INTR_STATUS (0x3FFF008BUL)
#define VI_ATTR_VXI_TRIG_STATUS (0x3FFF008DUL)
#define VI_ATTR_VXI_VME_SYSFAIL_STATE (0x3FFF0094UL)
#define VI_ATTR_WIN_BASE_ADDR_32 (0x3FFF0098UL)
#define VI_ATTR_WIN_SIZE_32 (0x3FFF0099UL)
#define VI_ATTR_WIN_SIZE (0x3FFF009AUL)
#define VI_ATTR_WIN_SIZE_64 (0x3FFF009AUL)
#define VI_ATTR_WIN_BASE_ADDR (0x3FFF009BUL)
#define VI_ATTR_WIN_BASE_ADDR_64 (0x3FFF009BUL)
#define VI_ATTR_ASRL_AVAIL_NUM (0x3FFF00ACUL)
#define VI_ATTR_MEM_BASE_32 (0x3FFF00ADUL)
#define VI_ATTR_ASRL_CTS_STATE (0x3FFF00AEUL)
#define VI_ATTR_ASRL_DCD_STATE (0x3FFF00AFUL)
#define VI_ATTR_ASRL_DISCARD_NULL (0x3FFF00B0UL)
#define VI_ATTR_ASRL_DSR_STATE (0x3FFF00B1UL)
#define VI_ATTR_ASRL_DTR_STATE (0x3FFF00B2UL)
#define VI_ATTR_ASRL_END_IN (0x3FFF00B3UL)
#define VI_ATTR_ASRL_END_OUT (0x3FFF00B4UL)
#define VI_ATTR_ASRL_REPLACE_CHAR (0x3FFF00BEUL)
#define VI_ATTR_ASRL_RI_STATE (0x3FFF00BFUL)
#define VI_ATTR_ASRL_RTS_STATE (0x3FFF00C0UL)
#define VI_ATTR_ASRL_XON_CHAR (0x3FFF00C1UL)
#define VI_ATTR_ASRL_XOFF_CHAR (0x3FFF00C2UL)
#define VI_ATTR_WIN_ACCESS (0x3FFF00C3UL)
#define VI_ATTR_RM_SESSION (0x3FFF00C4UL)
#define VI_ATTR_MEM_BASE (0x3FFF00D0UL)
#define VI_ATTR_MEM_BASE_64 (0x3FFF00D0UL)
#define VI_ATTR_MEM_SIZE (0x3FFF00D1UL)
#define VI_ATTR_MEM_SIZE_64 (0x3FFF00D1UL)
#define VI_ATTR_VXI_LA (0x3FFF00D5UL)
#define VI_ATTR_MANF_ID (0x3FFF00D9UL)
#define VI_ATTR_MEM_SIZE_32 (0x3FFF00DDUL)
#define VI_ATTR_MEM_SPACE (0x3FFF00DEUL)
#define VI_ATTR_MODEL_CODE (0x3FFF00DFUL)
#define VI_ATTR_SLOT (0x3FFF00E8UL)
#define VI_ATTR_IMMEDIATE_SERV (0x3FFF0100UL)
#define VI_ATTR_INTF_PARENT_NUM (0x3FFF0101UL)
#define VI_ATTR_RSRC_SPEC_VERSION (0x3FFF0170UL)
#define VI_ATTR_INTF_TYPE (0x3FFF0171UL)
#define VI_ATTR_GPIB_PRIMARY_ADDR (0x3FFF0172UL)
#define VI_ATTR_GPIB_SECONDARY_ADDR (0x3FFF0173UL)
#define VI_ATTR_RSRC_MANF_ID (0x3FFF0175UL)
#define VI_ATTR_INTF_NUM (0x3FFF0176UL)
#define VI_ATTR_TRIG_ID (0x3FFF0177UL)
#define VI_ATTR_GPIB_REN_STATE (0x3FFF0181UL)
#define VI_ATTR_GPIB_UNADDR_EN (0x3FFF0184UL)
#define VI_ATTR_DEV_STATUS_BYTE (0x3FFF0189UL)
#define VI_ATTR_FILE_APPEND_EN (0x3FFF0192UL)
#define VI_ATTR_VXI_TRIG_SUPPORT (0x3FFF0194UL)
#define VI_ATTR_TCPIP_PORT (0x3FFF0197UL)
#define VI_ATTR_TCPIP_NODELAY (0x3FFF019AUL)
#define VI_ATTR_TCPIP_KEEPALIVE (0x3FFF019BUL)
#define VI_ATTR_4882_COMPLIANT (0x3FFF019FUL)
#define VI_ATTR_USB_INTFC_NUM (0x3FFF01A1UL)
#define VI_ATTR_USB_BULK_OUT_PIPE (0x3FFF01A2UL)
#define VI_ATTR_USB_BULK_IN_PIPE (0x3FFF01A3UL)
#define VI_ATTR_USB_INTR_IN_PIPE (0x3FFF01A4UL)
#define VI_ATTR_USB_CLASS (0x3FFF01A5UL)
#define VI_ATTR_USB_SUBCLASS (0x3FFF01A6UL)
#define VI_ATTR_USB_PROTOCOL (0x3FFF01A7UL)
#define VI_ATTR_USB_ALT_SETTING (0x3FFF01A8UL)
#define VI_ATTR_USB_END_IN (0x3FFF01A9UL)
#define VI_ATTR_USB_NUM_INTFCS (0x3FFF01AAUL)
#define VI_ATTR_USB_NUM_PIPES (0x3FFF01ABUL)
#define VI_ATTR_USB_BULK_OUT_STATUS (0x3FFF01ACUL)
#define VI_ATTR_USB_BULK_IN_STATUS (0x3FFF01ADUL)
#define VI_ATTR_USB_INTR_IN_STATUS (0x3FFF01AEUL)
#define VI_ATTR_USB_MAX_INTR_SIZE (0x3FFF01AFUL)
#define VI_ATTR_USB_CTRL_PIPE (0x3FFF01B0UL)
#define VI_ATTR_ASRL_CONNECTED (0x3FFF01BBUL)
#define VI_ATTR_ASRL_BREAK_STATE (0x3FFF01BCUL)
#define VI_ATTR_ASRL_BREAK_LEN (0x3FFF01BDUL)
#define VI_ATTR_ASRL_ALLOW_TRANSMIT (0x3FFF01BEUL)
#define VI_ATTR_ASRL_WIRE_MODE (0x3FFF01BFUL)
#define VI_ATTR_PXI_DEV_NUM (0x3FFF0201UL)
#define VI_ATTR_PXI_FUNC_NUM (0x3FFF0202UL)
#define VI_ATTR_PXI_BUS_NUM (0x3FFF0205UL)
#define VI_ATTR_PXI_CHASSIS (0x3FFF0206UL)
#define VI_ATTR_PXI_SLOT_LBUS_LEFT (0x3FFF0208UL)
#define VI_ATTR_PXI_SLOT_LBUS_RIGHT (0x3FFF0209UL)
#define VI_ATTR_PXI_TRIG_BUS (0x3FFF020AUL)
#define VI_ATTR_PXI_STAR_TRIG_BUS (0x3FFF020BUL)
#define VI_ATTR_PXI_STAR_TRIG_LINE (0x3FFF020CUL)
#define VI_ATTR_PXI_SRC_TRIG_BUS (0x3FFF020DUL)
#define VI_ATTR_PXI_DEST_TRIG_BUS (0x3FFF020EUL)
#define VI_ATTR_PXI_MEM_TYPE_BAR0 (0x3FFF0211UL)
#define VI_ATTR_PXI_MEM_TYPE_BAR1 (0x3FFF0212UL)
#define VI_ATTR_PXI_MEM_TYPE_BAR2 (0x3FFF0213UL)
#define VI_ATTR_PXI_MEM_TYPE_BAR3 (0x3FFF0214UL)
#define VI_ATTR_PXI_MEM_TYPE_BAR4 (0x3FFF0215UL)
#define VI_ATTR_PXI_MEM_TYPE_BAR5 (0x3FFF0216UL)
#define VI_ATTR_PXI_MEM_BASE_BAR0_32 (0x3FFF0221UL)
#define VI_ATTR_PXI_MEM_BASE_BAR1_32 (0x3FFF0222UL)
#define VI_ATTR_PXI_MEM_BASE_BAR2_32 (0x3FFF0223UL)
#define VI_ATTR_PXI_MEM_BASE_BAR3_32 (0x3FFF0224UL)
#define VI_ATTR_PXI_MEM_BASE_BAR4_32 (0x3FFF0225UL)
#define VI_ATTR_PXI_MEM_BASE_BAR5_32 (0x3FFF0226UL)
#define VI_ATTR_PXI_MEM_BASE_BAR0 (0x3FFF0228UL)
#define VI_ATTR_PXI_MEM_BASE_BAR0_64 (0x3FFF0228UL)
#define VI_ATTR_PXI_MEM_BASE_BAR1 (0x3FFF0229UL)
#define VI_ATTR_PXI_MEM_BASE_BAR1_64 (0x3FFF0229UL)
#define VI_ATTR_PXI_MEM_BASE_BAR2 (0x3FFF022AUL)
#define VI_ATTR_PXI_MEM_BASE_BAR2_64 (0x3FFF022AUL)
#define VI_ATTR_PXI_MEM_BASE_BAR3 (0x3FFF022BUL)
#define VI_ATTR_PXI_MEM_BASE_BAR3_64 (0x3FFF022BUL)
#define VI_ATTR_PXI_MEM_BASE_BAR4 (0x3FFF022CUL)
#define VI_ATTR_PXI_MEM_BASE_BAR4_64 (0x3FFF022CUL)
#define VI_ATTR_PXI_MEM_BASE_BAR5 (0x3FFF022DUL)
#define VI_ATTR_PXI_MEM_BASE_BAR5_64 (0x3FFF022DUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR0_32 (0x3FFF0231UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR1_32 (0x3FFF0232UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR2_32 (0x3FFF0233UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR3_32 (0x3FFF0234UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR4_32 (0x3FFF0235UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR5_32 (0x3FFF0236UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR0 (0x3FFF0238UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR0_64 (0x3FFF0238UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR1 (0x3FFF0239UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR1_64 (0x3FFF0239UL)
#define VI_ATTR_PXI_MEM_SIZE_BAR2 (0x3FFF023AUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR2_64 (0x3FFF023AUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR3 (0x3FFF023BUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR3_64 (0x3FFF023BUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR4 (0x3FFF023CUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR4_64 (0x3FFF023CUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR5 (0x3FFF023DUL)
#define VI_ATTR_PXI_MEM_SIZE_BAR5_64 (0x3FFF023DUL)
#define VI_ATTR_PXI_IS_EXPRESS (0x3FFF0240UL)
#define VI_ATTR_PXI_SLOT_LWIDTH (0x3FFF0241UL)
#define VI_ATTR_PXI_MAX_LWIDTH (0x3FFF0242UL)
#define VI_ATTR_PXI_ACTUAL_LWIDTH (0x3FFF0243UL)
#define VI_ATTR_PXI_DSTAR_BUS (0x3FFF0244UL)
#define VI_ATTR_PXI_DSTAR_SET (0x3FFF0245UL)
#define VI_ATTR_TCPIP_HISLIP_OVERLAP_EN (0x3FFF0300UL)
#define VI_ATTR_TCPIP_HISLIP_VERSION (0x3FFF0301UL)
#define VI_ATTR_TCPIP_HISLIP_MAX_MESSAGE_KB (0x3FFF0302UL)
#define VI_ATTR_TCPIP_IS_HISLIP (0x3FFF0303UL)
#define VI_ATTR_JOB_ID (0x3FFF4006UL)
#define VI_ATTR_EVENT_TYPE (0x3FFF4010UL)
#define VI_ATTR_SIGP_STATUS_ID (0x3FFF4011UL)
#define VI_ATTR_RECV_TRIG_ID (0x3FFF4012UL)
#define VI_ATTR_INTR_STATUS_ID (0x3FFF4023UL)
#define VI_ATTR_STATUS (0x3FFF4025UL)
#define VI_ATTR_RET_COUNT_32 (0x3FFF4026UL)
#define VI_ATTR_BUFFER (0x3FFF4027UL)
#define VI_ATTR_RET_COUNT (0x3FFF4028UL)
#define VI_ATTR_RET_COUNT_64 (0x3FFF4028UL)
#define VI_ATTR_RECV_INTR_LEVEL (0x3FFF4041UL)
#define VI_ATTR_VXI_TRIG_LINES_EN (0x3FFF4043UL)
#define VI_ATTR_VXI_TRIG_DIR (0x3FFF4044UL)
#define VI_ATTR_GPIB_RECV_CIC_STATE (0x3FFF4193UL)
#define VI_ATTR_USB_RECV_INTR_SIZE (0x3FFF41B0UL)
#define VI_ATTR_PXI_RECV_INTR_SEQ (0x3FFF4240UL)
#define VI_ATTR_PXI_RECV_INTR_DATA (0x3FFF4241UL)
#define VI_ATTR_RSRC_CLASS (0xBFFF0001UL)
#define VI_ATTR_RSRC_NAME (0xBFFF0002UL)
#define VI_ATTR_MANF_NAME (0xBFFF0072UL)
#define VI_ATTR_MODEL_NAME (0xBFFF0077UL)
#define VI_ATTR_INTF_INST_NAME (0xBFFF00E9UL)
#define VI_ATTR_RSRC_MANF_NAME (0xBFFF0174UL)
#define VI_ATTR_TCPIP_ADDR (0xBFFF0195UL)
#define VI_ATTR_TCPIP_HOSTNAME (0xBFFF0196UL)
#define VI_ATTR_TCPIP_DEVICE_NAME (0xBFFF0199UL)
#define VI_ATTR_USB_SERIAL_NUM (0xBFFF01A0UL)
#define VI_ATTR_PXI_SLOTPATH (0xBFFF0207UL)
#define VI_ATTR_OPER_NAME (0xBFFF4042UL)
#define VI_ATTR_RECV_TCPIP_ADDR (0xBFFF4198UL)
#define VI_ATTR_USB_RECV_INTR_DATA (0xBFFF41B1UL)

/* Event types */
#define VI_ALL_ENABLED_EVENTS (0x3FFF7FFFUL)
#define VI_EVENT_CLEAR (0x3FFF200DUL)
#define VI_EVENT_EXCEPTION (0xBFFF200EUL)
#define VI_EVENT_GPIB_CIC (0x3FFF2012UL)
#define VI_EVENT_GPIB_LISTEN (0x3FFF2014UL)
#define VI_EVENT_GPIB_TALK (0x3FFF2013UL)
#define VI_EVENT_IO_COMPLETION (0x3FFF2009UL)
#define VI_EVENT_PXI_INTR (0x3FFF2022UL)
#define VI_EVENT_SERVICE_REQ (0x3FFF200BUL)
#define VI_EVENT_TCPIP_CONNECT (0x3FFF2036UL)
#define VI_EVENT_TRIG (0xBFFF200AUL)
#define VI_EVENT_USB_INTR (0x3FFF2037UL)
#define VI_EVENT_VXI_SIGP (0x3FFF2020UL)
#define VI_EVENT_VXI_VME_INTR (0xBFFF2021UL)
#define VI_EVENT_VXI_VME_SYSFAIL (0x3FFF201DUL)
#define VI_EVENT_VXI_VME_SYSRESET (0x3FFF201EUL)

/* Completion and error codes */
#define VI_SUCCESS_EVENT_EN (0x3FFF0002L)
#define VI_SUCCESS_DEV_NPRESENT (0x3FFF007DL)
#define VI_SUCCESS_EVENT_DIS (0x3FFF0003L)
#define VI_SUCCESS_MAX_CNT (0x3FFF0006L)
#define VI_SUCCESS_NCHAIN (0x3FFF0098L)
#define VI_SUCCESS_NESTED_EXCLUSIVE (0x3FFF009AL)
#define VI_SUCCESS_NESTED_SHARED (0x3FFF0099L)
#define VI_SUCCESS_QUEUE_EMPTY (0x3FFF0004L)
#define VI_SUCCESS_QUEUE_NEMPTY (0x3FFF0080L)
#define VI_SUCCESS_SYNC (0x3FFF009BL)
#define VI_SUCCESS_TERM_CHAR (0x3FFF0005L)
#define VI_SUCCESS_TRIG_MAPPED (0x3FFF007EL)
#define VI_WARN_CONFIG_NLOADED (0x3FFF0077L)
#define VI_WARN_EXT_FUNC_NIMPL (0x3FFF00A9L)
#define VI_WARN_NSUP_ATTR_STATE (0x3FFF0084L)
#define VI_WARN_NSUP_BUF (0x3FFF0088L)
#define VI_WARN_NULL_OBJECT (0x3FFF0082L)
#define VI_WARN_QUEUE_OVERFLOW (0x3FFF000CL)
#define VI_WARN_UNKNOWN_STATUS (0x3FFF0085L)
#define VI_ERROR_ABORT (_VI_ERROR + 0x3FFF0030L)
#define VI_ERROR_ALLOC (_VI_ERROR + 0x3FFF003CL)
#define VI_ERROR_ASRL_FRAMING (_VI_ERROR + 0x3FFF006BL)
#define VI_ERROR_ASRL_OVERRUN (_VI_ERROR + 0x3FFF006CL)
#define VI_ERROR_ASRL_PARITY (_VI_ERROR + 0x3FFF006AL)
#define VI_ERROR_ATTR_READONLY (_VI_ERROR + 0x3FFF001FL)
#define VI_ERROR_BERR (_VI_ERROR + 0x3FFF0038L)
#define VI_ERROR_CLOSING_FAILED (_VI_ERROR + 0x3FFF0016L)
#define VI_ERROR_CONN_LOST (_VI_ERROR + 0x3FFF00A6L)
#define VI_ERROR_FILE_ACCESS (_VI_ERROR + 0x3FFF00A1L)
#define VI_ERROR_FILE_IO (_VI_ERROR + 0x3FFF00A2L)
#define VI_ERROR_HNDLR_NINSTALLED (_VI_ERROR + 0x3FFF0028L)
#define VI_ERROR_INP_PROT_VIOL (_VI_ERROR + 0x3FFF0037L)
#define VI_ERROR_INTF_NUM_NCONFIG (_VI_ERROR + 0x3FFF00A5L)
#define VI_ERROR_INTR_PENDING (_VI_ERROR + 0x3FFF0068L)
#define VI_ERROR_INV_ACCESS_KEY (_VI_ERROR + 0x3FFF0021L)
#define VI_ERROR_INV_ACC_MODE (_VI_ERROR + 0x3FFF0013L)
#define VI_ERROR_INV_CONTEXT (_VI_ERROR + 0x3FFF002AL)
#define VI_ERROR_INV_DEGREE (_VI_ERROR + 0x3FFF001BL)
#define VI_ERROR_INV_EVENT (_VI_ERROR + 0x3FFF0026L)
#define VI_ERROR_INV_EXPR (_VI_ERROR + 0x3FFF0010L)
#define VI_ERROR_INV_FMT (_VI_ERROR + 0x3FFF003FL)
#define VI_ERROR_INV_HNDLR_REF (_VI_ERROR + 0x3FFF0029L)
#define VI_ERROR_INV_JOB_ID (_VI_ERROR + 0x3FFF001CL)
#define VI_ERROR_INV_LENGTH (_VI_ERROR + 0x3FFF0083L)
#define VI_ERROR_INV_LINE (_VI_ERROR + 0x3FFF00A0L)
#define VI_ERROR_INV_LOCK_TYPE (_VI_ERROR + 0x3FFF0020L)
#define VI_ERROR_INV_MASK (_VI_ERROR + 0x3FFF003DL)
#define VI_ERROR_INV_MECH (_VI_ERROR + 0x3FFF0027L)
#define VI_ERROR_INV_MODE (_VI_ERROR + 0x3FFF0091L)
#define VI_ERROR_INV_OBJECT (_VI_ERROR + 0x3FFF000EL)
#define VI_ERROR_INV_OFFSET (_VI_ERROR + 0x3FFF0051L)
#define VI_ERROR_INV_PARAMETER (_VI_ERROR + 0x3FFF0078L)
#define VI_ERROR_INV_PROT (_VI_ERROR + 0x3FFF0079L)
#define VI_ERROR_INV_RSRC_NAME (_VI_ERROR + 0x3FFF0012L)
#define VI_ERROR_INV_SETUP (_VI_ERROR + 0x3FFF003AL)
#define VI_ERROR_INV_SIZE (_VI_ERROR + 0x3FFF007BL)
#define VI_ERROR_INV_SPACE (_VI_ERROR + 0x3FFF004EL)
#define VI_ERROR_INV_WIDTH (_VI_ERROR + 0x3FFF0052L)
#define VI_ERROR_IN_PROGRESS (_VI_ERROR + 0x3FFF0039L)
#define VI_ERROR_IO (_VI_ERROR + 0x3FFF003EL)
#define VI_ERROR_LIBRARY_NFOUND (_VI_ERROR + 0x3FFF009EL)
#define VI_ERROR_LINE_IN_USE (_VI_ERROR + 0x3FFF0042L)
#define VI_ERROR_MACHINE_NAVAIL (_VI_ERROR + 0x3FFF00A7L)
#define VI_ERROR_MEM_NSHARED (_VI_ERROR + 0x3FFF009DL)
#define VI_ERROR_NCIC (_VI_ERROR + 0x3FFF0060L)
#define VI_ERROR_NENABLED (_VI_ERROR + 0x3FFF002FL)
#define VI_ERROR_NIMPL_OPER (_VI_ERROR + 0x3FFF0081L)
#define VI_ERROR_NLISTENERS (_VI_ERROR + 0x3FFF005FL)
#define VI_ERROR_NPERMISSION (_VI_ERROR + 0x3FFF00A8L)
#define VI_ERROR_NSUP_ALIGN_OFFSET (_VI_ERROR + 0x3FFF0070L)
#define VI_ERROR_NSUP_ATTR (_VI_ERROR + 0x3FFF001DL)
#define VI_ERROR_NSUP_ATTR_STATE (_VI_ERROR + 0x3FFF001EL)
#define VI_ERROR_NSUP_FMT (_VI_ERROR + 0x3FFF0041L)
#define VI_ERROR_NSUP_INTR (_VI_ERROR + 0x3FFF009FL)
#define VI_ERROR_NSUP_LINE (_VI_ERROR + 0x3FFF00A3L)
#define VI_ERROR_NSUP_MECH (_VI_ERROR + 0x3FFF00A4L)
#define VI_ERROR_NSUP_MODE (_VI_ERROR + 0x3FFF0046L)
#define VI_ERROR_NSUP_OFFSET (_VI_ERROR + 0x3FFF0054L)
#define VI_ERROR_NSUP_OPER (_VI_ERROR + 0x3FFF0067L)
#define VI_ERROR_NSUP_VAR_WIDTH (_VI_ERROR + 0x3FFF0055L)
#define VI_ERROR_NSUP_WIDTH (_VI_ERROR + 0x3FFF0076L)
#define VI_ERROR_NSYS_CNTLR (_VI_ERROR + 0x3FFF0061L)
#define VI_ERROR_OUTP_PROT_VIOL (_VI_ERROR + 0x3FFF0036L)
#define VI_ERROR_QUEUE_ERROR (_VI_ERROR + 0x3FFF003BL)
#define VI_ERROR_QUEUE_OVERFLOW (_VI_ERROR + 0x3FFF002DL)
#define VI_ERROR_RAW_RD_PROT_VIOL (_VI_ERROR + 0x3FFF0035L)
#define VI_ERROR_RAW_WR_PROT_VIOL (_VI_ERROR + 0x3FFF0034L)
#define VI_ERROR_RESP_PENDING (_VI_ERROR + 0x3FFF0059L)
#define VI_ERROR_RSRC_BUSY (_VI_ERROR + 0x3FFF0072L)
#define VI_ERROR_RSRC_LOCKED (_VI_ERROR + 0x3FFF000FL)
#define VI_ERROR_RSRC_NFOUND (_VI_ERROR + 0x3FFF0011L)
#define VI_ERROR_SESN_NLOCKED (_VI_ERROR + 0x3FFF009CL)
#define VI_ERROR_SRQ_NOCCURRED (_VI_ERROR + 0x3FFF004AL)
#define VI_ERROR_SYSTEM_ERROR (_VI_ERROR + 0x3FFF0000L)
#define VI_ERROR_TMO (_VI_ERROR + 0x3FFF0015L)
#define VI_ERROR_TRIG_NMAPPED (_VI_ERROR + 0x3FFF006EL)
#define VI_ERROR_USER_BUF (_VI_ERROR + 0x3FFF0071L)
#define VI_ERROR_WINDOW_MAPPED (_VI_ERROR + 0x3FFF0080L)
#define VI_ERROR_WINDOW_NMAPPED (_VI_ERROR + 0x3FFF0057L)
#define VI_ERROR_INV_SESSION VI_ERROR_INV_OBJECT

/* Other values */
#define VI_A16_SPACE (1)
#define VI_A24_SPACE (2)
#define VI_A32_SPACE (3)
#define VI_A64_SPACE (4)
#define VI_ALL_MECH (65535)
#define VI_ANY_HNDLR (0)
#define VI_ASRL488 (4)
#define VI_ASRL_END_BREAK (3)
#define VI_ASRL_END_LAST_BIT (1)
#define VI_ASRL_END_NONE (0)
#define VI_ASRL_END_TERMCHAR (2)
#define VI_ASRL_FLOW_DTR_DSR (4)
#define VI_ASRL_FLOW_NONE (0)
#define VI_ASRL_FLOW_RTS_CTS (2)
#define VI_ASRL_FLOW_XON_XOFF (1)
#define VI_ASRL_IN_BUF (16)
#define VI_ASRL_IN_BUF_DISCARD (64)
#define VI_ASRL_OUT_BUF (32)
#define VI_ASRL_OUT_BUF_DISCARD (128)
#define VI_ASRL_PAR_EVEN (2)
#define VI_ASRL_PAR_MARK (3)
#define VI_ASRL_PAR_NONE (0)
#define VI_ASRL_PAR_ODD (1)
#define VI_ASRL_PAR_SPACE (4)
#define VI_ASRL_STOP_ONE (10)
#define VI_ASRL_STOP_ONE5 (15)
#define VI_ASRL_STOP_TWO (20)
#define VI_ASRL_WIRE_232_AUTO (130)
#define VI_ASRL_WIRE_232_DCE (129)
#define VI_ASRL_WIRE_232_DTE (128)
#define VI_ASRL_WIRE_485_2_AUTO (3)
#define VI_ASRL_WIRE_485_2_DTR_CTRL (2)
#define VI_ASRL_WIRE_485_2_DTR_ECHO (1)
#define VI_ASRL_WIRE_485_4 (0)
#define VI_ASSERT_IRQ1 (1)
#define VI_ASSERT_IRQ2 (2)
#define VI_ASSERT_IRQ3 (3)
#define VI_ASSERT_IRQ4 (4)
#define VI_ASSERT_IRQ5 (5)
#define VI_ASSERT_IRQ6 (6)
#define VI_ASSERT_IRQ7 (7)
#define VI_ASSERT_SIGNAL (-1)
#define VI_ASSERT_USE_ASSIGNED (0)
#define VI_BIG_ENDIAN (0)
#define VI_BLCK_NPRIV (5)
#define VI_BLCK_PRIV (4)
#define VI_D64_2EVME (8)
#define VI_D64_NPRIV (7)
#define VI_D64_PRIV (6)
#define VI_D64_SST160 (9)
#define VI_D64_SST267 (10)
#define VI_D64_SST320 (11)
#define VI_DATA_NPRIV (1)
#define VI_DATA_PRIV (0)
#define VI_DEREF_ADDR (3)
#define VI_EXCLUSIVE_LOCK (1)
#define VI_FDC (2)
#define VI_FDC_NORMAL (1)
#define VI_FDC_STREAM (2)
#define VI_FIND_BUFLEN (256)
#define VI_FLUSH_DISABLE (3)
#define VI_FLUSH_ON_ACCESS (1)
#define VI_FLUSH_WHEN_FULL (2)
#define VI_GPIB_ATN_ASSERT (1)
#define VI_GPIB_ATN_ASSERT_IMMEDIATE (3)
#define VI_GPIB_ATN_DEASSERT (0)
#define VI_GPIB_ATN_DEASSERT_HANDSHAKE (2)
#define VI_GPIB_HS488_DISABLED (0)
#define VI_GPIB_HS488_NIMPL (-1)
#define VI_GPIB_LISTENER (2)
#define VI_GPIB_REN_ADDRESS_GTL (6)
#define VI_GPIB_REN_ASSERT (1)
#define VI_GPIB_REN_ASSERT_ADDRESS (3)
#define VI_GPIB_REN_ASSERT_ADDRESS_LLO (5)
#define VI_GPIB_REN_ASSERT_LLO (4)
#define VI_GPIB_REN_DEASSERT (0)
#define VI_GPIB_REN_DEASSERT_GTL (2)
#define VI_GPIB_TALKER (1)
#define VI_GPIB_UNADDRESSED (0)
#define VI_HNDLR (2)
#define VI_HS488 (3)
#define VI_INTF_ASRL (4)
#define VI_INTF_FIREWIRE (9)
#define VI_INTF_GPIB (1)
#define VI_INTF_GPIB_VXI (3)
#define VI_INTF_PXI (5)
#define VI_INTF_RIO (8)
#define VI_INTF_TCPIP (6)
#define VI_INTF_USB (7)
#define VI_INTF_VXI (2)
#define VI_IO_IN_BUF (16)
#define VI_IO_IN_BUF_DISCARD (64)
#define VI_IO_OUT_BUF (32)
#define VI_IO_OUT_BUF_DISCARD (128)
#define VI_LITTLE_ENDIAN (1)
#define VI_LOAD_CONFIG (4)
#define VI_LOCAL_SPACE (0)
#define VI_NMAPPED (1)
#define VI_NORMAL (1)
#define VI_NO_LOCK (0)
#define VI_NO_SEC_ADDR (65535)
#define VI_OPAQUE_SPACE (65535)
#define VI_PROG_NPRIV (3)
#define VI_PROG_PRIV (2)
#define VI_PROT_4882_STRS (4)
#define VI_PROT_FDC (2)
#define VI_PROT_HS488 (3)
#define VI_PROT_NORMAL (1)
#define VI_PROT_USBTMC_VENDOR (5)
#define VI_PXI_ADDR_CFG (3)
#define VI_PXI_ADDR_IO (2)
#define VI_PXI_ADDR_MEM (1)
#define VI_PXI_ADDR_NONE (0)
#define VI_PXI_ALLOC_SPACE (9)
#define VI_PXI_BAR0_SPACE (11)
#define VI_PXI_BAR1_SPACE (12)
#define VI_PXI_BAR2_SPACE (13)
#define VI_PXI_BAR3_SPACE (14)
#define VI_PXI_BAR4_SPACE (15)
#define VI_PXI_BAR5_SPACE (16)
#define VI_PXI_CFG_SPACE (10)
#define VI_PXI_LBUS_NONE (0)
#define VI_PXI_LBUS_SCXI (2000)
#define VI_PXI_LBUS_STAR_TRIG_BUS_0 (1000)
#define VI_PXI_LBUS_STAR_TRIG_BUS_1 (1001)
#define VI_PXI_LBUS_STAR_TRIG_BUS_2 (1002)
#define VI_PXI_LBUS_STAR_TRIG_BUS_3 (1003)
#define VI_PXI_LBUS_STAR_TRIG_BUS_4 (1004)
#define VI_PXI_LBUS_STAR_TRIG_BUS_5 (1005)
#define VI_PXI_LBUS_STAR_TRIG_BUS_6 (1006)
#define VI_PXI_LBUS_STAR_TRIG_BUS_7 (1007)
#define VI_PXI_LBUS_STAR_TRIG_BUS_8 (1008)
#define VI_PXI_LBUS_STAR_TRIG_BUS_9 (1009)
#define VI_PXI_LBUS_UNKNOWN (-1)
#define VI_PXI_STAR_TRIG_CONTROLLER (1413)
#define VI_QUEUE (1)
#define VI_READ_BUF (1)
#define VI_READ_BUF_DISCARD (4)
#define VI_SHARED_LOCK (2)
#define VI_STATE_ASSERTED (1)
#define VI_STATE_UNASSERTED (0)
#define VI_STATE_UNKNOWN (-1)
#define VI_SUSPEND_HNDLR (4)
#define VI_TMO_IMMEDIATE (0)
#define VI_TMO_INFINITE (0xFFFFFFFFUL)
#define VI_TRIG_ALL (-2)
#define VI_TRIG_ECL0 (8)
#define VI_TRIG_ECL1 (9)
#define VI_TRIG_ECL2 (10)
#define VI_TRIG_ECL3 (11)
#define VI_TRIG_ECL4 (12)
#define VI_TRIG_ECL5 (13)
#define VI_TRIG_PANEL_IN (27)
#define VI_TRIG_PANEL_OUT (28)
#define VI_TRIG_PROT_DEFAULT (0)
#define VI_TRIG_PROT_OFF (2)
#define VI_TRIG_PROT_ON (1)
#define VI_TRIG_PROT_RESERVE (6)
#define VI_TRIG_PROT_SYNC (5)
#define VI_TRIG_PROT_UNRESERVE (7)
#define VI_TRIG_STAR_INSTR (26)
#define VI_TRIG_STAR_SLOT1 (14)
#define VI_TRIG_STAR_SLOT10 (23)
#define VI_TRIG_STAR_SLOT11 (24)
#define VI_TRIG_STAR_SLOT12 (25)
#define VI_TRIG_STAR_SLOT2 (15)
#define VI_TRIG_STAR_SLOT3 (16)
#define VI_TRIG_STAR_SLOT4 (17)
#define VI_TRIG_STAR_SLOT5 (18)
#define VI_TRIG_STAR_SLOT6 (19)
#define VI_TRIG_STAR_SLOT7 (20)
#define VI_TRIG_STAR_SLOT8 (21)
#define VI_TRIG_STAR_SLOT9 (22)
#define VI_TRIG_STAR_VXI0 (29)
#define VI_TRIG_STAR_VXI1 (30)
#define VI_TRIG_STAR_VXI2 (31)
#define VI_TRIG_SW (-1)
#define VI_TRIG_TTL0 (0)
#define VI_TRIG_TTL1 (1)
#define VI_TRIG_TTL10 (34)
#define VI_TRIG_TTL11 (35)
#define VI_TRIG_TTL2 (2)
#define VI_TRIG_TTL3 (3)
#define VI_TRIG_TTL4 (4)
#define VI_TRIG_TTL5 (5)
#define VI_TRIG_TTL6 (6)
#define VI_TRIG_TTL7 (7)
#define VI_TRIG_TTL8 (32)
#define VI_TRIG_TTL9 (33)
#define VI_UNKNOWN_LA (-1)
#define VI_UNKNOWN_LEVEL (-1)
#define VI_UNKNOWN_SLOT (-1)
#define VI_USB_END_NONE (0)
#define VI_USB_END_SHORT (4)
#define VI_USB_END_SHORT_OR_COUNT (5)
#define VI_USB_PIPE_READY (0)
#define VI_USB_PIPE_STALLED (1)
#define VI_USB_PIPE_STATE_UNKNOWN (-1)
#define VI_USE_OPERS (2)
#define VI_UTIL_ASSERT_SYSFAIL (2)
#define VI_UTIL_ASSERT_SYSRESET (1)
#define VI_UTIL_DEASSERT_SYSFAIL (3)
#define VI_VXI_CLASS_EXTENDED (1)
#define VI_VXI_CLASS_MEMORY (0)
#define VI_VXI_CLASS_MESSAGE (2)
#define VI_VXI_CLASS_OTHER (4)
#define VI_VXI_CLASS_REGISTER (3)
#define VI_VXI_CMD16 (512)
#define VI_VXI_CMD16_RESP16 (514)
#define VI_VXI_CMD32 (1024)
#define VI_VXI_CMD32_RESP16 (1026)
#define VI_VXI_CMD32_RESP32 (1028)
#define VI_VXI_RESP16 (2)
#define VI_VXI_RESP32 (4)
#define VI_WIDTH_16 (2)
#define VI_WIDTH_32 (4)
#define VI_WIDTH_64 (8)
#define VI_WIDTH_8 (1)
#define VI_WRITE_BUF (2)
#define VI_WRITE_BUF_DISCARD (8)

#ifdef __cplusplus
}
#endif

#endif
