// World matrices computed by the modifiers, against a composition written here with column
// vectors (the transpose of the library's convention), for a three-level hierarchy with pivots,
// every rotation order and inherit switch, at several times, and after edits and undo.
#include <cmath>
#include <cstdio>
#include <string>

#include <vexor/env_eval.h>
#include <vexor/scene_io.h>

#include "group_fixture.h"

namespace vx::test {
namespace {

// ---- The reference: 4x4 matrices acting on column vectors ----

using Col = std::array<std::array<double, 4>, 4>;

Col ident() {
    Col m{};
    for (std::size_t i = 0; i < 4; ++i) m[i][i] = 1;
    return m;
}

Col mul(const Col &a, const Col &b) {
    Col m{};
    for (std::size_t r = 0; r < 4; ++r)
        for (std::size_t c = 0; c < 4; ++c)
            for (std::size_t k = 0; k < 4; ++k) m[r][c] += a[r][k] * b[k][c];
    return m;
}

Col move(double x, double y, double z) {
    Col m = ident();
    m[0][3] = x;
    m[1][3] = y;
    m[2][3] = z;
    return m;
}

Col stretch(double x, double y, double z) {
    Col m = ident();
    m[0][0] = x;
    m[1][1] = y;
    m[2][2] = z;
    return m;
}

// A right-handed turn about one axis.
Col turn(std::size_t axis, double angle) {
    Col m = ident();
    const std::size_t u = (axis + 1) % 3, v = (axis + 2) % 3;
    m[u][u] = m[v][v] = std::cos(angle);
    m[v][u] = std::sin(angle);
    m[u][v] = -std::sin(angle);
    return m;
}

// Euler angles in an order whose first letter applies first: the last turn is leftmost.
Col euler(const std::array<double, 3> &a, int order) {
    static const char *const kOrders[] = {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"};
    Col m = ident();
    for (const char *axis = kOrders[order]; *axis != '\0'; ++axis) {
        const auto index = static_cast<std::size_t>(*axis - 'X');
        m = mul(turn(index, a[index]), m);
    }
    return m;
}

Mat rows(const Col &m) {
    Mat out;
    for (std::size_t r = 0; r < 4; ++r)
        for (std::size_t c = 0; c < 4; ++c) out[c * 4 + r] = m[r][c];
    return out;
}

// ---- The scene ----

struct Placed {
    CineItem *item = nullptr;
    CineItem *scale = nullptr, *rotation = nullptr, *translation = nullptr, *pivot = nullptr;
};

class WorldTest : public XfrmTest {
  protected:
    Placed place(const char *name, CineItem *parent, bool pivot) {
        Placed p;
        p.item = locator(name);
        if (parent != nullptr) CineItemSetParent(p.item, parent, -1);
        p.scale = XfrmGetStdTransform(p.item, XFRM_KIND_SCALE, 1);
        p.rotation = XfrmGetStdTransform(p.item, XFRM_KIND_ROTATION, 1);
        p.translation = XfrmGetStdTransform(p.item, XFRM_KIND_TRANSLATION, 1);
        if (pivot) p.pivot = XfrmGetStdTransform(p.item, XFRM_KIND_PIVOT, 1);
        return p;
    }
    Envelope *animate(CineItem *item, unsigned channel, double v0, double v1) {
        Envelope *env = EnvCreate(nullptr);
        EnvAddKey(env, 0.0, v0);
        EnvAddKey(env, 2.0, v1);
        EXPECT_EQ(CineActionSetEnvelope(CineActionGetDefault(scene, 1), item, channel, env), 1);
        return env;
    }
    Mat read(CineEval *eval, CineItem *item, unsigned channel) {
        Mat m{};
        const void *value = CineEvalChannelVal(eval, item, channel);
        EXPECT_NE(value, nullptr);
        if (value != nullptr) std::copy_n(static_cast<const double *>(value), 16, m.begin());
        return m;
    }
};

TEST_F(WorldTest, AThreeLevelHierarchyMatchesAnIndependentComposition) {
    // Grandparent: uniform scale, a turn about Y that is animated, a translation. Parent: an
    // uneven scale (first, so that no shear reaches the child), a fixed turn, a translation.
    // Child: pivot, uneven scale, a turn in the order under test animated about Z.
    Placed g = place("Grand", nullptr, false);
    Placed p = place("Parent", g.item, false);
    Placed c = place("Child", p.item, true);
    set3(g.scale, {2, 2, 2});
    set3(g.translation, {1, 2, 3});
    Envelope *spin = animate(g.rotation, 3, 0.0, 3.0);
    set3(p.scale, {1, 0.5, 3});
    set3(p.rotation, {0.3, -0.2, 0.1});
    set(p.rotation, 5, 0);
    set3(p.translation, {0, 4, 0});
    set3(c.scale, {1.5, 1, 0.5});
    set3(c.pivot, {0.5, -1, 2});
    set3(c.translation, {-2, 0, 1});
    set(c.rotation, 2, 0.4);
    set(c.rotation, 3, -0.6);
    Envelope *roll = animate(c.rotation, 4, -1.0, 2.0);

    CineEval *eval = CineEvalCreate(scene);
    CineEvalSetAction(eval, CineActionGetDefault(scene, 9));
    for (int order = 0; order < 6; ++order) {
        set(c.rotation, 5, order);
        for (int flags = 0; flags < 8; ++flags) {
            set(c.item, 9, flags & 1);
            set(c.item, 10, (flags >> 1) & 1);
            set(c.item, 11, (flags >> 2) & 1);
            for (double time : {0.0, 0.5, 1.3, 0.5, 0.0}) {
                CineEvalSetTime(eval, time);
                const Col gr = turn(1, EnvEvaluate(spin, time));
                const Col g_world = mul(move(1, 2, 3), mul(gr, stretch(2, 2, 2)));
                const Col pr = euler({0.3, -0.2, 0.1}, 0);
                const Col p_world = mul(g_world, mul(move(0, 4, 0), mul(pr, stretch(1, 0.5, 3))));
                const Col cr = euler({0.4, -0.6, EnvEvaluate(roll, time)}, order);
                const Col c_local = mul(mul(move(-2, 0, 1), move(0.5, -1, 2)),
                                        mul(cr, mul(stretch(1.5, 1, 0.5), move(-0.5, 1, -2))));
                // The parent's world split as position * rotation * scale (column order).
                const Col p_pos = move(p_world[0][3], p_world[1][3], p_world[2][3]);
                const Col p_rot = mul(gr, pr);
                const Col p_scl = stretch(2, 1, 6);
                Col inherited = ident();
                if (flags & 1) inherited = mul(inherited, p_pos);
                if (flags & 2) inherited = mul(inherited, p_rot);
                if (flags & 4) inherited = mul(inherited, p_scl);
                const Col c_world = mul(inherited, c_local);
                const std::string where = "order " + std::to_string(order) + " flags " +
                                          std::to_string(flags) + " time " + std::to_string(time);
                SCOPED_TRACE(where);
                expect_near(read(eval, p.item, 7), rows(p_world));
                expect_near(read(eval, c.item, 0), rows(c_local));
                expect_near(read(eval, c.item, 1), rows(inherited));
                expect_near(read(eval, c.item, 8), rows(p_world));
                Mat world{};
                ASSERT_EQ(XfrmWorldTransform4(eval, c.item, world.data()), 1);
                expect_near(world, rows(c_world));
                double pos[3];
                XfrmWorldPosition(eval, c.item, pos);
                for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(pos[i], c_world[i][3], 1e-9);
                // The world pivot is the pivot point pushed through the world matrix.
                const Mat pivot = read(eval, c.item, 5);
                for (std::size_t i = 0; i < 3; ++i) {
                    const double expected = c_world[i][0] * 0.5 + c_world[i][1] * -1 +
                                            c_world[i][2] * 2 + c_world[i][3];
                    EXPECT_NEAR(pivot[12 + i], expected, 1e-9);
                }
            }
        }
    }

    // An edit moves the child; undoing it puts it back.
    CineEvalSetTime(eval, 0.7);
    const Mat before = read(eval, c.item, 7);
    set(c.translation, 3, 10);
    const Mat moved = read(eval, c.item, 7);
    EXPECT_GT(std::abs(moved[13] - before[13]) + std::abs(moved[12] - before[12]) +
                  std::abs(moved[14] - before[14]),
              1.0);
    ASSERT_EQ(UndoSysUndo(), 1);
    expect_near(read(eval, c.item, 7), before);
    // Reparenting the child to the grandparent takes the parent out of its world matrix.
    CineItemSetParent(c.item, g.item, -1);
    for (int i = 9; i <= 11; ++i) set(c.item, static_cast<unsigned>(i), 1);
    Mat local = read(eval, c.item, 0), grand = read(eval, g.item, 7), expected;
    Matrix4Multiply(expected.data(), local.data(), grand.data());
    expect_near(read(eval, c.item, 7), expected);
    CineEvalDestroy(eval);
}

TEST_F(WorldTest, BuildAndExtractComposeAroundOneMember) {
    Placed p = place("Loc", nullptr, true);
    set3(p.scale, {2, 3, 4});
    set3(p.rotation, {0.1, 0.2, 0.3});
    set3(p.pivot, {1, 1, 0});
    set3(p.translation, {5, 0, 0});
    CineEval *eval = CineEvalCreate(scene);
    CineEvalSetAction(eval, CineActionGetDefault(scene, 9));
    CineItem *comp = XfrmGetStdTransform(p.item, XFRM_KIND_PIVOT_COMP, 0);
    const Mat s = read(eval, p.scale, 0), r = read(eval, p.rotation, 0);
    const Mat t = read(eval, p.translation, 0), piv = read(eval, p.pivot, 0);
    expect_near(read(eval, comp, 0), rows(move(-1, -1, 0)));
    auto chain_of = [](std::initializer_list<Mat> members) {
        Mat out;
        Matrix4Ident(out.data());
        for (const Mat &m : members) Matrix4Compose(out.data(), m.data());
        return out;
    };
    const Mat m = rows(mul(move(0, 2, 0), turn(2, 1.0)));
    Mat inverse, out;
    Matrix4Invert(inverse.data(), m.data());
    // Replacing the pivot replaces its compensation by the inverse; another member alone.
    ASSERT_EQ(XfrmBuildTransform(eval, p.item, p.pivot, m.data(), out.data()), 1);
    expect_near(out, chain_of({inverse, s, r, m, t}));
    ASSERT_EQ(XfrmBuildTransform(eval, p.item, p.scale, m.data(), out.data()), 1);
    expect_near(out, chain_of({read(eval, comp, 0), m, r, piv, t}));
    // Extracting a member from the local matrix gives the member back; from any matrix, the
    // member that builds it.
    Mat local{};
    XfrmLocalTransform4(eval, p.item, local.data());
    ASSERT_EQ(XfrmExtractTransform(eval, p.item, XFRM_KIND_ROTATION, local.data(), out.data()), 1);
    expect_near(out, r);
    ASSERT_EQ(XfrmExtractTransform(eval, p.item, XFRM_KIND_SCALE, m.data(), out.data()), 1);
    Mat rebuilt;
    XfrmBuildTransform(eval, p.item, p.scale, out.data(), rebuilt.data());
    expect_near(rebuilt, m);
    // A missing standard member is made first.
    ASSERT_EQ(XfrmExtractTransform(eval, p.item, XFRM_KIND_SHEAR, m.data(), out.data()), 1);
    EXPECT_EQ(kinds(p.item), "pivotComp scale shear rotation pivot translation");
    XfrmBuildTransform(eval, p.item, XfrmGetStdTransform(p.item, XFRM_KIND_SHEAR, 0), out.data(),
                       rebuilt.data());
    expect_near(rebuilt, m);
    // Without a parent or shear the world matrix splits into the scale and rotation put in.
    double scl[9], rot[9], off[3], sub[9];
    ASSERT_EQ(XfrmWorldScale(eval, p.item, scl), 1);
    ASSERT_EQ(XfrmWorldRotation(eval, p.item, rot), 1);
    ASSERT_EQ(XfrmWorldTransform3Off(eval, p.item, sub, off), 1);
    for (std::size_t i = 0; i < 9; ++i) {
        const std::size_t at = i / 3 * 4 + i % 3;
        EXPECT_NEAR(scl[i], s[at], 1e-12) << i;
        EXPECT_NEAR(rot[i], r[at], 1e-12) << i;
        EXPECT_NEAR(sub[i], local[at], 1e-12) << i;
    }
    Mat pivot_world{};
    ASSERT_EQ(XfrmWorldPosition4(eval, p.item, pivot_world.data()), 1);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(pivot_world[12 + i], off[i], 1e-12);
    const Mat wpiv = read(eval, p.item, 5);
    const double at_pivot[3] = {1, 1, 0};
    double expected[3];
    Matrix4TransformPoint(local.data(), at_pivot, expected);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(wpiv[12 + i], expected[i], 1e-12);
    // Reads of an item that is not placed fail and leave the output alone.
    Mat untouched{};
    EXPECT_EQ(XfrmWorldTransform4(eval, p.scale, untouched.data()), 0);
    EXPECT_EQ(untouched, Mat{});
    CineEvalDestroy(eval);
}

TEST_F(WorldTest, ChainsAndMatricesSurviveASceneFile) {
    Placed parent = place("Parent", nullptr, false);
    Placed child = place("Child", parent.item, true);
    set3(parent.translation, {1, 2, 3});
    animate(parent.rotation, 2, 0.0, 1.0);
    set3(child.pivot, {0, 1, 0});
    set(child.rotation, 4, 0.5);
    const std::string path = ::testing::TempDir() + "xfrm_scene.vxr";
    ASSERT_EQ(CinemaSave(scene, path.c_str()), 1);
    Cinema *loaded = CinemaLoadCustom(path.c_str(), 0);
    ASSERT_NE(loaded, nullptr);
    CineItem *copy = CineLookupItem(loaded, "Child");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(kinds(copy), kinds(child.item));
    CineEval *a = CineEvalCreate(scene), *b = CineEvalCreate(loaded);
    CineEvalSetAction(a, CineActionGetDefault(scene, 9));
    CineEvalSetAction(b, CineActionGetDefault(loaded, 9));
    CineEvalSetTime(a, 1.25);
    CineEvalSetTime(b, 1.25);
    expect_near(read(b, copy, 7), read(a, child.item, 7));
    expect_near(read(b, copy, 5), read(a, child.item, 5));
    CinemaDestroy(loaded);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace vx::test
