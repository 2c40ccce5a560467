#include "EventHandlers.h"

#include "RealLibrary.h"
#include "TracedCall.h"

#include <atomic>
#include <mutex>

namespace zelvisa {

namespace {

struct Registration
{
    ViSession session;
    ViEventType type;
    ViHndlr handler;
    ViAddr userHandle;
};

constexpr std::size_t s_MaxRegistrations = 1024;

std::mutex s_mutex;
std::size_t s_used = 0; // registrations [0, s_used) are filled and never change again
Registration s_registrations[s_MaxRegistrations];

Registration* find(ViSession vi, ViEventType type, ViHndlr handler, ViAddr userHandle)
{
    for (std::size_t i = 0; i < s_used; ++i) {
        Registration& r = s_registrations[i];
        if (r.session == vi && r.type == type && r.handler == handler && r.userHandle == userHandle)
            return &r;
    }
    return nullptr;
}

ViStatus _VI_FUNCH deliver(ViSession vi, ViEventType type, ViEvent event, ViAddr registration)
{
    const Registration& r = *static_cast<const Registration*>(registration);
    ThreadState& thread = threadState();
    // The handler is the program's code, even when the library delivers inside one of its calls.
    const ThreadState outer = thread;
    thread = ThreadState {0, nullptr};
    ViStatus status;
    {
        TracedCall call("viEventHandler");
        if (!call.recording()) {
            status = r.handler(vi, type, event, r.userHandle);
        } else {
            call.setSession(vi);
            showAll(call.begin(), Shown {}, vi, type, event, r.userHandle);
            call.called();
            thread.depth = 0;
            status = r.handler(vi, type, event, r.userHandle);
            thread.depth = 1;
            showAll(call.begin(), Shown {}, vi, type, event, r.userHandle);
            call.returned(status);
        }
    }
    thread = outer;
    return status;
}

} // namespace

HandlerArguments handlerToInstall(ViSession vi, ViEventType type, ViHndlr handler, ViAddr userHandle)
{
    if (!handler)
        return {handler, userHandle}; // the library's own refusal
    std::lock_guard<std::mutex> guard(s_mutex);
    Registration* r = find(vi, type, handler, userHandle);
    if (!r) {
        if (s_used == s_MaxRegistrations) {
            static bool told = false;
            if (!told)
                say("more than %zu event handlers installed: deliveries to further ones are not recorded",
                    s_MaxRegistrations);
            told = true;
            return {handler, userHandle};
        }
        r = &s_registrations[s_used++];
        *r = Registration {vi, type, handler, userHandle};
    }
    return {&deliver, r};
}

HandlerArguments handlerToUninstall(ViSession vi, ViEventType type, ViHndlr handler, ViAddr userHandle)
{
    std::lock_guard<std::mutex> guard(s_mutex);
    if (Registration* r = handler ? find(vi, type, handler, userHandle) : nullptr)
        return {&deliver, r};
    return {handler, userHandle};
}

} // namespace zelvisa
