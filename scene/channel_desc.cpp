// Channel descriptions: the builder behind tag lists and typed channel lines.
#include "scene/channel_desc.h"

#include <cstring>

#include "foundation/failure.h"

namespace vx::cine {
namespace {

// Names of the usage codes, as TextHintEncode writes them.
constexpr TextHint kUsageHints[] = {
    {CINE_USAGE_NONE, "none"},
    {CINE_USAGE_PERCENT, "percent"},
    {CINE_USAGE_DISTANCE, "distance"},
    {CINE_USAGE_ANGLE, "angle"},
    {CINE_USAGE_TIME, "time"},
    {CINE_USAGE_COLOR, "color"},
    {0, nullptr},
};

const ValueType &type_for(int storage, const char *type_name) {
    const ValueType *type = value::lookup(storage, type_name);
    if (type == nullptr) fail(rc::not_found, "no value type of that name");
    return *type;
}

// Takes back everything appended since construction unless the scope completes.
class Rollback {
  public:
    explicit Rollback(ChannelList &list) noexcept : list_(list), size_(list.size()) {}
    ~Rollback() {
        if (armed_) list_.erase(list_.begin() + static_cast<std::ptrdiff_t>(size_), list_.end());
    }
    void done() noexcept { armed_ = false; }
    Rollback(const Rollback &) = delete;
    Rollback &operator=(const Rollback &) = delete;

  private:
    ChannelList &list_;
    std::size_t size_;
    bool armed_ = true;
};

}  // namespace

const TextHint *usage_hints() noexcept {
    return kUsageHints;
}

std::uint32_t vector_size(std::uint32_t mode) noexcept {
    switch (mode) {
        case CINE_VECTOR_SCALAR:
            return 1;
        case CINE_VECTOR_PAIR:
            return 2;
        case CINE_VECTOR_XYZ:
        case CINE_VECTOR_RGB:
            return 3;
        case CINE_VECTOR_RGBA:
            return 4;
        default:
            return 0;
    }
}

const char *vector_letters(std::uint32_t mode) noexcept {
    switch (mode) {
        case CINE_VECTOR_PAIR:
            return "UV";
        case CINE_VECTOR_XYZ:
            return "XYZ";
        case CINE_VECTOR_RGB:
            return "RGB";
        case CINE_VECTOR_RGBA:
            return "RGBA";
        default:
            return "";
    }
}

std::span<ChannelDesc> ChannelBuilder::current() {
    if (!open_) fail(rc::bad_argument, "a channel tag comes before any channel name");
    return std::span<ChannelDesc>(list_).subspan(start_);
}

void ChannelBuilder::begin(const char *name, int storage, const char *type_name) {
    ChannelDesc desc(type_for(storage, type_name));
    desc.name = name;
    desc.storage = storage;
    desc.vector_first = static_cast<std::uint32_t>(list_.size());
    desc.usage_text = "none";
    list_.push_back(std::move(desc));
    start_ = list_.size() - 1;
    open_ = true;
}

void ChannelBuilder::vector(std::uint32_t mode, const char *letters) {
    auto descs = current();
    if (descs.size() != 1 || descs[0].vector_mode != CINE_VECTOR_SCALAR) {
        fail(rc::bad_argument, "the channel is already a vector");
    }
    if (mode == CINE_VECTOR_SCALAR) return;
    std::uint32_t n = vector_size(mode);
    if (n == 0) fail(rc::bad_argument, "unknown vector mode");
    if (letters == nullptr) letters = vector_letters(mode);
    if (std::strlen(letters) < n) fail(rc::bad_argument, "too few component letters");

    ChannelDesc base = descs[0];
    base.vector_mode = mode;
    std::string stem = base.name;
    list_.pop_back();
    for (std::uint32_t i = 0; i < n; ++i) {
        ChannelDesc component = base;
        component.name = stem + '.' + letters[i];
        list_.push_back(std::move(component));
    }
}

void ChannelBuilder::extra_type(int storage, const char *type_name) {
    const ValueType &type = type_for(storage, type_name);
    for (auto &d : current()) d.extra_type = &type;
}

void ChannelBuilder::default_float(double value) {
    for (auto &d : current()) d.default_value.set_float(value);
}

void ChannelBuilder::default_int(std::int32_t value) {
    for (auto &d : current()) d.default_value.set_int(value);
}

void ChannelBuilder::usage(std::uint32_t code) {
    char text[32];
    value::hint_encode(static_cast<std::int32_t>(code), kUsageHints, text, sizeof text);
    for (auto &d : current()) {
        d.usage = code;
        d.usage_text = text;
    }
}

void ChannelBuilder::extra(void *descriptor) {
    for (auto &d : current()) d.extra = descriptor;
}

void ChannelBuilder::hints(const TextHint *table, std::uint32_t flag) {
    if (table == nullptr && flag == 1) table = value::boolean_hints();
    auto descs = current();
    if (table != nullptr && value::kind_of(*descs[0].value_type) != value::Kind::integer) {
        fail(rc::not_found, "only integer channels take hints");
    }
    for (auto &d : descs) d.hints = table;
}

void ChannelBuilder::internal() {
    for (auto &d : current()) d.internal = true;
}

void append_tags(ChannelList &list, std::va_list tags) {
    Rollback rollback(list);
    ChannelBuilder builder(list);
    for (;;) {
        unsigned int tag = va_arg(tags, unsigned int);
        switch (tag) {
            case CINE_CH_NAME: {
                const char *name = va_arg(tags, const char *);
                if (name == nullptr) {
                    rollback.done();
                    return;
                }
                int storage = va_arg(tags, int);
                const char *type_name = va_arg(tags, const char *);
                builder.begin(name, storage, type_name);
                break;
            }
            case CINE_CH_VECTOR: {
                unsigned int mode = va_arg(tags, unsigned int);
                builder.vector(mode, va_arg(tags, const char *));
                break;
            }
            case CINE_CH_EXOTYPE: {
                int storage = va_arg(tags, int);
                builder.extra_type(storage, va_arg(tags, const char *));
                break;
            }
            case CINE_CH_DEFAULT:
                builder.default_float(va_arg(tags, double));
                break;
            case CINE_CH_DEFAULT_INT:
                builder.default_int(va_arg(tags, int));
                break;
            case CINE_CH_USAGE:
                builder.usage(va_arg(tags, unsigned int));
                break;
            case CINE_CH_EXTRA:
                builder.extra(va_arg(tags, void *));
                break;
            case CINE_CH_HINTS: {
                const auto *table = va_arg(tags, const TextHint *);
                builder.hints(table, va_arg(tags, unsigned int));
                break;
            }
            case CINE_CH_INTERNAL:
                builder.internal();
                break;
            default:
                break;  // unknown tags carry no values we could skip
        }
    }
}

void append_lines(ChannelList &list, std::span<const ChannelLine> lines) {
    Rollback rollback(list);
    ChannelBuilder builder(list);
    for (const ChannelLine &line : lines) {
        builder.begin(line.name_, line.storage_, line.type_name_);
        builder.vector(line.vector_, nullptr);
        if (line.int_default_) {
            builder.default_int(line.int_value_);
        } else if (line.storage_ == VX_STORE_FLOAT) {
            builder.default_float(line.float_value_);
        }
        builder.usage(line.usage_);
        builder.hints(line.hints_, line.boolean_ ? 1u : 0u);
        if (line.internal_) builder.internal();
    }
    rollback.done();
}

}  // namespace vx::cine
