// Packages defined inside the library: the definition and its server, the current package,
// channel descriptions from tag lists, legacy tables and typed lines, defaults, and types made
// with CineDefineType.
#include <algorithm>
#include <cstring>

#include <vexor/failure.h>

#include "package_fixture.h"
#include "scene/channel_desc.h"
#include "scene/package_registry.h"
#include "support/alloc_injection.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

using Definitions = PackageTest;
using cine::ChannelDesc;

const cine::ChannelList &channels(const char *package) {
    return cine::definition(package).channels;
}

std::vector<std::string> names(const cine::ChannelList &list) {
    std::vector<std::string> out;
    for (const ChannelDesc &d : list) out.push_back(d.name);
    return out;
}

double default_of(const ChannelDesc &d) {
    return d.default_value.get_float();
}

TEST_F(Definitions, DefiningPublishesAWrapperServerThatResolvesOnlyWhenTyped) {
    CinePackageDefine("texture");
    HostServer *server = HostLookupServer("package", "texture");
    ASSERT_NE(server, nullptr);
    EXPECT_STREQ(ServerGetInfoTag(server, "internal.wrapper"), "texture");
    EXPECT_EQ(ServerGetInfoTag(server, "super"), nullptr);
    CinePackage *pkg = CinePackageFind("texture");
    ASSERT_NE(pkg, nullptr);
    EXPECT_STREQ(CinePackageName(pkg), "texture");
    EXPECT_TRUE(resolved.empty());

    EXPECT_EQ(CineDefineType(0, 0, "texture"), 101u);
    EXPECT_STREQ(ServerGetInfoTag(server, "super"), ".");
    EXPECT_EQ(CinePackageItemType(pkg), 101u);
    EXPECT_EQ(resolved, (std::vector<std::string>{"texture"}));
    // The server object is a package wrapper.
    void *ifc = CinePackageQueryIfc(pkg, CINE_PACKAGE_GUID);
    EXPECT_NE(ifc, nullptr);
    EXPECT_STREQ(XObjectClassName(CinePackageFind("texture")->object), "pwrap.package");
}

TEST_F(Definitions, DefinedTypesTakeSupersByCodeFixedCodesAndHostSupers) {
    HostPackage data;
    ServerAddTag(add_host_package("hostItem", ".", &data), "internal.typeCode", "3");
    CinePackageDefine("locator");
    CinePackageDefine("camera");
    CinePackageDefine("light");
    // A super given by a fixed code that no one has resolved yet is found on the servers.
    std::uint32_t locator = CineDefineType(20, 3, "locator");
    EXPECT_EQ(locator, 20u);
    EXPECT_STREQ(ServerGetInfoTag(HostLookupServer("package", "locator"), "internal.typeCode"),
                 "20");
    EXPECT_EQ(CineDefineType(0, 20, "camera"), 101u);
    // An unknown super code makes a root type.
    EXPECT_EQ(CineDefineType(0, 77, "light"), 102u);
    EXPECT_EQ(in_order({CineLookupSuper(101), CineLookupSuper(20), CineLookupSuper(102),
                        CineTypeCommonAncestor(101, 20)}),
              (Ints{20, 3, 0, 20}));
}

TEST_F(Definitions, ADefinitionThatRunsOutOfMemoryLeavesNoServerOrRecord) {
    // Each allocation fails in turn: the definition is then either complete or not there.
    for (std::uint64_t nth = 1;; ++nth) {
        bool raised = false;
        {
            FailAllocation failing(nth);
            CinePackageDefine("fragile");
            raised = injected_failure_raised();
        }
        if (HostLookupServer("package", "fragile") != nullptr) {
            ASSERT_NE(CinePackageFind("fragile"), nullptr) << nth;
            ASSERT_STREQ(
                ServerGetInfoTag(HostLookupServer("package", "fragile"), "internal.wrapper"),
                "fragile")
                << nth;
            break;
        }
        ASSERT_TRUE(raised) << nth;
        ASSERT_EQ(CinePackageFind("fragile"), nullptr) << nth;
        ASSERT_EQ(CinePackageSetFuncs("fragile", nullptr), nullptr) << nth;
    }
    EXPECT_NE(CinePackageSetFuncs("fragile", nullptr), nullptr);
    EXPECT_EQ(CineDefineType(0, 0, "fragile"), 101u);
}

TEST_F(Definitions, ANameAHostAlreadyServesCannotBeDefined) {
    HostPackage data;
    HostServer *hosted = add_host_package("camera", ".", &data);
    CinePackageDefine("camera");
    EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
    EXPECT_EQ(ServerGetInfoTag(hosted, "internal.wrapper"), nullptr);
    EXPECT_EQ(CinePackageSetFuncs("camera", nullptr), nullptr);
    EXPECT_EQ(CineItemPackageChannelCount(CinePackageFind("camera")), 0u);
    EXPECT_EQ(data.made, 1);  // still the host's factory
}

TEST_F(Definitions, AnAddOnPackageStaysOneEvenIfTypedLater) {
    CinePackageDefine("decoration");
    EXPECT_EQ(CineLookupType("decoration"), CINE_TYPE_NONE);
    EXPECT_EQ(CineDefineType(0, 0, "decoration"), CINE_TYPE_NONE);  // resolution is one-way
    EXPECT_EQ(CineTypeCount(), 0u);
    EXPECT_EQ(CineDefineType(0, 0, "undefined"), CINE_TYPE_NONE);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOTFOUND);
}

TEST_F(Definitions, ANullNameMeansTheMostRecentlyDefinedOrNamedPackage) {
    CinePackageDefine("one");
    CinePackageDefine("two");
    EXPECT_EQ(CinePackageAddChannel(nullptr, CINE_CH_NAME, "a", VX_STORE_FLOAT, nullptr,
                                    CINE_CH_NAME, nullptr),
              1);
    void *one = CinePackageSetFuncs("one", nullptr);
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(CinePackageAddChannel(nullptr, CINE_CH_NAME, "b", VX_STORE_FLOAT, nullptr,
                                    CINE_CH_NAME, nullptr),
              1);
    EXPECT_EQ(names(channels("two")), (std::vector<std::string>{"a"}));
    EXPECT_EQ(names(channels("one")), (std::vector<std::string>{"b"}));
    // Naming an undefined package changes nothing and finds no record.
    EXPECT_EQ(CinePackageSetFuncs("three", nullptr), nullptr);
    EXPECT_EQ(CinePackageAttachFunc(nullptr, nullptr, nullptr), one);
    CinePackageDefine("two");  // defining again only makes it current
    EXPECT_EQ(names(channels(nullptr)), (std::vector<std::string>{"a"}));
}

void synth_a(void *, void *) {}
void synth_b(void *, void *) {}
void attach2(void *, void *, void *) {}

TEST_F(Definitions, SettersFillTheDefinitionAndTheNullSynthesiserIsTheDefault) {
    CinePackageDefine("group");
    int client = 0, extra = 0, first = 0;
    CinePackageSynthNameFuncDS("group", synth_a);
    CinePackageSynthNameFuncDS(nullptr, synth_b);
    const cine::PackageDef &def = cine::definition("group");
    EXPECT_EQ(def.synth_name, synth_a);
    EXPECT_EQ(cine::registry().default_synth, synth_b);
    CinePackageAttachFunc2(nullptr, attach2, &client, &extra);
    EXPECT_EQ(def.attach2, attach2);
    EXPECT_EQ(def.attach_data, &client);
    EXPECT_EQ(def.attach2_extra, &extra);
    CinePackageSetLocal(nullptr, &first, nullptr, &extra);
    EXPECT_EQ(def.local_first, &first);
    EXPECT_EQ(def.local_third, &extra);
    EXPECT_EQ(CinePackageSubObjectFunc(nullptr, nullptr, nullptr, kProbeGuid), 1);
    EXPECT_EQ(CinePackageSubObjectFunc(nullptr, nullptr, nullptr, "{bad}"), 0);
    ASSERT_EQ(def.sub_objects.size(), 1u);
    EXPECT_EQ(def.sub_objects[0].guid, kProbeGuid);
}

TEST_F(Definitions, TagListsDescribeScalarsVectorsHintsAndFlags) {
    CinePackageDefine("light");
    int descriptor = 0;
    ASSERT_EQ(
        CinePackageAddChannel(
            "light", CINE_CH_NAME, "radiance", VX_STORE_FLOAT, nullptr, CINE_CH_DEFAULT, 2.5,
            CINE_CH_USAGE, CINE_USAGE_PERCENT, CINE_CH_INTERNAL, 42u, CINE_CH_NAME, "color",
            VX_STORE_FLOAT, nullptr, CINE_CH_VECTOR, CINE_VECTOR_RGB, nullptr, CINE_CH_DEFAULT, 1.0,
            CINE_CH_NAME, "on", VX_STORE_INT, nullptr, CINE_CH_DEFAULT_INT, 1, CINE_CH_HINTS,
            nullptr, 1u, CINE_CH_EXTRA, &descriptor, CINE_CH_NAME, "ramp", VX_STORE_OBJECT,
            "gradient", CINE_CH_EXOTYPE, VX_STORE_TEXT, nullptr, CINE_CH_NAME, nullptr),
        1);
    const auto &list = channels("light");
    ASSERT_EQ(names(list), (std::vector<std::string>{"radiance", "color.R", "color.G", "color.B",
                                                     "on", "ramp"}));
    EXPECT_EQ(default_of(list[0]), 2.5);
    EXPECT_EQ(list[0].usage_text, "percent");
    EXPECT_TRUE(list[0].internal);
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(list[i].vector_mode, CINE_VECTOR_RGB);
        EXPECT_EQ(list[i].vector_first, 1u);
        EXPECT_EQ(default_of(list[i]), 1.0);
        EXPECT_FALSE(list[i].internal);
    }
    EXPECT_EQ(list[4].hints, TextHintBoolean());
    EXPECT_EQ(list[4].default_value.get_int(), 1);
    EXPECT_EQ(list[4].extra, &descriptor);
    EXPECT_STREQ(ValueTypeName(list[5].value_type), "gradient");
    EXPECT_STREQ(ValueTypeName(list[5].extra_type), "string");
}

TEST_F(Definitions, ARefusedTagListLeavesThePackageAsItWas) {
    CinePackageDefine("strict");
    const TextHint choices[] = {{0, "a"}, {1, "b"}, {0, nullptr}};
    ASSERT_EQ(CinePackageAddChannel("strict", CINE_CH_NAME, "keep", VX_STORE_FLOAT, nullptr,
                                    CINE_CH_NAME, nullptr),
              1);
    // A float channel takes no hint table.
    EXPECT_EQ(CinePackageAddChannel("strict", CINE_CH_NAME, "fine", VX_STORE_INT, nullptr,
                                    CINE_CH_NAME, "bad", VX_STORE_FLOAT, nullptr, CINE_CH_HINTS,
                                    choices, 0u, CINE_CH_NAME, nullptr),
              0);
    EXPECT_EQ(VxLastFailure().code, VX_E_NOTFOUND);
    EXPECT_EQ(CinePackageAddChannel("strict", CINE_CH_NAME, "obj", VX_STORE_OBJECT, "nosuch",
                                    CINE_CH_NAME, nullptr),
              0);
    EXPECT_EQ(CinePackageAddChannel("strict", CINE_CH_DEFAULT, 1.0, CINE_CH_NAME, nullptr), 0);
    EXPECT_EQ(CinePackageAddChannel("strict", CINE_CH_NAME, "v", VX_STORE_FLOAT, nullptr,
                                    CINE_CH_VECTOR, 9u, nullptr, CINE_CH_NAME, nullptr),
              0);
    EXPECT_EQ(names(channels("strict")), (std::vector<std::string>{"keep"}));
}

TEST_F(Definitions, LegacyTablesConvertAndStopAtANullName) {
    CinePackageDefine("legacy");
    const TextHint modes[] = {{0, "off"}, {2, "twice"}, {0, nullptr}};
    const CineChannelDesc table[] = {
        {"count", 1, CINE_USAGE_NONE, 2.9, 0xFFFFFFFFu, modes, 0},
        {"flag", 1, CINE_USAGE_NONE, 1.0, 0xFFFFFFFFu, nullptr, 1},
        {"scale", 0, CINE_USAGE_DISTANCE, 0.25, 5, nullptr, 0},
        {nullptr, 0, 0, 0.0, 0, nullptr, 0},
        {"after", 0, 0, 0.0, 0xFFFFFFFFu, nullptr, 0},
    };
    EXPECT_EQ(CinePackageAddChannelDesc("legacy", table, 5), 1);
    const auto &list = channels("legacy");
    ASSERT_EQ(names(list), (std::vector<std::string>{"count", "flag", "scale"}));
    EXPECT_EQ(list[0].default_value.get_int(), 2);  // converted to an integer
    EXPECT_EQ(list[0].hints, modes);
    EXPECT_EQ(list[1].hints, TextHintBoolean());
    EXPECT_EQ(default_of(list[2]), 0.25);
    EXPECT_EQ(list[2].usage_text, "distance");
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string &l) {
        return l.starts_with("#[fail] <item>:") &&
               l.ends_with(" old-style texture channel definition: scale\n");
    })) << (lines.empty() ? "no lines" : lines.front());
    // A count below the table's length stops there.
    EXPECT_EQ(CinePackageAddChannelDesc("legacy", table, 1), 1);
    EXPECT_EQ(list.size(), 4u);
}

TEST_F(Definitions, ALegacyTableIsAddedWholeOrNotAtAll) {
    CinePackageDefine("legacy");
    const CineChannelDesc table[] = {
        {"first", 0, 0, 1.0, 0xFFFFFFFFu, nullptr, 0},
        {"second", 1, 0, 2.0, 0xFFFFFFFFu, nullptr, 1},
        {"third", 0, CINE_USAGE_ANGLE, 3.0, 0xFFFFFFFFu, nullptr, 0},
    };
    // Every allocation the call makes fails in turn; each failure leaves no channel behind.
    for (std::uint64_t nth = 1;; ++nth) {
        int ok = 0;
        {
            FailAllocation failing(nth);
            ok = CinePackageAddChannelDesc("legacy", table, 3);
            if (!injected_failure_raised()) {
                ASSERT_EQ(ok, 1);
                break;
            }
        }
        ASSERT_EQ(ok, 0) << "allocation " << nth;
        ASSERT_EQ(channels("legacy").size(), 0u) << "allocation " << nth;
    }
    EXPECT_EQ(names(channels("legacy")), (std::vector<std::string>{"first", "second", "third"}));
    EXPECT_EQ(CinePackageAddChannelDesc("legacy", nullptr, 2), 0);
    EXPECT_EQ(channels("legacy").size(), 3u);
}

TEST_F(Definitions, DefaultsAreSetByChannelOrVectorBaseName) {
    CinePackageDefine("xform");
    ASSERT_EQ(CinePackageAddChannel("xform", CINE_CH_NAME, "pos", VX_STORE_FLOAT, nullptr,
                                    CINE_CH_VECTOR, CINE_VECTOR_XYZ, nullptr, CINE_CH_NAME,
                                    "posture", VX_STORE_FLOAT, nullptr, CINE_CH_NAME, "tint",
                                    VX_STORE_FLOAT, nullptr, CINE_CH_VECTOR, CINE_VECTOR_RGB, "abc",
                                    CINE_CH_NAME, "uv", VX_STORE_FLOAT, nullptr, CINE_CH_VECTOR,
                                    CINE_VECTOR_PAIR, nullptr, CINE_CH_NAME, nullptr),
              1);
    const double values[] = {1.0, 2.0, 3.0, 4.0};
    EXPECT_EQ(CinePackageSetDefault("xform", "pos", values), 3u);
    EXPECT_EQ(CinePackageSetDefault("xform", "tint", values + 1), 3u);
    EXPECT_EQ(CinePackageSetDefault("xform", "uv", values), 2u);
    EXPECT_EQ(CinePackageSetDefault("xform", "posture", values + 3), 1u);
    EXPECT_EQ(CinePackageSetDefault("xform", "po", values), 0u);  // no "." after the name
    EXPECT_EQ(CinePackageSetDefault("xform", "tint.b", values), 1u);
    const auto &list = channels("xform");
    ASSERT_EQ(list.size(), 9u);
    EXPECT_EQ(names(list)[4], "tint.a");
    std::vector<double> defaults;
    for (const ChannelDesc &d : list) defaults.push_back(default_of(d));
    EXPECT_EQ(defaults, (std::vector<double>{1, 2, 3, 4, 2, 1, 4, 1, 2}));
}

constexpr TextHint kShapes[] = {{0, "box"}, {1, "ball"}, {0, nullptr}};
constexpr cine::ChannelLine kLocatorLines[] = {
    cine::vector_channel("pos", cine::Vector::xyz, 0.5).usage(CINE_USAGE_DISTANCE),
    cine::bool_channel("visible", true),
    cine::choice_channel("shape", kShapes, 1),
    cine::int_channel("count", 4).internal(),
    cine::object_channel("label", cine::ObjectKind::text),
    cine::object_channel("ramp", cine::ObjectKind::gradient),
};

TEST_F(Definitions, TypedLinesDescribeTheSameChannelsAsTagLists) {
    CinePackageDefine("locator");
    cine::add_channels("locator", kLocatorLines);
    const auto &list = channels("locator");
    ASSERT_EQ(names(list), (std::vector<std::string>{"pos.X", "pos.Y", "pos.Z", "visible", "shape",
                                                     "count", "label", "ramp"}));
    EXPECT_EQ(default_of(list[2]), 0.5);
    EXPECT_EQ(list[2].usage, CINE_USAGE_DISTANCE);
    EXPECT_EQ(list[3].hints, TextHintBoolean());
    EXPECT_EQ(list[3].default_value.get_int(), 1);
    EXPECT_EQ(list[4].hints, kShapes);
    EXPECT_EQ(list[4].default_value.get_int(), 1);
    EXPECT_TRUE(list[5].internal);
    EXPECT_EQ(ValueTypeKind(list[6].value_type), VX_VALUE_TEXT);
    EXPECT_STREQ(ValueTypeName(list[7].value_type), "gradient");
}

unsigned int add_late_channel(void *client, void *add_chan) {
    void *table = nullptr;
    XObjectQueryInterface(add_chan, CINE_ADD_CHANNEL_GUID, &table);
    const auto *add = static_cast<const CineAddChannelMethods *>(table);
    unsigned int code = add->AddChannel(add_chan, CINE_CH_NAME, static_cast<const char *>(client),
                                        VX_STORE_INT, nullptr, CINE_CH_NAME, nullptr);
    XObjectRelease(add_chan);
    return code;
}

int g_queried = 0;
void *probe(void *client, const char *guid) {
    ++g_queried;
    EXPECT_STREQ(guid, kProbeGuid);
    return client;
}

TEST_F(Definitions, InstantiationAddsTheChannelCallbacksChannelsAndReportsQueries) {
    CinePackageDefine("mesh");
    CinePackageAddChannel("mesh", CINE_CH_NAME, "smooth", VX_STORE_FLOAT, nullptr, CINE_CH_NAME,
                          nullptr);
    CinePackageAddChanFunc("mesh", add_late_channel, const_cast<char *>("late"));
    int answer = 0;
    ASSERT_EQ(
        CinePackageAddQueryFunc("mesh", probe, &answer, "5e1f0a2b-9c3d-4e5f-8a6b-7c8d9e0f1a2b"), 1);
    std::uint32_t code = CineDefineType(0, 0, "mesh");
    EXPECT_EQ(CineTypeMaySupportIfc(code, kProbeGuid), 1);  // known from the definition
    EXPECT_EQ(CinePackageFind("mesh")->object, nullptr);
    EXPECT_EQ(CineItemPackageChannelCount(CinePackageFind("mesh")), 2u);
    EXPECT_EQ(names(CinePackageFind("mesh")->channels),
              (std::vector<std::string>{"smooth", "late"}));
    EXPECT_EQ(channels("mesh").size(), 1u);  // the definition keeps its own list
    g_queried = 0;
    EXPECT_EQ(CinePackageQueryIfc(CinePackageFind("mesh"), kProbeGuid), &answer);
    EXPECT_EQ(g_queried, 1);
    EXPECT_EQ(CineTypeSupportIfc(code, kProbeGuid), 1);
}

TEST(PackageLifetime, DefinitionsNeedTheModuleStarted) {
    CinePackageDefine("early");
    EXPECT_EQ(VxLastFailure().code, VX_E_REFUSED);
    EXPECT_EQ(CineLookupType("early"), CINE_TYPE_NONE);
    EXPECT_EQ(CineTypeCount(), 0u);
    EXPECT_EQ(CineTypeListCreate(nullptr, nullptr, 1), nullptr);
}

}  // namespace
}  // namespace vx::test
