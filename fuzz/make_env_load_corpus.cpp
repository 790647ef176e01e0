// Writes the seed corpus of the envelope-load fuzz target into a directory:
//   vexor_make_env_load_corpus fuzz/corpus/env_load
// Files named valid_* must load (EnvLoad returns 1); files named corrupt_* must be refused
// (the reader does not open, or EnvLoad returns 0). The corpus test checks both.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexor/block.h>
#include <vexor/env.h>
#include <vexor/env_io.h>

#include "fuzz/corpus_file.h"
namespace {

using Bytes = std::vector<unsigned char>;

Bytes saved(Envelope *env) {
    BlkWriter *writer = BlkWriterOpenMemory();
    EnvSave(env, writer);
    std::size_t size = 0;
    const auto *data = static_cast<const unsigned char *>(BlkWriterMemoryData(writer, &size));
    Bytes bytes(data, data + size);
    BlkWriterClose(writer);
    return bytes;
}

// Little-endian words, for streams the writer would never produce.
void put_u32(Bytes &bytes, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<unsigned char>(value >> shift));
    }
}
void put_fp(Bytes &bytes, float value) {
    std::uint32_t bits;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    put_u32(bytes, bits);
}
Bytes header(std::uint16_t major = 1) {
    Bytes bytes = {'V', 'X', 'B', 'K'};
    bytes.push_back(static_cast<unsigned char>(major));
    bytes.push_back(static_cast<unsigned char>(major >> 8));
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}
// An unbroken float key block: time, flags, side 0 flags, value, slope, weight.
void put_key(Bytes &bytes, float time, float value) {
    put_u32(bytes, 2);
    put_u32(bytes, 24);
    put_fp(bytes, time);
    put_u32(bytes, 0);
    put_u32(bytes, 1);
    put_fp(bytes, value);
    put_fp(bytes, 0.0f);
    put_fp(bytes, 0.0f);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus directory>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    int failures = 0;
    auto keep = [&](const char *name, const Bytes &bytes) {
        if (!vx::fuzz::write_corpus_file(dir, name, bytes)) ++failures;
    };

    Envelope *floats = EnvCreate(nullptr);
    EnvSetPreBehavior(floats, ENV_BEHAVIOR_REPEAT);
    EnvSetPostBehavior(floats, ENV_BEHAVIOR_REPEAT);
    EnvAddKey(floats, 0.0, 1.0);
    EnvKey *broken = EnvAddKey(floats, 0.1, -2.5);
    EnvKeyBreak(floats, broken, ENV_BREAK_VALUE);
    EnvKeySetTangentValue(floats, broken, 1, 4.0);
    EnvKeySetUserFlag(broken, 0x10000u);
    EnvKey *sloped = EnvAddKey(floats, 1.5, 3.0);
    EnvKeyBreak(floats, sloped, ENV_BREAK_SLOPE);
    EnvKeySetSlopeValue(floats, sloped, 1, -0.75);
    const Bytes float_stream = saved(floats);
    keep("valid_float_keys.blk", float_stream);
    EnvDestroyNoUndo(floats);

    Envelope *ints = EnvCreateInt(nullptr);
    EnvAddKeyInt(ints, -1.0, -40);
    EnvKey *weighted = EnvAddKeyInt(ints, 2.0, 2000000000);
    EnvKeyBreak(ints, weighted, ENV_BREAK_WEIGHT);
    EnvKeySetWeightType(ints, weighted, 1, 1);
    EnvKeySetWeightValue(ints, weighted, 1, 0.5);
    keep("valid_int_keys.blk", saved(ints));
    EnvDestroyNoUndo(ints);

    Envelope *ends = EnvCreate(nullptr);
    EnvSetPreBehavior(ends, ENV_BEHAVIOR_OSCILLATE);
    keep("valid_ends_only.blk", saved(ends));
    EnvDestroyNoUndo(ends);

    keep("valid_empty.blk", header());

    Bytes two_ends = header();
    put_u32(two_ends, 1);
    put_u32(two_ends, 8);
    put_u32(two_ends, ENV_BEHAVIOR_OFFSET_REPEAT);
    put_u32(two_ends, ENV_BEHAVIOR_LINEAR);
    put_key(two_ends, 1.0f, 1.0f);
    keep("valid_two_value_ends.blk", two_ends);

    Bytes backwards = header();
    put_key(backwards, 2.0f, 20.0f);
    put_key(backwards, 1.0f, 10.0f);
    put_key(backwards, 0.5f, 5.0f);
    keep("valid_out_of_order.blk", backwards);

    // Padding, an unknown block holding a nested one, and a key block longer than today's
    // format (a later version's extra field), all of which a reader passes over.
    Bytes skipped = header();
    put_u32(skipped, BLK_PAD_ID);
    put_u32(skipped, 5);
    skipped.insert(skipped.end(), 8, 0);
    put_u32(skipped, 77);
    put_u32(skipped, 12);
    put_u32(skipped, 78);
    put_u32(skipped, 4);
    put_u32(skipped, 0xDEADBEEFu);
    put_u32(skipped, 2);
    put_u32(skipped, 28);
    put_fp(skipped, 3.0f);
    put_u32(skipped, 0);
    put_u32(skipped, 1);
    put_fp(skipped, 30.0f);
    put_fp(skipped, 0.0f);
    put_fp(skipped, 0.0f);
    put_u32(skipped, 0x12345678u);
    keep("valid_padding_and_unknown.blk", skipped);

    // Unknown blocks nested far deeper than a reader goes: the envelope skips the outermost,
    // a reader that walks inside turns bad at its depth limit.
    Bytes deep = header();
    constexpr std::uint32_t kLevels = 80;
    for (std::uint32_t level = 0; level < kLevels; ++level) {
        put_u32(deep, 3);
        put_u32(deep, 8 * (kLevels - level - 1));
    }
    keep("valid_deep_nesting.blk", deep);

    Bytes truncated(float_stream.begin(), float_stream.end() - 6);
    keep("corrupt_truncated_key.blk", truncated);

    Bytes short_key = header();
    put_key(short_key, 0.0f, 1.0f);
    put_u32(short_key, 2);
    put_u32(short_key, 12);
    put_fp(short_key, 1.0f);
    put_u32(short_key, 0);
    put_u32(short_key, 1);
    keep("corrupt_short_key.blk", short_key);

    Bytes huge = header();
    put_u32(huge, 2);
    put_u32(huge, 0xFFFFFFF0u);
    put_fp(huge, 0.0f);
    keep("corrupt_huge_length.blk", huge);

    Bytes trailing = header();
    put_key(trailing, 0.0f, 1.0f);
    put_u32(trailing, 2);
    keep("corrupt_trailing_bytes.blk", trailing);

    Bytes magic = header();
    magic[3] = 'Q';
    put_key(magic, 0.0f, 1.0f);
    keep("corrupt_bad_magic.blk", magic);

    Bytes major = header(2);
    put_key(major, 0.0f, 1.0f);
    keep("corrupt_next_major_version.blk", major);

    if (failures > 0) std::fprintf(stderr, "could not write the corpus into %s\n", dir.c_str());
    return failures > 0 ? 1 : 0;
}
