// The C interface of value types and text hints.
#include <vexor/value.h>

#include "foundation/value_type.h"

extern "C" {

VX_API const ValueType *ExoTypeLookup(int storage, const char *typeName) {
    return vx::value::lookup(storage, typeName);
}

VX_API const char *ValueTypeName(const ValueType *type) {
    return type != nullptr ? vx::value::name_of(*type) : nullptr;
}

VX_API int ValueTypeKind(const ValueType *type) {
    return type != nullptr ? static_cast<int>(vx::value::kind_of(*type)) : -1;
}

VX_API const TextHint *TextHintBoolean(void) {
    return vx::value::boolean_hints();
}

VX_API size_t TextHintEncode(int value, const TextHint *hints, char *buf, size_t size) {
    return vx::value::hint_encode(value, hints, buf, size);
}

VX_API int TextHintDecode(const char *text, const TextHint *hints, int *value) {
    return vx::value::hint_decode(text, hints, value) ? 1 : 0;
}
}
