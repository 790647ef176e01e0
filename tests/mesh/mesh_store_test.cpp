// Element stores: records in pages that know their owner. Every record must be found again by
// its number, give back its number and its owner from its address alone, and stay put while
// the store grows, across the small first blocks, whole pages and runs of pages; walks in order
// must see each record once. Meshes built side by side must each own exactly their vertices.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <vexor/mark.h>
#include <vexor/mesh.h>

#include "mesh/mesh.h"

namespace vx::test {
namespace {

template <std::size_t Bytes>
struct Record {
    std::uint64_t words[Bytes / 8];
};

template <class R>
void check_store(std::size_t count) {
    const int owner = 0;
    mesh::ElementStore<R> store(&owner);
    std::vector<R *> made;
    for (std::size_t i = 0; i < count; ++i) {
        typename mesh::ElementStore<R>::Growth growth;
        store.prepare(growth);
        made.push_back(store.take(growth));
        made.back()->words[0] = i;
    }
    ASSERT_EQ(store.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(store.at(i), made[i]) << i;
        ASSERT_EQ(made[i]->words[0], i);  // not overwritten by later records or page headers
        ASSERT_EQ(mesh::ElementStore<R>::index_of(made[i]), i);
        ASSERT_EQ(mesh::ElementStore<R>::owner_of(made[i]), &owner);
    }
    std::size_t walked = 0;
    for (std::size_t i = 0; i < count;) {
        std::size_t n = 0;
        R *run = store.run(i, n);
        ASSERT_GE(n, 1u);
        for (std::size_t k = 0; k < n; ++k, ++i, ++walked) ASSERT_EQ(run + k, made[i]);
    }
    EXPECT_EQ(walked, count);
}

TEST(ElementStore, RecordsAreFoundByNumberAndAddressAcrossEveryKindOfBlock) {
    // Sizes of a vertex and of a polygon record; counts that end inside the small blocks, on a
    // block's last record, and beyond the growing runs of pages into the largest.
    for (std::size_t count : {0u, 1u, 16u, 17u, 240u, 241u, 20000u}) {
        check_store<Record<16>>(count);
        check_store<Record<72>>(count);
    }
}

TEST(ElementStore, MeshesBuiltSideBySideEachOwnTheirVerticesAndPolygons) {
    ASSERT_EQ(MeshStartup(), 1);
    Mesh *meshes[2] = {MeshCreate(), MeshCreate()};
    std::vector<MeshVertex *> made[2];
    std::vector<MeshPolygon *> polygons[2];
    for (int i = 0; i < 3000; ++i) {
        for (int m = 0; m < 2; ++m) {
            const double p[3] = {static_cast<double>(i), static_cast<double>(m), -i * 0.5};
            made[m].push_back(MeshNewVertex(meshes[m], p));
            if (made[m].size() >= 3) {
                polygons[m].push_back(MeshNewPolygon(meshes[m], VX_CODE4('F', 'A', 'C', 'E'), 3,
                                                     &made[m][made[m].size() - 3], 0));
            }
        }
    }
    for (int m = 0; m < 2; ++m) {
        for (unsigned i = 0; i < made[m].size(); ++i) {
            ASSERT_EQ(MeshVrtByIndex(meshes[m], i), made[m][i]);
            ASSERT_EQ(MeshVertexMesh(made[m][i]), meshes[m]);
            double p[3];
            ASSERT_EQ(MeshVertexPos(meshes[m], made[m][i], p), 1);
            ASSERT_EQ(p[0], i);
            ASSERT_EQ(p[1], m);
        }
        for (unsigned i = 0; i < polygons[m].size(); ++i) {
            ASSERT_EQ(MeshPolByIndex(meshes[m], i), polygons[m][i]);
            ASSERT_EQ(MeshPolygonMesh(polygons[m][i]), meshes[m]);
        }
    }
    // A deleted vertex still knows its mesh, and a visit sees the live ones in order.
    ASSERT_EQ(MeshFreeVertex(meshes[1], made[1][300]), 1);
    EXPECT_EQ(MeshVertexMesh(made[1][300]), meshes[1]);
    std::vector<MeshVertex *> seen;
    MeshEnumerateVrts(
        meshes[1], 0,
        [](MeshVertex *v, void *data, void *) -> unsigned int {
            static_cast<std::vector<MeshVertex *> *>(data)->push_back(v);
            return 0;
        },
        &seen, nullptr, nullptr);
    made[1].erase(made[1].begin() + 300);
    EXPECT_EQ(seen, made[1]);
    for (Mesh *mesh : meshes) MeshDestroy(mesh);
    MeshShutdown();
}

}  // namespace
}  // namespace vx::test
