/* Formatted I/O: viPrintf, viScanf, viQueryf and their buffer and va_list forms. Conversions are
 * those of C's printf and scanf (with h, hh, l, ll, L, z, j sizes) and VISA's %t and %T, which read
 * the rest of the message; VISA's array, block and binary conversions are refused with
 * VI_ERROR_NSUP_FMT. Format strings come from programs: every directive is checked before its
 * argument is taken. */
#include "sim.h"

#include <ctype.h>
#include <limits.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#define SIM_MAX_FORMATTED (1024u * 1024u)
#define SIM_MAX_TOKEN 512

ViStatus sim_parse_directive(const char* format, int scanning, SimDirective* d)
{
    memset(d, 0, sizeof *d);
    d->width = d->precision = -1;
    const char* p = format + 1;
    if (*p == '%') {
        d->conversion = '%';
        d->length = 2;
        return VI_SUCCESS;
    }
    if (scanning && *p == '*') {
        d->suppress = 1;
        ++p;
    }
    for (size_t n = 0; !scanning && *p && strchr("-+ #0", *p); ++p) {
        if (n + 1 < sizeof d->flags)
            d->flags[n++] = *p;
    }
    if (!scanning && *p == '*') {
        d->widthStar = 1;
        ++p;
    } else if (isdigit((unsigned char)*p)) {
        d->width = 0;
        for (; isdigit((unsigned char)*p); ++p) {
            if (d->width > 9999999)
                return VI_ERROR_INV_FMT;
            d->width = d->width * 10 + (*p - '0');
        }
    }
    if (!scanning && *p == '.') {
        ++p;
        if (*p == '*') {
            d->precisionStar = 1;
            ++p;
        } else {
            d->precision = 0;
        }
        for (; !d->precisionStar && isdigit((unsigned char)*p); ++p) {
            if (d->precision > 9999999)
                return VI_ERROR_INV_FMT;
            d->precision = d->precision * 10 + (*p - '0');
        }
    }
    if ((p[0] == 'h' && p[1] == 'h') || (p[0] == 'l' && p[1] == 'l')) {
        memcpy(d->size, p, 2);
        p += 2;
    } else if (*p && strchr("hlLzj", *p)) {
        d->size[0] = *p++;
    }
    if (*p == ',' || *p == '@' || *p == '!')
        return VI_ERROR_NSUP_FMT; /* VISA's arrays, binary layouts and byte orders */
    d->conversion = *p;
    if (!*p)
        return VI_ERROR_INV_FMT;
    if (strchr("bByn", *p))
        return VI_ERROR_NSUP_FMT;
    const char* valid = scanning ? "diuoxXfFeEgGaAcs[tT" : "diuoxXfFeEgGaAcsp";
    if (!strchr(valid, *p))
        return VI_ERROR_INV_FMT;
    const int floating = strchr("fFeEgGaA", *p) != NULL;
    const int integer = strchr("diuoxX", *p) != NULL;
    if ((d->size[0] == 'L' && !floating) || (d->size[0] && d->size[0] != 'L' && d->size[0] != 'l' && !integer)
        || (d->size[0] == 'l' && !integer && !floating) || (!strcmp(d->size, "ll") && !integer))
        return VI_ERROR_INV_FMT;
    if (*p == '[') {
        const char* q = p + 1;
        if (*q == '^')
            ++q;
        if (*q == ']')
            ++q;
        while (*q && *q != ']')
            ++q;
        if (!*q)
            return VI_ERROR_INV_FMT;
        d->set = p + 1;
        d->setLength = (size_t)(q - p - 1);
        p = q;
    }
    d->length = (size_t)(p + 1 - format);
    return VI_SUCCESS;
}

/* ---- output ---- */

typedef struct SimText
{
    char* data;
    size_t size;
    size_t capacity;
} SimText;

static ViStatus text_printf(SimText* t, const char* pattern, ...) __attribute__((format(printf, 2, 3)));

static ViStatus text_printf(SimText* t, const char* pattern, ...)
{
    va_list args;
    va_start(args, pattern);
    va_list again;
    va_copy(again, args);
    const int n = vsnprintf(NULL, 0, pattern, args);
    va_end(args);
    ViStatus status = VI_SUCCESS;
    if (n < 0 || t->size + (size_t)n + 1 > SIM_MAX_FORMATTED) {
        status = VI_ERROR_ALLOC;
    } else {
        if (t->size + (size_t)n + 1 > t->capacity) {
            const size_t capacity = (t->size + (size_t)n + 1) * 2;
            char* grown = realloc(t->data, capacity);
            if (!grown)
                status = VI_ERROR_ALLOC;
            else {
                t->data = grown;
                t->capacity = capacity;
            }
        }
        if (status == VI_SUCCESS) {
            vsnprintf(t->data + t->size, (size_t)n + 1, pattern, again);
            t->size += (size_t)n;
        }
    }
    va_end(again);
    return status;
}

#define SIM_EMIT(value)                                                                                                \
    (d.widthStar && d.precisionStar ? text_printf(out, pattern, width, precision, value)                               \
         : d.widthStar              ? text_printf(out, pattern, width, value)                                          \
         : d.precisionStar          ? text_printf(out, pattern, precision, value)                                      \
                                    : text_printf(out, pattern, value))

static ViStatus format_text(SimText* out, const char* format, va_list* ap)
{
    ViStatus status = VI_SUCCESS;
    for (const char* p = format; *p && status == VI_SUCCESS;) {
        if (*p != '%') {
            const char* next = strchr(p, '%');
            const size_t n = next ? (size_t)(next - p) : strlen(p);
            status = text_printf(out, "%.*s", (int)n, p);
            p += n;
            continue;
        }
        SimDirective d;
        status = sim_parse_directive(p, 0, &d);
        if (status != VI_SUCCESS)
            break;
        p += d.length;
        if (d.conversion == '%') {
            status = text_printf(out, "%%");
            continue;
        }
        /* The directive again for the C library, its numbers checked. */
        char pattern[48];
        int at = snprintf(pattern, sizeof pattern, "%%%s", d.flags);
        if (d.widthStar)
            at += snprintf(pattern + at, sizeof pattern - (size_t)at, "*");
        else if (d.width >= 0)
            at += snprintf(pattern + at, sizeof pattern - (size_t)at, "%d", d.width);
        if (d.precisionStar)
            at += snprintf(pattern + at, sizeof pattern - (size_t)at, ".*");
        else if (d.precision >= 0)
            at += snprintf(pattern + at, sizeof pattern - (size_t)at, ".%d", d.precision);
        snprintf(pattern + at, sizeof pattern - (size_t)at, "%s%c", d.size, d.conversion);
        const int width = d.widthStar ? va_arg(*ap, int) : 0;
        const int precision = d.precisionStar ? va_arg(*ap, int) : 0;
        const int isSigned = d.conversion == 'd' || d.conversion == 'i';
        switch (d.conversion) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            if (!strcmp(d.size, "l"))
                status = isSigned ? SIM_EMIT(va_arg(*ap, long)) : SIM_EMIT(va_arg(*ap, unsigned long));
            else if (!strcmp(d.size, "ll"))
                status = isSigned ? SIM_EMIT(va_arg(*ap, long long)) : SIM_EMIT(va_arg(*ap, unsigned long long));
            else if (!strcmp(d.size, "z"))
                status = isSigned ? SIM_EMIT(va_arg(*ap, ssize_t)) : SIM_EMIT(va_arg(*ap, size_t));
            else if (!strcmp(d.size, "j"))
                status = isSigned ? SIM_EMIT(va_arg(*ap, intmax_t)) : SIM_EMIT(va_arg(*ap, uintmax_t));
            else /* hh and h arguments arrive promoted to int */
                status = isSigned ? SIM_EMIT(va_arg(*ap, int)) : SIM_EMIT(va_arg(*ap, unsigned));
            break;
        case 'c':
            status = SIM_EMIT(va_arg(*ap, int));
            break;
        case 's': {
            const char* s = va_arg(*ap, const char*);
            status = SIM_EMIT(s ? s : "(null)");
            break;
        }
        case 'p':
            status = SIM_EMIT(va_arg(*ap, void*));
            break;
        default: /* the floating conversions */
            if (d.size[0] == 'L')
                status = SIM_EMIT(va_arg(*ap, long double));
            else
                status = SIM_EMIT(va_arg(*ap, double));
        }
    }
    return status;
}

static int ends_line(const char* format)
{
    const size_t n = strlen(format);
    return n > 0 && format[n - 1] == '\n';
}

static ViStatus printf_to(SimObject* s, const char* format, va_list* ap, int always)
{
    SimText t = {NULL, 0, 0};
    ViStatus status = format_text(&t, format, ap);
    size_t taken = 0;
    if (status == VI_SUCCESS)
        status = sim_buffer_writes(s, t.data, t.size, always || ends_line(format), &taken);
    free(t.data);
    return status;
}

/* ---- input ---- */

typedef struct SimSource
{
    SimObject* session; /* or NULL for a text */
    const unsigned char* text;
    size_t at;
    int ended; /* the message ended: nothing more to read */
    int lastWasTerm;
    ViStatus status; /* an error of the reads */
} SimSource;

static int get(SimSource* in)
{
    if (in->ended)
        return EOF;
    if (!in->session) {
        const int c = in->text[in->at];
        if (!c) {
            in->ended = 1;
            return EOF;
        }
        ++in->at;
        return c;
    }
    unsigned char c = 0;
    ViUInt32 got = 0;
    const ViStatus status = sim_buffered_read(in->session, &c, 1, &got);
    in->lastWasTerm = status == VI_SUCCESS_TERM_CHAR;
    if (got == 0) {
        in->ended = 1;
        if (status < VI_SUCCESS)
            in->status = status;
        return EOF;
    }
    if (in->lastWasTerm)
        in->ended = 1;
    return c;
}

static void unget(SimSource* in, int c)
{
    if (c == EOF)
        return;
    if (in->session) {
        --in->session->readStart; /* still in the buffer: a refill only comes when it is empty */
        if (in->lastWasTerm)
            in->ended = 0;
    } else {
        --in->at;
        in->ended = 0;
    }
}

static int skip_space(SimSource* in)
{
    int c;
    while ((c = get(in)) != EOF && isspace(c)) { }
    unget(in, c);
    return c;
}

static int in_set(const SimDirective* d, int c)
{
    const char* p = d->set;
    const char* end = d->set + d->setLength;
    const int negated = p < end && *p == '^';
    if (negated)
        ++p;
    int found = 0;
    for (const char* q = p; q < end; ++q) {
        if (q + 2 < end && q[1] == '-') {
            found |= c >= (unsigned char)q[0] && c <= (unsigned char)q[2];
            q += 2;
        } else {
            found |= c == (unsigned char)*q;
        }
    }
    return found != negated;
}

/* Collects the characters of a number into `token`; 0 when there are none. */
static size_t collect_number(SimSource* in, int floating, int base, size_t width, char* token)
{
    size_t n = 0;
    int c = get(in);
    int digits = 0;
    if ((c == '+' || c == '-') && n < width) {
        token[n++] = (char)c;
        c = get(in);
    }
    if (!floating && (base == 0 || base == 16) && c == '0' && n < width) {
        token[n++] = (char)c;
        digits = 1;
        c = get(in);
        if ((c == 'x' || c == 'X') && n < width) {
            token[n++] = (char)c;
            c = get(in);
            base = 16;
        } else if (base == 0) {
            base = 8;
        }
    }
    if (base == 0)
        base = 10;
    int point = 0, exponent = 0;
    for (; c != EOF && n < width; c = get(in)) {
        const int isDigit = base == 16 ? isxdigit(c) : (c >= '0' && c < '0' + (base < 10 ? base : 10));
        if (isDigit) {
            digits = 1;
        } else if (floating && c == '.' && !point && !exponent) {
            point = 1;
        } else if (floating && (c == 'e' || c == 'E') && digits && !exponent) {
            exponent = 1;
            token[n++] = (char)c;
            c = get(in);
            if ((c == '+' || c == '-') && n < width)
                token[n++] = (char)c;
            else
                unget(in, c);
            continue;
        } else {
            break;
        }
        token[n++] = (char)c;
    }
    unget(in, c);
    token[n] = '\0';
    return digits ? n : 0;
}

static void store_integer(const SimDirective* d, va_list* ap, const char* token)
{
    const int base = d->conversion == 'i'                ? 0
        : d->conversion == 'o'                           ? 8
        : (d->conversion == 'x' || d->conversion == 'X') ? 16
                                                         : 10;
    const int isSigned = d->conversion == 'd' || d->conversion == 'i';
    const long long s = isSigned ? strtoll(token, NULL, base) : 0;
    const unsigned long long u = isSigned ? (unsigned long long)s : strtoull(token, NULL, base);
    if (!strcmp(d->size, "hh"))
        *va_arg(*ap, signed char*) = (signed char)u;
    else if (!strcmp(d->size, "h"))
        *va_arg(*ap, short*) = (short)u;
    else if (!strcmp(d->size, "l"))
        *va_arg(*ap, long*) = (long)u;
    else if (!strcmp(d->size, "ll"))
        *va_arg(*ap, long long*) = (long long)u;
    else if (!strcmp(d->size, "z"))
        *va_arg(*ap, size_t*) = (size_t)u;
    else if (!strcmp(d->size, "j"))
        *va_arg(*ap, intmax_t*) = (intmax_t)u;
    else
        *va_arg(*ap, int*) = (int)u;
}

static void store_floating(const SimDirective* d, va_list* ap, const char* token)
{
    const long double value = strtold(token, NULL);
    if (d->size[0] == 'L')
        *va_arg(*ap, long double*) = value;
    else if (d->size[0] == 'l')
        *va_arg(*ap, double*) = (double)value;
    else
        *va_arg(*ap, float*) = (float)value;
}

/* Scans `in` by `format`. Stops at the first input that does not match (what was stored stays
 * stored); a failed read gives its status. */
static ViStatus scan(SimSource* in, const char* format, va_list* ap)
{
    for (const char* p = format; *p;) {
        if (isspace((unsigned char)*p)) {
            skip_space(in);
            ++p;
            continue;
        }
        if (*p != '%') {
            const int c = get(in);
            if (c != (unsigned char)*p) {
                unget(in, c);
                break;
            }
            ++p;
            continue;
        }
        SimDirective d;
        const ViStatus status = sim_parse_directive(p, 1, &d);
        if (status != VI_SUCCESS)
            return status;
        p += d.length;
        const char conversion = d.conversion;
        if (conversion != 'c' && conversion != '[' && conversion != 't' && conversion != 'T')
            skip_space(in);
        if (conversion == '%') {
            const int c = get(in);
            if (c != '%') {
                unget(in, c);
                break;
            }
            continue;
        }
        if (strchr("diuoxXfFeEgGaA", conversion)) {
            char token[SIM_MAX_TOKEN];
            const size_t width = d.width > 0 && d.width < SIM_MAX_TOKEN ? (size_t)d.width : SIM_MAX_TOKEN - 1;
            const int floating = strchr("fFeEgGaA", conversion) != NULL;
            const int base = conversion == 'i'             ? 0
                : conversion == 'o'                        ? 8
                : (conversion == 'x' || conversion == 'X') ? 16
                                                           : 10;
            if (!collect_number(in, floating, base, width, token))
                break;
            if (!d.suppress) {
                if (floating)
                    store_floating(&d, ap, token);
                else
                    store_integer(&d, ap, token);
            }
            continue;
        }
        /* Characters: %c (width 1 unless given, no terminator), %s, %[...], %t and %T. */
        char* to = d.suppress ? NULL : va_arg(*ap, char*);
        const size_t width = d.width > 0 ? (size_t)d.width : (conversion == 'c' ? 1 : SIZE_MAX);
        size_t n = 0;
        int c = EOF;
        while (n < width && (c = get(in)) != EOF) {
            if ((conversion == 's' && isspace(c)) || (conversion == '[' && !in_set(&d, c)))
                break;
            if (to)
                to[n] = (char)c;
            ++n;
            c = EOF;
        }
        unget(in, c);
        if (n == 0)
            break;
        if (to && conversion != 'c')
            to[n] = '\0';
    }
    return in->status < VI_SUCCESS ? in->status : VI_SUCCESS;
}

/* A formatted read takes the rest of the message it read from: what the format left of it, up to
 * the termination character already in the buffer, is dropped, so that the next read starts with
 * the next answer (a scan that stops after "1.0" would otherwise find that answer's line feed). */
static void finish_message(SimSource* in)
{
    SimObject* s = in->session;
    if (in->ended || !s->termcharEnabled)
        return;
    const unsigned char* from = s->readBuffer + s->readStart;
    const unsigned char* term = memchr(from, s->termchar, s->readEnd - s->readStart);
    if (term)
        s->readStart += (size_t)(term - from) + 1;
}

/* ---- the functions ---- */

SIM_API ViStatus viVPrintf(ViSession vi, ViConstString writeFmt, ViVAList params)
{
    if (!writeFmt)
        return VI_ERROR_INV_PARAMETER;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    va_list ap;
    va_copy(ap, params);
    status = printf_to(s, writeFmt, &ap, 0);
    va_end(ap);
    sim_end_io(s);
    return status;
}

SIM_API ViStatus viPrintf(ViSession vi, ViConstString writeFmt, ...)
{
    va_list params;
    va_start(params, writeFmt);
    const ViStatus status = viVPrintf(vi, writeFmt, params);
    va_end(params);
    return status;
}

/* The buffer forms do no I/O, but the session must be an instrument's. */
static ViStatus instrument_session(ViSession vi)
{
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (s)
        sim_release(s);
    return status;
}

SIM_API ViStatus viVSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ViVAList parms)
{
    if (!buf || !writeFmt)
        return VI_ERROR_INV_PARAMETER;
    ViStatus status = instrument_session(vi);
    if (status != VI_SUCCESS)
        return status;
    SimText t = {NULL, 0, 0};
    va_list ap;
    va_copy(ap, parms);
    status = format_text(&t, writeFmt, &ap);
    va_end(ap);
    if (status == VI_SUCCESS) {
        memcpy(buf, t.data ? t.data : "", t.size);
        buf[t.size] = '\0';
    }
    free(t.data);
    return status;
}

SIM_API ViStatus viSPrintf(ViSession vi, ViPBuf buf, ViConstString writeFmt, ...)
{
    va_list params;
    va_start(params, writeFmt);
    const ViStatus status = viVSPrintf(vi, buf, writeFmt, params);
    va_end(params);
    return status;
}

SIM_API ViStatus viVScanf(ViSession vi, ViConstString readFmt, ViVAList params)
{
    if (!readFmt)
        return VI_ERROR_INV_PARAMETER;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    SimSource in = {s, NULL, 0, 0, 0, VI_SUCCESS};
    va_list ap;
    va_copy(ap, params);
    status = scan(&in, readFmt, &ap);
    va_end(ap);
    finish_message(&in);
    sim_end_io(s);
    return status;
}

SIM_API ViStatus viScanf(ViSession vi, ViConstString readFmt, ...)
{
    va_list params;
    va_start(params, readFmt);
    const ViStatus status = viVScanf(vi, readFmt, params);
    va_end(params);
    return status;
}

SIM_API ViStatus viVSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ViVAList parms)
{
    if (!buf || !readFmt)
        return VI_ERROR_INV_PARAMETER;
    ViStatus status = instrument_session(vi);
    if (status != VI_SUCCESS)
        return status;
    SimSource in = {NULL, buf, 0, 0, 0, VI_SUCCESS};
    va_list ap;
    va_copy(ap, parms);
    status = scan(&in, readFmt, &ap);
    va_end(ap);
    return status;
}

SIM_API ViStatus viSScanf(ViSession vi, ViConstBuf buf, ViConstString readFmt, ...)
{
    va_list params;
    va_start(params, readFmt);
    const ViStatus status = viVSScanf(vi, buf, readFmt, params);
    va_end(params);
    return status;
}

SIM_API ViStatus viVQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ViVAList params)
{
    if (!writeFmt || !readFmt)
        return VI_ERROR_INV_PARAMETER;
    ViStatus status;
    SimObject* s = sim_begin_io(vi, &status);
    if (!s)
        return status;
    /* One list of arguments: the write's first, then the read's. */
    va_list ap;
    va_copy(ap, params);
    status = printf_to(s, writeFmt, &ap, 1);
    if (status >= VI_SUCCESS) {
        SimSource in = {s, NULL, 0, 0, 0, VI_SUCCESS};
        status = scan(&in, readFmt, &ap);
        finish_message(&in);
    }
    va_end(ap);
    sim_end_io(s);
    return status;
}

SIM_API ViStatus viQueryf(ViSession vi, ViConstString writeFmt, ViConstString readFmt, ...)
{
    va_list params;
    va_start(params, readFmt);
    const ViStatus status = viVQueryf(vi, writeFmt, readFmt, params);
    va_end(params);
    return status;
}
