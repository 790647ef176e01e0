// Value types: the fixed table of kinds, values with conversion, and text hints.
#include "foundation/value_type.h"

#include <vexor/value.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/failure.h"

struct ValueType {
    const char *name;
    vx::value::Kind kind;
};

namespace vx::value {
namespace {

using K = Kind;
// The plain types come first, one per kind, in the order of Kind.
constexpr ValueType kTypes[] = {
    {"float", K::floating}, {"integer", K::integer}, {"string", K::text},
    {"matrix4", K::matrix}, {"custom", K::object},   {"gradient", K::object},
};

constexpr TextHint kBoolean[] = {{0, "off"}, {1, "on"}, {0, nullptr}};

[[noreturn]] void mismatch() {
    fail(rc::type_mismatch, "the value is of another kind");
}

std::int32_t round_to_int(double v) noexcept {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<std::int32_t>(std::lround(v));
}

double read_number(const std::string &text) noexcept {
    double v = 0.0;
    const char *first = text.c_str();
    while (*first == ' ') ++first;
    auto result = std::from_chars(first, text.c_str() + text.size(), v);
    return result.ec == std::errc() ? v : 0.0;
}

// Appends a number in shortest round-trip form; returns the characters it needs.
std::size_t put_number(double v, char *out, std::size_t room) noexcept {
    char digits[32];
    auto result = std::to_chars(digits, digits + sizeof digits, v);
    auto n = static_cast<std::size_t>(result.ptr - digits);
    if (room > 0) std::memcpy(out, digits, n < room ? n : room);
    return n;
}

// Copies a text into the buffer, cut and terminated; returns its whole length.
std::size_t put_text(const char *text, std::size_t length, char *buffer,
                     std::size_t size) noexcept {
    if (buffer != nullptr && size > 0) {
        std::size_t n = length < size - 1 ? length : size - 1;
        std::memcpy(buffer, text, n);
        buffer[n] = '\0';
    }
    return length;
}

}  // namespace

Kind kind_of_storage(int storage) noexcept {
    switch (storage) {
        case VX_STORE_INT:
            return K::integer;
        case VX_STORE_TEXT:
            return K::text;
        case VX_STORE_MATRIX:
            return K::matrix;
        case VX_STORE_OBJECT:
            return K::object;
        default:
            return K::floating;
    }
}

const ValueType *find(const char *name) noexcept {
    if (name == nullptr) return nullptr;
    for (const ValueType &t : kTypes) {
        if (std::strcmp(t.name, name) == 0) return &t;
    }
    return nullptr;
}

const ValueType *lookup(int storage, const char *name) noexcept {
    return name != nullptr ? find(name) : &of_kind(kind_of_storage(storage));
}

const ValueType &of_kind(Kind kind) noexcept {
    return kTypes[static_cast<int>(kind)];
}

const char *name_of(const ValueType &type) noexcept {
    return type.name;
}

Kind kind_of(const ValueType &type) noexcept {
    return type.kind;
}

void Value::reset() noexcept {
    number_ = 0.0;
    text_.clear();
    matrix_ = {};
    for (std::size_t i = 0; i < 16; i += 5) matrix_[i] = 1.0;
    object_ = nullptr;
}

void Value::set_float(double v) {
    switch (type_->kind) {
        case K::floating:
            number_ = v;
            return;
        case K::integer:
            number_ = round_to_int(v);
            return;
        case K::text: {
            char buf[40];
            std::size_t n = put_number(v, buf, sizeof buf);
            text_.assign(buf, n);
            return;
        }
        default:
            mismatch();
    }
}

void Value::set_int(std::int32_t v) {
    if (type_->kind == K::text) {
        char digits[16];
        int n = std::snprintf(digits, sizeof digits, "%d", static_cast<int>(v));
        text_.assign(digits, static_cast<std::size_t>(n));
        return;
    }
    if (type_->kind != K::floating && type_->kind != K::integer) mismatch();
    number_ = v;
}

void Value::set_text(const char *v) {
    const char *text = v != nullptr ? v : "";
    switch (type_->kind) {
        case K::text:
            text_ = text;
            return;
        case K::floating:
            number_ = read_number(text);
            return;
        case K::integer:
            number_ = round_to_int(read_number(text));
            return;
        default:
            mismatch();
    }
}

void Value::set_matrix(const Matrix4 &m) {
    if (type_->kind != K::matrix) mismatch();
    matrix_ = m;
}

void Value::set_object(void *object) {
    if (type_->kind != K::object) mismatch();
    object_ = object;
}

double Value::get_float() const {
    switch (type_->kind) {
        case K::floating:
        case K::integer:
            return number_;
        case K::text:
            return read_number(text_);
        default:
            mismatch();
    }
}

std::int32_t Value::get_int() const {
    return round_to_int(get_float());
}

const Matrix4 &Value::get_matrix() const {
    if (type_->kind != K::matrix) mismatch();
    return matrix_;
}

void *Value::get_object() const {
    if (type_->kind != K::object) mismatch();
    return object_;
}

std::size_t Value::export_text(char *buffer, std::size_t size) const noexcept {
    char text[16 * 32];
    std::size_t n = 0;
    switch (type_->kind) {
        case K::floating:
        case K::integer:
            n = put_number(number_, text, sizeof text);
            break;
        case K::text:
            return put_text(text_.c_str(), text_.size(), buffer, size);
        case K::matrix:
            for (std::size_t i = 0; i < 16; ++i) {
                if (i > 0) text[n++] = ' ';
                n += put_number(matrix_[i], text + n, sizeof text - n);
            }
            break;
        case K::object: {
            const char *word = object_ != nullptr ? "object" : "none";
            return put_text(word, std::strlen(word), buffer, size);
        }
    }
    return put_text(text, n, buffer, size);
}

const TextHint *boolean_hints() noexcept {
    return kBoolean;
}

std::size_t hint_encode(std::int32_t value, const TextHint *hints, char *buffer,
                        std::size_t size) noexcept {
    for (const TextHint *h = hints; h != nullptr && h->text != nullptr; ++h) {
        if (h->value == value) return put_text(h->text, std::strlen(h->text), buffer, size);
    }
    // Integer to_chars is avoided here: its digit tables would be exported from the library.
    char digits[16];
    int n = std::snprintf(digits, sizeof digits, "%d", static_cast<int>(value));
    return put_text(digits, static_cast<std::size_t>(n), buffer, size);
}

bool hint_decode(const char *text, const TextHint *hints, std::int32_t *value) noexcept {
    if (text == nullptr || value == nullptr) return false;
    for (const TextHint *h = hints; h != nullptr && h->text != nullptr; ++h) {
        if (std::strcmp(h->text, text) == 0) {
            *value = h->value;
            return true;
        }
    }
    if (*text == '\0' || std::isspace(static_cast<unsigned char>(*text))) return false;
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(text, &end, 10);
    if (*end != '\0' || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
    *value = static_cast<std::int32_t>(v);
    return true;
}

}  // namespace vx::value
