// Item types resolved from package servers that a host registers: the order of resolution and
// its codes, super chains and the hierarchy queries, tags, server objects and type lists.
#include <algorithm>
#include <cstring>

#include <vexor/failure.h>

#include "package_fixture.h"
#include "support/alloc_injection.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

using Types = PackageTest;

std::vector<std::uint32_t> all_types() {
    std::vector<std::uint32_t> codes;
    for (unsigned int i = 0; i < CineTypeCount(); ++i) codes.push_back(CineTypeByIndex(i));
    return codes;
}

std::vector<std::uint32_t> array_of(const std::uint32_t *codes) {
    std::vector<std::uint32_t> out;
    while (codes != nullptr && *codes != 0) out.push_back(*codes++);
    return out;
}

TEST_F(Types, AutomaticCodesFollowTheOrderOfFirstNeedNotOfRegistration) {
    HostPackage data;
    add_host_package("first", ".", &data);
    add_host_package("second", ".", &data);
    EXPECT_EQ(CinePackageItemType(CinePackageFind("second")), 101u);
    EXPECT_EQ(CineLookupType("first"), 102u);
    EXPECT_EQ(CineLookupType("second"), 101u);  // resolution is done once
    EXPECT_EQ(resolved, (std::vector<std::string>{"second", "first"}));
    EXPECT_EQ(CineLookupSuper(101), 0u);
}

TEST_F(Types, TheFirstQueryResolvesEveryKnownServerInRegistrationOrder) {
    HostPackage data;
    add_host_package("b", ".", &data);
    add_host_package("addon", nullptr, &data);
    add_host_package("a", ".", &data);
    EXPECT_TRUE(resolved.empty());  // nothing is resolved before it is needed
    ASSERT_EQ(CineTypeCount(), 2u);
    EXPECT_STREQ(CineTypeName(101), "b");
    EXPECT_STREQ(CineTypeName(102), "a");
    EXPECT_EQ(CineTypeByIndex(2), CINE_TYPE_NONE);
    EXPECT_EQ(CineTypeByIndex(1000), CINE_TYPE_NONE);
    // An add-on package is known but never a type.
    EXPECT_EQ(CineLookupType("addon"), CINE_TYPE_NONE);
    EXPECT_NE(CinePackageFind("addon"), nullptr);
    EXPECT_EQ(CinePackageItemType(CinePackageFind("addon")), CINE_TYPE_NONE);
    // A later server is resolved when asked for.
    add_host_package("late", ".", &data);
    EXPECT_EQ(CineTypeCount(), 2u);
    EXPECT_EQ(CineLookupType("late"), 103u);
    EXPECT_EQ(CineTypeCount(), 3u);
}

TEST_F(Types, FixedCodesComeFromTheServerAndSortTheArray) {
    HostPackage data;
    add_host_package("modern", ".", &data);
    ServerAddTag(add_host_package("legacy", ".", &data), "internal.typeCode", "7");
    ServerAddTag(add_host_package("sloppy", ".", &data), "internal.typeCode", "7x");
    ServerAddTag(add_host_package("greedy", ".", &data), "internal.typeCode", "200");
    ServerAddTag(add_host_package("twin", ".", &data), "internal.typeCode", "7");
    EXPECT_EQ(all_types(), (std::vector<std::uint32_t>{7, 101, 102}));
    EXPECT_EQ(CineLookupType("legacy"), 7u);
    EXPECT_EQ(CineLookupType("sloppy"), 102u);  // unreadable: automatic
    // A fixed code at or above the automatic range, or one already taken, is refused.
    EXPECT_EQ(CineLookupType("greedy"), CINE_TYPE_NONE);
    EXPECT_EQ(CineLookupType("twin"), CINE_TYPE_NONE);
    EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
}

class Hierarchy : public PackageTest {
  protected:
    void SetUp() override {
        PackageTest::SetUp();
        // Registered leaf first: a type's super is resolved before it.
        add_host_package("camera", "locator", &data);
        add_host_package("mesh", "locator", &data);
        add_host_package("locator", "item", &data);
        add_host_package("item", ".", &data);
        add_host_package("clip", ".", &data);
        camera = CineLookupType("camera");
        mesh = CineLookupType("mesh");
        locator = CineLookupType("locator");
        item = CineLookupType("item");
        clip = CineLookupType("clip");
    }
    HostPackage data;
    std::uint32_t camera = 0, mesh = 0, locator = 0, item = 0, clip = 0;
};

TEST_F(Hierarchy, SupersAreResolvedFirstAndLinkTheChain) {
    EXPECT_EQ(in_order({item, locator, camera, mesh}), (Ints{101, 102, 103, 104}));
    EXPECT_EQ(resolved, (std::vector<std::string>{"item", "locator", "camera", "mesh", "clip"}));
    EXPECT_EQ(in_order({CineLookupSuper(camera), CineLookupSuper(locator), CineLookupSuper(item)}),
              (Ints{locator, item, 0}));
    ASSERT_EQ(CineSubTypeCount(locator), 2u);
    EXPECT_STREQ(CineSubTypeName(locator, 0), "camera");
    EXPECT_STREQ(CineSubTypeName(locator, 1), "mesh");
    EXPECT_EQ(CineSubTypeName(locator, 2), nullptr);
    EXPECT_EQ(CineSubTypeCount(camera), 0u);
}

TEST_F(Hierarchy, TypeTestsAndCommonAncestorsWalkTheSuperChain) {
    EXPECT_EQ(in_order({CineTypeTest(camera, camera), CineTypeTest(camera, item),
                        CineTypeTest(item, camera), CineTypeTest(camera, mesh),
                        CineTypeTest(camera, clip)}),
              (Ints{1, 1, 0, 0, 0}));
    EXPECT_EQ(
        in_order({CineTypeCommonAncestor(camera, mesh), CineTypeCommonAncestor(camera, locator),
                  CineTypeCommonAncestor(item, camera), CineTypeCommonAncestor(camera, camera),
                  CineTypeCommonAncestor(camera, clip)}),
        (Ints{locator, locator, item, camera, 0}));
}

TEST_F(Hierarchy, UnknownNamesAndCodesGiveTheDocumentedAnswers) {
    EXPECT_EQ(CineLookupType("nothing"), CINE_TYPE_NONE);
    EXPECT_EQ(CineLookupType(nullptr), CINE_TYPE_NONE);
    EXPECT_EQ(CinePackageFind("nothing"), nullptr);
    for (std::uint32_t code : {0u, 99u, 999u, CINE_TYPE_NONE}) {
        EXPECT_EQ(in_order({CineTypeName(code), CineTypeGetTag(code, "super", 1)}),
                  (Ptrs{nullptr, nullptr}));
        EXPECT_EQ(in_order({CineLookupSuper(code), CineTypeTest(code, code),
                            CineTypeTest(code, item), CineTypeCommonAncestor(code, item),
                            CineSubTypeCount(code), CineTypeIsMask(code)}),
                  (Ints{0, 0, 0, 0, 0, 0}))
            << code;
    }
    EXPECT_EQ(in_order({CineTypeCreateOK(0), CineTypeConvertOK(0)}), (Ints{1, 1}));
}

TEST_F(Types, AnUnknownSuperFailsResolutionCleanlyAndCanBeRetried) {
    HostPackage data;
    add_host_package("orphan", "ghost", &data);
    add_host_package("fine", ".", &data);
    EXPECT_EQ(CineTypeCount(), 1u);  // the first query resolves what it can
    EXPECT_EQ(CineLookupType("orphan"), CINE_TYPE_NONE);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOTFOUND);
    EXPECT_EQ(all_types(), (std::vector<std::uint32_t>{101}));
    EXPECT_EQ(resolved, (std::vector<std::string>{"fine"}));
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string &l) {
        return l.find("#[fail] <package_types>") == 0 && l.find("orphan") != std::string::npos;
    }));
    // Once the host supplies the super, the package resolves under it.
    add_host_package("ghost", ".", &data);
    EXPECT_EQ(CineLookupType("orphan"), 103u);
    EXPECT_EQ(CineLookupSuper(103), 102u);
}

HostPackage g_made_on_demand;
void provide_package(void *, const char *cls, const char *name) {
    if (std::strcmp(name, "onDemand") == 0) {
        ServerAddTag(HostAddBuiltIn(cls, name, nullptr, &g_made_on_demand), "super", ".");
    }
}

TEST_F(Types, ASuperTheHostCanMakeIsMadeWhenFirstNeeded) {
    HostPackage data;
    add_host_package("child", "onDemand", &data);
    add_host_package("stray", "notMade", &data);
    ASSERT_EQ(HostSetProvider("package", provide_package, nullptr), 1);
    EXPECT_EQ(CinePackageFind("onDemand"), nullptr);
    EXPECT_EQ(CineLookupType("child"), 102u);
    EXPECT_EQ(CineTypeName(101), std::string("onDemand"));
    EXPECT_EQ(CineLookupType("stray"), CINE_TYPE_NONE);
    EXPECT_EQ(resolved, (std::vector<std::string>{"onDemand", "child"}));
}

TEST_F(Types, ResolutionThatRunsOutOfMemoryGivesNoCodeAway) {
    HostPackage data;
    add_host_package("base", ".", &data);
    add_host_package("leaf", "base", &data);
    CineTypeList *eager =
        CineTypeListCreate([](void *, std::uint32_t, CineTypeList *) { return 1; }, nullptr, 0);
    for (std::uint64_t nth = 1;; ++nth) {
        std::uint32_t code = 0;
        {
            FailAllocation failing(nth);
            code = CineLookupType("leaf");
            if (!injected_failure_raised()) break;
        }
        // A failed resolution takes no code: the final codes below show none was skipped.
        EXPECT_TRUE(code == CINE_TYPE_NONE || code == 102u) << nth;
    }
    EXPECT_EQ(CineLookupType("base"), 101u);
    EXPECT_EQ(CineLookupType("leaf"), 102u);
    EXPECT_EQ(all_types(), (std::vector<std::uint32_t>{101, 102}));
    EXPECT_EQ(CineSubTypeCount(101), 1u);
    EXPECT_EQ(array_of(CineTypeListArray(eager)), (std::vector<std::uint32_t>{101, 102}));
    CineTypeListDestroy(eager);
}

TEST_F(Types, ASuperChainThatLoopsOrEndsInAnAddOnIsRefused) {
    HostPackage data;
    add_host_package("ping", "pong", &data);
    add_host_package("pong", "ping", &data);
    add_host_package("extra", nullptr, &data);
    add_host_package("onExtra", "extra", &data);
    EXPECT_EQ(CineLookupType("ping"), CINE_TYPE_NONE);
    EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
    EXPECT_EQ(CineLookupType("onExtra"), CINE_TYPE_NONE);
    EXPECT_EQ(CineTypeCount(), 0u);
}

TEST_F(Hierarchy, TagsAreReadOwnOrInheritedAndAddedThroughTheType) {
    ASSERT_EQ(CineTypeAddTag(item, "category", "spatial"), 1);
    EXPECT_STREQ(CineTypeGetTag(camera, "category", 1), "spatial");
    EXPECT_EQ(CineTypeGetTag(camera, "category", 0), nullptr);
    ASSERT_EQ(CineTypeAddTag(locator, "category", "placed"), 1);
    EXPECT_STREQ(CineTypeGetTag(camera, "category", 1), "placed");  // the nearest wins
    EXPECT_STREQ(CineTypeGetTag(camera, "super", 0), "locator");
    EXPECT_EQ(CineTypeAddTag(999, "category", "x"), 0);

    std::uint32_t codes[4] = {};
    EXPECT_EQ(CineTypesOfTag("category", codes, 4), 2u);
    EXPECT_EQ(codes[0], item);
    EXPECT_EQ(codes[1], locator);
    EXPECT_EQ(CineTypesOfTag("category", codes, 1), 2u);  // counts beyond the room
    EXPECT_EQ(CineTypesOfTag("nothing", codes, 4), 0u);
}

TEST_F(Types, ATagForACodeNotYetResolvedGoesToTheServerWithThatFixedCode) {
    HostPackage data;
    HostServer *legacy = add_host_package("legacy", ".", &data);
    ServerAddTag(legacy, "internal.typeCode", "12");
    // Tagging by code does not need the package resolved first.
    ASSERT_EQ(CineTypeAddTag(12, "pkg.createCmd", "-"), 1);
    EXPECT_STREQ(ServerGetInfoTag(legacy, "pkg.createCmd"), "-");
    EXPECT_EQ(in_order({CineTypeCreateOK(12), CineTypeConvertOK(12)}), (Ints{0, 1}));
}

TEST_F(Hierarchy, MaskTypesAndCommandPermissionsComeFromTags) {
    ServerAddTag(HostLookupServer("package", "locator"), "isMaskItem", "");
    ServerAddTag(HostLookupServer("package", "clip"), "pkg.convertCmd", "-");
    EXPECT_EQ(in_order({CineTypeIsMask(camera), CineTypeIsMask(item)}), (Ints{1, 0}));
    const std::uint32_t *masks = CineMaskTypes();
    EXPECT_EQ(array_of(masks), (std::vector<std::uint32_t>{locator}));
    // Built once: a later tag shows in CineTypeIsMask, and the array handed out stays put.
    EXPECT_EQ(CineTypeAddTag(clip, "isMaskItem", "1"), 1);
    EXPECT_EQ(CineTypeIsMask(clip), 1);
    EXPECT_EQ(CineMaskTypes(), masks);
    EXPECT_EQ(array_of(masks), (std::vector<std::uint32_t>{locator}));
    EXPECT_EQ(
        in_order({CineTypeConvertOK(clip), CineTypeConvertOK(camera), CineTypeCreateOK(clip)}),
        (Ints{0, 1, 1}));
}

int g_filter_calls = 0;
int spatial_filter(void *client, std::uint32_t type, CineTypeList *) {
    ++g_filter_calls;
    return CineTypeTest(type, *static_cast<std::uint32_t *>(client));
}

TEST_F(Types, EagerListsRebuildAtOnceAndLazyListsOnRequest) {
    HostPackage data;
    add_host_package("item", ".", &data);
    add_host_package("clip", ".", &data);
    std::uint32_t item = CineLookupType("item");
    g_filter_calls = 0;
    CineTypeList *eager = CineTypeListCreate(spatial_filter, &item, 0);
    CineTypeList *lazy = CineTypeListCreate(spatial_filter, &item, 1);
    ASSERT_NE(eager, nullptr);
    ASSERT_NE(lazy, nullptr);
    EXPECT_EQ(g_filter_calls, 2);  // the eager list has seen both types; the lazy one nothing
    EXPECT_EQ(array_of(CineTypeListArray(lazy)), (std::vector<std::uint32_t>{item}));
    EXPECT_EQ(g_filter_calls, 4);
    CineTypeListArray(lazy);
    EXPECT_EQ(g_filter_calls, 4);  // cached

    add_host_package("light", "item", &data);
    std::uint32_t light = CineLookupType("light");
    EXPECT_EQ(g_filter_calls, 7);  // only the eager list ran its filter again
    EXPECT_EQ(CineTypeListCount(eager), 2u);
    EXPECT_EQ(g_filter_calls, 7);
    EXPECT_EQ(CineTypeListTest(lazy, light), 1);
    EXPECT_EQ(g_filter_calls, 10);
    EXPECT_EQ(CineTypeListTest(lazy, CineLookupType("clip")), 0);
    EXPECT_EQ(array_of(CineTypeListArray(eager)), (std::vector<std::uint32_t>{item, light}));

    CineTypeListInvalidate(eager);
    EXPECT_EQ(CineTypeListCount(eager), 2u);
    EXPECT_EQ(g_filter_calls, 13);
    CineTypeListDestroy(eager);
    CineTypeListDestroy(lazy);
    add_host_package("spot", "light", &data);
    CineLookupType("spot");
    EXPECT_EQ(g_filter_calls, 13);  // destroyed lists are no longer rebuilt
}

TEST_F(Types, ServerObjectsAreMadeOnceSupersFirstAndOnlyWhenNeeded) {
    HostPackage base{"b", 2, 10.0};
    HostPackage leaf{"l", 3, 0.0};
    add_host_package("base", ".", &base);
    add_host_package("leaf", "base", &leaf);
    std::uint32_t code = CineLookupType("leaf");
    EXPECT_EQ(base.made + leaf.made, 0);
    // The "may" question makes nothing and knows nothing yet.
    EXPECT_EQ(CineTypeMaySupportIfc(code, kProbeGuid), 0);
    EXPECT_EQ(leaf.made, 0);
    EXPECT_EQ(CineTypeSupportIfc(code, kProbeGuid), 1);
    EXPECT_EQ(leaf.made, 1);
    EXPECT_EQ(base.made, 1);  // a package's super is made before it
    EXPECT_EQ(CineTypeSupportIfc(code, "{00000000-0000-0000-0000-000000000001}"), 0);
    EXPECT_EQ(CineTypeMaySupportIfc(code, kProbeGuid), 1);

    EXPECT_EQ(CineItemPackageChannelCount(CinePackageFind("leaf")), 3u);
    EXPECT_EQ(CineItemPackageChannelCount(CinePackageFind("base")), 2u);
    EXPECT_NE(CinePackageQueryIfc(CinePackageFind("base"), kProbeGuid), nullptr);
    EXPECT_EQ(base.made + leaf.made, 2);
}

TEST_F(Types, APackageWhoseObjectCannotBeMadeAnswersNone) {
    HostPackage broken;
    broken.refuse = true;
    HostPackage child;
    add_host_package("broken", ".", &broken);
    add_host_package("child", "broken", &child);
    EXPECT_EQ(CinePackageQueryIfc(CinePackageFind("broken"), kProbeGuid), nullptr);
    EXPECT_EQ(CineItemPackageChannelCount(CinePackageFind("child")), 0u);
    EXPECT_EQ(child.made, 0);  // the super failed first
    EXPECT_NE(std::find(lines.begin(), lines.end(), "failed to add package broken\n"), lines.end());
    EXPECT_EQ(CineTypeSupportIfc(CineLookupType("child"), kProbeGuid), 0);
}

TEST_F(Types, InterfaceListsHoldTheTypesWhoseObjectsReportIt) {
    HostPackage data;
    add_host_package("probe", ".", &data);
    CinePackageDefine("plain");
    CineDefineType(0, 0, "plain");
    CineTypeList *list = CineTypeListIfcCreate("5e1f0a2b-9c3d-4e5f-8a6b-7c8d9e0f1a2b");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(array_of(CineTypeListArray(list)),
              (std::vector<std::uint32_t>{CineLookupType("probe")}));
    EXPECT_EQ(CineTypeListIfcCreate("not-a-guid"), nullptr);
    CineTypeListDestroy(list);
}

TEST(PackageLifetime, StartupIsCountedAndShutdownForgetsTypesAndOwnServers) {
    HostStartup();  // the host keeps the registry of servers alive across the scene module
    HostPackage data;
    add_host_package("hosted", ".", &data);
    CinemaStartup();
    CinemaStartup();
    CinePackageDefine("ours");
    EXPECT_NE(CinePackageFind("hosted"), nullptr);  // registered before the module started
    EXPECT_EQ(CineLookupType("hosted"), 101u);
    const unsigned types = CineTypeCount();  // "hosted" and the library's own
    CinemaShutdown();
    EXPECT_EQ(CineTypeCount(), types);
    CinemaShutdown();
    EXPECT_EQ(CineTypeCount(), 0u);
    EXPECT_EQ(CinePackageFind("hosted"), nullptr);
    EXPECT_EQ(HostLookupServer("package", "ours"), nullptr);
    EXPECT_NE(HostLookupServer("package", "hosted"), nullptr);

    CinemaStartup();  // a fresh registry: codes start again at 101
    EXPECT_EQ(CineLookupType("hosted"), 101u);
    CinemaShutdown();
    HostShutdown();
}

TEST(PackageLifetime, AStartupThatRunsOutOfMemoryLeavesNothingStarted) {
    for (std::uint64_t nth = 1;; ++nth) {
        bool raised = false;
        {
            FailAllocation failing(nth);
            CinemaStartup();
            raised = injected_failure_raised();
        }
        if (::PortLookup("cinema-db") != nullptr) break;
        ASSERT_TRUE(raised) << nth;
        ASSERT_EQ(HostAddBuiltIn("package", "probe", nullptr, nullptr), nullptr) << nth;
        ASSERT_EQ(CineLookupType("probe"), CINE_TYPE_NONE) << nth;
    }
    HostPackage data;
    add_host_package("probe", ".", &data);
    EXPECT_EQ(CineLookupType("probe"), 101u);
    CinemaShutdown();
    EXPECT_EQ(::PortLookup("cinema-db"), nullptr);
}

}  // namespace
}  // namespace vx::test
