// The C interface of scenes: creation and the scene list, change counters, index styles and
// graphs.
#include <vexor/scene.h>
#include <vexor/sys/item.h>

#include <cstring>

#include "foundation/guard.h"
#include "foundation/link_graph.h"
#include "scene/cinema_module.h"
#include "scene/scene.h"

using namespace vx::cine;

extern "C" {

VX_API Cinema *CinemaCreate(uint32_t flags) {
    return vx::guard<Cinema *>(nullptr, [&] { return create_scene(flags); });
}

VX_API void CinemaDestroy(Cinema *scene) {
    destroy_scene(scene);
}

VX_API uint32_t CinemaIndex(const Cinema *scene) {
    return scene_index(scene);
}

VX_API uint32_t CinemaCount(void) {
    return module_started() ? static_cast<uint32_t>(scenes().scenes.size()) : 0;
}

VX_API Cinema *CinemaByIndex(uint32_t index) {
    if (!module_started() || index >= scenes().scenes.size()) return nullptr;
    return scenes().scenes[index];
}

VX_API uint32_t CinemaFlags(const Cinema *scene) {
    return scene != nullptr ? scene->flags : 0;
}

VX_API Port *CinemaPort(Cinema *scene) {
    return scene != nullptr ? scene->port : nullptr;
}

VX_API void *CinemaObject(Cinema *scene) {
    return scene != nullptr ? scene->object : nullptr;
}

VX_API uint32_t CinemaUntitledIndex(const Cinema *scene) {
    return scene != nullptr ? scene->untitled : 0;
}

VX_API const char *CinemaFileName(const Cinema *scene) {
    return scene != nullptr ? scene->file.c_str() : nullptr;
}

VX_API int CinemaSetFileName(Cinema *scene, const char *name) {
    return vx::guard(0, [&] {
        if (scene == nullptr) return 0;
        scene->file = name != nullptr ? name : "";
        return 1;
    });
}

VX_API void CinemaDefineStrings(const char *untitled) {
    vx::guard([&] { scenes().untitled = untitled != nullptr ? untitled : kUntitled; });
}

VX_API const char *CinemaUntitledText(void) {
    return module_started() ? scenes().untitled.c_str() : kUntitled;
}

VX_API void CinemaSetQuiet(Cinema *scene, int quiet) {
    if (scene != nullptr) scene->quiet = quiet != 0;
}

VX_API void CinemaBatchBegin(Cinema *scene) {
    vx::guard([&] {
        if (scene == nullptr) return;
        reserve_change_mark(*scene);
        send_event(*scene, CINE_EVENT_BATCH_BEGIN, scene);
    });
}

VX_API void CinemaBatchEnd(Cinema *scene) {
    if (scene != nullptr && scene->batch_depth > 0) {
        send_event(*scene, CINE_EVENT_BATCH_END, scene);
    }
}

VX_API int CinemaBatchDepth(const Cinema *scene) {
    return scene != nullptr ? scene->batch_depth : 0;
}

VX_API void CinemaChanged(Cinema *scene, int flag) {
    vx::guard([&] {
        if (scene != nullptr) set_changed(*scene, flag);
    });
}

VX_API uint32_t CinemaHasChanged(Cinema *scene) {
    return scene != nullptr ? has_changed(*scene) : 0;
}

VX_API uint32_t CinemaAbsoluteChanges(Cinema *scene) {
    return scene != nullptr ? absolute_changes(*scene) : 0;
}

VX_API void CinemaSetIndexStyle(int style) {
    vx::guard([&] { set_index_style(style); });
}

VX_API int CinemaIndexStyle(void) {
    return module_started() ? scenes().index_style : 0;
}

VX_API char *CinemaAppendIndex(const char *base, int index, char *buffer, unsigned int size) {
    if (buffer == nullptr || size == 0) return nullptr;
    buffer[0] = '\0';
    return vx::guard<char *>(buffer, [&] {
        std::string text =
            format_index(base != nullptr ? base : "", static_cast<std::uint32_t>(index));
        std::size_t n = std::min<std::size_t>(text.size(), size - 1);
        std::memcpy(buffer, text.data(), n);
        buffer[n] = '\0';
        return buffer;
    });
}

VX_API int CinemaGraphDefault(const char *name, uint32_t kind) {
    return vx::guard(0, [&] {
        define_graph(name, kind);
        return 1;
    });
}

VX_API LinkGraph *CinemaGraphLookup(Cinema *scene, const char *name) {
    return scene != nullptr ? graph_named(*scene, name) : nullptr;
}

VX_API const char *CinemaGraphName(const LinkGraph *graph) {
    return graph != nullptr ? graph->name.c_str() : nullptr;
}
}
