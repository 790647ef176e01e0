// Transform types and chains: codes, channels and tags; adding, finding and moving members;
// standard members with their pairs; legacy channel names; settings; atomic chain edits.
#include <functional>
#include <memory>
#include <random>

#include "group_fixture.h"
#include "support/edit_table.h"
#include "support/undo_property.h"

namespace vx::test {
namespace {

TEST_F(XfrmTest, TypesHaveTheirCodesSupersChannelsAndTags) {
    struct Type {
        const char *name;
        uint32_t code, super;
    };
    const Type types[] = {{"xfrmcore", 24, 0},     {"locator", 3, 24},      {"camera", 6, 3},
                          {"light", 5, 3},         {"groupLocator", 17, 3}, {"transform", 18, 0},
                          {"translation", 19, 18}, {"rotation", 20, 18},    {"scale", 21, 18},
                          {"shear", 22, 18}};
    for (const Type &t : types) {
        EXPECT_EQ(CineLookupType(t.name), t.code) << t.name;
        EXPECT_EQ(CineLookupSuper(t.code), t.super) << t.name;
    }
    CineItem *camera = CineItemCreate(scene, XFRM_TYPE_CAMERA);
    const char *core[] = {"localMatrix",   "parentMatrix",  "wposMatrix",    "wrotMatrix",
                          "wsclMatrix",    "wpivPosMatrix", "wpivRotMatrix", "worldMatrix",
                          "wParentMatrix", "inheritPos",    "inheritRot",    "inheritScl"};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(CineItemLookupChannel(camera, core[i]), i) << core[i];
    CineEval *eval = CineEvalCreate(scene);
    CineEvalSetAction(eval, CineActionGetDefault(scene, 9));
    EXPECT_EQ(CineEvalChannelInt(eval, camera, 10), 1);  // inherits by default
    CineItem *rotation = CineItemCreate(scene, XFRM_TYPE_ROTATION);
    EXPECT_EQ(CineItemLookupChannel(rotation, "matrix"), 0);
    EXPECT_EQ(CineItemLookupChannel(rotation, "rot.X"), 2);
    EXPECT_EQ(CineItemLookupChannel(rotation, "order"), 5);
    EXPECT_EQ(CineItemLookupChannel(CineItemCreate(scene, XFRM_TYPE_SHEAR), "shearYZ"), 4);
    EXPECT_EQ(CineEvalChannel(eval, CineItemCreate(scene, XFRM_TYPE_SCALE), 3), 1.0);

    EXPECT_EQ(CineTypeIsMask(XFRM_TYPE_GROUP_LOCATOR), 1);
    EXPECT_EQ(CineTypeIsMask(XFRM_TYPE_LOCATOR), 0);
    EXPECT_STREQ(CineTypeGetTag(XFRM_TYPE_ROTATION, "deformation.channel", 0), "deformation");
    EXPECT_STREQ(CineTypeGetTag(XFRM_TYPE_CAMERA, "deformation.channel", 1), "deformation");
    EXPECT_NE(CineTypeGetTag(XFRM_TYPE_LIGHT, "pkg.createCmd", 0), nullptr);
    EXPECT_STREQ(CinemaGraphName(XfrmCoreGraph(scene)), "xfrmCore");
    EXPECT_STREQ(CinemaGraphName(XfrmLocalGraph(scene)), "xfrmLocal");
}

TEST_F(XfrmTest, MembersAreAddedFoundAndMovedInOrder) {
    CineItem *loc = locator("Loc");
    EXPECT_EQ(XfrmGetTransformArray(loc, nullptr, 0), 0u);
    EXPECT_EQ(XfrmGetFirstTransform(loc), nullptr);
    CineItem *s1 = XfrmAddTransformItem(loc, XFRM_TYPE_SCALE);
    CineItem *r = XfrmAddTransformItem(loc, XFRM_TYPE_ROTATION);
    CineItem *t = XfrmAddTransformItem(loc, XFRM_TYPE_TRANSLATION);
    CineItem *s2 = XfrmAddTransformItem(loc, XFRM_TYPE_SCALE);
    ASSERT_NE(s2, nullptr);
    EXPECT_EQ(chain(loc), (std::vector<CineItem *>{s1, r, t, s2}));
    EXPECT_EQ(XfrmGetFirstTransform(loc), s1);
    EXPECT_EQ(XfrmGetLastTransform(loc), s2);
    EXPECT_EQ(XfrmFindTransformOfType(loc, XFRM_TYPE_SCALE, 1), s1);
    EXPECT_EQ(XfrmFindTransformOfType(loc, XFRM_TYPE_SCALE, 0), s2);
    EXPECT_EQ(XfrmFindTransformOfType(loc, XFRM_TYPE_SHEAR, 1), nullptr);
    EXPECT_EQ(XfrmFindTransformOfType(loc, XFRM_TYPE_TRANSFORM, 1), nullptr);  // exact type
    EXPECT_EQ(XfrmRootItem(r), loc);
    EXPECT_EQ(XfrmRootItem(loc), nullptr);

    EXPECT_EQ(XfrmAddTransformItem(loc, XFRM_TYPE_LOCATOR), nullptr);
    EXPECT_TRUE(logged("XfrmAddTransformItem:  Unable to create transform item, unknown type"));
    EXPECT_EQ(XfrmAddTransformItem(r, XFRM_TYPE_SCALE), nullptr);  // a transform is not placed

    struct Move {
        CineItem *what;
        CineItem *target;
        int after;
        int result;
        std::vector<CineItem *> chain;
    };
    const Move moves[] = {
        {s2, r, 0, 1, {s1, s2, r, t}},  {s1, t, 1, 1, {s2, r, t, s1}},
        {s1, s1, 1, 0, {s2, r, t, s1}}, {loc, r, 0, 0, {s2, r, t, s1}},
        {s2, s1, 1, 1, {r, t, s1, s2}}, {t, r, 0, 1, {t, r, s1, s2}},
    };
    for (const Move &m : moves) {
        EXPECT_EQ(XfrmMoveRelative(m.what, m.target, m.after), m.result);
        EXPECT_EQ(chain(loc), m.chain);
    }
    // Each move is one undo step.
    ASSERT_EQ(UndoSysUndo(), 1);
    EXPECT_EQ(chain(loc), (std::vector<CineItem *>{r, t, s1, s2}));

    // Into another chain, and onto a transform that is in none.
    CineItem *other = locator("Other");
    CineItem *lone = XfrmAddTransformItem(other, XFRM_TYPE_SHEAR);
    EXPECT_EQ(XfrmMoveRelative(r, lone, 1), 1);
    EXPECT_EQ(chain(other), (std::vector<CineItem *>{lone, r}));
    EXPECT_EQ(chain(loc), (std::vector<CineItem *>{t, s1, s2}));
    EXPECT_EQ(XfrmRootItem(r), other);
    CineItem *free = CineItemCreate(scene, XFRM_TYPE_TRANSLATION);
    EXPECT_EQ(XfrmMoveRelative(t, free, 0), 0);
    EXPECT_TRUE(logged("XfrmMoveRelative:  Error - core transform not found"));
    EXPECT_EQ(chain(loc), (std::vector<CineItem *>{t, s1, s2}));
}

TEST_F(XfrmTest, StandardMembersTakeTheirPlacesAndPivotsComeInPairs) {
    CineItem *loc = locator();
    EXPECT_EQ(XfrmGetStdTransform(loc, XFRM_KIND_TRANSLATION, 0), nullptr);
    CineItem *t = XfrmGetStdTransform(loc, XFRM_KIND_TRANSLATION, 1);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(CineItemType(t), XFRM_TYPE_TRANSLATION);
    EXPECT_EQ(XfrmGetStdTransform(loc, XFRM_KIND_TRANSLATION, 1), t);
    CineItem *user = XfrmAddTransformItem(loc, XFRM_TYPE_ROTATION);  // not a standard member
    CineItem *s = XfrmGetStdTransform(loc, XFRM_KIND_SCALE, 1);
    CineItem *r = XfrmGetStdTransform(loc, XFRM_KIND_ROTATION, 1);
    EXPECT_EQ(kinds(loc), "scale rotation translation -");
    const unsigned steps = UndoSysUndoCount();
    CineItem *pivot = XfrmAddStdTransform(loc, XFRM_KIND_PIVOT);
    ASSERT_NE(pivot, nullptr);
    EXPECT_EQ(UndoSysUndoCount(), steps + 1);  // the pair is one step
    EXPECT_EQ(kinds(loc), "pivotComp scale rotation pivot translation -");
    CineItem *comp = XfrmGetStdTransformByName(loc, "pivotComp");
    ASSERT_NE(comp, nullptr);
    CineItem *partner = nullptr;
    EXPECT_EQ(XfrmGetPreTransformArray(comp, &partner, 1), 1u);  // the pivot links to it
    EXPECT_EQ(partner, pivot);
    XfrmGetStdTransform(loc, XFRM_KIND_PIVOT_ROT_COMP, 1);
    XfrmGetStdTransform(loc, XFRM_KIND_SHEAR, 1);
    EXPECT_EQ(kinds(loc),
              "pivotComp pivotRotationComp scale shear rotation pivotRotation pivot translation -");

    EXPECT_EQ(XfrmAddStdTransform(loc, XFRM_KIND_SCALE), nullptr);
    EXPECT_TRUE(logged("XfrmAddStdTransform:  Standard transform already assigned"));
    EXPECT_EQ(XfrmGetStdTransformByName(loc, "position"), nullptr);
    EXPECT_EQ(XfrmGetStdTransformByName(loc, "translation"), t);
    EXPECT_EQ(XfrmGetStdTransform(loc, 8, 1), nullptr);
    EXPECT_EQ(XfrmGetStdTransform(t, XFRM_KIND_SCALE, 1), nullptr);

    struct Legacy {
        const char *name;
        CineItem *transform;
        int component, kind;
    };
    const Legacy legacy[] = {
        {"pos.X", t, 2, 2},           {"rot.Y", r, 3, 1},        {"rotOrd", r, 5, 1},
        {"scl.Z", s, 4, 0},           {"pivPos.X", pivot, 2, 3}, {"pivPosC.Y", comp, 3, 4},
        {"visible", nullptr, -7, -1}, {"pos", nullptr, -7, -1},
    };
    for (const Legacy &l : legacy) {
        int component = -7, kind = 99;
        EXPECT_EQ(XfrmFindLegacyChannel(loc, l.name, &component, &kind), l.transform) << l.name;
        EXPECT_EQ(component, l.component) << l.name;
        EXPECT_EQ(kind, l.kind) << l.name;
    }
    int kind = 99;
    EXPECT_EQ(XfrmFindLegacyChannel(t, "pos.X", nullptr, &kind), nullptr);
    EXPECT_EQ(kind, -1);
    EXPECT_NE(user, nullptr);

    // Undoing the pivot takes both halves away.
    while (UndoSysUndoCount() > steps) UndoSysUndo();
    EXPECT_EQ(kinds(loc), "scale rotation translation -");
}

TEST_F(XfrmTest, SettingsClampTheRotationOrderAndNewRotationsTakeIt) {
    const int orders[][2] = {{6, 4}, {-1, 4}, {0, 0}, {5, 5}, {2, 2}};
    for (const auto &o : orders) {
        XfrmSetDefaultRotationOrder(o[0]);
        EXPECT_EQ(XfrmDefaultRotationOrder(), o[1]) << o[0];
    }
    CineItem *r = XfrmAddTransformItem(locator(), XFRM_TYPE_ROTATION);
    EXPECT_EQ(CineActionValueInt(setup(), r, 5), 2);
    XfrmSetDefaultRotationOrder(4);
    XfrmSetAutoTransforms(1);
    EXPECT_EQ(XfrmAutoTransforms(), 1);
    XfrmSetAutoTransforms(0);
    EXPECT_EQ(XfrmAutoTransforms(), 0);
}

// A scene with a locator whose chain has a scale, a rotation and a translation; every edit
// under test runs on a fresh one.
struct Chain {
    Cinema *scene = nullptr;
    CineItem *loc = nullptr;
    Chain() {
        UndoSysSuspend();
        scene = CinemaCreate(0);
        loc = CineItemCreate(scene, XFRM_TYPE_LOCATOR);
        for (int kind : {XFRM_KIND_SCALE, XFRM_KIND_ROTATION, XFRM_KIND_TRANSLATION})
            XfrmGetStdTransform(loc, kind, 1);
        UndoSysResume();
        // The scene's tables grow once for more items; growing them here keeps that out of
        // the edits under test.
        XfrmAddStdTransform(loc, XFRM_KIND_PIVOT);
        XfrmAddTransformItem(loc, XFRM_TYPE_ROTATION);
        UndoSysUndo();
        UndoSysUndo();
        UndoSysClear();
    }
    ~Chain() {
        UndoSysClear();
        CinemaDestroy(scene);
    }
    Chain(const Chain &) = delete;
    Chain &operator=(const Chain &) = delete;
    std::string snapshot() const {
        return std::to_string(CinemaItemCount(scene)) + " items;" + chain_text(loc, false);
    }
};

TEST_F(XfrmTest, FailedChainEditsLeaveTheSceneAsItWas) {
    release_log();  // to stderr: captured lines would count as memory left behind
    check_edits_atomic<Chain>({
        {"add transform",
         [](Chain &c) { return XfrmAddTransformItem(c.loc, XFRM_TYPE_ROTATION) != nullptr; }},
        {"add pivot pair",
         [](Chain &c) { return XfrmAddStdTransform(c.loc, XFRM_KIND_PIVOT) != nullptr; }},
        {"move",
         [](Chain &c) {
             return XfrmMoveRelative(XfrmGetFirstTransform(c.loc), XfrmGetLastTransform(c.loc),
                                     1) == 1;
         }},
    });
}

// Random chain edits on two locators, one the parent of the other: members added, standard
// members made, members moved within and between chains, members deleted, parents changed.
class RandomChains : public UndoTarget {
  public:
    RandomChains() {
        UndoSysSuspend();
        scene_ = CinemaCreate(0);
        a_ = CineItemCreate(scene_, XFRM_TYPE_LOCATOR);
        b_ = CineItemCreate(scene_, XFRM_TYPE_LIGHT);
        UndoSysResume();
        UndoSysClear();
    }
    ~RandomChains() override {
        UndoSysClear();
        CinemaDestroy(scene_);
    }
    RandomChains(const RandomChains &) = delete;
    RandomChains &operator=(const RandomChains &) = delete;

    std::string snapshot() override {
        std::string text = std::to_string(CinemaItemCount(scene_)) + " items";
        for (CineItem *item : {a_, b_}) {
            CineItem *parent = CineItemParent(item);
            text += std::string("; ") + (parent != nullptr ? CineItemIdent(parent) : "-") + ":" +
                    chain_text(item, true);
        }
        return text;
    }
    std::string random_edit(std::mt19937 &rng) override {
        auto draw = [&](unsigned n) { return static_cast<unsigned>(rng() % n); };
        CineItem *item = draw(2) == 0 ? a_ : b_;
        CineItem *members[32];
        const unsigned n = XfrmGetTransformArray(item, members, 32);
        CineItem *member = n > 0 ? members[draw(std::min(n, 32u))] : nullptr;
        CineItem *others[32];
        const unsigned m = XfrmGetTransformArray(item == a_ ? b_ : a_, others, 32);
        CineItem *target = m > 0 && draw(2) == 0 ? others[draw(std::min(m, 32u))] : member;
        switch (member == nullptr ? draw(2) : draw(6)) {
            case 0:
                XfrmAddTransformItem(item, XFRM_TYPE_TRANSLATION + draw(4));
                return "add";
            case 1:
                XfrmGetStdTransform(item, static_cast<int>(draw(8)), 1);
                return "standard";
            case 2:
            case 3:
                XfrmMoveRelative(member, target, static_cast<int>(draw(2)));
                return "move";
            case 4:
                CineItemDelete(member);
                return "delete";
            default:
                CineItemSetParent(b_, draw(2) == 0 ? a_ : nullptr, -1);
                return "parent";
        }
    }

  private:
    Cinema *scene_ = nullptr;
    CineItem *a_ = nullptr, *b_ = nullptr;
};

TEST_F(XfrmTest, RandomChainEditsUndoAndRedoExactly) {
    const auto report = check_undo_property(
        "chains", []() -> std::unique_ptr<UndoTarget> { return std::make_unique<RandomChains>(); });
    EXPECT_GT(report.steps, 0u);
}

}  // namespace
}  // namespace vx::test
