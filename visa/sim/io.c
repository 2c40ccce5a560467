/* The socket of an instrument session: connecting, sending and receiving with timeouts that expire,
 * the basic and the buffered I/O functions, clear, flush, the status byte and triggers. */
#include "sim.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#define SIM_MAX_BUFFER (16u * 1024u * 1024u)

/* Waits until the socket is ready for `events` or the deadline passes; 0 ready, else a status. */
static ViStatus wait_for(SimObject* s, short events, const struct timespec* deadline, int forever)
{
    for (;;) {
        struct pollfd p = {s->fd, events, 0};
        const int n = poll(&p, 1, forever ? -1 : (int)sim_ms_left(deadline));
        if (n > 0)
            return VI_SUCCESS;
        if (n == 0)
            return VI_ERROR_TMO;
        if (errno != EINTR)
            return VI_ERROR_IO;
    }
}

ViStatus sim_connect(SimObject* s, const SimResource* r)
{
    char port[8];
    snprintf(port, sizeof port, "%u", r->port);
    struct addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    struct addrinfo* found = NULL;
    if (getaddrinfo(r->host, port, &hints, &found) != 0)
        return VI_ERROR_RSRC_NFOUND;
    ViStatus status = VI_ERROR_RSRC_NFOUND;
    for (struct addrinfo* a = found; a && status != VI_SUCCESS; a = a->ai_next) {
        s->fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (s->fd < 0)
            continue;
        struct timespec deadline;
        sim_deadline(&deadline, s->timeout);
        int error = 0;
        socklen_t length = sizeof error;
        if (connect(s->fd, a->ai_addr, a->ai_addrlen) == 0
            || (errno == EINPROGRESS && wait_for(s, POLLOUT, &deadline, 0) == VI_SUCCESS
                && getsockopt(s->fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0)) {
            status = VI_SUCCESS;
        } else {
            close(s->fd);
            s->fd = -1;
        }
    }
    freeaddrinfo(found);
    if (status != VI_SUCCESS)
        return status;
    const int yes = 1;
    setsockopt(s->fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    s->board = r->board;
    s->port = r->port;
    snprintf(s->host, sizeof s->host, "%s", r->host);
    snprintf(s->name, sizeof s->name, "%s", r->canonical);
    return VI_SUCCESS;
}

void sim_disconnect(SimObject* s)
{
    if (s->fd >= 0)
        close(s->fd);
    s->fd = -1;
}

SimObject* sim_begin_io(ViSession vi, ViStatus* status)
{
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, status);
    if (!s)
        return NULL;
    pthread_mutex_lock(&g_simMutex);
    *status = sim_check_access(s);
    pthread_mutex_unlock(&g_simMutex);
    if (*status < VI_SUCCESS) {
        sim_release(s);
        return NULL;
    }
    pthread_mutex_lock(&s->io);
    return s;
}

void sim_end_io(SimObject* s)
{
    pthread_mutex_unlock(&s->io);
    sim_release(s);
}

ViStatus sim_send(SimObject* s, const void* data, size_t size, size_t* sent)
{
    struct timespec deadline;
    sim_deadline(&deadline, s->timeout);
    *sent = 0;
    while (*sent < size) {
        const ssize_t n = send(s->fd, (const char*)data + *sent, size - *sent, MSG_NOSIGNAL);
        if (n > 0) {
            *sent += (size_t)n;
        } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            const ViStatus status = wait_for(s, POLLOUT, &deadline, sim_forever(s->timeout));
            if (status < VI_SUCCESS)
                return status;
        } else {
            return s->closed ? VI_ERROR_INV_OBJECT : VI_ERROR_CONN_LOST;
        }
    }
    return VI_SUCCESS;
}

/* Reads up to `count` bytes, ending after `term` (unless it is -1), at `count` or at the timeout. */
static ViStatus receive(SimObject* s, unsigned char* buf, size_t count, size_t* got, int term)
{
    struct timespec deadline;
    sim_deadline(&deadline, s->timeout);
    *got = 0;
    for (;;) {
        while (s->rawStart < s->rawEnd && *got < count) {
            const unsigned char c = s->raw[s->rawStart++];
            buf[(*got)++] = c;
            if (term >= 0 && c == term)
                return VI_SUCCESS_TERM_CHAR;
        }
        if (*got == count)
            return VI_SUCCESS_MAX_CNT;
        const ssize_t n = recv(s->fd, s->raw, sizeof s->raw, 0);
        if (n > 0) {
            s->rawStart = 0;
            s->rawEnd = (size_t)n;
        } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            const ViStatus status = wait_for(s, POLLIN, &deadline, sim_forever(s->timeout));
            if (status < VI_SUCCESS)
                return status;
        } else {
            return s->closed ? VI_ERROR_INV_OBJECT : VI_ERROR_CONN_LOST;
        }
    }
}

/* The four transfers alike: a session ready for I/O, the buffer checked, the count always reported. */
typedef ViStatus (*Transfer)(SimObject* session, void* buf, ViUInt32 count, ViUInt32* done);

static ViStatus transfer(ViSession vi, void* buf, ViUInt32 cnt, ViPUInt32 retCnt, Transfer how)
{
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    ViUInt32 done = 0;
    status = buf || cnt == 0 ? how(s, buf, cnt, &done) : VI_ERROR_INV_PARAMETER;
    sim_end_io(s);
    if (retCnt)
        *retCnt = done;
    return status;
}

static ViStatus read_raw(SimObject* s, void* buf, ViUInt32 count, ViUInt32* done)
{
    size_t got = 0;
    const ViStatus status = receive(s, buf, count, &got, s->termcharEnabled ? s->termchar : -1);
    *done = (ViUInt32)got;
    return status;
}

static ViStatus write_raw(SimObject* s, void* buf, ViUInt32 count, ViUInt32* done)
{
    size_t sent = 0;
    const ViStatus status = sim_send(s, buf, count, &sent);
    *done = (ViUInt32)sent;
    return status;
}

SIM_API ViStatus viRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return transfer(vi, buf, cnt, retCnt, read_raw);
}

SIM_API ViStatus viWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return transfer(vi, (void*)buf, cnt, retCnt, write_raw);
}

/* Sends what formatted writes left in the buffer, through this library's own viWrite. */
ViStatus sim_flush_writes(SimObject* s)
{
    if (s->writeLength == 0)
        return VI_SUCCESS;
    ViUInt32 sent = 0;
    const ViStatus status = viWrite(s->id, s->writeBuffer, (ViUInt32)s->writeLength, &sent);
    s->writeLength = 0;
    return status;
}

/* The formatted I/O read buffer, refilled through this library's own viRead. A read ends after
 * the termination character when it is enabled (also one left in the buffer by an earlier read), at
 * `count`, or with the error of a refill. Formatted reads first send what formatted writes left in
 * the buffer, so that a query needs no viFlush. */
ViStatus sim_buffered_read(SimObject* s, unsigned char* buf, ViUInt32 count, ViUInt32* got)
{
    ViStatus status = sim_flush_writes(s);
    *got = 0;
    if (status < VI_SUCCESS)
        return status;
    while (*got < count) {
        if (s->readStart == s->readEnd) {
            ViUInt32 n = 0;
            status = viRead(s->id, s->readBuffer, (ViUInt32)s->readSize, &n);
            s->readStart = 0;
            s->readEnd = n;
            if (n == 0)
                return status < VI_SUCCESS ? status : VI_ERROR_IO;
        }
        size_t n = s->readEnd - s->readStart;
        if (n > count - *got)
            n = count - *got;
        const unsigned char* from = s->readBuffer + s->readStart;
        const unsigned char* term = s->termcharEnabled ? memchr(from, s->termchar, n) : NULL;
        if (term)
            n = (size_t)(term - from) + 1;
        memcpy(buf + *got, from, n);
        s->readStart += n;
        *got += (ViUInt32)n;
        if (term)
            return VI_SUCCESS_TERM_CHAR;
        if (status < VI_SUCCESS && s->readStart == s->readEnd)
            return status;
    }
    return VI_SUCCESS_MAX_CNT;
}

static ViStatus read_buffered(SimObject* s, void* buf, ViUInt32 count, ViUInt32* done)
{
    return sim_buffered_read(s, buf, count, done);
}

ViStatus sim_buffer_writes(SimObject* s, const void* data, size_t size, int flush, size_t* taken)
{
    ViStatus status = VI_SUCCESS;
    *taken = 0;
    while (status >= VI_SUCCESS && *taken < size) {
        if (s->writeLength == s->writeSize)
            status = sim_flush_writes(s);
        const size_t room = s->writeSize - s->writeLength;
        const size_t n = room < size - *taken ? room : size - *taken;
        memcpy(s->writeBuffer + s->writeLength, (const unsigned char*)data + *taken, n);
        s->writeLength += n;
        *taken += n;
    }
    if (status >= VI_SUCCESS && (flush || s->writeBufferMode == VI_FLUSH_ON_ACCESS))
        status = sim_flush_writes(s);
    return status;
}

static ViStatus write_buffered(SimObject* s, void* buf, ViUInt32 count, ViUInt32* done)
{
    size_t taken = 0;
    const ViStatus status = sim_buffer_writes(s, buf, count, 0, &taken);
    *done = (ViUInt32)taken;
    return status;
}

SIM_API ViStatus viBufRead(ViSession vi, ViPBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return transfer(vi, buf, cnt, retCnt, read_buffered);
}

SIM_API ViStatus viBufWrite(ViSession vi, ViConstBuf buf, ViUInt32 cnt, ViPUInt32 retCnt)
{
    return transfer(vi, (void*)buf, cnt, retCnt, write_buffered);
}

SIM_API ViStatus viFlush(ViSession vi, ViUInt16 mask)
{
    if (mask == 0)
        return VI_ERROR_INV_MASK;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    status = VI_SUCCESS;
    if (mask & VI_WRITE_BUF)
        status = sim_flush_writes(s);
    if (mask & VI_WRITE_BUF_DISCARD)
        s->writeLength = 0;
    if (mask & (VI_READ_BUF | VI_READ_BUF_DISCARD))
        s->readStart = s->readEnd = 0;
    if (mask & (VI_IO_IN_BUF | VI_IO_IN_BUF_DISCARD))
        s->rawStart = s->rawEnd = 0;
    sim_end_io(s);
    return status;
}

SIM_API ViStatus viSetBuf(ViSession vi, ViUInt16 mask, ViUInt32 size)
{
    if (mask == 0 || (mask & ~(VI_READ_BUF | VI_WRITE_BUF | VI_IO_IN_BUF | VI_IO_OUT_BUF)))
        return VI_ERROR_INV_MASK;
    if (size == 0 || size > SIM_MAX_BUFFER)
        return VI_ERROR_ALLOC;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    status = VI_SUCCESS;
    if (mask & VI_WRITE_BUF) {
        status = sim_flush_writes(s);
        unsigned char* grown = realloc(s->writeBuffer, size);
        if (grown) {
            s->writeBuffer = grown;
            s->writeSize = size;
        } else {
            status = VI_ERROR_ALLOC;
        }
    }
    if (mask & VI_READ_BUF) {
        unsigned char* grown = realloc(s->readBuffer, size);
        if (grown) {
            s->readBuffer = grown;
            s->readSize = size;
            s->readStart = s->readEnd = 0;
        } else {
            status = VI_ERROR_ALLOC;
        }
    }
    /* The socket's own buffers are the kernel's. */
    if (status == VI_SUCCESS && (mask & (VI_IO_IN_BUF | VI_IO_OUT_BUF)))
        status = VI_WARN_NSUP_BUF;
    sim_end_io(s);
    return status;
}

SIM_API ViStatus viClear(ViSession vi)
{
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    s->rawStart = s->rawEnd = 0;
    s->readStart = s->readEnd = 0;
    s->writeLength = 0;
    /* An answer still on its way is stale after a clear. */
    while (recv(s->fd, s->raw, sizeof s->raw, MSG_DONTWAIT) > 0) { }
    sim_end_io(s);
    return VI_SUCCESS;
}

/* Sends a command line and, for a query, reads the answer line into `answer`. */
static ViStatus exchange(SimObject* s, const char* command, char* answer, size_t size)
{
    size_t done = 0;
    ViStatus status = sim_send(s, command, strlen(command), &done);
    if (status < VI_SUCCESS || !answer)
        return status;
    status = receive(s, (unsigned char*)answer, size - 1, &done, '\n');
    answer[done] = '\0';
    return status;
}

SIM_API ViStatus viReadSTB(ViSession vi, ViPUInt16 status)
{
    if (!status)
        return VI_ERROR_INV_PARAMETER;
    ViStatus result;
    SimObject* s = sim_begin_io(vi, &result);
    if (!s)
        return result;
    /* A socket has no serial poll: the instrument is asked in IEEE 488.2 terms. */
    char answer[64];
    result = exchange(s, "*STB?\n", answer, sizeof answer);
    sim_end_io(s);
    if (result < VI_SUCCESS)
        return result;
    char* end = NULL;
    const long value = strtol(answer, &end, 10);
    if (end == answer || value < 0 || value > 255)
        return VI_ERROR_IO;
    *status = (ViUInt16)value;
    return VI_SUCCESS;
}

SIM_API ViStatus viAssertTrigger(ViSession vi, ViUInt16 protocol)
{
    if (protocol != VI_TRIG_PROT_DEFAULT)
        return VI_ERROR_INV_PROT;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    status = exchange(s, "*TRG\n", NULL, 0);
    sim_end_io(s);
    return status;
}
