/* Service requests. zel-instrument raises one (SIM:SRQ) by sending a byte of TCP urgent data, the
 * socket's out-of-band channel, so that it never mixes with answers. One thread of this library
 * waits for urgent data on every session with the event enabled; it queues an event context for
 * viWaitOnEvent and calls the installed handlers, with no lock held, so a handler may call any
 * function, also viReadSTB or viClose on its own session. */
#include "sim.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#define SIM_MAX_WATCHED 256

static pthread_once_t g_threadOnce = PTHREAD_ONCE_INIT;
static int g_wake[2] = {-1, -1};

static void wake(void)
{
    if (g_wake[1] >= 0)
        (void)!write(g_wake[1], "", 1);
}

static SimObject* new_event_locked(SimObject* s)
{
    SimObject* event = sim_new_object(SIM_EVENT, s->rm);
    if (event)
        event->eventType = VI_EVENT_SERVICE_REQ;
    return event;
}

static void raise_service_request(SimObject* s)
{
    SimHandler handlers[SIM_MAX_HANDLERS];
    int count = 0;
    SimObject* context = NULL;
    pthread_mutex_lock(&g_simMutex);
    if (!s->closed && (s->mechanisms & VI_QUEUE) && s->queue) {
        SimObject* queued = new_event_locked(s);
        if (queued && s->queueUsed < s->queueLength) {
            s->queue[(s->queueHead + s->queueUsed++) % s->queueLength] = queued->id;
            sim_broadcast();
        } else if (queued) {
            sim_close_locked(queued); /* the queue is full: the newest is lost */
        }
    }
    if (!s->closed && (s->mechanisms & VI_HNDLR) && s->handlerCount > 0) {
        count = s->handlerCount;
        memcpy(handlers, s->handlers, sizeof handlers[0] * (size_t)count);
        context = new_event_locked(s);
        if (context)
            ++context->references; /* held through the deliveries, whatever the handlers close */
    }
    pthread_mutex_unlock(&g_simMutex);
    if (!context)
        return;
    /* Handlers installed later are called first, as VISA orders them. */
    for (int i = count; i-- > 0;) {
        if (handlers[i].handler(s->id, VI_EVENT_SERVICE_REQ, context->id, handlers[i].userHandle) == VI_SUCCESS_NCHAIN)
            break;
    }
    pthread_mutex_lock(&g_simMutex);
    if (!context->closed)
        sim_close_locked(context); /* a delivered context lives as long as its handlers run */
    pthread_mutex_unlock(&g_simMutex);
    sim_release(context);
}

static void* watch(void* unused)
{
    (void)unused;
    SimObject* watched[SIM_MAX_WATCHED];
    struct pollfd fds[SIM_MAX_WATCHED + 1];
    for (;;) {
        const int n = sim_watched_sessions(watched, SIM_MAX_WATCHED);
        for (int i = 0; i < n; ++i)
            fds[i] = (struct pollfd) {watched[i]->fd, POLLPRI, 0};
        fds[n] = (struct pollfd) {g_wake[0], POLLIN, 0};
        while (poll(fds, (nfds_t)n + 1, -1) < 0 && errno == EINTR) { }
        char drained[64];
        while (read(g_wake[0], drained, sizeof drained) > 0) { }
        for (int i = 0; i < n; ++i) {
            char byte;
            if ((fds[i].revents & POLLPRI) && recv(fds[i].fd, &byte, 1, MSG_OOB) == 1)
                raise_service_request(watched[i]);
            if (fds[i].revents & (POLLHUP | POLLERR | POLLNVAL)) {
                pthread_mutex_lock(&g_simMutex);
                watched[i]->hungUp = 1; /* watched no more: poll would report it forever */
                pthread_mutex_unlock(&g_simMutex);
            }
            sim_release(watched[i]);
        }
    }
    return NULL;
}

static void start_watching(void)
{
    if (pipe2(g_wake, O_NONBLOCK | O_CLOEXEC) != 0)
        return;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, watch, NULL) != 0) {
        close(g_wake[0]);
        close(g_wake[1]);
        g_wake[0] = g_wake[1] = -1;
    }
    pthread_attr_destroy(&attributes);
}

/* The oldest queued event context; the queue is not empty and the table is locked. */
static ViEvent pop_event(SimObject* s)
{
    const ViEvent id = s->queue[s->queueHead];
    s->queueHead = (s->queueHead + 1) % s->queueLength;
    --s->queueUsed;
    return id;
}

static void discard_queue(SimObject* s)
{
    while (s->queueUsed > 0) {
        SimObject* event = sim_find_locked(pop_event(s));
        if (event)
            sim_close_locked(event);
    }
}

void sim_drop_events(SimObject* s)
{
    s->mechanisms = 0;
    s->handlerCount = 0;
    discard_queue(s);
    sim_broadcast(); /* a viWaitOnEvent on this session ends */
    wake();
}

static int valid_type(ViEventType type, int all)
{
    return type == VI_EVENT_SERVICE_REQ || (all && type == VI_ALL_ENABLED_EVENTS);
}

static ViStatus valid_mechanisms(ViUInt16 mechanism, int all)
{
    if (all && mechanism == VI_ALL_MECH)
        return VI_SUCCESS;
    if (mechanism == 0 || (mechanism & ~(VI_QUEUE | VI_HNDLR | VI_SUSPEND_HNDLR)))
        return VI_ERROR_INV_MECH;
    return VI_SUCCESS;
}

SIM_API ViStatus viEnableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism, ViEventFilter context)
{
    if (!valid_type(eventType, 0))
        return VI_ERROR_INV_EVENT;
    if (valid_mechanisms(mechanism, 0) != VI_SUCCESS || (mechanism & VI_HNDLR && mechanism & VI_SUSPEND_HNDLR))
        return VI_ERROR_INV_MECH;
    if (mechanism & VI_SUSPEND_HNDLR)
        return VI_ERROR_NSUP_MECH;
    if (context != VI_NULL)
        return VI_ERROR_INV_CONTEXT;
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    pthread_once(&g_threadOnce, start_watching);
    pthread_mutex_lock(&g_simMutex);
    if ((mechanism & VI_HNDLR) && s->handlerCount == 0) {
        status = VI_ERROR_HNDLR_NINSTALLED;
    } else if (g_wake[0] < 0) {
        status = VI_ERROR_SYSTEM_ERROR;
    } else if ((mechanism & VI_QUEUE) && !s->queue && !(s->queue = calloc(s->queueLength, sizeof *s->queue))) {
        status = VI_ERROR_ALLOC;
    } else {
        status = (s->mechanisms & mechanism) == mechanism ? VI_SUCCESS_EVENT_EN : VI_SUCCESS;
        s->mechanisms |= mechanism;
    }
    pthread_mutex_unlock(&g_simMutex);
    wake();
    sim_release(s);
    return status;
}

/* The session of viDisableEvent and viDiscardEvents, which also take VI_ALL_ENABLED_EVENTS and
 * VI_ALL_MECH. */
static SimObject* events_of(ViSession vi, ViEventType eventType, ViUInt16 mechanism, ViStatus* status)
{
    *status = !valid_type(eventType, 1) ? VI_ERROR_INV_EVENT : valid_mechanisms(mechanism, 1);
    return *status == VI_SUCCESS ? sim_acquire(vi, SIM_INSTRUMENT, status) : NULL;
}

SIM_API ViStatus viDisableEvent(ViSession vi, ViEventType eventType, ViUInt16 mechanism)
{
    ViStatus status;
    SimObject* s = events_of(vi, eventType, mechanism, &status);
    if (!s)
        return status;
    pthread_mutex_lock(&g_simMutex);
    status = s->mechanisms & mechanism ? VI_SUCCESS : VI_SUCCESS_EVENT_DIS;
    s->mechanisms &= (ViUInt16)~mechanism;
    pthread_mutex_unlock(&g_simMutex);
    wake();
    sim_release(s);
    return status;
}

SIM_API ViStatus viDiscardEvents(ViSession vi, ViEventType eventType, ViUInt16 mechanism)
{
    ViStatus status;
    SimObject* s = events_of(vi, eventType, mechanism, &status);
    if (!s)
        return status;
    pthread_mutex_lock(&g_simMutex);
    status = s->queueUsed ? VI_SUCCESS : VI_SUCCESS_QUEUE_EMPTY;
    if (mechanism & VI_QUEUE)
        discard_queue(s);
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    return status;
}

SIM_API ViStatus viWaitOnEvent(ViSession vi, ViEventType inEventType, ViUInt32 timeout, ViPEventType outEventType,
                               ViPEvent outContext)
{
    if (!valid_type(inEventType, 1))
        return VI_ERROR_INV_EVENT;
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    struct timespec deadline;
    sim_deadline(&deadline, timeout);
    ViEvent event = VI_NULL;
    pthread_mutex_lock(&g_simMutex);
    if (!(s->mechanisms & VI_QUEUE)) {
        status = VI_ERROR_NENABLED;
    } else {
        while (!s->closed && (s->mechanisms & VI_QUEUE) && s->queueUsed == 0) {
            if (sim_wait(&deadline, sim_forever(timeout)) == ETIMEDOUT)
                break;
        }
        if (s->closed) {
            status = VI_ERROR_INV_OBJECT;
        } else if (s->queueUsed == 0) {
            status = s->mechanisms & VI_QUEUE ? VI_ERROR_TMO : VI_ERROR_NENABLED;
        } else {
            event = pop_event(s);
            status = s->queueUsed ? VI_SUCCESS_QUEUE_NEMPTY : VI_SUCCESS;
        }
    }
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    if (status < VI_SUCCESS)
        return status;
    if (outEventType)
        *outEventType = VI_EVENT_SERVICE_REQ;
    if (outContext)
        *outContext = event;
    else
        viClose(event);
    return status;
}

SIM_API ViStatus viInstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle)
{
    if (!valid_type(eventType, 0))
        return VI_ERROR_INV_EVENT;
    if (!handler)
        return VI_ERROR_INV_HNDLR_REF;
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    pthread_mutex_lock(&g_simMutex);
    if (s->handlerCount == SIM_MAX_HANDLERS) {
        status = VI_ERROR_ALLOC;
    } else {
        s->handlers[s->handlerCount].handler = handler;
        s->handlers[s->handlerCount++].userHandle = userHandle;
    }
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    return status;
}

SIM_API ViStatus viUninstallHandler(ViSession vi, ViEventType eventType, ViHndlr handler, ViAddr userHandle)
{
    if (!valid_type(eventType, 0))
        return VI_ERROR_INV_EVENT;
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    pthread_mutex_lock(&g_simMutex);
    int kept = 0;
    for (int i = 0; i < s->handlerCount; ++i) {
        const SimHandler h = s->handlers[i];
        if (handler && (h.handler != handler || h.userHandle != userHandle))
            s->handlers[kept++] = h;
    }
    status = kept == s->handlerCount ? VI_ERROR_INV_HNDLR_REF : VI_SUCCESS;
    s->handlerCount = kept;
    if (kept == 0)
        s->mechanisms &= (ViUInt16)~VI_HNDLR;
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    return status;
}
