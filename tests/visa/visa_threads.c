/* A service request delivered to a handler installed on one thread while another thread keeps
 * writing and reading on a second session. The handler calls VISA itself (viReadSTB on its session,
 * viGetAttribute on the event), as handlers do. Then the same request through the event queue.
 * usage: visa-threads PORT */
#include "visa.h"

#include <pthread.h>
#include <stdio.h>
#include <time.h>

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static int delivered;
static int exchanges;
static ViUInt16 statusByte;
static ViEventType contextType;
static int handleSeen;
static int marker;

static ViStatus _VI_FUNCH onServiceRequest(ViSession vi, ViEventType type, ViEvent context, ViAddr userHandle)
{
    handleSeen = userHandle == &marker && type == VI_EVENT_SERVICE_REQ;
    viReadSTB(vi, &statusByte);
    viGetAttribute(context, VI_ATTR_EVENT_TYPE, &contextType);
    pthread_mutex_lock(&mutex);
    delivered = 1;
    pthread_cond_broadcast(&changed);
    pthread_mutex_unlock(&mutex);
    return VI_SUCCESS;
}

static void* traffic(void* session)
{
    const ViSession vi = *(ViSession*)session;
    /* Until the request was delivered, and a few exchanges at least. */
    for (int done = 0; !done;) {
        unsigned char answer[64];
        ViUInt32 count = 0;
        viWrite(vi, (ViConstBuf) "MEAS:CURR?\n", 11, &count);
        const int failed = viRead(vi, answer, sizeof answer, &count) < VI_SUCCESS;
        pthread_mutex_lock(&mutex);
        ++exchanges;
        done = failed || (delivered && exchanges >= 5);
        pthread_cond_broadcast(&changed);
        pthread_mutex_unlock(&mutex);
    }
    return NULL;
}

/* Waits until another thread made *value reach `least`; gives up after twenty seconds. */
static int waitFor(int* value, int least)
{
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 20;
    pthread_mutex_lock(&mutex);
    while (*value < least && pthread_cond_timedwait(&changed, &mutex, &deadline) == 0) { }
    const int reached = *value >= least;
    pthread_mutex_unlock(&mutex);
    return reached;
}

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    ViSession rm = 0, events = 0, writer = 0;
    char name[256];
    snprintf(name, sizeof name, "TCPIP0::127.0.0.1::%s::SOCKET", argv[1]);
    viOpenDefaultRM(&rm);
    if (viOpen(rm, name, VI_NO_LOCK, 0, &events) < VI_SUCCESS || viOpen(rm, name, VI_NO_LOCK, 0, &writer) < VI_SUCCESS)
        return 1;
    viSetAttribute(events, VI_ATTR_TERMCHAR_EN, VI_TRUE);
    viSetAttribute(writer, VI_ATTR_TERMCHAR_EN, VI_TRUE);

    printf("install %d\n", (int)viInstallHandler(events, VI_EVENT_SERVICE_REQ, onServiceRequest, &marker));
    printf("enable %d\n", (int)viEnableEvent(events, VI_EVENT_SERVICE_REQ, VI_HNDLR, VI_NULL));
    pthread_t thread;
    pthread_create(&thread, NULL, traffic, &writer);
    waitFor(&exchanges, 1);
    ViUInt32 count = 0;
    viWrite(events, (ViConstBuf) "SIM:SRQ 20\n", 11, &count);
    const int arrived = waitFor(&delivered, 1);
    pthread_join(thread, NULL);
    printf("delivered %d stb %u type %s handle %d traffic %s\n", arrived, statusByte,
           contextType == VI_EVENT_SERVICE_REQ ? "ok" : "wrong", handleSeen, exchanges >= 5 ? "ok" : "stopped");
    viDisableEvent(events, VI_EVENT_SERVICE_REQ, VI_HNDLR);
    viUninstallHandler(events, VI_EVENT_SERVICE_REQ, onServiceRequest, &marker);

    printf("queue %d\n", (int)viEnableEvent(events, VI_EVENT_SERVICE_REQ, VI_QUEUE, VI_NULL));
    viWrite(events, (ViConstBuf) "SIM:SRQ\n", 8, &count);
    ViEventType type = 0;
    ViEvent context = 0;
    const ViStatus waited = viWaitOnEvent(events, VI_EVENT_SERVICE_REQ, 10000, &type, &context);
    printf("wait %d %s\n", (int)waited, type == VI_EVENT_SERVICE_REQ ? "ok" : "wrong");
    viClose(context);
    viClose(events);
    viClose(writer);
    viClose(rm);
    return 0;
}
