// A complete type is read from four threads, each with vectors of its own, while a fifth
// defines new packets and builds types of its own.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "svec_fixture.h"

namespace vx::test {
namespace {

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
