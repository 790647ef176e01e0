// The scene module's start and stop.
//
// Start, in order: the registry of servers, the GUID aliases, the global port "cinema-db", the
// package and type registry, the component classes of scenes and items, the scene state with its
// default graphs "parent" and "source", and the scene saver and loader "$Cinema". Value types are a
// fixed table and need no start. Stop runs the steps in reverse, destroying any scene the host
// left behind first.
#include "scene/cinema_module.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

#include "foundation/component.h"
#include "foundation/failure.h"
#include "foundation/port.h"
#include "foundation/registry.h"
#include "scene/package_registry.h"
#include "scene/scene.h"
#include "scene/scene_io.h"
#include "scene/scene_objects.h"

namespace vx::cine {
namespace {

constexpr const char *kFileClass = "$Cinema";
constexpr const char *kUserName = "Vexor Scene";

struct Module {
    unsigned starts = 0;
    // The host's main thread: the one whose start brought the module up.
    std::atomic<std::thread::id> main_thread{};
    Port *port = nullptr;
    std::unique_ptr<SceneModule> scenes;
};

Module &module() noexcept {
    static Module m;
    return m;
}

// Both servers make the same kind of object, which can save and load.
void register_file_servers(SceneModule &s) {
    io::define_file_class();
    s.saver = host::add_built_in("saver", kFileClass, io::make_file_object, nullptr);
    host::add_tag(s.saver, "server.username", kUserName);
    host::add_tag(s.saver, "saver.outClass", "scene");
    host::add_tag(s.saver, "saver.dosType", "vxr");
    s.loader = host::add_built_in("loader", kFileClass, io::make_file_object, nullptr);
    host::add_tag(s.loader, "server.username", kUserName);
    host::add_tag(s.loader, "loader.classList", "scene");
    host::add_tag(s.loader, "loader.dosPattern", "*.vxr");
}

void drop_file_servers(SceneModule &s) noexcept {
    if (s.saver != nullptr) host::remove(s.saver);
    if (s.loader != nullptr) host::remove(s.loader);
    s.saver = s.loader = nullptr;
}

}  // namespace

void start_module() {
    Module &m = module();
    if (m.starts > 0) {
        ++m.starts;
        return;
    }
    host::start();
    OnFailure stop_host([] { host::stop(); });
    // Interfaces of packages, scenes and package instances may be named by these words.
    com::add_guid_alias("package", "{6383211E-2624-492E-8C4B-D06BB43886A7}");
    com::add_guid_alias("scene", "{4340A8FC-F984-4E04-A4BB-83931A6335AF}");
    com::add_guid_alias("packageInstance", "{09D603F7-CCF6-4A5C-B41C-021AC6C17A94}");
    m.port = vx::PortCreate("cinema-db");
    OnFailure drop_port([&] {
        vx::PortDestroy(m.port);
        m.port = nullptr;
    });
    start_packages();
    OnFailure drop_packages([] { stop_packages(); });
    define_scene_classes();
    m.scenes = std::make_unique<SceneModule>();
    OnFailure drop_scenes([&] {
        drop_file_servers(*m.scenes);
        m.scenes.reset();
    });
    m.scenes->graphs.push_back({"parent", 1});
    m.scenes->graphs.push_back({"source", 1});
    register_file_servers(*m.scenes);
    m.main_thread.store(std::this_thread::get_id());
    m.starts = 1;
}

void stop_module() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    while (!m.scenes->alive.empty()) destroy_scene(m.scenes->alive.back());
    drop_file_servers(*m.scenes);
    m.scenes.reset();
    stop_packages();
    vx::PortDestroy(m.port);
    m.port = nullptr;
    m.main_thread.store(std::thread::id{});
    host::stop();
}

void destroy_scenes_before_stop() noexcept {
    Module &m = module();
    if (m.starts != 1) return;
    while (!m.scenes->alive.empty()) destroy_scene(m.scenes->alive.back());
}

Port *database_port() noexcept {
    return module().port;
}

SceneModule &scenes() {
    Module &m = module();
    if (!m.scenes) fail(rc::refused, "the scene module is not started");
    return *m.scenes;
}

bool on_main_thread() noexcept {
    return module().main_thread.load() == std::this_thread::get_id();
}

bool module_started() noexcept {
    return module().scenes != nullptr;
}

}  // namespace vx::cine
