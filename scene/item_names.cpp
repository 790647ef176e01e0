// Item names: own names, unique names with their index styles, and finding an item by text.
#include <vexor/scene.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/edit_frame.h"
#include "foundation/guard.h"
#include "foundation/log.h"
#include "scene/cinema_module.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::cine {
namespace {

// What goes before and after the index in each style: "%s (%d)", "%s(%d)", "%s %d", "%s_%d"
// and "%s%d".
constexpr struct {
    const char *before;
    const char *after;
} kStyles[] = {{" (", ")"}, {"(", ")"}, {" ", ""}, {"_", ""}, {"", ""}};
constexpr int kStyleCount = 5;

// A new own name; applying again swaps the old one back. The name index goes with the name,
// so a renamed item starts its numbering afresh and undo gives the old number back.
struct NameEdit {
    CineItem *item;
    Cinema *scene;
    std::uint64_t id;
    std::string name;
    bool has_name;
    std::uint32_t name_index;

    void apply(int) {
        if (!scene_alive(scene, id)) return;
        std::swap(item->name, name);
        std::swap(item->has_name, has_name);
        std::swap(item->name_index, name_index);
        invalidate_name(*item);
        send_event(*scene, CINE_EVENT_ITEM_CHANGED, item);
    }
};

// The name the item goes by before it is told apart: its own, or what its package makes up.
std::string base_name(CineItem &item) {
    if (item.has_name) return item.name;
    CineSynthNameFunc synth = nullptr;
    if (const PackageDef *def = definition_of(*item.type)) synth = def->synth_name;
    if (synth == nullptr && started()) synth = registry().default_synth;
    if (synth != nullptr) {
        std::string made;
        synth(&item, &made);
        if (!made.empty()) return made;
    }
    return item.type->name;
}

bool is_hexadecimal(const char *text) noexcept {
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    if (*text == '\0') return false;
    for (; *text != '\0'; ++text) {
        if (std::isxdigit(static_cast<unsigned char>(*text)) == 0) return false;
    }
    return true;
}

// "<package>[n]": the n-th item (from 0) of the package's type and its subtypes, in the order
// of the scene's type lists.
CineItem *item_by_type_index(Cinema &scene, const char *text) {
    const std::size_t split = std::strcspn(text, "[/{_.: ");
    if (text[split] != '[') return nullptr;
    std::string package(text, split);
    CinePackage *pkg = find_package(package.c_str());
    if (pkg == nullptr) return nullptr;
    std::uint32_t type = resolve(*pkg);
    if (type < 1 || type == CINE_TYPE_NONE) return nullptr;
    const char *digits = text + split + 1;
    if (std::isdigit(static_cast<unsigned char>(*digits)) == 0) return nullptr;
    unsigned long long n = std::strtoull(digits, nullptr, 10);
    for (const TypeItems &list : scene.item_lists) {
        if (list.items.empty() || !test_type(*list.items.front(), type)) continue;
        if (n < list.items.size()) return list.items[static_cast<std::size_t>(n)];
        n -= list.items.size();
    }
    return nullptr;
}

}  // namespace

std::string format_index(const char *base, std::uint32_t index) {
    int style = module_started() ? scenes().index_style : 0;
    std::string text = base;
    text += kStyles[style].before;
    char digits[16];
    std::snprintf(digits, sizeof digits, "%u", index);
    text += digits;
    text += kStyles[style].after;
    return text;
}

void set_name(CineItem &item, const char *name) {
    Cinema &scene = *item.scene;
    SceneEdit frame(scene);
    std::string text = name != nullptr ? name : "";
    edit_pending<NameEdit>(1, &item, &scene, scene.id, std::move(text), name != nullptr, kNoIndex);
}

void invalidate_name(CineItem &item) noexcept {
    if (!item.has_unique) return;
    Cinema &scene = *item.scene;
    auto it = scene.by_unique.find(item.unique);
    if (it != scene.by_unique.end() && it->second == &item) scene.by_unique.erase(it);
    item.has_unique = false;
    item.unique.clear();
    scene.names_built = false;
    send_event(scene, CINE_EVENT_ITEM_NAME, &item);
}

const std::string &unique_name(CineItem &item) {
    if (item.has_unique) return item.unique;
    Cinema &scene = *item.scene;
    const std::string base = base_name(item);
    std::string chosen;
    if (item.name_index != kNoIndex) {
        chosen = item.name_index == 1 ? base : format_index(base.c_str(), item.name_index);
        if (scene.by_unique.contains(chosen)) {
            item.name_index = kNoIndex;
            chosen.clear();
        }
    }
    std::uint32_t index = item.name_index;
    for (std::uint32_t n = 1; index == kNoIndex; ++n) {
        chosen = n == 1 ? base : format_index(base.c_str(), n);
        if (!scene.by_unique.contains(chosen)) index = n;
    }
    // Only items in their scene take a place in the table of names.
    if (item.in_scene) scene.by_unique.emplace(chosen, &item);
    item.name_index = index;
    item.unique = std::move(chosen);
    item.has_unique = item.in_scene;
    return item.unique;
}

CineItem *lookup_item(Cinema &scene, const char *text) {
    if (text == nullptr) return nullptr;
    auto ident = scene.by_ident.find(text);
    if (ident != scene.by_ident.end()) return ident->second;
    if (!scene.names_built) {
        for (TypeItems &list : scene.item_lists) {
            for (CineItem *item : list.items) unique_name(*item);
        }
        scene.names_built = true;
    }
    auto unique = scene.by_unique.find(text);
    if (unique != scene.by_unique.end()) return unique->second;
    if (is_hexadecimal(text)) {
        VX_FAIL_LINE("legacy numeric item code ignored:", text);
        return nullptr;
    }
    return item_by_type_index(scene, text);
}

void set_index_style(int style) {
    SceneModule &s = scenes();
    if (style < 0 || style >= kStyleCount) fail(rc::bad_argument, "no such index style");
    s.index_style = style;
    for (Cinema *scene : s.alive) {
        for (TypeItems &list : scene->item_lists) {
            for (CineItem *item : list.items) {
                if (!item->has_unique) continue;
                if (!s.names_locked) {
                    scene->by_unique.erase(item->unique);
                    item->unique.clear();
                    item->has_unique = false;
                    scene->names_built = false;
                }
                send_event(*scene, CINE_EVENT_ITEM_NAME, item);
            }
        }
    }
}

}  // namespace vx::cine

extern "C" VX_API void CineNameBufferSet(void *buffer, const char *text) {
    vx::guard([&] {
        if (buffer != nullptr) *static_cast<std::string *>(buffer) = text != nullptr ? text : "";
    });
}
