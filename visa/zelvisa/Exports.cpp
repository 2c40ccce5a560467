// The VISA C API as this library exports it: every function records a call and a return record
// and passes the call on to the real library unchanged.
//
// Texts follow the PyVISA backend's: the arguments as the program passed them, and in the return
// record also what the call wrote (outputs once it succeeded; the data read and the count always).

#pragma GCC visibility push(default)
#include "visa.h"
#pragma GCC visibility pop

#include "EventHandlers.h"
#include "TracedCall.h"
#include "VisaAttributes.h"

#include <cstdarg>
#include <cstring>

using namespace zelvisa;

namespace {

// The count a read or write reports. The library gets a variable of ours, so that the count is
// known even when the program passes NULL; what the library wrote into it reaches the program's
// variable, and a program variable the library left alone stays as it was.
class Counted
{
public:
    explicit Counted(ViPUInt32 program)
        : program(program)
    { }
    ViPUInt32 forLibrary() { return &value; }
    bool known() const { return value != s_Unset; }
    ViUInt32 get() const { return value; }
    void deliver() const
    {
        if (program && known())
            *program = value;
    }

private:
    static constexpr ViUInt32 s_Unset = 0xFFFFFFFFu;
    ViPUInt32 program;
    ViUInt32 value = s_Unset;
};

ViUInt32 clamp(ViUInt32 value, ViUInt32 limit)
{
    return value < limit ? value : limit;
}

template<Fn f> ViStatus tracedWrite(ViSession vi, ViConstBuf buf, ViUInt32 count, ViPUInt32 retCount)
{
    TracedCall call(nameOf(f));
    if (call.mode() == TracedCall::Mode::Off)
        return forward<f>(vi, buf, count, retCount);
    Counted counted(retCount);
    if (call.mode() == TracedCall::Mode::Inner) {
        const ViStatus status = forward<f>(vi, buf, count, counted.forLibrary());
        counted.deliver();
        if (Capture* capture = threadState().capture)
            capture->add(true, buf, counted.known() ? clamp(counted.get(), count) : count);
        return status;
    }
    call.setSession(vi);
    CommandText& text = call.begin();
    text.arg().number(vi);
    text.arg().bytes(buf, count);
    text.arg().number(count);
    text.end();
    call.called();
    const ViStatus status = forward<f>(vi, buf, count, counted.forLibrary());
    counted.deliver();
    call.begin();
    text.arg().number(vi);
    text.arg().bytes(buf, count);
    text.arg().number(count);
    if (counted.known())
        text.arg().number(counted.get());
    text.end();
    call.returned(status);
    return status;
}

template<Fn f> ViStatus tracedRead(ViSession vi, ViPBuf buf, ViUInt32 count, ViPUInt32 retCount)
{
    TracedCall call(nameOf(f));
    if (call.mode() == TracedCall::Mode::Off)
        return forward<f>(vi, buf, count, retCount);
    Counted counted(retCount);
    if (call.mode() == TracedCall::Mode::Inner) {
        const ViStatus status = forward<f>(vi, buf, count, counted.forLibrary());
        counted.deliver();
        if (Capture* capture = threadState().capture; capture && counted.known())
            capture->add(false, buf, clamp(counted.get(), count));
        return status;
    }
    call.setSession(vi);
    CommandText& text = call.begin();
    text.arg().number(vi);
    text.arg().bytes(buf, 0);
    text.arg().number(count);
    text.end();
    call.called();
    const ViStatus status = forward<f>(vi, buf, count, counted.forLibrary());
    counted.deliver();
    call.begin();
    text.arg().number(vi);
    text.arg().bytes(buf, counted.known() ? clamp(counted.get(), count) : 0);
    text.arg().number(count);
    if (counted.known())
        text.arg().number(counted.get());
    text.end();
    call.returned(status);
    return status;
}

void showAttribute(CommandText& text, ViAttr attribute)
{
    text.arg().literal("attribute=");
    if (const ZelVisaAttribute* known = zelvisa_attribute(attribute))
        text.literal(known->name);
    else
        text.hex(attribute, 8);
}

// A value as viGetAttribute wrote it: exactly as many bytes as the attribute has.
void showGotValue(CommandText& text, ViAttr attribute, const void* value)
{
    const ZelVisaAttribute* known = zelvisa_attribute(attribute);
    if (!known || !value || known->kind == ZELVISA_OPAQUE)
        return;
    text.arg().literal("value=");
    switch (known->kind) {
    case ZELVISA_U8:
        text.number(*static_cast<const ViUInt8*>(value));
        break;
    case ZELVISA_I16:
        text.signedNumber(*static_cast<const ViInt16*>(value));
        break;
    case ZELVISA_U16:
        text.number(*static_cast<const ViUInt16*>(value));
        break;
    case ZELVISA_I32:
        text.signedNumber(*static_cast<const ViInt32*>(value));
        break;
    case ZELVISA_U32:
        text.number(*static_cast<const ViUInt32*>(value));
        break;
    case ZELVISA_U64:
        text.number(*static_cast<const ViUInt64*>(value));
        break;
    case ZELVISA_TEXT:
        text.bytes(value, strnlen(static_cast<const char*>(value), 256));
        break;
    case ZELVISA_ADDR:
        text.hex(reinterpret_cast<std::uintptr_t>(*static_cast<void* const*>(value)));
        break;
    case ZELVISA_OPAQUE:
        break;
    }
}

void showSetValue(CommandText& text, ViAttr attribute, ViAttrState value)
{
    const ZelVisaAttribute* known = zelvisa_attribute(attribute);
    text.arg().literal("value=");
    switch (known ? known->kind : ZELVISA_U64) {
    case ZELVISA_I16:
        text.signedNumber(static_cast<ViInt16>(value));
        break;
    case ZELVISA_I32:
        text.signedNumber(static_cast<ViInt32>(value));
        break;
    case ZELVISA_ADDR:
    case ZELVISA_OPAQUE:
        text.hex(value);
        break;
    default:
        text.number(value);
    }
}

// The formatted I/O functions: the C varargs forms are passed on through the va_list forms. A
// library that does its formatted I/O through its own viWrite and viRead shows what was written
// and read in the return record.
struct Formats
{
    ViConstString write;
    ViConstString read;
};

template<Fn real> ViStatus forwardFormatted(ViSession vi, Formats formats, va_list args)
{
    if constexpr (real == Fn::viVPrintf)
        return forward<real>(vi, formats.write, args);
    else if constexpr (real == Fn::viVScanf)
        return forward<real>(vi, formats.read, args);
    else
        return forward<real>(vi, formats.write, formats.read, args);
}

void showFormats(CommandText& text, ViSession vi, Formats formats)
{
    text.arg().number(vi);
    if (formats.write)
        text.arg().text(formats.write);
    if (formats.read)
        text.arg().text(formats.read);
}

template<Fn real> ViStatus tracedFormatted(Fn shown, ViSession vi, Formats formats, va_list args)
{
    TracedCall call(nameOf(shown));
    if (!call.recording())
        return forwardFormatted<real>(vi, formats, args);
    call.setSession(vi);
    CommandText& text = call.begin();
    showFormats(text, vi, formats);
    text.end();
    call.called();
    Capture capture;
    threadState().capture = &capture;
    const ViStatus status = forwardFormatted<real>(vi, formats, args);
    threadState().capture = nullptr;
    call.begin();
    showFormats(text, vi, formats);
    if (capture.writtenSize || capture.readSize) {
        // Half the room each when both are there: a long answer must not hide the command.
        const std::size_t share = CommandText::s_Capacity / 2 - 64;
        if (formats.write)
            text.arg().bytes(capture.writtenBytes, capture.writtenSize, share);
        if (formats.read)
            text.arg().bytes(capture.readBytes, capture.readSize, share);
    }
    text.end();
    call.returned(status);
    return status;
}

// viFlush may send what formatted writes left in the buffer: shown like a formatted write.
ViStatus tracedFlush(ViSession vi, ViUInt16 mask)
{
    TracedCall call(nameOf(Fn::viFlush));
    if (!call.recording())
        return forward<Fn::viFlush>(vi, mask);
    call.setSession(vi);
    CommandText& text = call.begin();
    text.arg().number(vi);
    text.arg().number(mask);
    text.end();
    call.called();
    Capture capture;
    threadState().capture = &capture;
    const ViStatus status = forward<Fn::viFlush>(vi, mask);
    threadState().capture = nullptr;
    call.begin();
    text.arg().number(vi);
    text.arg().number(mask);
    if (capture.writtenSize)
        text.arg().bytes(capture.writtenBytes, capture.writtenSize);
    text.end();
    call.returned(status);
    return status;
}

// viSPrintf and viSScanf format into and scan from the program's buffer: no I/O, and the buffer's
// text is shown.
ViStatus tracedToBuffer(Fn shown, ViSession vi, ViPBuf buf, ViConstString format, va_list args)
{
    TracedCall call(nameOf(shown));
    if (!call.recording())
        return forward<Fn::viVSPrintf>(vi, buf, format, args);
    call.setSession(vi);
    CommandText& text = call.begin();
    text.arg().number(vi);
    text.arg().text(format);
    text.end();
    call.called();
    const ViStatus status = forward<Fn::viVSPrintf>(vi, buf, format, args);
    call.begin();
    text.arg().number(vi);
    text.arg().text(format);
    if (status >= VI_SUCCESS)
        text.arg().text(reinterpret_cast<const char*>(buf));
    text.end();
    call.returned(status);
    return status;
}

ViStatus tracedFromBuffer(Fn shown, ViSession vi, ViConstBuf buf, ViConstString format, va_list args)
{
    TracedCall call(nameOf(shown));
    if (!call.recording())
        return forward<Fn::viVSScanf>(vi, buf, format, args);
    call.setSession(vi);
    auto showCall = [&](CommandText& text) {
        text.arg().number(vi);
        text.arg().text(reinterpret_cast<const char*>(buf));
        text.arg().text(format);
        text.end();
    };
    showCall(call.begin());
    call.called();
    const ViStatus status = forward<Fn::viVSScanf>(vi, buf, format, args);
    showCall(call.begin());
    call.returned(status);
    return status;
}

// Handlers are shown as the program gave them; the library gets their wrappers.
template<Fn f>
ViStatus tracedHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle, HandlerArguments given)
{
    TracedCall call(nameOf(f));
    if (!call.recording())
        return forward<f>(vi, eventType, given.handler, given.userHandle);
    call.setSession(vi);
    const Hex<const void*> shownHandler {reinterpret_cast<const void*>(handler)};
    showAll(call.begin(), Shown {}, vi, eventType, shownHandler, userHandle);
    call.called();
    const ViStatus status = forward<f>(vi, eventType, given.handler, given.userHandle);
    showAll(call.begin(), Shown {}, vi, eventType, shownHandler, userHandle);
    call.returned(status);
    return status;
}

template<class T> Values<T> in(T* values, ViBusSize count)
{
    return {values, count, true};
}
template<class T> Values<T> out(T* values, ViBusSize count)
{
    return {values, count, false};
}

} // namespace

extern "C" {

ViStatus viOpenDefaultRM(ViPSession vi)
{
    TracedCall call(nameOf(Fn::viOpenDefaultRM));
    if (!call.recording())
        return forward<Fn::viOpenDefaultRM>(vi);
    call.begin().end();
    call.called();
    const ViStatus status = forward<Fn::viOpenDefaultRM>(vi);
    CommandText& text = call.begin();
    if (status >= VI_SUCCESS && vi) {
        call.setSession(*vi);
        text.arg().number(*vi);
    }
    text.end();
    call.returned(status);
    return status;
}

ViStatus viOpen(ViSession sesn, ViConstRsrc name, ViAccessMode mode, ViUInt32 timeout, ViPSession vi)
{
    TracedCall call(nameOf(Fn::viOpen));
    if (!call.recording()) {
        const ViStatus status = forward<Fn::viOpen>(sesn, name, mode, timeout, vi);
        // Known from here on, for the records of a session opened while tracing was off.
        if (status >= VI_SUCCESS && vi)
            sessionAddresses().set(*vi, name, sesn);
        return status;
    }
    call.setAddress(name);
    call.setSession(sesn);
    CommandText& text = call.begin();
    showAll(text, Shown {false, 0}, sesn, name, mode, timeout);
    call.called();
    const ViStatus status = forward<Fn::viOpen>(sesn, name, mode, timeout, vi);
    call.begin();
    showAll(text, Shown {true, status}, sesn, name, mode, timeout, Out<ViSession> {vi});
    if (status >= VI_SUCCESS && vi) {
        call.setSession(*vi);
        sessionAddresses().set(*vi, name, sesn);
    }
    call.returned(status);
    return status;
}

ViStatus viClose(ViObject vi)
{
    const ViStatus status = traced<Fn::viClose>(vi);
    if (status >= VI_SUCCESS)
        sessionAddresses().remove(vi);
    return status;
}

ViStatus viFindRsrc(ViSession sesn, ViConstString expr, ViPFindList vi, ViPUInt32 retCnt, ViChar desc[])
{
    return traced<Fn::viFindRsrc>(sesn, expr, Out<ViFindList> {vi}, Out<ViUInt32> {retCnt}, OutText {desc});
}

ViStatus viFindNext(ViFindList vi, ViChar desc[])
{
    return traced<Fn::viFindNext>(vi, OutText {desc});
}

ViStatus viParseRsrc(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum)
{
    return tracedAt<Fn::viParseRsrc>(rsrcName, rmSesn, rsrcName, Out<ViUInt16> {intfType}, Out<ViUInt16> {intfNum});
}

ViStatus viParseRsrcEx(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum,
                       ViChar rsrcClass[], ViChar expandedUnaliasedName[], ViChar aliasIfExists[])
{
    return tracedAt<Fn::viParseRsrcEx>(rsrcName, rmSesn, rsrcName, Out<ViUInt16> {intfType}, Out<ViUInt16> {intfNum},
                                       OutText {rsrcClass}, OutText {expandedUnaliasedName}, OutText {aliasIfExists});
}

ViStatus viSetAttribute(ViObject vi, ViAttr attrName, ViAttrState attrValue)
{
    TracedCall call(nameOf(Fn::viSetAttribute));
    if (!call.recording())
        return forward<Fn::viSetAttribute>(vi, attrName, attrValue);
    call.setSession(vi);
    auto showCall = [&](CommandText& text) {
        text.arg().number(vi);
        showAttribute(text, attrName);
        showSetValue(text, attrName, attrValue);
        text.end();
    };
    showCall(call.begin());
    call.called();
    const ViStatus status = forward<Fn::viSetAttribute>(vi, attrName, attrValue);
    showCall(call.begin());
    call.returned(status);
    return status;
}

ViStatus viGetAttribute(ViObject vi, ViAttr attrName, void* attrValue)
{
    TracedCall call(nameOf(Fn::viGetAttribute));
    if (!call.recording())
        return forward<Fn::viGetAttribute>(vi, attrName, attrValue);
    call.setSession(vi);
    CommandText& text = call.begin();
    text.arg().number(vi);
    showAttribute(text, attrName);
    text.end();
    call.called();
    const ViStatus status = forward<Fn::viGetAttribute>(vi, attrName, attrValue);
    call.begin();
    text.arg().number(vi);
    showAttribute(text, attrName);
    if (status >= VI_SUCCESS)
        showGotValue(text, attrName, attrValue);
    text.end();
    call.returned(status);
    return status;
}

ViStatus viStatusDesc(ViObject vi, ViStatus status, ViChar desc[])
{
    return traced<Fn::viStatusDesc>(vi, status, OutText {desc});
}

ViStatus viTerminate(ViObject vi, ViUInt16 degree, ViJobId jobId)
{
    return traced<Fn::viTerminate>(vi, degree, jobId);
}

ViStatus viLock(ViSession vi, ViAccessMode lockType, ViUInt32 timeout, ViConstKeyId requestedKey, ViChar accessKey[])
{
    return traced<Fn::viLock>(vi, lockType, timeout, requestedKey, OutText {accessKey});
}

ViStatus viUnlock(ViSession vi)
{
    return traced<Fn::viUnlock>(vi);
}

ViStatus viEnableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism, ViEventFilter context)
{
    return traced<Fn::viEnableEvent>(vi, eventType, mechanism, context);
}

ViStatus viDisableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism)
{
    return traced<Fn::viDisableEvent>(vi, eventType, mechanism);
}

ViStatus viDiscardEvents(ViSession vi, ViEventType eventType, ViUInt16 mechanism)
{
    return traced<Fn::viDiscardEvents>(vi, eventType, mechanism);
}

ViStatus viWaitOnEvent(ViSession vi, ViEventType inEventType, ViUInt32 timeout, ViPEventType outEventType,
                       ViPEvent outContext)
{
    return traced<Fn::viWaitOnEvent>(vi, inEventType, timeout, Out<ViEventType> {outEventType},
                                     Out<ViEvent> {outContext});
}

ViStatus viInstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle)
{
    return tracedHandler<Fn::viInstallHandler>(vi, eventType, handler, userHandle,
                                               handlerToInstall(vi, eventType, handler, userHandle));
}

ViStatus viUninstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle)
{
    return tracedHandler<Fn::viUninstallHandler>(vi, eventType, handler, userHandle,
                                                 handlerToUninstall(vi, eventType, handler, userHandle));
}

ViStatus viRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return tracedRead<Fn::viRead>(vi, buf, cnt, retCnt);
}

ViStatus viReadAsync(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPJobId jobId)
{
    return traced<Fn::viReadAsync>(vi, Hidden<ViPBuf> {buf}, cnt, Out<ViJobId> {jobId});
}

ViStatus viReadToFile(ViSession vi, ViConstString filename, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return traced<Fn::viReadToFile>(vi, filename, cnt, Out<ViUInt32> {retCnt});
}

ViStatus viWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return tracedWrite<Fn::viWrite>(vi, buf, cnt, retCnt);
}

ViStatus viWriteAsync(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPJobId jobId)
{
    return traced<Fn::viWriteAsync>(vi, Written<ViConstBuf> {buf, cnt}, cnt, Out<ViJobId> {jobId});
}

ViStatus viWriteFromFile(ViSession vi, ViConstString filename, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return traced<Fn::viWriteFromFile>(vi, filename, cnt, Out<ViUInt32> {retCnt});
}

ViStatus viAssertTrigger(ViSession vi, ViUInt16 protocol)
{
    return traced<Fn::viAssertTrigger>(vi, protocol);
}

ViStatus viReadSTB(ViSession vi, ViPUInt16 status)
{
    return traced<Fn::viReadSTB>(vi, Out<ViUInt16> {status});
}

ViStatus viClear(ViSession vi)
{
    return traced<Fn::viClear>(vi);
}

ViStatus viSetBuf(ViSession vi, ViUInt16 mask, ViUInt32 size)
{
    return traced<Fn::viSetBuf>(vi, mask, size);
}

ViStatus viFlush(ViSession vi, ViUInt16 mask)
{
    return tracedFlush(vi, mask);
}

ViStatus viBufWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return tracedWrite<Fn::viBufWrite>(vi, buf, cnt, retCnt);
}

ViStatus viBufRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return tracedRead<Fn::viBufRead>(vi, buf, cnt, retCnt);
}

ViStatus viPrintf(ViSession vi, ViConstString writeFmt, ...)
{
    va_list args;
    va_start(args, writeFmt);
    const ViStatus status = tracedFormatted<Fn::viVPrintf>(Fn::viPrintf, vi, {writeFmt, nullptr}, args);
    va_end(args);
    return status;
}

ViStatus viVPrintf(ViSession vi, ViConstString writeFmt, ViVAList params)
{
    return tracedFormatted<Fn::viVPrintf>(Fn::viVPrintf, vi, {writeFmt, nullptr}, params);
}

ViStatus viScanf(ViSession vi, ViConstString readFmt, ...)
{
    va_list args;
    va_start(args, readFmt);
    const ViStatus status = tracedFormatted<Fn::viVScanf>(Fn::viScanf, vi, {nullptr, readFmt}, args);
    va_end(args);
    return status;
}

ViStatus viVScanf(ViSession vi, ViConstString readFmt, ViVAList params)
{
    return tracedFormatted<Fn::viVScanf>(Fn::viVScanf, vi, {nullptr, readFmt}, params);
}

ViStatus viQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ...)
{
    va_list args;
    va_start(args, readFmt);
    const ViStatus status = tracedFormatted<Fn::viVQueryf>(Fn::viQueryf, vi, {writeFmt, readFmt}, args);
    va_end(args);
    return status;
}

ViStatus viVQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ViVAList params)
{
    return tracedFormatted<Fn::viVQueryf>(Fn::viVQueryf, vi, {writeFmt, readFmt}, params);
}

ViStatus viSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ...)
{
    va_list args;
    va_start(args, writeFmt);
    const ViStatus status = tracedToBuffer(Fn::viSPrintf, vi, buf, writeFmt, args);
    va_end(args);
    return status;
}

ViStatus viVSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ViVAList parms)
{
    return tracedToBuffer(Fn::viVSPrintf, vi, buf, writeFmt, parms);
}

ViStatus viSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ...)
{
    va_list args;
    va_start(args, readFmt);
    const ViStatus status = tracedFromBuffer(Fn::viSScanf, vi, buf, readFmt, args);
    va_end(args);
    return status;
}

ViStatus viVSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ViVAList parms)
{
    return tracedFromBuffer(Fn::viVSScanf, vi, buf, readFmt, parms);
}

// Register and memory access, which programs may call at very high rates: one pattern per width,
// with the standard's offsets and the Ex forms' 64-bit ones.
#define ZELVISA_REGISTER_ACCESS(bits, Ex, Offset)                                                                      \
    ViStatus viIn##bits##Ex(ViSession vi, ViUInt16 space, Offset offset, ViPUInt##bits value)                          \
    {                                                                                                                  \
        return traced<Fn::viIn##bits##Ex>(vi, space, Hex<Offset> {offset}, OutHex<ViUInt##bits> {value});              \
    }                                                                                                                  \
    ViStatus viOut##bits##Ex(ViSession vi, ViUInt16 space, Offset offset, ViUInt##bits value)                          \
    {                                                                                                                  \
        return traced<Fn::viOut##bits##Ex>(vi, space, Hex<Offset> {offset}, Hex<ViUInt##bits> {value});                \
    }                                                                                                                  \
    ViStatus viMoveIn##bits##Ex(ViSession vi, ViUInt16 space, Offset offset, ViBusSize length, ViAUInt##bits values)   \
    {                                                                                                                  \
        return traced<Fn::viMoveIn##bits##Ex>(vi, space, Hex<Offset> {offset}, length, out(values, length));           \
    }                                                                                                                  \
    ViStatus viMoveOut##bits##Ex(ViSession vi, ViUInt16 space, Offset offset, ViBusSize length, ViAUInt##bits values)  \
    {                                                                                                                  \
        return traced<Fn::viMoveOut##bits##Ex>(vi, space, Hex<Offset> {offset}, length, in(values, length));           \
    }

#define ZELVISA_PEEK_POKE(bits)                                                                                        \
    void viPeek##bits(ViSession vi, ViAddr address, ViPUInt##bits value)                                               \
    {                                                                                                                  \
        traced<Fn::viPeek##bits>(vi, address, OutHex<ViUInt##bits> {value});                                           \
    }                                                                                                                  \
    void viPoke##bits(ViSession vi, ViAddr address, ViUInt##bits value)                                                \
    {                                                                                                                  \
        traced<Fn::viPoke##bits>(vi, address, Hex<ViUInt##bits> {value});                                              \
    }

ZELVISA_REGISTER_ACCESS(8, , ViBusAddress)
ZELVISA_REGISTER_ACCESS(16, , ViBusAddress)
ZELVISA_REGISTER_ACCESS(32, , ViBusAddress)
ZELVISA_REGISTER_ACCESS(64, , ViBusAddress)
ZELVISA_REGISTER_ACCESS(8, Ex, ViBusAddress64)
ZELVISA_REGISTER_ACCESS(16, Ex, ViBusAddress64)
ZELVISA_REGISTER_ACCESS(32, Ex, ViBusAddress64)
ZELVISA_REGISTER_ACCESS(64, Ex, ViBusAddress64)
ZELVISA_PEEK_POKE(8)
ZELVISA_PEEK_POKE(16)
ZELVISA_PEEK_POKE(32)
ZELVISA_PEEK_POKE(64)

#undef ZELVISA_REGISTER_ACCESS
#undef ZELVISA_PEEK_POKE

ViStatus viMove(ViSession vi, ViUInt16 srcSpace, ViBusAddress srcOffset, ViUInt16 srcWidth, ViUInt16 destSpace,
                ViBusAddress destOffset, ViUInt16 destWidth, ViBusSize srcLength)
{
    return traced<Fn::viMove>(vi, srcSpace, Hex<ViBusAddress> {srcOffset}, srcWidth, destSpace,
                              Hex<ViBusAddress> {destOffset}, destWidth, srcLength);
}

ViStatus viMoveAsync(ViSession vi, ViUInt16 srcSpace, ViBusAddress srcOffset, ViUInt16 srcWidth, ViUInt16 destSpace,
                     ViBusAddress destOffset, ViUInt16 destWidth, ViBusSize srcLength, ViPJobId jobId)
{
    return traced<Fn::viMoveAsync>(vi, srcSpace, Hex<ViBusAddress> {srcOffset}, srcWidth, destSpace,
                                   Hex<ViBusAddress> {destOffset}, destWidth, srcLength, Out<ViJobId> {jobId});
}

ViStatus viMoveEx(ViSession vi, ViUInt16 srcSpace, ViBusAddress64 srcOffset, ViUInt16 srcWidth, ViUInt16 destSpace,
                  ViBusAddress64 destOffset, ViUInt16 destWidth, ViBusSize srcLength)
{
    return traced<Fn::viMoveEx>(vi, srcSpace, Hex<ViBusAddress64> {srcOffset}, srcWidth, destSpace,
                                Hex<ViBusAddress64> {destOffset}, destWidth, srcLength);
}

ViStatus viMoveAsyncEx(ViSession vi, ViUInt16 srcSpace, ViBusAddress64 srcOffset, ViUInt16 srcWidth, ViUInt16 destSpace,
                       ViBusAddress64 destOffset, ViUInt16 destWidth, ViBusSize srcLength, ViPJobId jobId)
{
    return traced<Fn::viMoveAsyncEx>(vi, srcSpace, Hex<ViBusAddress64> {srcOffset}, srcWidth, destSpace,
                                     Hex<ViBusAddress64> {destOffset}, destWidth, srcLength, Out<ViJobId> {jobId});
}

ViStatus viMapAddress(ViSession vi, ViUInt16 mapSpace, ViBusAddress mapOffset, ViBusSize mapSize, ViBoolean access,
                      ViAddr suggested, ViPAddr address)
{
    return traced<Fn::viMapAddress>(vi, mapSpace, Hex<ViBusAddress> {mapOffset}, mapSize, access, suggested,
                                    OutHex<ViAddr> {address});
}

ViStatus viMapAddressEx(ViSession vi, ViUInt16 mapSpace, ViBusAddress64 mapOffset, ViBusSize mapSize, ViBoolean access,
                        ViAddr suggested, ViPAddr address)
{
    return traced<Fn::viMapAddressEx>(vi, mapSpace, Hex<ViBusAddress64> {mapOffset}, mapSize, access, suggested,
                                      OutHex<ViAddr> {address});
}

ViStatus viUnmapAddress(ViSession vi)
{
    return traced<Fn::viUnmapAddress>(vi);
}

ViStatus viMemAlloc(ViSession vi, ViBusSize size, ViPBusAddress offset)
{
    return traced<Fn::viMemAlloc>(vi, size, OutHex<ViBusAddress> {offset});
}

ViStatus viMemFree(ViSession vi, ViBusAddress offset)
{
    return traced<Fn::viMemFree>(vi, Hex<ViBusAddress> {offset});
}

ViStatus viMemAllocEx(ViSession vi, ViBusSize size, ViPBusAddress64 offset)
{
    return traced<Fn::viMemAllocEx>(vi, size, OutHex<ViBusAddress64> {offset});
}

ViStatus viMemFreeEx(ViSession vi, ViBusAddress64 offset)
{
    return traced<Fn::viMemFreeEx>(vi, Hex<ViBusAddress64> {offset});
}

ViStatus viGpibControlREN(ViSession vi, ViUInt16 mode)
{
    return traced<Fn::viGpibControlREN>(vi, mode);
}

ViStatus viGpibControlATN(ViSession vi, ViUInt16 mode)
{
    return traced<Fn::viGpibControlATN>(vi, mode);
}

ViStatus viGpibSendIFC(ViSession vi)
{
    return traced<Fn::viGpibSendIFC>(vi);
}

ViStatus viGpibCommand(ViSession vi, ViConstBuf cmd, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return tracedWrite<Fn::viGpibCommand>(vi, cmd, cnt, retCnt);
}

ViStatus viGpibPassControl(ViSession vi, ViUInt16 primAddr, ViUInt16 secAddr)
{
    return traced<Fn::viGpibPassControl>(vi, primAddr, secAddr);
}

ViStatus viVxiCommandQuery(ViSession vi, ViUInt16 mode, ViUInt32 cmd, ViPUInt32 response)
{
    return traced<Fn::viVxiCommandQuery>(vi, mode, cmd, Out<ViUInt32> {response});
}

ViStatus viAssertUtilSignal(ViSession vi, ViUInt16 line)
{
    return traced<Fn::viAssertUtilSignal>(vi, line);
}

ViStatus viAssertIntrSignal(ViSession vi, ViInt16 mode, ViUInt32 statusID)
{
    return traced<Fn::viAssertIntrSignal>(vi, mode, statusID);
}

ViStatus viMapTrigger(ViSession vi, ViInt16 trigSrc, ViInt16 trigDest, ViUInt16 mode)
{
    return traced<Fn::viMapTrigger>(vi, trigSrc, trigDest, mode);
}

ViStatus viUnmapTrigger(ViSession vi, ViInt16 trigSrc, ViInt16 trigDest)
{
    return traced<Fn::viUnmapTrigger>(vi, trigSrc, trigDest);
}

ViStatus viUsbControlOut(ViSession vi, ViInt16 bmRequestType, ViInt16 bRequest, ViUInt16 wValue, ViUInt16 wIndex,
                         ViUInt16 wLength, ViConstBuf buf)
{
    return traced<Fn::viUsbControlOut>(vi, bmRequestType, bRequest, wValue, wIndex, wLength,
                                       Written<ViConstBuf> {buf, wLength});
}

ViStatus viUsbControlIn(ViSession vi, ViInt16 bmRequestType, ViInt16 bRequest, ViUInt16 wValue, ViUInt16 wIndex,
                        ViUInt16 wLength, ViPBuf buf, ViPUInt16 retCnt)
{
    return traced<Fn::viUsbControlIn>(vi, bmRequestType, bRequest, wValue, wIndex, wLength, Hidden<ViPBuf> {buf},
                                      Out<ViUInt16> {retCnt});
}

ViStatus viPxiReserveTriggers(ViSession vi, ViInt16 cnt, ViAInt16 trigBuses, ViAInt16 trigLines, ViPInt16 failureIndex)
{
    const ViBusSize count = cnt > 0 ? static_cast<ViBusSize>(cnt) : 0;
    return traced<Fn::viPxiReserveTriggers>(vi, cnt, in(trigBuses, count), in(trigLines, count),
                                            Out<ViInt16> {failureIndex});
}

} // extern "C"
