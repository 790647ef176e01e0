// Writes the seed corpus of the irradiance-cache-load fuzz target into a directory:
//   vexor_make_irr_cache_load_corpus fuzz/corpus/irr_cache_load
// Files named valid_* must load; files named corrupt_* must be refused. The corpus test checks
// both.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "fuzz/corpus_file.h"

namespace {

using Bytes = std::vector<unsigned char>;

void put(Bytes &bytes, std::uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<unsigned char>(word >> shift));
}
void put(Bytes &bytes, float value) {
    std::uint32_t word;
    std::memcpy(&word, &value, sizeof word);
    put(bytes, word);
}

Bytes header(std::uint32_t version, std::uint32_t count, std::uint32_t magic = 0x4B564952) {
    Bytes bytes;
    put(bytes, magic);
    put(bytes, version);
    put(bytes, 0u);
    put(bytes, count);
    return bytes;
}

// A value on a ground plane; version 0 leaves out the second irradiance.
void put_value(Bytes &bytes, std::uint32_t version, float x, float y, float radius,
               std::uint32_t kind) {
    for (float f : {x, y, 0.0f, 0.0f, 0.0f, 1.0f, 0.4f, 0.5f, 0.6f}) put(bytes, f);
    if (version == 1) {
        for (float f : {0.1f, 0.2f, 0.3f}) put(bytes, f);
    }
    for (float f : {0.01f, 0.0f, 0.0f, 0.0f, 0.02f, 0.0f, radius}) put(bytes, f);
    put(bytes, kind);
}

Bytes grid(std::uint32_t version, int n) {
    Bytes bytes = header(version, static_cast<std::uint32_t>(n * n));
    for (int i = 0; i < n * n; ++i) {
        put_value(bytes, version, static_cast<float>(i % n) * 0.3f,
                  static_cast<float>(i / n) * 0.3f, 0.2f + 0.05f * static_cast<float>(i % 3),
                  static_cast<std::uint32_t>(i % 2));
    }
    return bytes;
}

Bytes with_word(Bytes bytes, std::size_t at, std::uint32_t word) {
    for (int i = 0; i < 4; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<unsigned char>(word >> (8 * i));
    return bytes;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    const Bytes v1 = grid(1, 4);
    const struct {
        const char *name;
        Bytes bytes;
    } seeds[] = {
        {"valid_empty.vxi", header(1, 0)},
        {"valid_grid.vxi", v1},
        {"valid_version0.vxi", grid(0, 3)},
        {"valid_far_and_wide.vxi",
         [] {
             Bytes b = header(1, 2);
             put_value(b, 1, -3e6f, 5e5f, 0.001f, 0);
             put_value(b, 1, 12.0f, -7.0f, 4e4f, 1);
             return b;
         }()},
        {"corrupt_magic.vxi", with_word(v1, 0, 0x4B564953)},
        {"corrupt_version2.vxi", with_word(v1, 4, 2)},
        {"corrupt_count_beyond_bytes.vxi", with_word(v1, 12, 17)},
        {"corrupt_huge_count.vxi", with_word(v1, 12, 0xFFFFFFFF)},
        {"corrupt_truncated.vxi", Bytes(v1.begin(), v1.end() - 3)},
        {"corrupt_short_header.vxi", Bytes(v1.begin(), v1.begin() + 10)},
        {"corrupt_nan.vxi", with_word(v1, 16 + 4, 0x7FC00000)},
        {"corrupt_infinite_gradient.vxi", with_word(v1, 16 + 4 * 13, 0xFF800000)},
        {"corrupt_negative_radius.vxi", with_word(v1, 16 + 4 * 18, 0xBF800000)},
        {"corrupt_kind.vxi", with_word(v1, 16 + 4 * 19, 7)},
        {"corrupt_trailing_byte.vxi",
         [&] {
             Bytes b = v1;
             b.push_back(0);
             return b;
         }()},
    };
    for (const auto &seed : seeds) {
        if (!vx::fuzz::write_corpus_file(dir, seed.name, seed.bytes)) {
            std::fprintf(stderr, "cannot write %s/%s\n", dir.c_str(), seed.name);
            return 1;
        }
    }
    return 0;
}
