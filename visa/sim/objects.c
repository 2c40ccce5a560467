/* The object table, the resource manager, opening and closing, attributes and status texts. */
#include "sim.h"

#include "VisaAttributes.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#define SIM_MAX_OBJECTS 65536
#define SIM_DEFAULT_TIMEOUT 2000
#define SIM_BUFFER_SIZE 4096

pthread_mutex_t g_simMutex = PTHREAD_MUTEX_INITIALIZER;

static SimObject** g_objects;
static size_t g_count, g_capacity;
static ViObject g_nextId = 1;

/* ---- time ---- */

int sim_forever(ViUInt32 timeout)
{
    return timeout == VI_TMO_INFINITE;
}

void sim_deadline(struct timespec* deadline, ViUInt32 timeout)
{
    clock_gettime(CLOCK_MONOTONIC, deadline);
    if (sim_forever(timeout))
        return;
    deadline->tv_sec += timeout / 1000;
    deadline->tv_nsec += (long)(timeout % 1000) * 1000000L;
    if (deadline->tv_nsec >= 1000000000L) {
        deadline->tv_sec += 1;
        deadline->tv_nsec -= 1000000000L;
    }
}

unsigned sim_ms_left(const struct timespec* deadline)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long ns = (long long)(deadline->tv_sec - now.tv_sec) * 1000000000LL + (deadline->tv_nsec - now.tv_nsec);
    return ns <= 0 ? 0u : (unsigned)((ns + 999999) / 1000000);
}

static pthread_cond_t g_condition;
static pthread_once_t g_conditionOnce = PTHREAD_ONCE_INIT;

static void make_condition(void)
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&g_condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

int sim_wait(const struct timespec* deadline, int forever)
{
    pthread_once(&g_conditionOnce, make_condition);
    if (forever)
        return pthread_cond_wait(&g_condition, &g_simMutex);
    return pthread_cond_timedwait(&g_condition, &g_simMutex, deadline);
}

void sim_broadcast(void)
{
    pthread_once(&g_conditionOnce, make_condition);
    pthread_cond_broadcast(&g_condition);
}

/* ---- the table ---- */

static void destroy(SimObject* o)
{
    if (o->kind == SIM_INSTRUMENT) {
        sim_disconnect(o);
        pthread_mutex_destroy(&o->io);
        free(o->readBuffer);
        free(o->writeBuffer);
        free(o->queue);
    }
    if (o->kind == SIM_FIND_LIST)
        sim_close_find_list(o);
    free(o);
}

static SimObject* allocate(enum SimKind kind, ViSession rm)
{
    SimObject* o = calloc(1, sizeof *o);
    if (!o)
        return NULL;
    o->kind = kind;
    o->rm = rm;
    o->references = 1;
    o->fd = -1;
    o->timeout = SIM_DEFAULT_TIMEOUT;
    if (kind != SIM_INSTRUMENT)
        return o;
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&o->io, &recursive);
    pthread_mutexattr_destroy(&recursive);
    o->termchar = '\n';
    o->sendEnd = VI_TRUE;
    o->noDelay = VI_TRUE;
    o->ioProtocol = VI_PROT_NORMAL;
    o->readBufferMode = VI_FLUSH_DISABLE;
    o->writeBufferMode = VI_FLUSH_WHEN_FULL;
    o->readSize = o->writeSize = SIM_BUFFER_SIZE;
    o->readBuffer = malloc(o->readSize);
    o->writeBuffer = malloc(o->writeSize);
    o->queueLength = 50;
    if (!o->readBuffer || !o->writeBuffer) {
        destroy(o);
        return NULL;
    }
    return o;
}

/* Gives the object its id and a place in the table; the table is locked. */
static ViStatus insert(SimObject* o)
{
    if (g_count == g_capacity) {
        const size_t capacity = g_capacity ? g_capacity * 2 : 64;
        SimObject** grown = capacity <= SIM_MAX_OBJECTS ? realloc(g_objects, capacity * sizeof *grown) : NULL;
        if (!grown)
            return VI_ERROR_ALLOC;
        g_objects = grown;
        g_capacity = capacity;
    }
    o->id = g_nextId++;
    if (g_nextId == 0)
        g_nextId = 1;
    g_objects[g_count++] = o;
    return VI_SUCCESS;
}

SimObject* sim_new_object(enum SimKind kind, ViSession rm)
{
    SimObject* o = allocate(kind, rm);
    if (o && insert(o) != VI_SUCCESS) {
        destroy(o);
        return NULL;
    }
    return o;
}

SimObject* sim_find_locked(ViObject id)
{
    for (size_t i = 0; i < g_count; ++i) {
        if (g_objects[i]->id == id)
            return g_objects[i];
    }
    return NULL;
}

int sim_watched_sessions(SimObject** sessions, int most)
{
    int n = 0;
    pthread_mutex_lock(&g_simMutex);
    for (size_t i = 0; i < g_count && n < most; ++i) {
        SimObject* o = g_objects[i];
        if (o->kind == SIM_INSTRUMENT && o->mechanisms && !o->hungUp && o->fd >= 0) {
            ++o->references;
            sessions[n++] = o;
        }
    }
    pthread_mutex_unlock(&g_simMutex);
    return n;
}

SimObject* sim_acquire(ViObject id, int kinds, ViStatus* status)
{
    pthread_mutex_lock(&g_simMutex);
    SimObject* o = sim_find_locked(id);
    if (o && (o->kind & kinds))
        ++o->references;
    else
        o = NULL;
    pthread_mutex_unlock(&g_simMutex);
    *status = o ? VI_SUCCESS : VI_ERROR_INV_OBJECT;
    return o;
}

static void release_locked(SimObject* o)
{
    if (--o->references == 0)
        destroy(o);
}

void sim_release(SimObject* o)
{
    pthread_mutex_lock(&g_simMutex);
    release_locked(o);
    pthread_mutex_unlock(&g_simMutex);
}

ViStatus sim_close_locked(SimObject* o)
{
    if (o->closed)
        return VI_ERROR_INV_OBJECT;
    o->closed = 1;
    for (size_t i = 0; i < g_count; ++i) {
        if (g_objects[i] == o) {
            g_objects[i] = g_objects[--g_count];
            break;
        }
    }
    if (o->kind == SIM_RM) {
        /* Closing a resource manager closes everything opened through it. */
        for (size_t i = 0; i < g_count;) {
            if (g_objects[i]->rm == o->id && g_objects[i]->kind != SIM_RM) {
                sim_close_locked(g_objects[i]);
                i = 0; /* closing moves other objects in the table */
            } else {
                ++i;
            }
        }
    }
    if (o->kind == SIM_INSTRUMENT) {
        sim_drop_locks(o);
        sim_drop_events(o);
        if (o->fd >= 0)
            shutdown(o->fd, SHUT_RDWR); /* wakes a read or write another thread is waiting in */
    }
    release_locked(o);
    return VI_SUCCESS;
}

/* ---- resource manager, open, close ---- */

SIM_API ViStatus viOpenDefaultRM(ViPSession vi)
{
    if (!vi)
        return VI_ERROR_INV_PARAMETER;
    pthread_mutex_lock(&g_simMutex);
    SimObject* rm = sim_new_object(SIM_RM, 0);
    if (rm)
        rm->rm = rm->id;
    pthread_mutex_unlock(&g_simMutex);
    if (!rm)
        return VI_ERROR_ALLOC;
    *vi = rm->id;
    return VI_SUCCESS;
}

SIM_API ViStatus viOpen(ViSession sesn, ViConstRsrc name, ViAccessMode mode, ViUInt32 timeout, ViPSession vi)
{
    ViStatus status;
    SimObject* rm = sim_acquire(sesn, SIM_RM, &status);
    if (!rm)
        return status;
    sim_release(rm);
    if (!name || !vi)
        return VI_ERROR_INV_PARAMETER;
    if (mode & ~(ViAccessMode)(VI_EXCLUSIVE_LOCK | VI_LOAD_CONFIG))
        return VI_ERROR_INV_ACC_MODE;
    SimResource resource;
    status = sim_parse_resource(name, &resource);
    if (status < VI_SUCCESS)
        return status;
    SimObject* session = allocate(SIM_INSTRUMENT, sesn);
    if (!session)
        return VI_ERROR_ALLOC;
    status = sim_connect(session, &resource);
    if (status < VI_SUCCESS) {
        destroy(session);
        return status;
    }
    pthread_mutex_lock(&g_simMutex);
    /* The manager may have been closed while this one connected. */
    SimObject* still = sim_find_locked(sesn);
    status = still && still->kind == SIM_RM ? insert(session) : VI_ERROR_INV_OBJECT;
    pthread_mutex_unlock(&g_simMutex);
    if (status < VI_SUCCESS) {
        destroy(session);
        return status;
    }
    *vi = session->id;
    if (mode & VI_EXCLUSIVE_LOCK) {
        status = viLock(session->id, VI_EXCLUSIVE_LOCK, timeout, VI_NULL, VI_NULL);
        if (status < VI_SUCCESS) {
            viClose(session->id);
            *vi = VI_NULL;
            return status;
        }
    }
    return VI_SUCCESS;
}

SIM_API ViStatus viClose(ViObject vi)
{
    if (vi == VI_NULL)
        return VI_WARN_NULL_OBJECT;
    pthread_mutex_lock(&g_simMutex);
    SimObject* o = sim_find_locked(vi);
    const ViStatus status = o ? sim_close_locked(o) : VI_ERROR_INV_OBJECT;
    pthread_mutex_unlock(&g_simMutex);
    return status;
}

/* ---- attributes ---- */

ViStatus sim_write_value(void* to, ViAttr attribute, ViUInt64 value)
{
    const ZelVisaAttribute* known = zelvisa_attribute(attribute);
    const unsigned size = known ? zelvisa_value_size(known->kind) : 0;
    switch (size) {
    case 1: {
        const ViUInt8 v = (ViUInt8)value;
        memcpy(to, &v, 1);
        break;
    }
    case 2: {
        const ViUInt16 v = (ViUInt16)value;
        memcpy(to, &v, 2);
        break;
    }
    case 4: {
        const ViUInt32 v = (ViUInt32)value;
        memcpy(to, &v, 4);
        break;
    }
    case 8:
        memcpy(to, &value, 8);
        break;
    default:
        return VI_ERROR_NSUP_ATTR;
    }
    return VI_SUCCESS;
}

ViStatus sim_write_text(void* to, const char* text)
{
    snprintf(to, SIM_NAME_SIZE, "%s", text);
    return VI_SUCCESS;
}

/* Attributes every kind of object has. */
static ViStatus get_common(SimObject* o, ViAttr attribute, void* value)
{
    switch (attribute) {
    case VI_ATTR_RSRC_MANF_NAME:
        return sim_write_text(value, "Zelbrook");
    case VI_ATTR_RSRC_MANF_ID:
        return sim_write_value(value, attribute, 0x3FFF);
    case VI_ATTR_RSRC_SPEC_VERSION:
        return sim_write_value(value, attribute, VI_SPEC_VERSION);
    case VI_ATTR_RSRC_IMPL_VERSION:
        return sim_write_value(value, attribute, 0x00100000);
    case VI_ATTR_USER_DATA:
        return sim_write_value(value, attribute, o->userData);
    case VI_ATTR_USER_DATA_32:
        return sim_write_value(value, attribute, (ViUInt32)o->userData);
    case VI_ATTR_RM_SESSION:
        return sim_write_value(value, attribute, o->rm);
    case VI_ATTR_TMO_VALUE:
        return sim_write_value(value, attribute, o->timeout);
    case VI_ATTR_RSRC_LOCK_STATE: {
        pthread_mutex_lock(&g_simMutex);
        const ViUInt32 state = o->kind == SIM_INSTRUMENT ? sim_lock_state(o) : VI_NO_LOCK;
        pthread_mutex_unlock(&g_simMutex);
        return sim_write_value(value, attribute, state);
    }
    }
    return VI_ERROR_NSUP_ATTR;
}

static ViStatus get_instrument(SimObject* o, ViAttr attribute, void* value)
{
    switch (attribute) {
    case VI_ATTR_RSRC_NAME:
        return sim_write_text(value, o->name);
    case VI_ATTR_RSRC_CLASS:
        return sim_write_text(value, "SOCKET");
    case VI_ATTR_INTF_INST_NAME:
        return sim_write_text(value, "TCPIP (simulated)");
    case VI_ATTR_TCPIP_ADDR:
    case VI_ATTR_TCPIP_HOSTNAME:
        return sim_write_text(value, o->host);
    case VI_ATTR_TCPIP_PORT:
        return sim_write_value(value, attribute, o->port);
    case VI_ATTR_INTF_TYPE:
        return sim_write_value(value, attribute, VI_INTF_TCPIP);
    case VI_ATTR_INTF_NUM:
        return sim_write_value(value, attribute, o->board);
    case VI_ATTR_TERMCHAR:
        return sim_write_value(value, attribute, o->termchar);
    case VI_ATTR_TERMCHAR_EN:
        return sim_write_value(value, attribute, o->termcharEnabled);
    case VI_ATTR_SEND_END_EN:
        return sim_write_value(value, attribute, o->sendEnd);
    case VI_ATTR_SUPPRESS_END_EN:
        return sim_write_value(value, attribute, o->suppressEnd);
    case VI_ATTR_TCPIP_NODELAY:
        return sim_write_value(value, attribute, o->noDelay);
    case VI_ATTR_TCPIP_KEEPALIVE:
        return sim_write_value(value, attribute, o->keepAlive);
    case VI_ATTR_FILE_APPEND_EN:
        return sim_write_value(value, attribute, o->fileAppend);
    case VI_ATTR_IO_PROT:
        return sim_write_value(value, attribute, o->ioProtocol);
    case VI_ATTR_RD_BUF_OPER_MODE:
        return sim_write_value(value, attribute, o->readBufferMode);
    case VI_ATTR_WR_BUF_OPER_MODE:
        return sim_write_value(value, attribute, o->writeBufferMode);
    case VI_ATTR_RD_BUF_SIZE:
        return sim_write_value(value, attribute, o->readSize);
    case VI_ATTR_WR_BUF_SIZE:
        return sim_write_value(value, attribute, o->writeSize);
    case VI_ATTR_MAX_QUEUE_LENGTH:
        return sim_write_value(value, attribute, o->queueLength);
    }
    return get_common(o, attribute, value);
}

SIM_API ViStatus viGetAttribute(ViObject vi, ViAttr attribute, void* value)
{
    ViStatus status;
    SimObject* o = sim_acquire(vi, SIM_ANY, &status);
    if (!o)
        return status;
    if (!value)
        status = VI_ERROR_INV_PARAMETER;
    else if (o->kind == SIM_INSTRUMENT)
        status = get_instrument(o, attribute, value);
    else if (o->kind == SIM_EVENT && attribute == VI_ATTR_EVENT_TYPE)
        status = sim_write_value(value, attribute, o->eventType);
    else
        status = get_common(o, attribute, value);
    sim_release(o);
    return status;
}

static ViStatus set_boolean(ViBoolean* to, ViAttrState value)
{
    if (value != VI_TRUE && value != VI_FALSE)
        return VI_ERROR_NSUP_ATTR_STATE;
    *to = (ViBoolean)value;
    return VI_SUCCESS;
}

static ViStatus set_buffer_mode(ViUInt16* to, ViAttrState value, ViAttrState first, ViAttrState second)
{
    if (value != first && value != second)
        return VI_ERROR_NSUP_ATTR_STATE;
    *to = (ViUInt16)value;
    return VI_SUCCESS;
}

static ViStatus set_instrument(SimObject* o, ViAttr attribute, ViAttrState value)
{
    switch (attribute) {
    case VI_ATTR_TERMCHAR:
        if (value > 0xFF)
            return VI_ERROR_NSUP_ATTR_STATE;
        o->termchar = (ViUInt8)value;
        return VI_SUCCESS;
    case VI_ATTR_TERMCHAR_EN:
        return set_boolean(&o->termcharEnabled, value);
    case VI_ATTR_SEND_END_EN:
        return set_boolean(&o->sendEnd, value);
    case VI_ATTR_SUPPRESS_END_EN:
        return set_boolean(&o->suppressEnd, value);
    case VI_ATTR_TCPIP_NODELAY:
        return set_boolean(&o->noDelay, value);
    case VI_ATTR_TCPIP_KEEPALIVE:
        return set_boolean(&o->keepAlive, value);
    case VI_ATTR_FILE_APPEND_EN:
        return set_boolean(&o->fileAppend, value);
    case VI_ATTR_IO_PROT:
        if (value != VI_PROT_NORMAL && value != VI_PROT_4882_STRS)
            return VI_ERROR_NSUP_ATTR_STATE;
        o->ioProtocol = (ViUInt16)value;
        return VI_SUCCESS;
    case VI_ATTR_RD_BUF_OPER_MODE:
        return set_buffer_mode(&o->readBufferMode, value, VI_FLUSH_ON_ACCESS, VI_FLUSH_DISABLE);
    case VI_ATTR_WR_BUF_OPER_MODE:
        return set_buffer_mode(&o->writeBufferMode, value, VI_FLUSH_ON_ACCESS, VI_FLUSH_WHEN_FULL);
    case VI_ATTR_MAX_QUEUE_LENGTH: {
        pthread_mutex_lock(&g_simMutex);
        ViStatus status = VI_SUCCESS;
        if (value < 1 || value > 0xFFFF)
            status = VI_ERROR_NSUP_ATTR_STATE;
        else if (o->mechanisms & VI_QUEUE)
            status = VI_ERROR_ATTR_READONLY; /* fixed while the queue is in use */
        else
            o->queueLength = (ViUInt32)value;
        pthread_mutex_unlock(&g_simMutex);
        return status;
    }
    }
    return VI_ERROR_NSUP_ATTR;
}

SIM_API ViStatus viSetAttribute(ViObject vi, ViAttr attribute, ViAttrState value)
{
    ViStatus status;
    SimObject* o = sim_acquire(vi, SIM_ANY, &status);
    if (!o)
        return status;
    switch (attribute) {
    case VI_ATTR_USER_DATA:
        o->userData = value;
        break;
    case VI_ATTR_USER_DATA_32:
        o->userData = (ViUInt32)value;
        break;
    case VI_ATTR_TMO_VALUE:
        if (value > VI_TMO_INFINITE)
            status = VI_ERROR_NSUP_ATTR_STATE;
        else
            o->timeout = (ViUInt32)value;
        break;
    default: {
        char probe[SIM_NAME_SIZE];
        status = o->kind == SIM_INSTRUMENT ? set_instrument(o, attribute, value) : VI_ERROR_NSUP_ATTR;
        /* Known but not settable: read-only, if there is something to read. */
        const ViStatus readable
            = o->kind == SIM_INSTRUMENT ? get_instrument(o, attribute, probe) : get_common(o, attribute, probe);
        if (status == VI_ERROR_NSUP_ATTR && readable >= VI_SUCCESS)
            status = VI_ERROR_ATTR_READONLY;
    }
    }
    sim_release(o);
    return status;
}

/* ---- status texts ---- */

static const struct
{
    ViStatus status;
    const char* text;
} s_descriptions[] = {
    {VI_SUCCESS, "Operation completed successfully."},
    {VI_SUCCESS_EVENT_EN, "Specified event is already enabled for at least one of the specified mechanisms."},
    {VI_SUCCESS_EVENT_DIS, "Specified event is already disabled for at least one of the specified mechanisms."},
    {VI_SUCCESS_QUEUE_EMPTY, "Operation completed successfully, but queue was already empty."},
    {VI_SUCCESS_TERM_CHAR, "The specified termination character was read."},
    {VI_SUCCESS_MAX_CNT, "The number of bytes read is equal to the input count."},
    {VI_SUCCESS_QUEUE_NEMPTY,
     "Wait terminated successfully on receipt of an event notification. There is at least "
     "one more event object of the requested type(s) available for this session."},
    {VI_SUCCESS_NESTED_SHARED,
     "Specified access mode is successfully acquired, and this session has nested shared "
     "locks."},
    {VI_SUCCESS_NESTED_EXCLUSIVE,
     "Specified access mode is successfully acquired, and this session has nested "
     "exclusive locks."},
    {VI_WARN_NULL_OBJECT, "The specified object reference is uninitialized."},
    {VI_WARN_UNKNOWN_STATUS, "The status code passed to the operation could not be interpreted."},
    {VI_ERROR_SYSTEM_ERROR, "Unknown system error (miscellaneous error)."},
    {VI_ERROR_INV_OBJECT, "The given session or object reference is invalid."},
    {VI_ERROR_RSRC_LOCKED,
     "Specified type of lock cannot be obtained, or specified operation cannot be performed, "
     "because the resource is locked."},
    {VI_ERROR_INV_EXPR, "Invalid expression specified for search."},
    {VI_ERROR_RSRC_NFOUND,
     "Insufficient location information or the requested device or resource is not present in "
     "the system."},
    {VI_ERROR_INV_RSRC_NAME, "Invalid resource reference specified. Parsing error."},
    {VI_ERROR_INV_ACC_MODE, "Invalid access mode."},
    {VI_ERROR_TMO, "Timeout expired before operation completed."},
    {VI_ERROR_NSUP_ATTR,
     "The specified attribute is not defined or supported by the referenced session, event, or "
     "find list."},
    {VI_ERROR_NSUP_ATTR_STATE,
     "The specified state of the attribute is not valid, or is not supported as defined by "
     "the session, event, or find list."},
    {VI_ERROR_ATTR_READONLY, "The specified attribute is Read Only."},
    {VI_ERROR_INV_LOCK_TYPE, "The specified type of lock is not supported by this resource."},
    {VI_ERROR_INV_ACCESS_KEY, "The access key to the resource associated with this session is invalid."},
    {VI_ERROR_INV_EVENT, "Specified event type is not supported by the resource."},
    {VI_ERROR_INV_MECH, "Invalid mechanism specified."},
    {VI_ERROR_HNDLR_NINSTALLED, "A handler is not currently installed for the specified event."},
    {VI_ERROR_INV_HNDLR_REF, "The given handler reference is invalid."},
    {VI_ERROR_INV_CONTEXT, "Specified event context is invalid."},
    {VI_ERROR_NENABLED, "The session must be enabled for events of the specified type in order to receive them."},
    {VI_ERROR_ABORT, "User abort occurred during transfer."},
    {VI_ERROR_ALLOC, "Insufficient system resources to perform necessary memory allocation."},
    {VI_ERROR_INV_MASK, "Invalid buffer mask specified."},
    {VI_ERROR_IO, "Could not perform operation because of I/O error."},
    {VI_ERROR_INV_FMT, "A format specifier in the format string is invalid."},
    {VI_ERROR_NSUP_FMT, "A format specifier in the format string is not supported."},
    {VI_ERROR_NSUP_OPER, "The given session or object reference does not support this operation."},
    {VI_ERROR_INV_PARAMETER, "The value of some parameter (which parameter is not known) is invalid."},
    {VI_ERROR_NSUP_MECH, "The specified mechanism is not supported for the given event type."},
    {VI_ERROR_SESN_NLOCKED, "The current session did not have any lock on the resource."},
    {VI_ERROR_CONN_LOST, "The connection for the given session has been lost."},
};

SIM_API ViStatus viStatusDesc(ViObject vi, ViStatus status, ViChar desc[])
{
    (void)vi;
    if (!desc)
        return VI_ERROR_INV_PARAMETER;
    for (size_t i = 0; i < sizeof s_descriptions / sizeof s_descriptions[0]; ++i) {
        if (s_descriptions[i].status == status) {
            sim_write_text(desc, s_descriptions[i].text);
            return VI_SUCCESS;
        }
    }
    snprintf(desc, SIM_NAME_SIZE, "Unknown status code 0x%08X.", (unsigned)status);
    return VI_WARN_UNKNOWN_STATUS;
}
