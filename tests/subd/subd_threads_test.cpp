// Level changes on one thread while another reads the refined geometry of the same mesh (run
// under ThreadSanitizer by `make tsan`).
#include <atomic>
#include <thread>

#include "subd/subd_fixture.h"

namespace vx::test {
namespace {

class SubdThreads : public SubdTest {};

std::vector<float> generate(PolyVBuf *buffer, const MeshPolygon *polygon) {
    fill(buffer, polygon);
    return values_of(PolyVBufAttributes(buffer));
}

TEST_F(SubdThreads, LevelChangesWhileAnotherThreadReadsTheSurface) {
    BuiltShape b = build(mixed());
    MeshMetaClass *cls = PolyTypeMetaClass(PolyTypeCodeLookup(kSubd));
    ASSERT_NE(MeshMetaValidate(cls, b.mesh), nullptr);
    ASSERT_NE(PolyTypeGetLevels(b.mesh), nullptr);
    PolyVBuf *buffer = PolyVBufCreate(b.mesh, b.uv, PVBUF_OUTLINE);
    const MeshPolygon *pentagon = b.polygons.back();
    const std::vector<float> expected = generate(buffer, pentagon);
    ASSERT_EQ(expected.size(), 2u * (5u << 2));

    std::atomic<bool> started{false}, done{false};
    std::atomic<int> mismatches{0};
    std::thread reader([&] {
        float corner[3];
        started.store(true);
        for (int i = 0; i < 300 || !done.load(); ++i) {
            if (MeshMetaValidate(cls, b.mesh) == nullptr) mismatches.fetch_add(1);
            if (generate(buffer, pentagon) != expected) mismatches.fetch_add(1);
            if (SUBDGetCorner(b.mesh, b.vertices[5], corner) != 1) mismatches.fetch_add(1);
        }
    });
    while (!started.load()) std::this_thread::yield();
    for (int i = 0; i < 300; ++i) SUBDSetLevel(b.mesh, 1 + i % 4);
    done.store(true);
    reader.join();
    EXPECT_EQ(mismatches.load(), 0);
    PolyVBufDestroy(buffer);
    MeshDestroy(b.mesh);
}

}  // namespace
}  // namespace vx::test
