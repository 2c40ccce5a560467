/* Resource names: parsing TCPIP<board>::<host>::<port>::SOCKET, viParseRsrc, and finding resources
 * by the VISA resource expressions. Names come from programs and environments: every length is
 * bounded, and a search stops after a fixed number of steps whatever the expression. */
#include "sim.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#define SIM_MAX_FOUND 256

static const char* const s_interfaces[] = {"GPIB-VXI", "GPIB", "VXI", "ASRL", "PXI", "TCPIP", "USB", "VICP", "RIO"};

/* The interface word at the start of `name` and the board number after it; -1 if there is none. */
static long interface_board(const char* name, const char** interface, size_t* length)
{
    for (size_t i = 0; i < sizeof s_interfaces / sizeof s_interfaces[0]; ++i) {
        const size_t n = strlen(s_interfaces[i]);
        if (strncasecmp(name, s_interfaces[i], n) != 0)
            continue;
        *interface = s_interfaces[i];
        long board = 0;
        size_t digits = 0;
        while (isdigit((unsigned char)name[n + digits]) && digits < 5)
            board = board * 10 + (name[n + digits++] - '0');
        *length = n + digits;
        return board <= 0xFFFF ? board : -1;
    }
    return -1;
}

ViStatus sim_parse_resource(const char* name, SimResource* resource)
{
    if (!name)
        return VI_ERROR_INV_RSRC_NAME;
    const size_t size = strnlen(name, SIM_NAME_SIZE);
    if (size == 0 || size >= SIM_NAME_SIZE)
        return VI_ERROR_INV_RSRC_NAME;
    const char* interface = NULL;
    size_t at = 0;
    const long board = interface_board(name, &interface, &at);
    if (board < 0 || strncmp(name + at, "::", 2) != 0)
        return VI_ERROR_INV_RSRC_NAME;
    /* The parts after the interface, separated by "::". */
    const char* parts[4];
    size_t lengths[4];
    int count = 0;
    for (const char* p = name + at + 2;; ++count) {
        const char* end = strstr(p, "::");
        if (count == 4)
            return VI_ERROR_INV_RSRC_NAME;
        parts[count] = p;
        lengths[count] = end ? (size_t)(end - p) : strlen(p);
        if (lengths[count] == 0)
            return VI_ERROR_INV_RSRC_NAME;
        if (!end) {
            ++count;
            break;
        }
        p = end + 2;
    }
    const int socket
        = strcmp(interface, "TCPIP") == 0 && count == 3 && lengths[2] == 6 && strncasecmp(parts[2], "SOCKET", 6) == 0;
    if (!socket) {
        /* A name of another kind: well formed as far as the class goes, but not simulated here. */
        const char* last = parts[count - 1];
        const size_t n = lengths[count - 1];
        const int classed = (n == 5 && strncasecmp(last, "INSTR", 5) == 0)
            || (n == 5 && strncasecmp(last, "INTFC", 5) == 0) || (n == 9 && strncasecmp(last, "BACKPLANE", 9) == 0)
            || (n == 6 && strncasecmp(last, "MEMACC", 6) == 0) || (n == 3 && strncasecmp(last, "RAW", 3) == 0)
            || (n == 7 && strncasecmp(last, "SERVANT", 7) == 0) || (n == 6 && strncasecmp(last, "SOCKET", 6) == 0);
        return classed || count == 1 ? VI_ERROR_RSRC_NFOUND : VI_ERROR_INV_RSRC_NAME;
    }
    long port = 0;
    for (size_t i = 0; i < lengths[1]; ++i) {
        if (!isdigit((unsigned char)parts[1][i]) || i >= 5)
            return VI_ERROR_INV_RSRC_NAME;
        port = port * 10 + (parts[1][i] - '0');
    }
    if (port < 1 || port > 65535)
        return VI_ERROR_INV_RSRC_NAME;
    for (size_t i = 0; i < lengths[0]; ++i) {
        const unsigned char c = (unsigned char)parts[0][i];
        if (!isalnum(c) && c != '.' && c != '-' && c != '_')
            return VI_ERROR_INV_RSRC_NAME;
    }
    resource->board = (ViUInt16)board;
    resource->port = (ViUInt16)port;
    snprintf(resource->host, sizeof resource->host, "%.*s", (int)lengths[0], parts[0]);
    const int n = snprintf(resource->canonical, sizeof resource->canonical, "TCPIP%ld::%s::%ld::SOCKET", board,
                           resource->host, port);
    return n > 0 && (size_t)n < sizeof resource->canonical ? VI_SUCCESS : VI_ERROR_INV_RSRC_NAME;
}

static ViStatus parse_for(ViSession rm, ViConstRsrc name, SimResource* resource)
{
    ViStatus status;
    SimObject* manager = sim_acquire(rm, SIM_RM, &status);
    if (!manager)
        return status;
    sim_release(manager);
    return sim_parse_resource(name, resource);
}

SIM_API ViStatus viParseRsrcEx(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum,
                               ViChar rsrcClass[], ViChar expandedUnaliasedName[], ViChar aliasIfExists[])
{
    SimResource resource;
    const ViStatus status = parse_for(rmSesn, rsrcName, &resource);
    if (status < VI_SUCCESS)
        return status;
    if (intfType)
        *intfType = VI_INTF_TCPIP;
    if (intfNum)
        *intfNum = resource.board;
    if (rsrcClass)
        sim_write_text(rsrcClass, "SOCKET");
    if (expandedUnaliasedName)
        sim_write_text(expandedUnaliasedName, resource.canonical);
    if (aliasIfExists)
        aliasIfExists[0] = '\0';
    return VI_SUCCESS;
}

SIM_API ViStatus viParseRsrc(ViSession rmSesn, ViConstRsrc rsrcName, ViPUInt16 intfType, ViPUInt16 intfNum)
{
    return viParseRsrcEx(rmSesn, rsrcName, intfType, intfNum, VI_NULL, VI_NULL, VI_NULL);
}

/* ---- resource expressions ---- */

typedef struct Matcher
{
    long steps; /* left before the search gives up */
} Matcher;

/* Length of the atom at `p` (a character, an escaped one, "?" or a [set]), or 0 if it is malformed. */
static size_t atom_length(const char* p, const char* end)
{
    if (p >= end)
        return 0;
    if (*p == '\\')
        return p + 1 < end ? 2 : 0;
    if (*p == '(' || *p == ')' || *p == '*' || *p == '+')
        return 0;
    if (*p != '[')
        return 1;
    const char* q = p + 1;
    if (q < end && *q == '^')
        ++q;
    if (q < end && *q == ']')
        ++q;
    while (q < end && *q != ']')
        ++q;
    return q < end ? (size_t)(q - p + 1) : 0;
}

static int atom_matches(const char* atom, size_t length, char c)
{
    const unsigned char lower = (unsigned char)tolower((unsigned char)c);
    if (*atom == '?')
        return 1;
    if (*atom == '\\')
        return tolower((unsigned char)atom[1]) == lower;
    if (*atom != '[')
        return tolower((unsigned char)*atom) == lower;
    const char* p = atom + 1;
    const char* end = atom + length - 1;
    const int negated = *p == '^';
    if (negated)
        ++p;
    int found = 0;
    for (const char* q = p; q < end; ++q) {
        if (q + 2 < end && q[1] == '-') {
            found |= lower >= tolower((unsigned char)q[0]) && lower <= tolower((unsigned char)q[2]);
            q += 2;
        } else {
            found |= lower == tolower((unsigned char)*q);
        }
    }
    return found != negated;
}

/* -1: the expression is malformed; 0: no match; 1: match. */
static int match_here(Matcher* m, const char* p, const char* end, const char* text)
{
    if (--m->steps < 0)
        return 0;
    if (p == end)
        return *text == '\0';
    const size_t length = atom_length(p, end);
    if (length == 0)
        return -1;
    const char* next = p + length;
    const char repeat = next < end && (*next == '*' || *next == '+') ? *next : 0;
    if (!repeat) {
        if (*text == '\0' || !atom_matches(p, length, *text))
            return match_here(m, next, end, text) == -1 ? -1 : 0;
        return match_here(m, next, end, text + 1);
    }
    /* As many as match, then fewer: the rest of the expression decides. */
    size_t most = 0;
    while (text[most] && atom_matches(p, length, text[most]))
        ++most;
    for (size_t n = most + 1; n-- > (repeat == '+' ? 1u : 0u);) {
        const int r = match_here(m, next + 1, end, text + n);
        if (r != 0)
            return r;
    }
    return repeat == '+' && most == 0 ? (match_here(m, next + 1, end, text) == -1 ? -1 : 0) : 0;
}

int sim_match_expression(const char* expression, const char* name)
{
    const size_t size = strnlen(expression, SIM_NAME_SIZE);
    if (size == 0 || size >= SIM_NAME_SIZE)
        return -1;
    Matcher m = {100000};
    int matched = 0;
    /* Alternatives: "exp|exp". */
    for (const char* p = expression;;) {
        const char* bar = p;
        while (*bar && *bar != '|') {
            if (*bar == '\\' && bar[1])
                ++bar;
            ++bar;
        }
        const int r = match_here(&m, p, bar, name);
        if (r < 0)
            return -1;
        matched |= r;
        if (!*bar)
            break;
        p = bar + 1;
    }
    return matched;
}

void sim_close_find_list(SimObject* list)
{
    for (ViUInt32 i = 0; i < list->foundCount; ++i)
        free(list->found[i]);
    free(list->found);
}

/* The resources this library offers: those named in ZELVISA_SIM_RESOURCES (separated by ';'), else
 * zel-instrument on its default port. */
static char** known_resources(ViUInt32* count)
{
    const char* list = getenv("ZELVISA_SIM_RESOURCES");
    if (!list || !*list)
        list = "TCPIP0::127.0.0.1::5025::SOCKET";
    char** names = calloc(SIM_MAX_FOUND, sizeof *names);
    *count = 0;
    for (const char* p = list; names && *p && *count < SIM_MAX_FOUND;) {
        const char* end = strchr(p, ';');
        const size_t n = end ? (size_t)(end - p) : strlen(p);
        SimResource resource;
        char name[SIM_NAME_SIZE];
        if (n > 0 && n < sizeof name) {
            memcpy(name, p, n);
            name[n] = '\0';
            if (sim_parse_resource(name, &resource) == VI_SUCCESS && (names[*count] = strdup(resource.canonical)))
                ++*count;
        }
        p += n + (end ? 1 : 0);
    }
    return names;
}

SIM_API ViStatus viFindRsrc(ViSession sesn, ViConstString expr, ViPFindList vi, ViPUInt32 retCnt, ViChar desc[])
{
    ViStatus status;
    SimObject* rm = sim_acquire(sesn, SIM_RM, &status);
    if (!rm)
        return status;
    sim_release(rm);
    if (!expr || sim_match_expression(expr, "") < 0)
        return VI_ERROR_INV_EXPR;
    ViUInt32 known = 0;
    char** names = known_resources(&known);
    if (!names)
        return VI_ERROR_ALLOC;
    ViUInt32 found = 0;
    for (ViUInt32 i = 0; i < known; ++i) {
        if (sim_match_expression(expr, names[i]) == 1)
            names[found++] = names[i];
        else
            free(names[i]);
    }
    if (retCnt)
        *retCnt = found;
    if (found == 0) {
        free(names);
        return VI_ERROR_RSRC_NFOUND;
    }
    if (desc)
        sim_write_text(desc, names[0]);
    if (!vi) { /* no list asked for */
        for (ViUInt32 i = 0; i < found; ++i)
            free(names[i]);
        free(names);
        return VI_SUCCESS;
    }
    pthread_mutex_lock(&g_simMutex);
    SimObject* list = sim_new_object(SIM_FIND_LIST, sesn);
    if (list) {
        list->found = names;
        list->foundCount = found;
        list->foundNext = 1;
        *vi = list->id;
    }
    pthread_mutex_unlock(&g_simMutex);
    if (!list) {
        for (ViUInt32 i = 0; i < found; ++i)
            free(names[i]);
        free(names);
        return VI_ERROR_ALLOC;
    }
    return VI_SUCCESS;
}

SIM_API ViStatus viFindNext(ViFindList vi, ViChar desc[])
{
    ViStatus status;
    SimObject* list = sim_acquire(vi, SIM_FIND_LIST, &status);
    if (!list)
        return status;
    pthread_mutex_lock(&g_simMutex);
    const char* next = list->foundNext < list->foundCount ? list->found[list->foundNext++] : NULL;
    if (next && desc)
        sim_write_text(desc, next);
    pthread_mutex_unlock(&g_simMutex);
    sim_release(list);
    return next ? VI_SUCCESS : VI_ERROR_RSRC_NFOUND;
}
