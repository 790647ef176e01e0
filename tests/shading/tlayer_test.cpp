// The shader tree: layer types, navigation, shading contexts, materials by polygon tag and the
// evaluation of a stack.
#include <gtest/gtest.h>

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/failure.h>
#include <vexor/package.h>
#include <vexor/tlayer.h>
#include <vexor/undo.h>
#include <vexor/xfrm.h>

#include <string>

#include "support/alloc_injection.h"
#include "support/in_order.h"

namespace vx::test {
namespace {

// A type of non-layer items that declares what it is for shading.
std::uint32_t context_type(const char *name, const char *context) {
    if (CinePackageFind(name) == nullptr) CinePackageDefine(name);
    const std::uint32_t code = CineDefineType(0, 0, name);
    CineTypeAddTag(code, "shade.context", context);
    return code;
}

class ShadeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UndoSysStartup();
        UndoSysEnable(1);
        ASSERT_EQ(ShadeStartup(), 1) << VxLastFailure().text;
        scene = CinemaCreate(0);
        ASSERT_NE(scene, nullptr);
        setup = CineActionGetDefault(scene, 0);
        root = make("mask");
    }
    void TearDown() override {
        CinemaDestroy(scene);
        ShadeShutdown();
        UndoSysShutdown();
    }
    CineItem *make(const char *type, CineItem *parent = nullptr) {
        CineItem *item = CineItemCreate(scene, CineLookupType(type));
        EXPECT_NE(item, nullptr) << type;
        if (parent != nullptr) {
            EXPECT_EQ(CineItemSetParent(item, parent, -1), 0u);
        }
        return item;
    }
    void set(CineItem *item, const char *channel, double value) {
        ASSERT_EQ(CineActionSetConstant(setup, item, channel_of(item, channel), value), 1)
            << channel;
    }
    void set_text(CineItem *item, const char *channel, const char *value) {
        ASSERT_EQ(CineActionSetConstantText(setup, item, channel_of(item, channel), value), 1);
    }
    void set_rgb(CineItem *item, const char *channel, double r, double g, double b) {
        const std::string name = channel;
        set(item, (name + ".R").c_str(), r);
        set(item, (name + ".G").c_str(), g);
        set(item, (name + ".B").c_str(), b);
    }
    static unsigned channel_of(CineItem *item, const char *name) {
        const int index = CineItemLookupChannel(item, name);
        EXPECT_GE(index, 0) << name;
        return static_cast<unsigned>(index);
    }
    // The children of an item by type name, "type:ptag" for groups.
    std::string tree(CineItem *parent) {
        std::string text;
        for (unsigned i = 0; i < CineItemSubCount(parent); ++i) {
            CineItem *child = CineItemSubByIndex(parent, i);
            text += CineTypeName(CineItemType(child));
            if (CineItemTestType(child, CineLookupType("mask"))) {
                const int ptag = CineItemLookupChannel(child, "ptag");
                text += ":" + std::string(static_cast<const char *>(
                                  CineActionValueCust(setup, child, static_cast<unsigned>(ptag))));
            }
            text += " ";
        }
        return text;
    }

    Cinema *scene = nullptr;
    CineAction *setup = nullptr;
    CineItem *root = nullptr;
};

using LayerTree = ShadeTest;
using Materials = ShadeTest;
using LayerStack = ShadeTest;

unsigned custom_flags(void *client, CineItem *) {
    return *static_cast<unsigned *>(client);
}

TEST_F(LayerTree, TypesDeriveFromTheTextureLayerAndCarryItsChannels) {
    EXPECT_EQ(TextureLayerDefCount(), 5u);
    static unsigned flags = 0x42;
    static const TextureLayerOps ops = {custom_flags, nullptr};
    const std::uint32_t code = TextureLayerDefine("tstLayer", &ops, &flags);
    ASSERT_NE(code, CINE_TYPE_NONE);
    EXPECT_EQ(TextureLayerDefine("tstLayer", &ops, &flags), code);
    EXPECT_EQ(TextureLayerDefCount(), 6u);
    EXPECT_EQ(CineTypeTest(code, TLAYER_TYPE_CODE), 1);
    EXPECT_EQ(
        TextureLayerDefine2("tstNotLayer", nullptr, nullptr, context_type("tstMesh", "surface")),
        CINE_TYPE_NONE);
    for (const char *type : {"mask", "advancedMaterial", "renderOutput", "constant", "checker"}) {
        CineItem *layer = make(type);
        for (const char *channel : {"enable", "opacity", "blend", "effect"}) {
            EXPECT_GE(CineItemLookupChannel(layer, channel), 0) << type << " " << channel;
        }
        EXPECT_EQ(TLayerIsLayer(layer), 1);
    }
    EXPECT_EQ(in_order({TLayerFlags(make("tstLayer")), TLayerFlags(make("renderOutput")),
                        TLayerFlags(make("constant")), TLayerIsLayer(make("tstMesh"))}),
              (Ints{0x42, TLAYER_FLAG_OUTPUT, 0, 0}));
}

TEST_F(LayerTree, StacksEffectsAndRoots) {
    context_type("tstMesh", "surface");
    CineItem *mesh = make("tstMesh");
    ASSERT_EQ(CineItemSetParent(root, mesh, -1), 0u);
    CineItem *a = make("constant", root), *b = make("constant", root), *c = make("checker", root);
    // The root has no siblings under the mesh, a loose layer no parent.
    EXPECT_EQ(
        in_order({TLayerNextLayer(a), TLayerNextLayer(c), TLayerPrevLayer(a), TLayerPrevLayer(c),
                  TLayerNextLayer(root), TLayerNextLayer(make("constant")), TLayerRootItem(c)}),
        (Ptrs{b, nullptr, nullptr, b, nullptr, nullptr, root}));

    EXPECT_STREQ(TLayerEffect(a), "(all)");
    set_text(b, "effect", "groupMask");
    set_text(c, "effect", "output");
    EXPECT_EQ(TLayerGroupMaskLayer(root), b);
    EXPECT_EQ(TLayerEffectCount(root, "output"), 2u);  // a, as "(all)", and c
    set(a, "enable", 0);
    EXPECT_EQ(in_order({TLayerEffectCount(root, "output"), TLayerIsMasked(a)}), (Ints{1, 0}));
    set_text(root, "ptag", "Wood");
    EXPECT_EQ(TLayerIsMasked(a), 1);
    EXPECT_STREQ(TLayerTagTypeName(0x50494B43u), nullptr);
    EXPECT_STREQ(TLayerTagTypeName(0x5049434Bu), "Selection Set");
}

TEST_F(LayerTree, ShadeContextsWalkFromTheBaseLayerUp) {
    context_type("tstMesh", "surface");
    context_type("tstLight", "light");
    context_type("tstCamera", "camera");
    context_type("tstEnv", "environment");
    CineItem *light = make("tstLight"), *camera = make("tstCamera"), *env = make("tstEnv");
    CineItem *under_light = make("constant", make("mask", light));
    CineItem *loose = make("constant");
    CineItem *based = make("constant", make("mask", env));
    EXPECT_STREQ(TLayerShadeContext(under_light), "light");
    EXPECT_STREQ(TLayerShadeContext(loose), "surface");  // ran out of parents
    EXPECT_STREQ(TLayerShadeContext(light), "light");    // not a layer: its own type
    EXPECT_STREQ(TLayerShadeContext(based), "environment");

    EXPECT_EQ(TLayerBaseLayer(based), nullptr);
    EXPECT_EQ(in_order({TLayerIsMaskLayer(based), TLayerLinkShade(camera, based),
                        TLayerLinkShade(light, based), TLayerIsMaskLayer(based)}),
              (Ints{0, 1, 1, 2}));
    EXPECT_EQ(TLayerBaseLayer(based), camera);
    EXPECT_STREQ(TLayerShadeContext(based), "camera");  // the base layer leads
}

// The library's own lights and cameras, as the item itself, as a base layer and as an ancestor.
TEST_F(LayerTree, TheLibrarysLightsAndCamerasNameTheirContexts) {
    const struct {
        std::uint32_t type;
        const char *context;
    } rows[] = {{XFRM_TYPE_LIGHT, "light"}, {XFRM_TYPE_CAMERA, "camera"}};
    for (const auto &row : rows) {
        CineItem *item = CineItemCreate(scene, row.type);
        ASSERT_NE(item, nullptr);
        CineItem *linked = make("constant");
        ASSERT_EQ(TLayerLinkShade(item, linked), 1);
        EXPECT_STREQ(TLayerShadeContext(item), row.context);
        EXPECT_STREQ(TLayerShadeContext(linked), row.context);
        EXPECT_STREQ(TLayerShadeContext(make("constant", make("mask", item))), row.context);
    }
}

TEST_F(LayerTree, DuplicatesCarryValuesChildrenAndLinksAndUndoAsOne) {
    context_type("tstCamera", "camera");
    CineItem *camera = make("tstCamera");
    CineItem *group = make("mask", root);
    CineItem *top = make("constant", root);
    CineItem *layer = make("constant", group);
    set_rgb(layer, "color", 0.25, 0.5, 0.75);
    set_text(group, "ptag", "Wood");
    ASSERT_EQ(TLayerLinkShade(camera, group), 1);
    const unsigned before = CinemaItemCount(scene);

    CineItem *copy = TLayerDuplicateItem(group);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(in_order({TLayerNextLayer(group), TLayerNextLayer(copy), TLayerBaseLayer(copy)}),
              (Ptrs{copy, top, camera}));
    EXPECT_EQ(tree(root), "mask:Wood mask:Wood constant ");
    ASSERT_EQ(CineItemSubCount(copy), 1u);
    CineItem *inner = CineItemSubByIndex(copy, 0);
    EXPECT_DOUBLE_EQ(CineActionValueFloat(setup, inner, channel_of(inner, "color.B")), 0.75);
    EXPECT_EQ(TLayerRestoreLinks(copy, group), 0);  // nothing left to restore

    ASSERT_EQ(UndoSysUndo(), 1);
    EXPECT_EQ(CinemaItemCount(scene), before);
    EXPECT_EQ(tree(root), "mask:Wood constant ");
    EXPECT_EQ(TLayerIsMaskLayer(group), 1);
    EXPECT_EQ(TLayerDuplicateItem(camera), nullptr);  // not a layer
}

TEST_F(Materials, LookupFindsNestedAndLinkedGroupsBeforeCreating) {
    CineItem *output = make("renderOutput", root);
    const unsigned before = CinemaItemCount(scene);
    EXPECT_EQ(MaterialLookup(root, nullptr, "Wood", 0), nullptr);
    EXPECT_EQ(CinemaItemCount(scene), before);

    CineItem *wood = MaterialLookup(root, nullptr, "Wood", 1);
    ASSERT_NE(wood, nullptr);
    CineItem *group = CineItemParent(wood);
    EXPECT_EQ(tree(root), "mask:Wood renderOutput ");  // groups stay below the outputs
    EXPECT_STREQ(
        static_cast<const char *>(CineActionValueCust(setup, group, channel_of(group, "ptyp"))),
        "Material");
    EXPECT_EQ(in_order({MaterialLookup(root, nullptr, "Wood", 1),
                        MaterialMaskLookup(root, nullptr, "Wood", 0)}),
              (Ptrs{wood, group}));
    ASSERT_NE(MaterialLookup(root, nullptr, "Steel", 1), nullptr);
    EXPECT_EQ(tree(root), "mask:Wood mask:Steel renderOutput ");
    EXPECT_EQ(TLayerNextLayer(group), CineItemSubByIndex(root, 1));
    (void)output;

    // A nested group of the same tag wins over its parent group.
    CineItem *nested = make("mask", group);
    set_text(nested, "ptag", "Wood");
    CineItem *inner = make("advancedMaterial", nested);
    EXPECT_EQ(
        in_order({PTagGroupLookup(setup, root, "Wood"), MaterialLookup(root, nullptr, "Wood", 0)}),
        (Ptrs{nested, inner}));

    // A group linked to the item serves any tag the others do not.
    context_type("tstMesh", "surface");
    CineItem *mesh = make("tstMesh");
    CineItem *linked = make("mask", root);
    CineItem *linked_material = make("advancedMaterial", linked);
    ASSERT_EQ(TLayerLinkShade(linked, mesh), 1);
    EXPECT_EQ(in_order({MaterialLookup(root, mesh, "Glass", 0),
                        MaterialLookup(root, nullptr, "Glass", 0)}),
              (Ptrs{linked_material, nullptr}));
}

TEST_F(Materials, CreationIsOneUndoStep) {
    const unsigned before = CinemaItemCount(scene);
    ASSERT_NE(MaterialLookup(root, nullptr, "Wood", 1), nullptr);
    EXPECT_EQ(CinemaItemCount(scene), before + 2);
    ASSERT_EQ(UndoSysUndo(), 1);
    EXPECT_EQ(CineItemSubCount(root), 0u);
    EXPECT_EQ(MaterialLookup(root, nullptr, "Wood", 0), nullptr);
    ASSERT_EQ(UndoSysRedo(), 1);
    EXPECT_EQ(tree(root), "mask:Wood ");
    EXPECT_NE(MaterialLookup(root, nullptr, "Wood", 0), nullptr);
}

// A failure at any allocation of the creation leaves the scene as it was, with no block left
// behind. (Byte counts may differ: the scene's tables keep the capacity a failed attempt gave
// them, which the general atomicity helper would take for a leak.)
TEST(MaterialAtomicity, FailedCreationLeavesTheSceneAsItWas) {
    UndoSysStartup();
    UndoSysEnable(1);
    ShadeStartup();
    Cinema *scene = CinemaCreate(0);
    CineItem *root = CineItemCreate(scene, CineLookupType("mask"));
    CineItemSetParent(CineItemCreate(scene, CineLookupType("renderOutput")), root, -1);
    auto snapshot = [&] {
        std::string s = std::to_string(CinemaItemCount(scene)) + ":";
        for (unsigned i = 0; i < CineItemSubCount(root); ++i) {
            s += std::string(" ") + CineTypeName(CineItemType(CineItemSubByIndex(root, i)));
        }
        return s;
    };
    const std::string before = snapshot();
    int failed = 0;
    for (std::uint64_t n = 1;; ++n) {
        const AllocCounts live = alloc_counts();
        fail_allocation(n);
        CineItem *made = MaterialLookup(root, nullptr, "Wood", 1);
        const bool raised = injected_failure_raised();
        stop_failing();
        if (!raised) {
            ASSERT_NE(made, nullptr);
            EXPECT_EQ(snapshot(), "4: mask renderOutput");
            break;
        }
        if (made != nullptr) {  // the failure was absorbed: take the whole edit back
            ASSERT_EQ(UndoSysUndo(), 1);
            UndoSysClear();
            continue;
        }
        ++failed;
        EXPECT_EQ(snapshot(), before) << "allocation " << n;
        EXPECT_EQ(alloc_counts().live_blocks, live.live_blocks) << "allocation " << n;
    }
    EXPECT_GT(failed, 10);
    CinemaDestroy(scene);
    ShadeShutdown();
    UndoSysShutdown();
}

TEST_F(LayerStack, LayersBlendBottomToTopThroughTheSampleVector) {
    CineItem *red = make("constant", root);
    set_rgb(red, "color", 1, 0, 0);
    CineItem *blue = make("constant", root);
    set_rgb(blue, "color", 0.5, 0.5, 1);
    set(blue, "blend", 6);  // multiply
    set(blue, "opacity", 0.5);
    CineItem *off = make("constant", root);
    set(off, "enable", 0);
    CineItem *output_only = make("constant", root);
    set_text(output_only, "effect", "output");

    VType *type = VTypeAllocate("sample");
    VTypeAddPacket(type, "texture.input", 0);
    VTypeAddPacket(type, "texture.value", 0);
    GVector *sample = GVCreate(type, nullptr, 0);
    double dest[4] = {0, 0, 0, 0};
    EXPECT_EQ(TLayerEvaluate(root, nullptr, sample, "diffuse", dest), 2);
    // red copies in whole; blue multiplies half-way: 1 * 0.5 + 0.5 * (1 * 0.5).
    EXPECT_DOUBLE_EQ(dest[0], 0.75);
    EXPECT_DOUBLE_EQ(dest[1], 0.0);
    EXPECT_DOUBLE_EQ(dest[3], 1.0);
    const auto *written = static_cast<VPTextureValue *>(
        GVPacket(sample, VPacketOffset("sample", "texture.value"), GV_READ));
    EXPECT_FLOAT_EQ(written->color[0], 0.75f);

    // A checkerboard inside a nested group, over a sample placed in texture space.
    CineItem *group = make("mask", root);
    CineItem *checker = make("checker", group);
    set(checker, "size", 2);
    auto *input = static_cast<VPTextureInput *>(
        GVPacket(sample, VPacketOffset("sample", "texture.input"), GV_WRITE));
    for (float where : {1.0f, 3.0f}) {
        input->tPos[0] = where;
        double over[4] = {0, 0, 0, 0};
        EXPECT_EQ(TLayerEvaluate(root, nullptr, sample, nullptr, over), 4);
        EXPECT_DOUBLE_EQ(over[2], where < 2 ? 1.0 : 0.0) << where;  // color, then color2
    }
    GVDestroy(sample);
    VTypeFree(type);
}

}  // namespace
}  // namespace vx::test
