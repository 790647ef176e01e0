// Shared set-up for the scene and item tests: the scene module started with a small family of
// item types, a package that vets parents, and listeners on the scene ports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <vexor/cinema.h>
#include <vexor/host.h>
#include <vexor/package.h>
#include <vexor/port.h>
#include <vexor/scene.h>
#include <vexor/sys/item.h>
#include <vexor/undo.h>

#include "scene/cinema_module.h"
#include "support/log_lines.h"

namespace vx::test {

// Events heard on one port.
struct Heard {
    std::uint32_t code;
    void *sender;
    void *data;
};

class PortLog {
  public:
    PortLog() = default;
    ~PortLog() { detach(); }
    PortLog(const PortLog &) = delete;
    PortLog &operator=(const PortLog &) = delete;

    void attach(Port *port) {
        detach();
        port_ = port;
        attachment_ = PortAttach(
            port,
            [](void *client, void *sender, std::uint32_t code, void *data) {
                static_cast<std::vector<Heard> *>(client)->push_back({code, sender, data});
            },
            &events, nullptr);
        ASSERT_NE(attachment_, 0u);
    }
    void detach() {
        if (port_ != nullptr) PortDetach(port_, attachment_);
        port_ = nullptr;
    }
    // Events of that code heard so far.
    std::size_t count(std::uint32_t code) const { return data_of(code).size(); }
    std::vector<void *> data_of(std::uint32_t code) const {
        std::vector<void *> data;
        for (const Heard &heard : events) {
            if (heard.code == code) data.push_back(heard.data);
        }
        return data;
    }
    std::vector<Heard> events;

  private:
    Port *port_ = nullptr;
    std::uint64_t attachment_ = 0;
};

// What the package "tstPicky" answers when asked about a new parent of one of its items.
inline unsigned int g_parent_answer = VX_OK;

class SceneTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysClear();
        CinemaStartup();
        CinemaSetIndexStyle(0);
        g_parent_answer = VX_OK;
        // object: "weight", "visible" and the vector "pos"; light and mesh add two channels
        // each.
        CinePackageDefine("tstObject");
        ASSERT_EQ(CinePackageAddChannel("tstObject", CINE_CH_NAME, "weight", VX_STORE_FLOAT, kNone,
                                        CINE_CH_NAME, "visible", VX_STORE_INT, kNone, CINE_CH_NAME,
                                        "pos", VX_STORE_FLOAT, kNone, CINE_CH_VECTOR,
                                        CINE_VECTOR_XYZ, kNone, CINE_CH_NAME, kNone),
                  1);
        object = CineDefineType(0, 0, "tstObject");
        light = define_type("tstLight", object, "intensity", "shadows");
        mesh = define_type("tstMesh", object, "smooth", "level");
        CinePackageDefine("tstExtra");
        ASSERT_EQ(
            CinePackageAddChannel("tstExtra", CINE_CH_NAME, "e0", VX_STORE_FLOAT, kNone,
                                  CINE_CH_NAME, "e1", VX_STORE_FLOAT, kNone, CINE_CH_NAME, kNone),
            1);
        CinePackageDefine("tstMore");
        ASSERT_EQ(CinePackageAddChannel("tstMore", CINE_CH_NAME, "m0", VX_STORE_FLOAT, kNone,
                                        CINE_CH_NAME, kNone),
                  1);
        extra = CinePackageFind("tstExtra");
        more = CinePackageFind("tstMore");
        XObjectDefineClass("tstPicky", 0, nullptr);
        XObjectAddInterface("tstPicky", CINE_ITEM_PACKAGE_GUID, &kPickyMethods);
        HostServer *server = HostAddBuiltIn(
            "package", "tstPicky",
            [](void *) {
                void *obj = nullptr;
                XObjectAllocate("tstPicky", &obj);
                return obj;
            },
            nullptr);
        ServerAddTag(server, "super", ".");
        picky = CineLookupType("tstPicky");
        ASSERT_NE(light, CINE_TYPE_NONE);
        ASSERT_NE(picky, CINE_TYPE_NONE);
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        UndoSysClear();
        db.attach(PortLookup("cinema-db"));
        own.attach(CinemaPort(scene));
        capture_log(lines);
    }
    void TearDown() override {
        release_log();
        db.detach();
        own.detach();
        UndoSysClear();
        // Every scene the test made, while the action module still runs.
        vx::cine::destroy_scenes_before_stop();
        CinemaShutdown();
        HostRemoveServer(HostLookupServer("package", "tstPicky"));
        UndoSysShutdown();
    }

    // Type codes of the test types: object (root), light and mesh (both under object), picky
    // (a root type supplied by a host package server).
    std::uint32_t object = 0, light = 0, mesh = 0, picky = 0;
    CinePackage *extra = nullptr;    // add-on package with channels "e0", "e1"
    CinePackage *more = nullptr;     // add-on package with channel "m0"
    Cinema *scene = nullptr;         // made for each test
    PortLog db;                      // "cinema-db"
    PortLog own;                     // the scene's port
    std::vector<std::string> lines;  // log lines

  private:
    static constexpr const char *kNone = nullptr;
    static constexpr CineItemPackageMethods kPickyMethods = {
        XOBJECT_METHODS_INIT, nullptr,
        [](void *, CineItem *, CineItem *, int) { return g_parent_answer; }};

    // A type under `super` whose package adds a float and an integer channel.
    static std::uint32_t define_type(const char *name, std::uint32_t super, const char *first,
                                     const char *second) {
        CinePackageDefine(name);
        EXPECT_EQ(
            CinePackageAddChannel(name, CINE_CH_NAME, first, VX_STORE_FLOAT, kNone, CINE_CH_NAME,
                                  second, VX_STORE_INT, kNone, CINE_CH_NAME, kNone),
            1);
        return CineDefineType(0, static_cast<std::int32_t>(super), name);
    }
};

inline CineItem *named_item(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

}  // namespace vx::test
