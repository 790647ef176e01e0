// The 1000 x 1000 quad grid (1,002,001 vertices and 1,000,000 quads) that the mesh benchmarks
// build, as a host holds it before building, with the helpers they share: a fixed random order
// of the vertices and the heap in use, for the memory a built mesh takes.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

constexpr int kQuadsPerSide = 1000;
constexpr int kSide = kQuadsPerSide + 1;  // vertices per side

struct Grid {
    std::vector<double> positions;      // three per vertex
    std::vector<std::uint32_t> quads;   // four vertex numbers per quad
    std::vector<std::uint32_t> random;  // every vertex number once, in a fixed random order
    Grid() {
        positions.reserve(3u * kSide * kSide);
        for (int y = 0; y < kSide; ++y) {
            for (int x = 0; x < kSide; ++x) {
                positions.push_back(x * 0.01);
                positions.push_back(y * 0.01);
                positions.push_back(((x ^ y) & 7) * 0.001);
            }
        }
        quads.reserve(4u * kQuadsPerSide * kQuadsPerSide);
        for (int y = 0; y < kQuadsPerSide; ++y) {
            for (int x = 0; x < kQuadsPerSide; ++x) {
                const auto a = static_cast<std::uint32_t>(y * kSide + x);
                quads.insert(quads.end(), {a, a + 1, a + 1 + kSide, a + kSide});
            }
        }
        random.resize(vertex_count());
        for (std::uint32_t i = 0; i < random.size(); ++i) random[i] = i;
        std::uint64_t state = 12345;
        for (std::size_t i = random.size() - 1; i > 0; --i) {
            state = state * 6364136223846793005ull + 1442695040888963407ull;
            std::swap(random[i], random[(state >> 33) % (i + 1)]);
        }
    }
    std::size_t vertex_count() const { return positions.size() / 3; }
    std::size_t quad_count() const { return quads.size() / 4; }
};

inline const Grid &grid() {
    static const Grid g;
    return g;
}

// Bytes of heap in use, from the allocator's own count (small blocks and mapped ones).
inline double heap_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

}  // namespace bench
