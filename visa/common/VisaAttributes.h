/* What the VISA attributes are called and how wide their values are, for every program here that
 * shows or stores one: the forwarding library reads back exactly the bytes a library wrote, and the
 * simulated library writes exactly that many. */
#ifndef ZELVISA_ATTRIBUTES_H
#define ZELVISA_ATTRIBUTES_H

#include "visa.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum
{
    ZELVISA_U8,
    ZELVISA_I16,
    ZELVISA_U16,
    ZELVISA_I32,
    ZELVISA_U32,
    ZELVISA_U64,
    ZELVISA_TEXT, /* a NUL-terminated text of at most 256 bytes, written into the caller's buffer */
    ZELVISA_ADDR, /* a pointer */
    ZELVISA_OPAQUE /* written as a block of a size another attribute tells: never read back */
} ZelVisaValueKind;

typedef struct
{
    ViAttr id;
    const char* name;
    ZelVisaValueKind kind;
} ZelVisaAttribute;

/* The attribute with this id, or NULL for one the standard does not define. */
const ZelVisaAttribute* zelvisa_attribute(ViAttr id);

/* Bytes a value of this kind occupies (0 for texts and opaque blocks). */
unsigned zelvisa_value_size(ZelVisaValueKind kind);

/* The whole table, sorted by id, for tests. */
const ZelVisaAttribute* zelvisa_attributes(unsigned* count);

#ifdef __cplusplus
}
#endif

#endif
