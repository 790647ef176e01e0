// Value types: the kinds of value a channel holds, with their defaults, conversion between
// them and export as text.
//
// The types are a fixed process-wide table: "float", "integer", "string", "matrix4" and the
// object kinds "gradient" and "custom", whose values are opaque object pointers owned by
// whoever sets them. Looking a type up needs no start-up and never allocates.
//
// Text hints map integer values to names (the choices of a popup, "off"/"on"): a table of
// (value, text) pairs ending with a null text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

struct ValueType;  // opaque in the C interface
struct TextHint;   // declared in the C interface

namespace vx::value {

enum class Kind : int { floating = 0, integer = 1, text = 2, matrix = 3, object = 4 };

// Storage codes of channels: 1 is an integer channel, 2 a text channel, 3 a matrix channel,
// 4 an object channel; every other code (0 among them) is a floating channel.
Kind kind_of_storage(int storage) noexcept;

// The type of that name, or null.
const ValueType *find(const char *name) noexcept;
// The type named, or when the name is null the plain type of the storage code.
const ValueType *lookup(int storage, const char *name) noexcept;
// The plain type of a kind ("float", "integer", "string", "matrix4", "custom").
const ValueType &of_kind(Kind kind) noexcept;
const char *name_of(const ValueType &type) noexcept;
Kind kind_of(const ValueType &type) noexcept;

using Matrix4 = std::array<double, 16>;

// One value of a type. A new value holds its type's default: 0, 0, "", the identity matrix, or
// no object.
class Value {
  public:
    explicit Value(const ValueType &type) noexcept : type_(&type) { reset(); }
    const ValueType &type() const noexcept { return *type_; }
    void reset() noexcept;

    // Setters convert to the value's kind: a floating value given to an integer is rounded to
    // the nearest; numbers given to a text are written out; a text given to a number is read
    // (empty or unreadable text is 0). Matrices and objects take only their own kind; anything
    // else raises rc::type_mismatch. The text setter may raise std::bad_alloc.
    void set_float(double v);
    void set_int(std::int32_t v);
    void set_text(const char *v);
    void set_matrix(const Matrix4 &m);
    void set_object(void *object);

    // Readers convert from the value's kind in the same way; a matrix or object read as a
    // number or text raises rc::type_mismatch.
    double get_float() const;
    std::int32_t get_int() const;
    const Matrix4 &get_matrix() const;
    void *get_object() const;

    // Writes the value as text (numbers in shortest round-trip form; a matrix as 16 numbers
    // separated by blanks, row by row; an object as "object" or "none") into the buffer, cut to
    // fit and always terminated. Returns the length of the whole text.
    std::size_t export_text(char *buffer, std::size_t size) const noexcept;

    // Where C code reads the value in place: the number as a double for floating and integer
    // values, the terminated text, the 16 doubles of a matrix, or the object itself.
    const void *address() const noexcept {
        switch (kind_of(*type_)) {
            case Kind::floating:
            case Kind::integer:
                return &number_;
            case Kind::text:
                return text_.c_str();
            case Kind::matrix:
                return matrix_.data();
            case Kind::object:
                return object_;
        }
        return nullptr;
    }

  private:
    const ValueType *type_;
    double number_ = 0.0;  // floating and integer kinds
    std::string text_;
    Matrix4 matrix_{};
    void *object_ = nullptr;
};

// The table "off" (0), "on" (1).
const TextHint *boolean_hints() noexcept;
// Writes the text of a value: the hint's text when the table names the value, otherwise the
// value in decimal. Cut to fit the buffer and always terminated (when size > 0). Returns the
// length of the whole text.
std::size_t hint_encode(std::int32_t value, const TextHint *hints, char *buffer,
                        std::size_t size) noexcept;
// The value named by a text: a hint's text (exact), or a decimal number. Returns false when
// the text is neither.
bool hint_decode(const char *text, const TextHint *hints, std::int32_t *value) noexcept;

}  // namespace vx::value
