// Block streams where they can go wrong: the byte layout, nesting and skipping, reads at block
// ends, files large enough to flush and to move the read window, writer failures that must
// stick, and readers fed truncated, overlong, overdeep and lying streams.
#include "foundation/foundation_fixture.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>

#include <unistd.h>

#include <vexor/block.h>

#include "foundation/block_stream.h"

namespace vx {
namespace {

using Bytes = std::vector<unsigned char>;

const BlkBlockId kOuter[] = {{1, "one"}, {2, "two"}, {3, "three"}, {0, nullptr}};
const BlkBlockId kInner[] = {{10, "ten"}, {11, "eleven"}, {0, nullptr}};

struct Closer {
    void operator()(BlkWriter *w) const { BlkWriterClose(w); }
    void operator()(BlkReader *r) const { BlkReaderClose(r); }
};
using Writer = std::unique_ptr<BlkWriter, Closer>;
using Reader = std::unique_ptr<BlkReader, Closer>;

Bytes memory_of(const BlkWriter *w) {
    std::size_t size = 0;
    const auto *data = static_cast<const unsigned char *>(BlkWriterMemoryData(w, &size));
    return Bytes(data, data + size);
}

// A stream header followed by little-endian words, for streams no writer would make.
Bytes stream(std::initializer_list<std::uint32_t> words) {
    Bytes bytes = {'V', 'X', 'B', 'K', 1, 0, 0, 0};
    for (std::uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<unsigned char>(word >> shift));
        }
    }
    return bytes;
}

// A file in the temporary directory, removed with the object.
struct TempFile {
    explicit TempFile(const std::string &name)
        : path((std::filesystem::temp_directory_path() /
                ("vexor_block_" + std::to_string(::getpid()) + "_" + name))
                   .string()) {}
    ~TempFile() { std::remove(path.c_str()); }
    Bytes read() const {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    void write(const Bytes &bytes) const {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char *>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    std::string path;
};

// What a reader saw: each block entered (its depth and identifier) with the values read
// from it. Outer blocks (1 to 3) hold inner blocks (10, 11), which hold unsigned values.
struct Seen {
    std::size_t depth;
    unsigned id;
    std::vector<unsigned> values;
    bool operator==(const Seen &) const = default;
};

void walk(BlkReader *r, std::vector<Seen> &seen, std::size_t depth = 0) {
    while (unsigned id = BlkFindBlock(r, depth == 0 ? kOuter : kInner)) {
        seen.push_back({depth, id, {}});
        if (depth == 0) walk(r, seen, 1);
        unsigned value;
        while (depth > 0 && BlkReadU4(r, &value, 1) == 1) seen.back().values.push_back(value);
        BlkReadEnd(r);
    }
}

std::vector<Seen> walk_bytes(const Bytes &bytes, bool *failed = nullptr) {
    std::vector<Seen> seen;
    Reader r(BlkReaderOpenMemory(bytes.data(), bytes.size()));
    if (r) walk(r.get(), seen);
    if (failed != nullptr) *failed = r == nullptr || BlkReaderFailed(r.get()) != 0;
    return seen;
}

// Two outer blocks of inner blocks, with padding and an unknown block among them. Fills
// `boundaries` with the stream sizes between top-level blocks.
void write_sample(BlkWriter *w, std::vector<std::size_t> *boundaries = nullptr) {
    const unsigned a[] = {1, 2, 3};
    const unsigned b[] = {0xFFFFFFFFu, 0};
    auto boundary = [&] {
        if (boundaries != nullptr) boundaries->push_back(memory_of(w).size());
    };
    boundary();
    BlkWriteBlock(w, 1);
    BlkWriteBlock(w, 10);
    BlkWriteU4(w, a, 3);
    BlkWriteEnd(w);
    BlkWritePadding(w, 6);
    BlkWriteBlock(w, 99);  // unknown to every table
    BlkWriteU4(w, a, 2);
    BlkWriteEnd(w);
    BlkWriteBlock(w, 11);
    BlkWriteU4(w, b, 2);
    BlkWriteEnd(w);
    BlkWriteEnd(w);
    boundary();
    BlkWritePadding(w, 0);
    boundary();
    BlkWriteBlock(w, 3);
    BlkWriteBlock(w, 10);
    BlkWriteEnd(w);
    BlkWriteEnd(w);
    boundary();
}

Bytes sample_stream(std::vector<std::size_t> *boundaries = nullptr) {
    Writer w(BlkWriterOpenMemory());
    write_sample(w.get(), boundaries);
    return memory_of(w.get());
}

const std::vector<Seen> kSampleSeen = {
    {0, 1, {}}, {1, 10, {1, 2, 3}}, {1, 11, {0xFFFFFFFFu, 0}}, {0, 3, {}}, {1, 10, {}}};

// ---- Layout and round trips ----

TEST(BlockStream, IsLittleEndianWithAHeaderAndPaddedLengthPrefixedBlocks) {
    Writer w(BlkWriterOpenMemory());
    const unsigned value = 0x01020304u;
    const float one = 1.0f;
    ASSERT_EQ(BlkWriteBlock(w.get(), 0x0A0B0C0Du), 1);
    ASSERT_EQ(BlkWriteU4(w.get(), &value, 1), 1);
    ASSERT_EQ(BlkWriteFP(w.get(), &one, 1), 1);
    ASSERT_EQ(BlkWriteEnd(w.get()), 1);
    ASSERT_EQ(BlkWritePadding(w.get(), 3), 1);
    const Bytes expected = {'V',  'X',  'B',  'K',  1, 0, 0,    0,     // magic, version 1.0
                            0x0D, 0x0C, 0x0B, 0x0A, 8, 0, 0,    0,     // id, payload length
                            4,    3,    2,    1,    0, 0, 0x80, 0x3F,  // u32, float 1.0
                            0x0F, 0x27, 0,    0,    3, 0, 0,    0,     // padding block
                            0,    0,    0,    0};                      // 3 bytes and 1 pad
    EXPECT_EQ(memory_of(w.get()), expected);

    // An odd payload is padded, and its length counts only the payload.
    std::unique_ptr<BlkWriter> odd(BlkWriter::open_memory());
    odd->begin(5);
    odd->write_bytes("abc", 3);
    odd->end();
    odd->begin(6);
    odd->end();
    std::size_t size = 0;
    const unsigned char *data = odd->memory_data(&size);
    ASSERT_EQ(size, 8u + 12u + 8u);
    EXPECT_EQ(data[12], 3);
    std::unique_ptr<BlkReader> r(BlkReader::open_memory(data, size));
    const BlkBlockId table[] = {{5, "five"}, {6, "six"}, {0, nullptr}};
    ASSERT_EQ(r->find(table), 5u);
    char text[8] = {};
    EXPECT_EQ(r->read_bytes(text, sizeof text), 3u);
    EXPECT_STREQ(text, "abc");
    r->end();
    EXPECT_EQ(r->find(table), 6u);
}

TEST(BlockStream, NestedBlocksKeepTheirValuesAndSkipPaddingAndUnknownBlocks) {
    bool failed = true;
    EXPECT_EQ(walk_bytes(sample_stream(), &failed), kSampleSeen);
    EXPECT_FALSE(failed);

    // Values of every type, and values after a nested block in the same payload.
    Writer w(BlkWriterOpenMemory());
    const int ints[] = {-1, -2147483647 - 1};
    const float floats[] = {0.1f, -0.0f, 3.0e38f};
    const unsigned after = 8;
    BlkWriteBlock(w.get(), 1);
    BlkWriteBlock(w.get(), 10);
    BlkWriteI4(w.get(), ints, 2);
    BlkWriteFP(w.get(), floats, 3);
    BlkWriteEnd(w.get());
    BlkWriteU4(w.get(), &after, 1);
    BlkWriteEnd(w.get());
    const Bytes bytes = memory_of(w.get());
    Reader r(BlkReaderOpenMemory(bytes.data(), bytes.size()));
    ASSERT_EQ(BlkFindBlock(r.get(), kOuter), 1u);
    ASSERT_EQ(BlkFindBlock(r.get(), kInner), 10u);
    int ints_read[2] = {};
    float floats_read[3] = {};
    EXPECT_EQ(BlkReadI4(r.get(), ints_read, 2), 2u);
    EXPECT_EQ(BlkReadFP(r.get(), floats_read, 3), 3u);
    EXPECT_EQ(std::memcmp(ints_read, ints, sizeof ints), 0);
    EXPECT_EQ(std::memcmp(floats_read, floats, sizeof floats), 0);  // -0.0 included
    BlkReadEnd(r.get());
    unsigned value = 0;
    EXPECT_EQ(BlkReadU4(r.get(), &value, 1), 1u);
    EXPECT_EQ(value, after);
}

TEST(BlockStream, FilesLargerThanTheBuffersHoldTheSameBytesAsMemory) {
    // Big enough that the writer flushes before the outer length is known (so it patches
    // the file in place) and the reader moves its window many times.
    std::vector<unsigned> values(50000);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<unsigned>(i * 7919u);
    auto write_all = [&](BlkWriter *w) {
        BlkWriteBlock(w, 1);
        BlkWriteBlock(w, 10);
        BlkWriteU4(w, values.data(), static_cast<unsigned>(values.size()));
        BlkWriteEnd(w);
        BlkWritePadding(w, 70001);
        write_sample(w);
        BlkWriteEnd(w);
    };
    Writer memory(BlkWriterOpenMemory());
    write_all(memory.get());

    TempFile file("large.blk");
    BlkWriter *w = BlkWriterOpenFile(file.path.c_str());
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(BlkWriterMemoryData(w, nullptr), nullptr);
    write_all(w);
    ASSERT_EQ(BlkWriterClose(w), 1);
    EXPECT_EQ(file.read(), memory_of(memory.get()));

    Reader r(BlkReaderOpenFile(file.path.c_str()));
    ASSERT_TRUE(r);
    std::vector<Seen> seen;
    walk(r.get(), seen);
    EXPECT_EQ(BlkReaderFailed(r.get()), 0);
    ASSERT_EQ(seen.size(), 2u);  // block 1 and block 10; the sample is nested one deeper
    EXPECT_EQ(seen[1].values, values);
}

// ---- Reading at the edges of blocks ----

TEST(BlockReading, ReadsStopAtTheEndOfTheBlockAndFindAndEndSkipWhatIsUnread) {
    // Block 1 holds two words and two stray bytes.
    Bytes bytes = stream({1, 10, 5, 6, 0xBBAA, 2, 4, 9});
    Reader r(BlkReaderOpenMemory(bytes.data(), bytes.size()));
    unsigned values[4] = {0, 0, 0x77, 0x77};
    EXPECT_EQ(BlkReadU4(r.get(), values, 1), 0u);  // not in a block
    EXPECT_EQ(BlkReadEnd(r.get()), 0);
    ASSERT_EQ(BlkFindBlock(r.get(), kOuter), 1u);
    EXPECT_EQ(BlkReadU4(r.get(), values, 4), 2u);
    EXPECT_EQ(values[1], 6u);
    EXPECT_EQ(values[2], 0x77u);  // the stray bytes do not make a word
    EXPECT_EQ(BlkReadU4(r.get(), values, 1), 0u);
    EXPECT_EQ(BlkReadEnd(r.get()), 1);
    ASSERT_EQ(BlkFindBlock(r.get(), kOuter), 2u);
    EXPECT_EQ(BlkReadU4(r.get(), values, 4), 1u);
    EXPECT_EQ(values[0], 9u);
    EXPECT_EQ(BlkReaderFailed(r.get()), 0);

    // Find passes skipped blocks for good, and end skips what is left unread.
    bytes = sample_stream();
    r.reset(BlkReaderOpenMemory(bytes.data(), bytes.size()));
    const BlkBlockId only_three[] = {{3, "three"}, {0, nullptr}};
    EXPECT_EQ(BlkFindBlock(r.get(), nullptr), 0u);  // a null table moves nothing
    ASSERT_EQ(BlkFindBlock(r.get(), kOuter), 1u);
    ASSERT_EQ(BlkFindBlock(r.get(), kInner), 10u);
    EXPECT_EQ(BlkReadEnd(r.get()), 1);  // leaves 10 unread...
    EXPECT_EQ(BlkReadEnd(r.get()), 1);  // ...and 1 with 11 unvisited
    ASSERT_EQ(BlkFindBlock(r.get(), only_three), 3u);
    EXPECT_EQ(BlkFindBlock(r.get(), kOuter), 0u);  // the end of block 3, not of the stream
    EXPECT_EQ(BlkReadEnd(r.get()), 1);
    EXPECT_EQ(BlkFindBlock(r.get(), kOuter), 0u);
    EXPECT_EQ(BlkReaderFailed(r.get()), 0);
}

TEST(BlockReading, ANewerMinorVersionReadsAndAnythingElseDoesNotOpen) {
    Bytes bytes = sample_stream();
    bytes[6] = 9;
    std::unique_ptr<BlkReader> r(BlkReader::open_memory(bytes.data(), bytes.size()));
    ASSERT_TRUE(r);
    EXPECT_EQ(r->version_minor(), 9);
    bytes[4] = 2;  // major version 2
    EXPECT_EQ(BlkReaderOpenMemory(bytes.data(), bytes.size()), nullptr);
    bytes[4] = 1;
    bytes[0] = 'v';
    EXPECT_EQ(BlkReaderOpenMemory(bytes.data(), bytes.size()), nullptr);
    EXPECT_EQ(BlkReaderOpenMemory(nullptr, 0), nullptr);
    EXPECT_EQ(BlkReaderOpenFile("/nonexistent/vexor/stream.blk"), nullptr);
}

// ---- Writer failures ----

TEST(BlockWriting, RefusedWritesABlockLeftOpenAndNoMemoryFailTheWriterForGood) {
    for (const int refusal : {0, 1, 2}) {
        Writer w(BlkWriterOpenMemory());
        const unsigned value = 1;
        ASSERT_EQ(BlkWriteBlock(w.get(), 1), 1);
        ASSERT_EQ(BlkWriteEnd(w.get()), 1);
        EXPECT_EQ(refusal == 0   ? BlkWriteEnd(w.get())  // no block open
                  : refusal == 1 ? BlkWriteBlock(w.get(), 0)
                                 : BlkWriteBlock(w.get(), BLK_PAD_ID),
                  0);
        EXPECT_EQ(BlkWriteBlock(w.get(), 2), 0);
        EXPECT_EQ(BlkWriteU4(w.get(), &value, 1), 0);
        EXPECT_EQ(BlkWriterClose(w.release()), 0);
    }
    EXPECT_EQ(BlkWriterOpenFile("/nonexistent/vexor/stream.blk"), nullptr);

    // A block left open fails the close and reads as malformed.
    Writer w(BlkWriterOpenMemory());
    BlkWriteBlock(w.get(), 1);
    BlkWriteBlock(w.get(), 10);
    BlkWriteEnd(w.get());
    bool failed = false;
    EXPECT_TRUE(walk_bytes(memory_of(w.get()), &failed).empty());
    EXPECT_TRUE(failed);
    EXPECT_EQ(BlkWriterClose(w.release()), 0);

    // Running out of memory fails the writer too, and leaks nothing.
    const std::vector<unsigned> values(100000, 5u);
    const std::int64_t baseline = test::live_blocks();
    w.reset(BlkWriterOpenMemory());
    ASSERT_EQ(BlkWriteBlock(w.get(), 1), 1);
    {
        test::FailAllocation next(1, test::FailMode::from_then_on);
        EXPECT_EQ(BlkWriteU4(w.get(), values.data(), static_cast<unsigned>(values.size())), 0);
        EXPECT_TRUE(test::injected_failure_raised());
    }
    EXPECT_EQ(BlkWriteEnd(w.get()), 0);
    EXPECT_EQ(BlkWriterClose(w.release()), 0);
    EXPECT_EQ(test::live_blocks(), baseline);
}

TEST(BlockWriting, NestingIsBoundedAtTheDepthEveryReaderAccepts) {
    Writer w(BlkWriterOpenMemory());
    for (std::size_t level = 0; level < blk::kMaxDepth; ++level) {
        ASSERT_EQ(BlkWriteBlock(w.get(), 1), 1) << level;
    }
    std::unique_ptr<BlkWriter> deeper(BlkWriter::open_memory());
    for (std::size_t level = 0; level < blk::kMaxDepth; ++level) deeper->begin(1);
    EXPECT_THROW(deeper->begin(1), Failure);
    for (std::size_t level = 0; level < blk::kMaxDepth; ++level) BlkWriteEnd(w.get());
    const Bytes bytes = memory_of(w.get());
    Reader r(BlkReaderOpenMemory(bytes.data(), bytes.size()));
    std::size_t entered = 0;
    while (BlkFindBlock(r.get(), kOuter) == 1) ++entered;
    EXPECT_EQ(entered, blk::kMaxDepth);
    EXPECT_EQ(BlkReaderFailed(r.get()), 0);
}

// ---- Hostile streams ----

TEST(BlockReaderHostile, ATruncationAtEveryOffsetReadsAPrefixAndIsMalformedUnlessBetweenBlocks) {
    std::vector<std::size_t> boundaries;
    const Bytes whole = sample_stream(&boundaries);
    TempFile file("cut.blk");
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        // An exact-size copy, so that a read past the end is a read past the allocation.
        const Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
        bool failed = false;
        const std::vector<Seen> seen = walk_bytes(bytes, &failed);
        EXPECT_EQ(failed, std::find(boundaries.begin(), boundaries.end(), cut) == boundaries.end());
        // A block cut short is refused before it is entered: what is seen is whole.
        ASSERT_LE(seen.size(), kSampleSeen.size());
        EXPECT_TRUE(std::equal(seen.begin(), seen.end(), kSampleSeen.begin()));
        file.write(bytes);
        std::vector<Seen> from_file;
        Reader r(BlkReaderOpenFile(file.path.c_str()));
        if (r) walk(r.get(), from_file);
        EXPECT_EQ(from_file, seen);
    }
}

TEST(BlockReaderHostile, ALengthPastWhatHoldsTheBlockIsMalformed) {
    // Block 10 claims 8 bytes, 4 of them beyond block 1 (where block 2 starts).
    const Bytes past_parent = stream({1, 12, 10, 8, 1, 2, 0});
    Reader r(BlkReaderOpenMemory(past_parent.data(), past_parent.size()));
    ASSERT_EQ(BlkFindBlock(r.get(), kOuter), 1u);
    EXPECT_EQ(BlkFindBlock(r.get(), kInner), 0u);
    EXPECT_EQ(BlkReaderFailed(r.get()), 1);
    unsigned value = 0;
    EXPECT_EQ(BlkReadU4(r.get(), &value, 1), 0u);  // a bad reader reads nothing more
    EXPECT_EQ(BlkReadEnd(r.get()), 1);
    EXPECT_EQ(BlkFindBlock(r.get(), kOuter), 0u);

    bool failed = false;
    Bytes past_end = stream({1, 5, 0});  // 5 bytes fit, their padding does not
    past_end.push_back(0);
    EXPECT_TRUE(walk_bytes(past_end, &failed).empty());
    EXPECT_TRUE(failed);
    Bytes trailing = sample_stream();
    trailing.insert(trailing.end(), {1, 0, 0});  // a header cut to three bytes
    EXPECT_EQ(walk_bytes(trailing, &failed), kSampleSeen);
    EXPECT_TRUE(failed);
}

TEST(BlockReaderHostile, HugeLengthsAndDeepNestingAllocateNothing) {
    // A nested block claiming 4 GiB, then a top-level one.
    const Bytes huge = stream({1, 12, 10, 0xFFFFFFF8u, 0, 2, 0xFFFFFFFFu});
    for (const bool from_file : {false, true}) {
        SCOPED_TRACE(from_file ? "file" : "memory");
        TempFile file("huge.blk");
        file.write(huge);
        Reader r(from_file ? BlkReaderOpenFile(file.path.c_str())
                           : BlkReaderOpenMemory(huge.data(), huge.size()));
        ASSERT_TRUE(r);
        const std::uint64_t before = test::thread_allocations();
        unsigned values[4];
        EXPECT_EQ(BlkFindBlock(r.get(), kOuter), 1u);
        EXPECT_EQ(BlkFindBlock(r.get(), kInner), 0u);
        EXPECT_EQ(BlkReadU4(r.get(), values, 4), 0u);
        EXPECT_EQ(test::thread_allocations(), before);
        EXPECT_EQ(BlkReaderFailed(r.get()), 1);
    }
    const Bytes top = stream({2, 0xFFFFFFFFu});
    EXPECT_TRUE(walk_bytes(top).empty());

    // Blocks nested a thousand deep: the reader enters as far as its limit, then refuses.
    Bytes deep = stream({});
    for (std::uint32_t level = 0; level < 1000; ++level) {
        const Bytes header = stream({1, 8 * (999 - level)});
        deep.insert(deep.end(), header.begin() + 8, header.end());
    }
    Reader r(BlkReaderOpenMemory(deep.data(), deep.size()));
    const std::uint64_t before = test::thread_allocations();
    std::size_t entered = 0;
    while (BlkFindBlock(r.get(), kOuter) == 1) ++entered;
    EXPECT_EQ(entered, blk::kMaxDepth);
    EXPECT_EQ(BlkReaderFailed(r.get()), 1);
    EXPECT_EQ(test::thread_allocations(), before);
}

}  // namespace
}  // namespace vx
