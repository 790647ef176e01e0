// The registry of servers through the C interface: registration by class and name, tags,
// enumeration, watchers of a class, server objects from factories, and the reference-counted
// start and stop.
#include "foundation/foundation_fixture.h"

#include <vexor/host.h>

namespace {

// Each test runs with the registry started once and leaves it stopped, so nothing carries over.
class Registry : public ::testing::Test {
  protected:
    void SetUp() override { HostStartup(); }
    void TearDown() override { HostShutdown(); }
};

int g_made = 0;
void *make_counted(void *data) {
    ++g_made;
    return data;
}
void *make_nothing(void *) {
    return nullptr;
}

struct Heard {
    std::vector<std::string> names;
};
void hear(void *client, HostServer *server) {
    static_cast<Heard *>(client)->names.push_back(ServerName(server));
    // A watcher may tag the server it hears about.
    ServerAddTag(server, "seen", "yes");
}

TEST_F(Registry, ServersAreFoundByClassAndNameOnlyAndEnumerateInOrderOfRegistration) {
    HostServer *a = HostAddBuiltIn("package", "alpha", nullptr, nullptr);
    HostServer *b = HostAddBuiltIn("saver", "alpha", nullptr, nullptr);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    EXPECT_EQ(HostLookupServer("package", "alpha"), a);
    EXPECT_EQ(HostLookupServer("saver", "alpha"), b);
    EXPECT_EQ(HostLookupServer("package", "Alpha"), nullptr);
    EXPECT_EQ(HostLookupServer("loader", "alpha"), nullptr);
    EXPECT_EQ(HostLookupServer(nullptr, "alpha"), nullptr);
    EXPECT_STREQ(ServerClass(b), "saver");
    EXPECT_STREQ(ServerName(b), "alpha");
    EXPECT_EQ(HostAddBuiltIn("", "x", nullptr, nullptr), nullptr);
    EXPECT_EQ(HostAddBuiltIn("package", nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);

    // A class enumerates in order of registration, and a removal closes the gap.
    HostAddBuiltIn("loader", "b", nullptr, nullptr);
    HostAddBuiltIn("saver", "s", nullptr, nullptr);
    HostAddBuiltIn("loader", "a", nullptr, nullptr);
    HostAddBuiltIn("loader", "c", nullptr, nullptr);
    ASSERT_EQ(HostServerCount("loader"), 3u);
    EXPECT_STREQ(ServerName(HostServerByIndex("loader", 0)), "b");
    EXPECT_STREQ(ServerName(HostServerByIndex("loader", 1)), "a");
    EXPECT_STREQ(ServerName(HostServerByIndex("loader", 2)), "c");
    EXPECT_EQ(HostServerByIndex("loader", 3), nullptr);
    EXPECT_EQ(HostServerCount("mover"), 0u);

    ASSERT_EQ(HostRemoveServer(HostLookupServer("loader", "a")), 1);
    EXPECT_EQ(HostServerCount("loader"), 2u);
    EXPECT_STREQ(ServerName(HostServerByIndex("loader", 1)), "c");
    EXPECT_EQ(HostLookupServer("loader", "a"), nullptr);
}

TEST_F(Registry, TagsAreReplacedAndKeptWhenRegisteringAgainWhichReplacesTheFactory) {
    HostServer *s = HostAddBuiltIn("package", "locator", nullptr, nullptr);
    EXPECT_EQ(ServerGetInfoTag(s, "super"), nullptr);
    ASSERT_EQ(HostAddTag("package", "locator", "super", "."), 1);
    const char *before = ServerGetInfoTag(s, "super");
    ASSERT_EQ(ServerAddTag(s, "super", "item"), 1);
    EXPECT_STREQ(ServerGetInfoTag(s, "super"), "item");
    EXPECT_STREQ(before, ".");
    EXPECT_EQ(ServerAddTag(s, "empty", nullptr), 1);
    EXPECT_STREQ(ServerGetInfoTag(s, "empty"), "");
    EXPECT_EQ(HostAddTag("package", "nobody", "super", "."), 0);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOTFOUND);
    EXPECT_EQ(ServerAddTag(s, "", "v"), 0);

    // Registering again keeps the tags and replaces the factory.
    int data = 7;
    HostServer *m = HostAddBuiltIn("package", "mesh", make_nothing, nullptr);
    ServerAddTag(m, "super", ".");
    EXPECT_EQ(HostAddBuiltIn("package", "mesh", make_counted, &data), m);
    EXPECT_STREQ(ServerGetInfoTag(m, "super"), ".");
    void *obj = nullptr;
    g_made = 0;
    EXPECT_EQ(ServerAllocate(m, &obj), VX_OK);
    EXPECT_EQ(obj, &data);
    EXPECT_EQ(g_made, 1);
    EXPECT_EQ(HostServerCount("package"), 2u) << "the locator and the mesh, once";

    // Server objects come from the factory or fail with its code.
    HostServer *none = HostAddBuiltIn("package", "none", nullptr, nullptr);
    HostServer *empty = HostAddBuiltIn("package", "empty", make_nothing, nullptr);
    obj = &obj;
    EXPECT_EQ(ServerAllocate(none, &obj), VX_E_NOTFOUND);
    EXPECT_EQ(obj, nullptr);
    EXPECT_EQ(ServerAllocate(empty, &obj), VX_E_FAILED);
    EXPECT_EQ(ServerAllocate(nullptr, &obj), VX_E_BADARG);
    EXPECT_EQ(ServerAllocate(empty, nullptr), VX_E_BADARG);
}

TEST_F(Registry, WatchersHearEveryNewServerOfTheirClassOnly) {
    Heard heard;
    HostAddBuiltIn("package", "before", nullptr, nullptr);
    ASSERT_EQ(HostWatchClass("package", hear, &heard), 1);
    HostAddBuiltIn("package", "first", nullptr, nullptr);
    HostAddBuiltIn("saver", "other", nullptr, nullptr);
    HostAddBuiltIn("package", "first", nullptr, nullptr);  // not new
    HostAddBuiltIn("package", "second", nullptr, nullptr);
    EXPECT_EQ(heard.names, (std::vector<std::string>{"first", "second"}));
    EXPECT_STREQ(ServerGetInfoTag(HostLookupServer("package", "second"), "seen"), "yes");

    EXPECT_EQ(HostUnwatchClass("package", hear, &heard), 1u);
    HostAddBuiltIn("package", "third", nullptr, nullptr);
    EXPECT_EQ(heard.names.size(), 2u);
    EXPECT_EQ(HostWatchClass("package", nullptr, nullptr), 0);
}

struct Provided {
    std::vector<std::string> asked;
};
void provide(void *client, const char *cls, const char *name) {
    static_cast<Provided *>(client)->asked.push_back(name);
    if (std::string(name).starts_with("make.")) HostAddBuiltIn(cls, name, nullptr, nullptr);
}

TEST_F(Registry, AProviderIsAskedOnlyForMissingServersOfItsClass) {
    Provided provided;
    HostServer *there = HostAddBuiltIn("package", "there", nullptr, nullptr);
    ASSERT_EQ(HostSetProvider("package", provide, &provided), 1);
    EXPECT_EQ(HostRequireServer("package", "there"), there);
    HostServer *made = HostRequireServer("package", "make.one");
    ASSERT_NE(made, nullptr);
    EXPECT_STREQ(ServerName(made), "make.one");
    EXPECT_EQ(HostRequireServer("package", "make.one"), made);  // now registered
    EXPECT_EQ(HostRequireServer("package", "cannot"), nullptr);
    EXPECT_EQ(HostRequireServer("saver", "make.two"), nullptr);     // no provider for savers
    EXPECT_EQ(HostLookupServer("package", "make.three"), nullptr);  // plain look-up never asks
    EXPECT_EQ(provided.asked, (std::vector<std::string>{"make.one", "cannot"}));

    ASSERT_EQ(HostSetProvider("package", nullptr, nullptr), 1);
    EXPECT_EQ(HostRequireServer("package", "make.four"), nullptr);
    EXPECT_EQ(provided.asked.size(), 2u);
}

TEST(RegistryLifetime, StartsAreCountedAndTheLastStopForgetsEverything) {
    EXPECT_EQ(HostAddBuiltIn("package", "early", nullptr, nullptr), nullptr);
    EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
    HostStartup();
    HostStartup();
    ASSERT_NE(HostAddBuiltIn("package", "kept", nullptr, nullptr), nullptr);
    HostShutdown();
    EXPECT_NE(HostLookupServer("package", "kept"), nullptr);
    HostShutdown();
    EXPECT_EQ(HostLookupServer("package", "kept"), nullptr);
    HostShutdown();  // unbalanced stops are ignored
    HostStartup();
    EXPECT_EQ(HostServerCount("package"), 0u);
    HostShutdown();
}

}  // namespace
