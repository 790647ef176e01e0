// Output file names of render outputs: the pattern a render item holds, and its expansion into a
// name for a pass, output, eye and frame.
#include <vexor/render_job.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "eval/action_access.h"
#include "foundation/guard.h"

namespace vx::render {

namespace {

// The text of a field at the start of `rest` ("<pass>", "<FFFF>", ...), written into `value`;
// false when `rest` starts with no field. `length` is the field's length in the pattern.
bool field(std::string_view rest, const RenderOutputNameFields &f, std::string &value,
           std::size_t &length) {
    const std::size_t close = rest.find('>');
    if (rest.empty() || rest[0] != '<' || close == std::string_view::npos) return false;
    const std::string_view name = rest.substr(1, close - 1);
    length = close + 1;
    if (name == "pass") {
        value = f.pass != nullptr ? f.pass : "";
    } else if (name == "output") {
        value = f.output != nullptr ? f.output : "";
    } else if (name == "LR") {
        value.clear();
        if (f.eye == 1 || f.eye == 2) value += f.eye == 1 ? 'L' : 'R';
    } else if (!name.empty() && name.find_first_not_of('F') == std::string_view::npos) {
        const long long frame = f.frame;
        const unsigned long long magnitude = frame < 0
                                                 ? 0ull - static_cast<unsigned long long>(frame)
                                                 : static_cast<unsigned long long>(frame);
        char text[24];
        std::snprintf(text, sizeof text, "%llu", magnitude);
        std::string digits = text;
        if (digits.size() < name.size()) digits.insert(0, name.size() - digits.size(), '0');
        value = (frame < 0 ? "-" : "") + digits;
    } else {
        return false;
    }
    return true;
}

// Expands `text` (no brackets in it) onto `out`; false when a field in it was empty.
bool expand(std::string_view text, const RenderOutputNameFields &f, std::string &out) {
    bool all_set = true;
    std::string value;
    while (!text.empty()) {
        std::size_t length = 0;
        if (field(text, f, value, length)) {
            all_set = all_set && !value.empty();
            out += value;
            text.remove_prefix(length);
        } else {
            out += text[0];
            text.remove_prefix(1);
        }
    }
    return all_set;
}

std::string expand_pattern(std::string_view pattern, const RenderOutputNameFields &f) {
    std::string name;
    while (!pattern.empty()) {
        const std::size_t open = pattern.find('[');
        const std::size_t close =
            open == std::string_view::npos ? open : pattern.find(']', open + 1);
        const std::size_t nested =
            close == std::string_view::npos ? close : pattern.find('[', open + 1);
        if (close == std::string_view::npos) {
            expand(pattern, f, name);
            break;
        }
        if (nested < close) {
            // "[a[b]": the first bracket has no partner of its own and is text.
            expand(pattern.substr(0, nested), f, name);
            pattern.remove_prefix(nested);
            continue;
        }
        expand(pattern.substr(0, open), f, name);
        std::string part;
        if (expand(pattern.substr(open + 1, close - open - 1), f, part)) name += part;
        pattern.remove_prefix(close + 1);
    }
    return name;
}

}  // namespace

}  // namespace vx::render

extern "C" {

VX_API const char *RenderGetOutputPattern(CineItem *item, CineAction *action) {
    thread_local std::string pattern;
    return vx::guard(RENDER_OUTPUT_PATTERN_DEFAULT, [&]() -> const char * {
        const int channel = CineItemLookupChannel(item, RENDER_OUTPUT_PATTERN_CHANNEL);
        if (channel < 0) return RENDER_OUTPUT_PATTERN_DEFAULT;
        const vx::act::ValueSource source =
            vx::act::find_value(action, *item, static_cast<std::uint32_t>(channel));
        if (source.constant == nullptr) return RENDER_OUTPUT_PATTERN_DEFAULT;
        const std::size_t length = source.constant->export_text(nullptr, 0);
        if (length == 0) return RENDER_OUTPUT_PATTERN_DEFAULT;
        pattern.resize(length);
        source.constant->export_text(pattern.data(), length + 1);
        return pattern.c_str();
    });
}

VX_API size_t RenderExpandOutputPattern(const char *pattern, const RenderOutputNameFields *fields,
                                        char *buffer, size_t size) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
    if (fields == nullptr) return 0;
    return vx::guard(std::size_t{0}, [&] {
        const std::string name = vx::render::expand_pattern(
            pattern != nullptr ? pattern : RENDER_OUTPUT_PATTERN_DEFAULT, *fields);
        if (buffer != nullptr && size > 0) {
            const std::size_t n = std::min(name.size(), size - 1);
            std::memcpy(buffer, name.data(), n);
            buffer[n] = '\0';
        }
        return name.size();
    });
}

}  // extern "C"
