// Channel descriptions: the channels a package contributes to its items, and the two ways of
// writing them down: tag lists (the C form, read from variable arguments) and typed channel
// lines for the library's own modules.
#pragma once

#include <vexor/package.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "foundation/value_type.h"

namespace vx::cine {

// One channel of a package; a vector channel is one description per component.
struct ChannelDesc {
    explicit ChannelDesc(const ValueType &type) : value_type(&type), default_value(type) {}

    std::string name;
    int storage = VX_STORE_FLOAT;
    const ValueType *value_type;
    const ValueType *extra_type = nullptr;  // tag 3
    value::Value default_value;
    const TextHint *hints = nullptr;
    std::uint32_t usage = CINE_USAGE_NONE;
    std::string usage_text;  // the usage written out with the usage hints
    std::uint32_t vector_mode = CINE_VECTOR_SCALAR;
    std::uint32_t vector_first = 0;  // index in the package of the vector's first component
    bool internal = false;
    void *extra = nullptr;  // tag 7
    double min_hint = 0.0, max_hint = 0.0;
    bool has_min = false, has_max = false;
};

using ChannelList = std::vector<ChannelDesc>;

// The names of the usage codes ("none", "percent", "distance", "angle", "time", "color").
const TextHint *usage_hints() noexcept;

// Components of a vector mode: 1, 2, 3, 3, 4; 0 for an unknown mode.
std::uint32_t vector_size(std::uint32_t mode) noexcept;
// The component letters a mode uses unless told otherwise.
const char *vector_letters(std::uint32_t mode) noexcept;

// Appends channels to a list one tag at a time. The list keeps whatever has been appended; the
// callers (append_tags, append_lines) take everything back on a failure.
class ChannelBuilder {
  public:
    explicit ChannelBuilder(ChannelList &list) noexcept : list_(list) {}

    // Starts a channel. Raises rc::not_found for an unknown value type name.
    void begin(const char *name, int storage, const char *type_name);
    // Makes the current channel a vector. Raises rc::bad_argument for an unknown mode, too few
    // letters, or a channel that is already a vector.
    void vector(std::uint32_t mode, const char *letters);
    void extra_type(int storage, const char *type_name);
    void default_float(double value);
    void default_int(std::int32_t value);
    void usage(std::uint32_t code);
    void extra(void *descriptor);
    // A null table with flag 1 is the boolean table. Raises rc::not_found when a table is given
    // to a channel that is not an integer channel.
    void hints(const TextHint *table, std::uint32_t flag);
    void internal();

  private:
    // The descriptions of the current channel (one, or one per component); raises
    // rc::bad_argument when no channel has been started.
    std::span<ChannelDesc> current();

    ChannelList &list_;
    std::size_t start_ = 0;
    bool open_ = false;
};

// Decodes one tag list, ended by CINE_CH_NAME with a null name, onto the list. All or nothing.
void append_tags(ChannelList &list, std::va_list tags);

// ---- Typed channel lines --------------------------------------------------------------------
//
// The library's own packages describe their channels with tables of lines made by the
// functions below, so that storage, value type, hints and defaults always agree:
//
//     constexpr ChannelLine kLocatorChannels[] = {
//         vector_channel("pos", Vector::xyz).usage(CINE_USAGE_DISTANCE),
//         bool_channel("visible", true),
//         choice_channel("drawShape", kShapeHints, 0),
//     };
//     add_channels("locator", kLocatorChannels);

enum class Vector : std::uint32_t {
    pair = CINE_VECTOR_PAIR,
    xyz = CINE_VECTOR_XYZ,
    rgb = CINE_VECTOR_RGB,
    rgba = CINE_VECTOR_RGBA,
};
enum class ObjectKind { text, matrix, gradient, custom };

// One channel of a typed table. Lines are made only by the functions below, which keep
// storage, value type, hints and default in agreement; usage() and internal() refine a line.
class ChannelLine {
  public:
    constexpr ChannelLine usage(std::uint32_t code) const {
        ChannelLine line = *this;
        line.usage_ = code;
        return line;
    }
    constexpr ChannelLine internal() const {
        ChannelLine line = *this;
        line.internal_ = true;
        return line;
    }

    friend constexpr ChannelLine float_channel(const char *name, double value);
    friend constexpr ChannelLine int_channel(const char *name, std::int32_t value);
    friend constexpr ChannelLine bool_channel(const char *name, bool value);
    friend constexpr ChannelLine choice_channel(const char *name, const TextHint *choices,
                                                std::int32_t value);
    friend constexpr ChannelLine vector_channel(const char *name, Vector mode, double value);
    friend constexpr ChannelLine object_channel(const char *name, ObjectKind kind);
    friend void append_lines(ChannelList &list, std::span<const ChannelLine> lines);

  private:
    constexpr ChannelLine(const char *name, int storage, const char *type_name = nullptr)
        : name_(name), storage_(storage), type_name_(type_name) {}

    const char *name_;
    int storage_;
    const char *type_name_;
    std::uint32_t vector_ = CINE_VECTOR_SCALAR;
    bool int_default_ = false;
    double float_value_ = 0.0;
    std::int32_t int_value_ = 0;
    const TextHint *hints_ = nullptr;
    bool boolean_ = false;
    std::uint32_t usage_ = CINE_USAGE_NONE;
    bool internal_ = false;
};

constexpr ChannelLine float_channel(const char *name, double value = 0.0) {
    ChannelLine line(name, VX_STORE_FLOAT);
    line.float_value_ = value;
    return line;
}
constexpr ChannelLine int_channel(const char *name, std::int32_t value = 0) {
    ChannelLine line(name, VX_STORE_INT);
    line.int_default_ = true;
    line.int_value_ = value;
    return line;
}
// An integer channel shown as off and on.
constexpr ChannelLine bool_channel(const char *name, bool value = false) {
    ChannelLine line = int_channel(name, value ? 1 : 0);
    line.boolean_ = true;
    return line;
}
// An integer channel whose values are named by the hints (the choices of a popup).
constexpr ChannelLine choice_channel(const char *name, const TextHint *choices,
                                     std::int32_t value) {
    ChannelLine line = int_channel(name, value);
    line.hints_ = choices;
    return line;
}
// A floating vector channel: one channel per component, each with the default.
constexpr ChannelLine vector_channel(const char *name, Vector mode, double value = 0.0) {
    ChannelLine line = float_channel(name, value);
    line.vector_ = static_cast<std::uint32_t>(mode);
    return line;
}
// A channel whose value is text, a matrix or an object; it holds its type's default.
constexpr ChannelLine object_channel(const char *name, ObjectKind kind) {
    switch (kind) {
        case ObjectKind::text:
            return ChannelLine(name, VX_STORE_TEXT);
        case ObjectKind::matrix:
            return ChannelLine(name, VX_STORE_MATRIX);
        case ObjectKind::gradient:
            return ChannelLine(name, VX_STORE_OBJECT, "gradient");
        case ObjectKind::custom:
            break;
    }
    return ChannelLine(name, VX_STORE_OBJECT, "custom");
}

// Appends the lines onto the list. All or nothing.
void append_lines(ChannelList &list, std::span<const ChannelLine> lines);

}  // namespace vx::cine
