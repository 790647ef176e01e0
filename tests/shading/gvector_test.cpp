// Vectors: levels, rows, copies, blends and object packets, and a complete type read from
// four threads, each with vectors of its own, while a fifth defines new packets and builds
// types of its own.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "svec_fixture.h"

namespace vx::test {
namespace {

class Vectors : public SVecTest {
  protected:
    void SetUp() override {
        SVecTest::SetUp();
        VPacketDefine("sample", "custom.obj", nullptr, 0);
        type = VTypeAllocate("sample");
        for (const char *name : {"shade.diffuse", "sample.position", "custom.obj", "sample.ray"}) {
            VTypeAddPacket(type, name, 0);
        }
        gv = GVCreate(type, nullptr, 0);
        ASSERT_NE(gv, nullptr);
    }
    void TearDown() override {
        GVDestroy(gv);
        VTypeFree(type);
        SVecTest::TearDown();
    }
    VPColor *diffuse(int mode) {
        return static_cast<VPColor *>(GVPacket(gv, idx("shade.diffuse"), mode));
    }
    VType *type = nullptr;
    GVector *gv = nullptr;
};

TEST_F(Vectors, LevelsLeaveLowerLevelsUnchanged) {
    diffuse(GV_WRITE)->rgb[0] = 1.0f;
    VPColor *base = diffuse(GV_READ);
    EXPECT_EQ(GVPush(gv), 1);
    EXPECT_EQ(diffuse(GV_READ), base);  // read at a new level needs no copy
    VPColor *one = diffuse(GV_WRITE);
    EXPECT_NE(one, base);
    EXPECT_EQ(one->rgb[0], 1.0f);  // copied up
    one->rgb[0] = 2.0f;
    EXPECT_EQ(GVPush(gv), 2);
    EXPECT_EQ(diffuse(GV_READ)->rgb[0], 2.0f);
    diffuse(GV_WRITE)->rgb[0] = 3.0f;
    EXPECT_EQ(static_cast<VPColor *>(GVPacketBlock(gv, 0))->rgb[0], 1.0f);
    EXPECT_EQ(GVPacketBlock(gv, 3), nullptr);
    EXPECT_EQ(GVPop(gv), 1);
    EXPECT_EQ(diffuse(GV_READ)->rgb[0], 2.0f);
    EXPECT_EQ(GVPop(gv), 0);
    EXPECT_EQ(diffuse(GV_READ)->rgb[0], 1.0f);
    EXPECT_EQ(GVPop(gv), 0);
    // An exported block holds every packet as the current level sees it.
    GVPush(gv);
    auto *row = static_cast<unsigned char *>(GVToExport(gv));
    EXPECT_EQ(reinterpret_cast<VPColor *>(row)->rgb[0], 1.0f);
    GVClear(gv);
    EXPECT_EQ(GVLevel(gv), 0);
    EXPECT_EQ(diffuse(GV_READ)->rgb[0], 0.0f);
}

TEST_F(Vectors, ObjectPacketsHoldReferencesPerLevel) {
    void *probe = make_probe_object();
    const unsigned obj = idx("custom.obj");
    EXPECT_EQ(GVSetObject(gv, obj, probe), 1);
    EXPECT_EQ(GVSetObject(gv, idx("shade.diffuse"), probe), 0);  // not an object packet
    GVPush(gv);
    GVPacket(gv, obj, GV_WRITE);
    EXPECT_EQ(XObjectAddRef(probe), 4u);  // ours, level 0, level 1, this one
    XObjectRelease(probe);
    GVPop(gv);
    EXPECT_EQ(XObjectAddRef(probe), 3u);
    XObjectRelease(probe);
    GVector *parented = GVCreate(type, probe, 0);
    EXPECT_EQ(GVParent(parented), probe);
    EXPECT_EQ(GVCopy(parented, gv), 4);
    EXPECT_EQ(GVObject(parented, obj), probe);
    EXPECT_EQ(GVObject(parented, idx("shade.diffuse")), nullptr);
    GVDestroy(parented);
    GVDestroy(gv);
    gv = nullptr;
    EXPECT_EQ(XObjectRelease(probe), 0u);
}

TEST_F(Vectors, RowsAppendAndTheCurrentRowIsClamped) {
    EXPECT_EQ(GVCount(gv), 1u);
    diffuse(GV_WRITE)->rgb[1] = 5.0f;
    for (int i = 1; i < 6; ++i) {
        EXPECT_EQ(GVAppend(gv), i);
        EXPECT_EQ(GVCurrent(gv), static_cast<unsigned>(i));
        EXPECT_EQ(diffuse(GV_READ)->rgb[1], 0.0f);
        diffuse(GV_WRITE)->rgb[1] = static_cast<float>(i);
    }
    EXPECT_EQ(GVSetCurrent(gv, 99), 6u);
    EXPECT_EQ(GVCurrent(gv), 6u);
    EXPECT_EQ(diffuse(GV_READ), nullptr);
    GVSetCurrent(gv, 0);
    EXPECT_EQ(diffuse(GV_READ)->rgb[1], 5.0f);
    GVSetCurrent(gv, 3);
    EXPECT_EQ(diffuse(GV_READ)->rgb[1], 3.0f);
}

TEST_F(Vectors, CopyBlendAndInvertGoThroughThePackets) {
    GVector *other = GVCreate(type, nullptr, 0);
    diffuse(GV_WRITE)->rgb[0] = 0.25f;
    GVPush(gv);
    diffuse(GV_WRITE)->rgb[0] = 0.75f;  // a copy reads the current level
    static_cast<VPSampleRay *>(GVPacket(gv, idx("sample.ray"), GV_WRITE))->bounce = 3;
    EXPECT_EQ(GVCopy(other, gv), 4);
    auto *copied = static_cast<VPColor *>(GVPacket(other, idx("shade.diffuse"), GV_READ));
    EXPECT_EQ(copied->rgb[0], 0.75f);
    EXPECT_EQ(static_cast<VPSampleRay *>(GVPacket(other, idx("sample.ray"), GV_READ))->bounce, 3u);

    // Only packets with a blend (invert) operation take part.
    EXPECT_EQ(GVBlend(other, gv, 0.5f), 2);
    EXPECT_EQ(GVInvert(other), 1);
    EXPECT_EQ(copied->rgb[0], 0.25f);

    VType *only = VTypeAllocate("sample");
    VTypeAddPacket(only, "sample.ray", 0);
    VTypeAddPacket(only, "sample.mask", 0);  // absent from both: skipped
    GVPop(gv);
    EXPECT_EQ(GVCopyType(other, gv, only), 1);
    EXPECT_EQ(static_cast<VPSampleRay *>(GVPacket(other, idx("sample.ray"), GV_READ))->bounce, 0u);
    EXPECT_EQ(copied->rgb[0], 0.25f);
    GVDestroy(other);
    VTypeFree(only);
}

TEST_F(Vectors, ResetUsesThePacketsResetAndZeroesTheRest) {
    static int resets = 0;
    static const VPacketOps ops = {{nullptr, nullptr, nullptr},
                                   [](void *p) {
                                       ++resets;
                                       static_cast<float *>(p)[0] = 9.0f;
                                   },
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr};
    VPacketDefine("sample", "custom.reset", &ops, 4);
    VType *t = VTypeAllocate("sample");
    VTypeAddPacket(t, "custom.reset", 0);
    VTypeAddPacket(t, "sample.ray", 0);
    GVector *v = GVCreate(t, nullptr, 1);
    EXPECT_EQ(resets, 1);
    EXPECT_EQ(*static_cast<float *>(GVPacket(v, idx("custom.reset"), GV_READ)), 9.0f);
    static_cast<VPSampleRay *>(GVPacket(v, idx("sample.ray"), GV_WRITE))->bounce = 2;
    GVReset(v);
    EXPECT_EQ(static_cast<VPSampleRay *>(GVPacket(v, idx("sample.ray"), GV_READ))->bounce, 0u);
    EXPECT_EQ(GVListPacket(v, 1), idx("sample.ray"));
    EXPECT_EQ(GVListPacket(v, 2), VPACKET_NONE);
    GVDestroy(v);
    VTypeFree(t);
}

using Threads = SVecTest;

TEST_F(Threads, ReadersOfACompleteTypeRunBesideNewPacketDefinitions) {
    VType *type = VTypeAllocate("sample");
    ASSERT_EQ(VTypeAddCategoryPackets(type), 36);
    const unsigned diffuse = idx("shade.diffuse");
    std::vector<unsigned> expected;
    for (unsigned i = 0; i < 36; ++i) expected.push_back(VTypePacketOffset(type, i));

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int r = 0; r < 4; ++r) {
        threads.emplace_back([&, r] {
            GVector *gv = GVCreate(type, nullptr, 1);
            for (int round = 0; round < 300; ++round) {
                for (unsigned i = 0; i < 36; ++i) {
                    if (VTypePacketOffset(type, i) != expected[i]) ++wrong;
                }
                GVPush(gv);
                static_cast<VPColor *>(GVPacket(gv, diffuse, GV_WRITE))->rgb[0] =
                    static_cast<float>(r);
                GVPop(gv);
                if (static_cast<VPColor *>(GVPacket(gv, diffuse, GV_READ))->rgb[0] != 0.0f) ++wrong;
            }
            GVDestroy(gv);
        });
    }
    threads.emplace_back([&] {
        for (int n = 0; n < 200; ++n) {
            const std::string name = "thread.packet" + std::to_string(n);
            if (VPacketDefine("sample", name.c_str(), nullptr, 4) != 0) ++wrong;
            VType *own = VTypeAllocate("sample");
            if (VTypeAddPacket(own, name.c_str(), 0) != 1) ++wrong;
            VTypeFree(own);
        }
    });
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(VPacketDefCount("sample"), 236u);
    EXPECT_EQ(VTypeSize(type), 2876u);
    VTypeFree(type);
}

}  // namespace
}  // namespace vx::test
