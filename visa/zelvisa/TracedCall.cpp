#include "TracedCall.h"

#include "zeltrace.h"

#include <cerrno>
#include <cstring>
#include <ctime>

namespace zelvisa {

namespace {

thread_local ThreadState s_thread {0, nullptr};

double now()
{
    timespec t {};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

} // namespace

ThreadState& threadState()
{
    return s_thread;
}

SessionAddresses& sessionAddresses()
{
    // Never destroyed, like the real library: calls may come while the process exits.
    static SessionAddresses* table = new SessionAddresses;
    return *table;
}

void Capture::add(bool written, const void* data, std::size_t size)
{
    unsigned char* to = written ? writtenBytes : readBytes;
    std::size_t& used = written ? writtenSize : readSize;
    const std::size_t n = data ? std::min(size, s_Size - used) : 0;
    std::memcpy(to + used, data, n);
    used += n;
}

TracedCall::TracedCall(const char* function)
    : name(function)
    , savedErrno(errno)
{
    address[0] = '\0';
    ThreadState& thread = threadState();
    if (!zeltrace_enabled()) {
        state = Mode::Off;
    } else if (thread.depth > 0) {
        state = Mode::Inner;
    } else {
        state = Mode::Record;
        ++thread.depth;
        id = zeltrace_next_id();
    }
    errno = savedErrno;
}

TracedCall::~TracedCall()
{
    if (state != Mode::Record)
        return;
    --threadState().depth;
    errno = savedErrno;
}

void TracedCall::setSession(std::uint32_t s)
{
    session = s;
    if (!addressGiven)
        sessionAddresses().get(s, address);
}

void TracedCall::setAddress(const char* a)
{
    addressGiven = true;
    const std::size_t n = a ? strnlen(a, sizeof address - 1) : 0;
    std::memcpy(address, a ? a : "", n);
    address[n] = '\0';
}

CommandText& TracedCall::begin()
{
    if (inside) { // the first thing after the real function returned
        duration = now() - started;
        savedErrno = errno;
        inside = false;
    }
    commandText.begin(name);
    return commandText;
}

void TracedCall::called()
{
    zeltrace_record(id, ZELTRACE_CALL, session, address, 0, 0.0, commandText.c_str());
    errno = savedErrno;
    inside = true;
    started = now();
}

void TracedCall::returned(std::int32_t status)
{
    zeltrace_record(id, ZELTRACE_RETURN, session, address, status, duration, commandText.c_str());
}

void show(CommandText& text, Shown s, OutText a)
{
    if (!s.outputs())
        return;
    if (!a.pointer)
        text.arg().literal("NULL");
    else
        text.arg().bytes(a.pointer, strnlen(a.pointer, 256));
}

} // namespace zelvisa
