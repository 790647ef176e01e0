#include "scene_fixture.h"

#include <vexor/host.h>
#include <vexor/sys/item.h>
#include <vexor/undo.h>

#include "foundation/log.h"
#include "scene/cinema_module.h"

namespace vx::test {

unsigned int g_parent_answer = VX_OK;

namespace {

void hear(void *client, void *sender, std::uint32_t code, void *data) {
    static_cast<std::vector<Heard> *>(client)->push_back({code, sender, data});
}

void capture(void *client, int, const char *, const char *text) {
    static_cast<std::vector<std::string> *>(client)->push_back(text);
}

unsigned int test_parent(void *, CineItem *, CineItem *, int) {
    return g_parent_answer;
}

const CineItemPackageMethods kPickyMethods = {XOBJECT_METHODS_INIT, nullptr, test_parent};

void *make_picky(void *) {
    void *obj = nullptr;
    XObjectAllocate("tstPicky", &obj);
    return obj;
}

const char *const kNone = nullptr;

// A type whose package adds a float and an integer channel.
std::uint32_t define_type(const char *name, std::int32_t super, const char *first,
                          const char *second) {
    CinePackageDefine(name);
    EXPECT_EQ(CinePackageAddChannel(name, CINE_CH_NAME, first, VX_STORE_FLOAT, kNone, CINE_CH_NAME,
                                    second, VX_STORE_INT, kNone, CINE_CH_NAME, kNone),
              1);
    return CineDefineType(0, super, name);
}

}  // namespace

void PortLog::attach(Port *port) {
    detach();
    port_ = port;
    attachment_ = PortAttach(port, hear, &events, nullptr);
    ASSERT_NE(attachment_, 0u);
}

void PortLog::detach() {
    if (port_ != nullptr) PortDetach(port_, attachment_);
    port_ = nullptr;
}

std::size_t PortLog::count(std::uint32_t code) const {
    return data_of(code).size();
}

std::vector<void *> PortLog::data_of(std::uint32_t code) const {
    std::vector<void *> data;
    for (const Heard &heard : events) {
        if (heard.code == code) data.push_back(heard.data);
    }
    return data;
}

void SceneTest::SetUp() {
    UndoSysStartup();
    UndoSysClear();
    CinemaStartup();
    CinemaSetIndexStyle(0);
    g_parent_answer = VX_OK;
    // object: "weight", "visible" and the vector "pos"; light and mesh add two channels each.
    CinePackageDefine("tstObject");
    ASSERT_EQ(CinePackageAddChannel("tstObject", CINE_CH_NAME, "weight", VX_STORE_FLOAT, kNone,
                                    CINE_CH_NAME, "visible", VX_STORE_INT, kNone, CINE_CH_NAME,
                                    "pos", VX_STORE_FLOAT, kNone, CINE_CH_VECTOR, CINE_VECTOR_XYZ,
                                    kNone, CINE_CH_NAME, kNone),
              1);
    object = CineDefineType(0, 0, "tstObject");
    light = define_type("tstLight", static_cast<std::int32_t>(object), "intensity", "shadows");
    mesh = define_type("tstMesh", static_cast<std::int32_t>(object), "smooth", "level");
    CinePackageDefine("tstExtra");
    ASSERT_EQ(CinePackageAddChannel("tstExtra", CINE_CH_NAME, "e0", VX_STORE_FLOAT, kNone,
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
    HostServer *server = HostAddBuiltIn("package", "tstPicky", make_picky, nullptr);
    ServerAddTag(server, "super", ".");
    picky = CineLookupType("tstPicky");
    ASSERT_NE(light, CINE_TYPE_NONE);
    ASSERT_NE(picky, CINE_TYPE_NONE);
    scene = CinemaCreate(0);
    ASSERT_NE(scene, nullptr);
    UndoSysClear();
    db.attach(PortLookup("cinema-db"));
    own.attach(CinemaPort(scene));
    vx::log::set_sink(capture, &lines);
}

void SceneTest::TearDown() {
    vx::log::set_sink(nullptr, nullptr);
    db.detach();
    own.detach();
    UndoSysClear();
    // Every scene the test made, while the action module still runs.
    vx::cine::destroy_scenes_before_stop();
    CinemaShutdown();
    HostRemoveServer(HostLookupServer("package", "tstPicky"));
    UndoSysShutdown();
}

CineItem *named_item(Cinema *scene, std::uint32_t type, const char *name) {
    CineItem *item = CineItemCreate(scene, type);
    if (item != nullptr && name != nullptr) CineItemSetName(item, name);
    return item;
}

}  // namespace vx::test
