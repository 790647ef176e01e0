// Threaded enumeration on a large mesh: every passing element visited exactly once under the
// plain walk's filter and show-dead rules, and a result that stops its share.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include <vexor/mark.h>

#include "mesh_fixture.h"

namespace vx::test {
namespace {

constexpr std::size_t kVertices = 120000;

// Visits counted by element number (the x coordinate of the vertex, or of a polygon's first
// vertex), and the threads that made them. The visit of element `stop_at` returns its number
// plus 1.
struct Tally {
    std::unique_ptr<std::atomic<unsigned>[]> counts { new std::atomic<unsigned>[ kVertices ]() };
    std::mutex lock;
    std::set<std::thread::id> threads;
    std::size_t stop_at = kVertices;

    unsigned count(const MeshVertex *vertex) {
        const auto i = static_cast<std::size_t>(MeshVertexPosV(MeshVertexMesh(vertex), vertex)[0]);
        counts[i].fetch_add(1, std::memory_order_relaxed);
        std::lock_guard<std::mutex> hold(lock);
        threads.insert(std::this_thread::get_id());
        return i == stop_at ? static_cast<unsigned>(i + 1) : 0u;
    }
    static unsigned vertex(MeshVertex *vertex, void *data, void *) {
        return static_cast<Tally *>(data)->count(vertex);
    }
    static unsigned polygon(MeshPolygon *polygon, void *data, void *) {
        return static_cast<Tally *>(data)->count(MeshPolVrtByIndex(polygon, 0));
    }
    // Elements whose count is not what `expected` says.
    template <class Expected>
    std::size_t wrong(Expected expected) const {
        std::size_t n = 0;
        for (std::size_t i = 0; i < kVertices; ++i)
            if (counts[i] != expected(i)) ++n;
        return n;
    }
};

class Threaded : public OnMesh {
  protected:
    void SetUp() override {
        OnMesh::SetUp();
        MeshBatchBegin(mesh);
        for (std::size_t i = 0; i < kVertices; ++i) {
            MeshVertex *v = vertex(mesh, static_cast<double>(i));
            ASSERT_NE(v, nullptr);
            MeshMarkVertex(v, (i % 3 == 0 ? 0x1u : 0u) | (i % 7 == 0 ? 0x2u : 0u));
        }
        MeshBatchEnd(mesh);
    }
};

TEST_F(Threaded, EveryPassingVertexIsVisitedExactlyOnce) {
    Tally tally;
    EXPECT_EQ(MeshEnumVrtsThreaded(mesh, MESH_MARK_MODE(0x1, 0x2), &Tally::vertex, &tally, nullptr),
              0u);
    EXPECT_EQ(tally.wrong([](std::size_t i) { return i % 3 == 0 && i % 7 != 0 ? 1u : 0u; }), 0u);
    if (std::thread::hardware_concurrency() > 1) {
        EXPECT_GT(tally.threads.size(), 1u);
    }

    // Deleting the first live vertex 120 times kills vertices 0 to 119.
    for (int i = 0; i < 120; ++i) ASSERT_EQ(MeshFreeVertex(mesh, MeshVrtByIndex(mesh, 0)), 1);
    Tally live;
    EXPECT_EQ(MeshEnumVrtsThreaded(mesh, 0, &Tally::vertex, &live, nullptr), 0u);
    EXPECT_EQ(live.wrong([](std::size_t i) { return i < 120 ? 0u : 1u; }), 0u);
    MeshSetShowDead(mesh, 1);
    Tally all;
    EXPECT_EQ(MeshEnumVrtsThreaded(mesh, 0, &Tally::vertex, &all, nullptr), 0u);
    EXPECT_EQ(all.wrong([](std::size_t) { return 1u; }), 0u);
}

TEST_F(Threaded, EveryPassingPolygonIsVisitedExactlyOnce) {
    for (std::size_t i = 0; i + 1 < kVertices; ++i) {
        MeshVertex *pair[2] = {MeshVrtByIndex(mesh, static_cast<unsigned>(i)),
                               MeshVrtByIndex(mesh, static_cast<unsigned>(i + 1))};
        MeshPolygon *p = MeshNewPolygon(mesh, kCurve, 2, pair, 0);
        ASSERT_NE(p, nullptr);
        if (i % 2 == 0) MeshMarkPolygon(p, 0x10u);
    }
    Tally tally;
    EXPECT_EQ(MeshEnumPolsThreaded(mesh, 0x10u, &Tally::polygon, &tally, nullptr), 0u);
    EXPECT_EQ(tally.wrong([](std::size_t i) { return i % 2 == 0 && i + 1 < kVertices ? 1u : 0u; }),
              0u);
}

TEST_F(Threaded, AResultStopsItsShareAndTheEarliestShareResultIsReturned) {
    // The first vertex opens the first share, whose result the function returns.
    Tally first;
    first.stop_at = 0;
    EXPECT_EQ(MeshEnumVrtsThreaded(mesh, 0, &Tally::vertex, &first, nullptr), 1u);
    EXPECT_EQ(first.counts[1], 0u);
    // The last vertex ends the last share: its result comes back after every vertex was seen.
    Tally last;
    last.stop_at = kVertices - 1;
    EXPECT_EQ(MeshEnumVrtsThreaded(mesh, 0, &Tally::vertex, &last, nullptr), kVertices);
    EXPECT_EQ(last.wrong([](std::size_t) { return 1u; }), 0u);
}

}  // namespace
}  // namespace vx::test
