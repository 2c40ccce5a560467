#pragma once

#include "CommandText.h"
#include "FunctionList.h"
#include "RealLibrary.h"
#include "SessionAddresses.h"

#include <cstdint>
#include <type_traits>

namespace zelvisa {

// Bytes that a formatted I/O call moved through the library's own viWrite and viRead: a library
// that implements viPrintf on top of its exported functions shows what it wrote and read.
struct Capture
{
    static constexpr std::size_t s_Size = 480;
    void add(bool written, const void* data, std::size_t size);

    unsigned char writtenBytes[s_Size];
    unsigned char readBytes[s_Size];
    std::size_t writtenSize = 0;
    std::size_t readSize = 0;
};

// Per thread: how deep this thread is inside traced calls, and the capture of the outermost
// formatted I/O call. A call inside another (a library calling its own exports) is not recorded.
struct ThreadState
{
    int depth;
    Capture* capture;
};
ThreadState& threadState();

SessionAddresses& sessionAddresses();

// One traced call: decides whether to record, and writes the call record and the return record.
// errno is put back as the program would see it without tracing: the records are written between
// the program and the library, and whatever they do to errno is undone.
class TracedCall
{
public:
    enum class Mode
    {
        Off, // tracing is off: forward only
        Inner, // inside another traced call of this thread: forward only
        Record
    };

    explicit TracedCall(const char* function);
    ~TracedCall();
    TracedCall(TracedCall const&) = delete;
    TracedCall& operator=(TracedCall const&) = delete;

    Mode mode() const { return state; }
    bool recording() const { return state == Mode::Record; }

    // The session the records carry; its address is looked up, unless setAddress() names one.
    void setSession(std::uint32_t session);
    void setAddress(const char* address);
    // Starts the text with "name(" for the call record or, once called() was, for the return record:
    // then it first stops the clock and takes errno as the real function left it. Building the text
    // does not touch errno.
    CommandText& begin();
    // Writes the call record with the text built since begin(), then starts the clock.
    void called();
    // Writes the return record with the text built since begin().
    void returned(std::int32_t status);

private:
    const char* name;
    Mode state;
    bool inside = false; // between called() and the begin() of the return text
    bool addressGiven = false;
    int savedErrno;
    double duration = 0;
    std::uint64_t id = 0;
    std::uint32_t session = 0;
    double started = 0;
    char address[SessionAddresses::s_AddressSize];
    CommandText commandText;
};

// --- Arguments of the generic traced calls -----------------------------------------------------
// A wrapper passes each argument either as it is (numbers in decimal, texts quoted, pointers in hex)
// or wrapped in one of these, which say how it is shown; every argument is forwarded unchanged.

template<class T> struct Hex // bus addresses, register values
{
    T value;
};
template<class T> struct Out // written by the call: shown in the return record once it succeeded
{
    T* pointer;
};
template<class T> struct OutHex
{
    T* pointer;
};
struct OutText // a text of at most 256 bytes the call writes into the caller's buffer
{
    ViChar* pointer;
};
template<class P> struct Written // data the call sends
{
    P pointer;
    std::size_t size;
};
template<class P> struct Hidden // not shown (data that arrives later)
{
    P pointer;
};
template<class T> struct Values // an array of `count` values the call reads or writes
{
    T* pointer;
    ViBusSize count;
    bool input; // read by the call: shown in the call record too
};

struct Shown
{
    bool returned;
    ViStatus status;
    bool outputs() const { return returned && status >= VI_SUCCESS; }
};

template<class T> T forwarded(T value)
{
    return value;
}
template<class T> T forwarded(Hex<T> a)
{
    return a.value;
}
template<class T> T* forwarded(Out<T> a)
{
    return a.pointer;
}
template<class T> T* forwarded(OutHex<T> a)
{
    return a.pointer;
}
inline ViChar* forwarded(OutText a)
{
    return a.pointer;
}
template<class P> P forwarded(Written<P> a)
{
    return a.pointer;
}
template<class P> P forwarded(Hidden<P> a)
{
    return a.pointer;
}
template<class T> T* forwarded(Values<T> a)
{
    return a.pointer;
}

template<class T> std::uint64_t bits(T value)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<std::uintptr_t>(value);
    else
        return static_cast<std::uint64_t>(value);
}

template<class T> void show(CommandText& text, Shown, T value)
{
    if constexpr (std::is_pointer_v<T>) {
        static_assert(std::is_void_v<std::remove_pointer_t<T>>, "wrap data pointers in a role");
        text.arg().hex(bits(value));
    } else if constexpr (std::is_signed_v<T>) {
        text.arg().signedNumber(value);
    } else {
        text.arg().number(value);
    }
}
inline void show(CommandText& text, Shown, const char* value)
{
    text.arg().text(value);
}
template<class T> void show(CommandText& text, Shown, Hex<T> a)
{
    text.arg().hex(bits(a.value));
}
template<class T> void show(CommandText& text, Shown s, Out<T> a)
{
    if (!s.outputs())
        return;
    if (!a.pointer)
        text.arg().literal("NULL");
    else
        show(text, s, *a.pointer);
}
template<class T> void show(CommandText& text, Shown s, OutHex<T> a)
{
    if (!s.outputs())
        return;
    if (!a.pointer)
        text.arg().literal("NULL");
    else
        text.arg().hex(bits(*a.pointer));
}
void show(CommandText& text, Shown s, OutText a);
template<class P> void show(CommandText& text, Shown, Written<P> a)
{
    text.arg().bytes(a.pointer, a.size);
}
template<class P> void show(CommandText&, Shown, Hidden<P>) { }
template<class T> void show(CommandText& text, Shown s, Values<T> a)
{
    if (!(a.input ? !s.returned || s.outputs() : s.outputs()))
        return;
    text.arg();
    if (!a.pointer) {
        text.literal("NULL");
        return;
    }
    // The first values only: a move may carry millions.
    text.literal("{");
    const ViBusSize shown = a.count < 8 ? a.count : 8;
    for (ViBusSize i = 0; i < shown; ++i) {
        if (i)
            text.literal(", ");
        text.hex(bits(a.pointer[i]));
    }
    text.literal(shown < a.count ? ", ...}" : "}");
}

// Calls the real function, or returns what a missing one stands for.
template<Fn f, class... A> ViStatus forward(A... args)
{
    using Function = typename Signature<f>::Type;
    RealLibrary& library = RealLibrary::instance();
    const auto real = reinterpret_cast<Function>(library.function(f));
    if constexpr (std::is_void_v<std::invoke_result_t<Function, decltype(forwarded(args))...>>) {
        if (real)
            real(forwarded(args)...);
        return VI_SUCCESS;
    } else {
        return real ? real(forwarded(args)...) : library.missingStatus();
    }
}

template<class... A> void showAll(CommandText& text, Shown s, A... args)
{
    (show(text, s, args), ...);
    text.end();
}

// The whole of a traced call whose arguments say how they are shown. The first argument is the
// session; `address` names the resource when the call is about one that is not open yet.
template<Fn f, class First, class... A> ViStatus tracedAt(const char* address, First first, A... args)
{
    TracedCall call(nameOf(f));
    if (!call.recording())
        return forward<f>(first, args...);
    if (address)
        call.setAddress(address);
    call.setSession(static_cast<std::uint32_t>(forwarded(first)));
    showAll(call.begin(), Shown {false, 0}, first, args...);
    call.called();
    const ViStatus status = forward<f>(first, args...);
    showAll(call.begin(), Shown {true, status}, first, args...);
    call.returned(status);
    return status;
}

template<Fn f, class First, class... A> ViStatus traced(First first, A... args)
{
    return tracedAt<f>(nullptr, first, args...);
}

} // namespace zelvisa
