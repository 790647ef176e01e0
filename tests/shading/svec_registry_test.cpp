// The packet registry, vector types and texture effects.
#include <vexor/sys/component.h>

#include "svec_fixture.h"

namespace vx::test {
namespace {

using Registry = SVecTest;
using Types = SVecTest;
using Effects = SVecTest;

struct Builtin {
    const char *name;
    int size;
    bool ops;
};
constexpr Builtin kBuiltins[] = {
    {"sample.position", 144, true},   {"sample.ray", 112, false},
    {"sample.xfrm", 192, true},       {"sample.parms", 280, true},
    {"sample.mask", 12, true},        {"sample.groupMask", 4, true},
    {"sample.driver", 16, true},      {"sample.stencil", 12, true},
    {"sample.volume", 52, true},      {"sample.density", 12, true},
    {"sample.facet", 224, false},     {"sample.dissolve", 4, false},
    {"texture.input", 232, true},     {"texture.output", 112, false},
    {"texture.value", 40, false},     {"texture.locator", 264, false},
    {"surface.normal", 84, true},     {"sample.bump", 80, true},
    {"surface.smoothing", 12, false}, {"shade.opacity", 12, false},
    {"shade.components", 180, true},  {"shade.output", 124, true},
    {"shade.diffuse", 12, true},      {"shade.specular", 12, true},
    {"shade.mirror", 12, true},       {"shade.transparency", 12, true},
    {"shade.subsurface", 12, true},   {"shade.luminosity", 12, true},
    {"displace", 44, true},           {"surfFlags", 88, true},
    {"surfFog", 32, false},           {"fur", 280, true},
    {"particleSample", 108, false},   {"shaderType", 12, false},
    {"groupLayer", 20, true},         {"sample.clip", 16, false},
};

TEST_F(Registry, BuiltinPacketsInOrderWithTheirSizesAndOperations) {
    ASSERT_EQ(VPacketDefCount("sample"), std::size(kBuiltins));
    for (unsigned i = 0; i < std::size(kBuiltins); ++i) {
        SCOPED_TRACE(kBuiltins[i].name);
        EXPECT_STREQ(VPacketName("sample", i), kBuiltins[i].name);
        EXPECT_EQ(VPacketSize("sample", static_cast<int>(i)), kBuiltins[i].size);
        EXPECT_EQ(VPacketOffset("sample", kBuiltins[i].name), i);
        EXPECT_EQ(VPacketInterface("sample", i) != nullptr, kBuiltins[i].ops);
        EXPECT_STREQ(ServerGetInfoTag(HostLookupServer("vectorPacket", kBuiltins[i].name),
                                      "vpacket.category"),
                     "sample");
    }
    const int count = static_cast<int>(VPacketDefCount("sample"));
    for (int bad : {-1, count, count + 5}) EXPECT_EQ(VPacketSize("sample", bad), -1) << bad;
    EXPECT_EQ(VPacketSize("nothing", 0), -1);
    EXPECT_EQ(VPacketDefCount("nothing"), 0u);
    EXPECT_EQ(VPacketName("sample", 99), nullptr);
}

TEST_F(Registry, UnknownNamesAreLookedUpAsServersAndLogged) {
    EXPECT_EQ(VPacketOffset("sample", "no.such"), VPACKET_NONE);
    ASSERT_NE(HostAddBuiltIn("vectorPacket", "untagged", nullptr, nullptr), nullptr);
    EXPECT_EQ(VPacketOffset("sample", "untagged"), VPACKET_NONE);
    EXPECT_EQ(take_lines(),
              (std::vector<std::string>{"Could not lookup packet: no.such !\n",
                                        "Packet server has wrong category: untagged !\n"}));

    HostAddBuiltIn("vectorPacket", "host.packet", nullptr, nullptr);
    HostAddTag("vectorPacket", "host.packet", "vpacket.category", "light  sample");
    HostAddTag("vectorPacket", "host.packet", "vpacket.size", "24");
    EXPECT_EQ(VPacketOffset("surface", "host.packet"), VPACKET_NONE);  // not listed: silent
    EXPECT_EQ(VPacketOffset("sample", "host.packet"), 36u);
    EXPECT_EQ(VPacketOffset("sample", "host.packet"), 36u);
    EXPECT_EQ(VPacketSize("sample", 36), 24);
    EXPECT_EQ(VPacketOffset("light", "host.packet"), 0u);
    // An item-qualified look-up matches its own item, or any entry when the item is 0.
    EXPECT_EQ(VPacketItemOffset("sample", "host.packet", 7), 37u);
    EXPECT_EQ(VPacketItemOffset("sample", "host.packet", 7), 37u);
    EXPECT_EQ(VPacketItemOffset("sample", "host.packet", 0), 36u);
    EXPECT_EQ(VPacketDefCount("sample"), 38u);
    EXPECT_TRUE(take_lines().empty());
}

TEST_F(Registry, DefinedPacketsJoinEveryListedCategoryOnce) {
    void *a = &lines;
    EXPECT_EQ(VPacketDefine("extra sample extra", "custom.obj", nullptr, 0), 0);
    VPacketSetObject(a, nullptr, a);
    EXPECT_EQ(VPacketDefine("sample", "custom.obj", nullptr, 4), -1);  // taken
    EXPECT_EQ(VPacketDefine("sample", "", nullptr, 4), -1);
    EXPECT_EQ(VPacketDefine(nullptr, "x", nullptr, 4), -1);
    EXPECT_EQ(VPacketDefCount("extra"), 1u);
    EXPECT_EQ(VPacketOffset("sample", "custom.obj"), 36u);
    EXPECT_EQ(VPacketSize("extra", 0), 0);
    EXPECT_EQ(VPacketObject("extra", 0, 0), a);
    EXPECT_EQ(VPacketObject("extra", 0, 1), nullptr);
    EXPECT_EQ(VPacketObject("extra", 0, 2), a);
}

// Flags of a packet added twice: bits 0-1 merge, bit 2 stays only if both set it.
TEST_F(Types, AddingAPacketAgainKeepsOneEntryAndMergesFlags) {
    struct Case {
        unsigned first, second, merged;
    };
    for (const Case &c :
         {Case{1, 2, 3}, Case{4, 0, 0}, Case{4, 1, 1}, Case{5, 6, 7}, Case{3, 4, 3}}) {
        VType *t = VTypeAllocate("sample");
        ASSERT_EQ(VTypeAddPacket(t, "shade.diffuse", c.first), 1);
        ASSERT_EQ(VTypeAddPacket(t, "shade.diffuse", c.second), 1);
        EXPECT_EQ(layout(t), "shade.diffuse@0 = 12");
        EXPECT_EQ(VTypePacketFlags(t, idx("shade.diffuse")), c.merged)
            << c.first << "+" << c.second;
        VTypeFree(t);
    }
}

TEST_F(Types, PacketsLieOneAfterAnotherAndSizeZeroTakesEight) {
    ASSERT_EQ(VPacketDefine("sample", "custom.obj", nullptr, 0), 0);
    VType *t = VTypeAllocate("sample");
    for (const char *name : {"shade.diffuse", "custom.obj", "sample.position"}) {
        EXPECT_EQ(VTypeAddPacket(t, name, 0), 1) << name;
    }
    EXPECT_EQ(VTypeAddPacket(t, "no.such", 0), 0);
    EXPECT_EQ(layout(t), "shade.diffuse@0 custom.obj@12 sample.position@20 = 164");
    EXPECT_EQ(VTypePacketOffset(t, idx("sample.ray")), VPACKET_NONE);
    EXPECT_EQ(VTypePacketOffset(t, 5000), VPACKET_NONE);
    EXPECT_EQ(VTypeAddCategoryPackets(t), 37);
    EXPECT_EQ(VTypePacketOffset(t, idx("sample.position")), 20u);  // existing entries stay
    VTypeClear(t);
    EXPECT_EQ(layout(t), "= 0");
    EXPECT_EQ(VTypePacketOffset(t, idx("shade.diffuse")), VPACKET_NONE);
    VTypeFree(t);
}

TEST_F(Types, CopyMergeIntersectAndOverwrite) {
    VType *a = VTypeAllocate("sample");
    VTypeAddPacket(a, "shade.diffuse", 1);
    VTypeAddPacket(a, "sample.position", 2);
    VType *b = VTypeAllocate("sample");
    VTypeAddPacket(b, "sample.position", 5);
    VTypeAddPacket(b, "sample.mask", 1);
    VTypeTestNameSet(a, "a");

    VType *copy = VTypeCopy(a);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(layout(copy), "shade.diffuse@0 sample.position@12 = 156");
    EXPECT_EQ(VTypePacketIndex(copy, 1), idx("sample.position"));
    EXPECT_EQ(VTypeTestName(copy, "a"), 1);

    ASSERT_EQ(VTypeMerge(a, b), 1);
    EXPECT_EQ(layout(a), "shade.diffuse@0 sample.position@12 sample.mask@156 = 168");
    EXPECT_EQ(VTypePacketFlags(a, idx("sample.position")), 3u);
    EXPECT_EQ(VTypeIntersectFast(a, b), 2);
    EXPECT_EQ(VTypeIntersectFast(copy, b), 1);

    ASSERT_EQ(VTypeIntersect(a, b), 2);  // diffuse goes; the rest moves down
    EXPECT_EQ(layout(a), "sample.position@0 sample.mask@144 = 156");
    EXPECT_EQ(VTypePacketOffset(a, idx("shade.diffuse")), VPACKET_NONE);

    VType *picked = VTypeAllocate("sample");
    ASSERT_EQ(VTypeMergeByFlags(picked, b, 4), 1);
    EXPECT_EQ(layout(picked), "sample.position@0 = 144");
    EXPECT_EQ(VTypePacketFlags(picked, idx("sample.position")), 5u);
    ASSERT_EQ(VTypeOverwrite(picked, copy), 1);
    EXPECT_EQ(layout(picked), "shade.diffuse@0 sample.position@12 = 156");

    VType *other = VTypeAllocate("light");
    EXPECT_EQ(VTypeMerge(other, a), 0);
    EXPECT_EQ(VTypeOverwrite(other, a), 0);
    EXPECT_EQ(VTypeIntersectFast(other, a), 0);
    for (VType *t : {a, b, copy, picked, other}) VTypeFree(t);
}

TEST_F(Types, CountersTestNamesAndDump) {
    VTypeAddPacketCountEnable(1);
    VType *a = VTypeAllocate("sample");
    VType *b = VTypeCopy(a);
    VTypeAddPacket(a, "shade.diffuse", 1);
    VTypeAddItemPacket(a, "shade.diffuse", 0, 0);
    EXPECT_EQ(VTypeAllocateCount(), 2u);
    EXPECT_EQ(VTypeAddPacketCount(), 0u);  // nothing counts additions
    VTypeAddPacketCountEnable(0);
    VType *c = VTypeAllocate("sample");
    EXPECT_EQ(VTypeAllocateCount(), 0u);

    EXPECT_EQ(VTypeTestNameGet(a), nullptr);
    EXPECT_EQ(VTypeTestName(a, ""), 0);
    VTypeTestNameSet(a, "probe");
    EXPECT_STREQ(VTypeTestNameGet(a), "probe");
    EXPECT_EQ(VTypeTestName(a, "probe"), 1);
    EXPECT_EQ(VTypeTestName(a, "other"), 0);
    VTypeAddPacket(a, "sample.ray", 6);
    take_lines();
    VTypeDump(a);
    EXPECT_EQ(take_lines(), (std::vector<std::string>{
                                "vector type \"probe\" of \"sample\": 2 packets, 124 bytes\n",
                                "       0    12 bytes  flags 1  shade.diffuse\n",
                                "      12   112 bytes  flags 6  sample.ray\n"}));
    for (VType *t : {a, b, c}) VTypeFree(t);
}

TEST_F(Types, PoolReusesTheFirstFreeSlot) {
    VType *t[3];
    for (VType *&each : t) each = VTypeAllocate("pool");
    VTypeFree(t[1]);
    VType *again = VTypeAllocate("pool");
    EXPECT_EQ(again, t[1]);
    EXPECT_EQ(VTypeAllocate(nullptr), nullptr);
    for (VType *each : {t[0], again, t[2]}) VTypeFree(each);
}

TEST_F(Effects, OneServerPerNameGathersItsCategories) {
    EXPECT_EQ(TextureEffectDefine("surface", "fx", nullptr, nullptr), 1);
    EXPECT_EQ(TextureEffectDefine("light", "fx", nullptr, nullptr), 1);
    EXPECT_EQ(TextureEffectDefine("surface", "fx", nullptr, nullptr), 1);
    EXPECT_EQ(TextureEffectDefine("light", "other", nullptr, nullptr), 1);
    EXPECT_EQ(TextureEffectDefine("", "x", nullptr, nullptr), 0);
    EXPECT_EQ(HostServerCount("textureEffect"), 2u);
    EXPECT_STREQ(ServerGetInfoTag(HostLookupServer("textureEffect", "fx"), "textureFX.category"),
                 "surface light");
    EXPECT_STREQ(TextureEffectList("light", 1), "other");
    EXPECT_EQ(TextureEffectList("surface", 1), nullptr);
    EXPECT_STREQ(TextureEffectDefault("light"), "fx");
    EXPECT_EQ(TextureEffectSetDefault("surface", "other"), 0);
    EXPECT_EQ(TextureEffectSetDefault("light", "other"), 1);
    EXPECT_STREQ(TextureEffectDefault("light"), "other");
    EXPECT_EQ(TextureEffectDefault("camera"), nullptr);

    void *object = nullptr;
    ASSERT_EQ(TextureEffectAllocate("fx", &object), VX_OK);
    EXPECT_STREQ(XObjectClassName(object), "txtrFX.wrapper");
    XObjectRelease(object);
    EXPECT_EQ(TextureEffectAllocate("none", &object), VX_E_NOTFOUND);
}

TEST_F(Effects, PacketEffectsHoldTheirPacketTypeAndObjectAndOnlyGainCategoriesAgain) {
    void *probe = make_probe_object();
    take_lines();
    EXPECT_EQ(PacketEffectDefine("surface", "shade.diffuse", probe, "diffuseFX"), 1);
    EXPECT_EQ(take_lines(), (std::vector<std::string>{
                                "-> Texture effect defined: name = diffuseFX, custom packet = "
                                "shade.diffuse\n"}));
    EXPECT_EQ(XObjectAddRef(probe), 3u);  // the effect holds one
    XObjectRelease(probe);
    const VType *type = TextureEffectType("diffuseFX");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(layout(type), "shade.diffuse@0 = 12");
    EXPECT_EQ(VTypePacketFlags(type, idx("shade.diffuse")), 1u);
    // Defined again, a known effect only gains the category: the packet named is not looked up.
    const unsigned packets = VPacketDefCount("sample");
    EXPECT_EQ(PacketEffectDefine("light", "no.such", nullptr, "diffuseFX"), 1);
    EXPECT_EQ(PacketEffectDefine("camera", nullptr, nullptr, "diffuseFX"), 1);
    EXPECT_STREQ(
        ServerGetInfoTag(HostLookupServer("textureEffect", "diffuseFX"), "textureFX.category"),
        "surface light camera");
    EXPECT_EQ(TextureEffectPacket("diffuseFX"), idx("shade.diffuse"));
    EXPECT_EQ(VPacketDefCount("sample"), packets);
    EXPECT_TRUE(take_lines().empty());
    EXPECT_STREQ(TextureEffectList("light", 0), "diffuseFX");
    EXPECT_EQ(PacketEffectDefine("surface", "no.such", nullptr, "badFX"), 0);
    EXPECT_EQ(TextureEffectList(nullptr, 1), nullptr);
    EXPECT_EQ(PacketEffectDefine("camera", "shade.mirror", nullptr, "mirrorFX"), 1);  // no object
    void *object = nullptr;
    ASSERT_EQ(TextureEffectAllocate("diffuseFX", &object), VX_OK);
    EXPECT_STREQ(XObjectClassName(object), "packFX.wrapper");
    XObjectRelease(object);
    SVecShutdown();  // releases the effect's reference
    EXPECT_EQ(XObjectRelease(probe), 0u);
    SVecStartup();
}

}  // namespace
}  // namespace vx::test
