/* Value types of channels, and text hints.
 *
 * A value type is one entry of a fixed table that lives as long as the process: "float",
 * "integer", "string", "matrix4", and the object kinds "gradient" and "custom". A channel
 * names its type by a storage code and, for object values, a type name.
 *
 * Text hints name integer values: an array of TextHint ending with an entry whose text is
 * null. All functions here may be called from any thread. */
#ifndef VEXOR_VALUE_H
#define VEXOR_VALUE_H

#include <stddef.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct ValueType ValueType;

/* Storage codes. Every code not listed here is a floating value. */
#define VX_STORE_FLOAT 0
#define VX_STORE_INT 1
#define VX_STORE_TEXT 2
#define VX_STORE_MATRIX 3
#define VX_STORE_OBJECT 4

/* Kinds of value, as ValueTypeKind reports them. */
#define VX_VALUE_FLOAT 0
#define VX_VALUE_INT 1
#define VX_VALUE_TEXT 2
#define VX_VALUE_MATRIX 3
#define VX_VALUE_OBJECT 4

typedef struct TextHint {
    int value;
    const char *text; /* null ends the table */
} TextHint;

/* The type of that name; with a null name the plain type of the storage code. Null when no
 * type has the name. */
VX_API const ValueType *ExoTypeLookup(int storage, const char *typeName);
/* The name and kind of a type; null and -1 for null. */
VX_API const char *ValueTypeName(const ValueType *type);
VX_API int ValueTypeKind(const ValueType *type);

/* The table "off" = 0, "on" = 1. */
VX_API const TextHint *TextHintBoolean(void);

/* Writes the text of a value into buf: the text of the hint with that value, or else the value
 * in decimal. The hints may be null. The text is cut to fit and terminated when size > 0.
 * Returns the length of the whole text. */
VX_API size_t TextHintEncode(int value, const TextHint *hints, char *buf, size_t size);

/* Reads a value from a hint's text or from decimal digits into *value. Returns 1, or 0 when
 * the text is neither (and *value is left alone). */
VX_API int TextHintDecode(const char *text, const TextHint *hints, int *value);

VX_EXTERN_C_END

#endif
