/* libvisa-sim: a simulated VISA library for TCPIP0::host::port::SOCKET resources, such as the ones
 * zel-instrument serves. Internal declarations shared by its files.
 *
 * Objects (resource managers, instrument sessions, find lists, event contexts) live in one table
 * under one mutex and are counted: every function takes a reference for the time it uses one, so
 * that a session closed by another thread is freed only when the last user lets go. I/O on an
 * instrument session is serialised by the session's own (recursive) mutex, never under the table's.
 * Handlers are called with no lock held, so they may call any function, also on their own session. */
#ifndef ZELVISA_SIM_H
#define ZELVISA_SIM_H

#include "visa.h"

#include <pthread.h>
#include <stddef.h>

#define SIM_API __attribute__((visibility("default")))

enum SimKind
{
    SIM_RM = 1,
    SIM_INSTRUMENT = 2,
    SIM_FIND_LIST = 4,
    SIM_EVENT = 8,
    SIM_ANY = 15
};

#define SIM_MAX_HANDLERS 16
#define SIM_NAME_SIZE 256

typedef struct SimHandler
{
    ViHndlr handler;
    ViAddr userHandle;
} SimHandler;

typedef struct SimObject SimObject;
struct SimObject
{
    ViObject id;
    enum SimKind kind;
    int references; /* the table's own, and one per user */
    int closed;
    ViSession rm; /* the resource manager it was opened from */
    ViUInt64 userData;
    ViUInt32 timeout; /* milliseconds, or VI_TMO_INFINITE */

    /* Instrument sessions. */
    pthread_mutex_t io;
    int fd;
    char name[SIM_NAME_SIZE]; /* TCPIP<board>::<host>::<port>::SOCKET */
    char host[SIM_NAME_SIZE];
    ViUInt16 board;
    ViUInt16 port;
    ViUInt8 termchar;
    ViBoolean termcharEnabled;
    ViBoolean sendEnd;
    ViBoolean suppressEnd;
    ViBoolean noDelay;
    ViBoolean keepAlive;
    ViBoolean fileAppend;
    ViUInt16 ioProtocol;
    ViUInt16 readBufferMode;
    ViUInt16 writeBufferMode;
    unsigned char raw[4096]; /* received, not yet read */
    size_t rawStart, rawEnd;
    unsigned char* readBuffer; /* formatted I/O */
    size_t readSize, readStart, readEnd;
    unsigned char* writeBuffer;
    size_t writeSize, writeLength;
    /* Locks (locks.c), under the table's mutex. */
    unsigned exclusiveLocks;
    unsigned sharedLocks;
    /* Service requests (events.c), under the table's mutex. */
    ViUInt16 mechanisms; /* VI_QUEUE | VI_HNDLR enabled for VI_EVENT_SERVICE_REQ */
    SimHandler handlers[SIM_MAX_HANDLERS];
    int handlerCount;
    ViEvent* queue;
    ViUInt32 queueLength, queueUsed, queueHead;
    int hungUp; /* the connection closed: no more service requests to wait for */

    /* Find lists. */
    char** found;
    ViUInt32 foundCount, foundNext;

    /* Event contexts. */
    ViEventType eventType;
};

/* objects.c */
extern pthread_mutex_t g_simMutex;
SimObject* sim_new_object(enum SimKind kind, ViSession rm); /* table locked by the caller */
SimObject* sim_acquire(ViObject id, int kinds, ViStatus* status);
SimObject* sim_find_locked(ViObject id);
/* References the instrument sessions with events enabled and a live connection, for the thread that
 * waits for their service requests; at most `most` of them. */
int sim_watched_sessions(SimObject** sessions, int most);
void sim_release(SimObject* object);
ViStatus sim_close_locked(SimObject* object); /* table locked; may free nothing yet */
unsigned sim_ms_left(const struct timespec* deadline); /* for poll; 0 once passed */
void sim_deadline(struct timespec* deadline, ViUInt32 timeout);
/* Waits on the table's condition, the table locked; 0, or ETIMEDOUT once the deadline passed. */
int sim_wait(const struct timespec* deadline, int forever);
void sim_broadcast(void);
int sim_forever(ViUInt32 timeout);
ViStatus sim_write_value(void* to, ViAttr attribute, ViUInt64 value);
ViStatus sim_write_text(void* to, const char* text);

/* resources.c */
typedef struct SimResource
{
    ViUInt16 board;
    ViUInt16 port;
    char host[SIM_NAME_SIZE];
    char canonical[SIM_NAME_SIZE];
} SimResource;
ViStatus sim_parse_resource(const char* name, SimResource* resource);
/* 1 when `name` matches the VISA resource expression, 0 when not, -1 for an invalid expression. */
int sim_match_expression(const char* expression, const char* name);
void sim_close_find_list(SimObject* list);

/* io.c */
/* An instrument session ready for I/O: referenced, not locked by another session, its I/O mutex
 * taken; sim_end_io lets go of it. */
SimObject* sim_begin_io(ViSession vi, ViStatus* status);
void sim_end_io(SimObject* session);
ViStatus sim_connect(SimObject* session, const SimResource* resource);
void sim_disconnect(SimObject* session);
ViStatus sim_flush_writes(SimObject* session);
/* Puts data into the formatted write buffer, sending it through viWrite whenever the buffer fills,
 * and at the end when `flush` says so or the session flushes on every access. */
ViStatus sim_buffer_writes(SimObject* session, const void* data, size_t size, int flush, size_t* taken);
ViStatus sim_send(SimObject* session, const void* data, size_t size, size_t* sent);

/* locks.c */
ViStatus sim_check_access(SimObject* session); /* table locked */
void sim_drop_locks(SimObject* session); /* table locked */
ViUInt32 sim_lock_state(const SimObject* session); /* table locked */

/* events.c */
void sim_drop_events(SimObject* session); /* table locked */

ViStatus sim_buffered_read(SimObject* session, unsigned char* buf, ViUInt32 count, ViUInt32* got);

/* format.c: one conversion of a formatted I/O format string, from its '%' on. */
typedef struct SimDirective
{
    size_t length; /* characters of the format it takes */
    char flags[6];
    int width; /* -1: none */
    int widthStar;
    int precision; /* -1: none */
    int precisionStar;
    int suppress; /* '*' when scanning: read, not stored */
    char size[3]; /* "", "hh", "h", "l", "ll", "L", "z", "j" */
    char conversion;
    const char* set; /* %[...]: the characters between the brackets */
    size_t setLength;
} SimDirective;
ViStatus sim_parse_directive(const char* format, int scanning, SimDirective* directive);

#endif
