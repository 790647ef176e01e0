// Block streams: nested, length-prefixed blocks of little-endian values, written to a file or
// to memory and read back from either.
//
// Layout (docs/formats.md, "Block stream"): an 8-byte stream header (magic "VXBK", major and
// minor format version as u16), then blocks. A block is its identifier (u32), the byte length
// of its payload (u32), the payload, and 0 to 3 zero bytes that make the payload's share a
// multiple of 4 (the length does not count them). Payloads hold values and nested blocks.
//
// The writer raises failures (std::bad_alloc, vx::Failure) and then stays failed: every later
// write raises again and close() reports false, since a stream missing a piece is corrupt.
// The reader never raises after it is open and trusts nothing it reads: a malformed stream
// turns it bad, after which it finds no block and reads no value. It allocates nothing after
// opening, whatever the lengths in the stream say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include <vexor/block.h>

namespace vx::blk {

inline constexpr unsigned char kMagic[4] = {'V', 'X', 'B', 'K'};
inline constexpr std::uint16_t kVersionMajor = 1;  // readers refuse another major version
inline constexpr std::uint16_t kVersionMinor = 0;  // additions older readers can skip
inline constexpr std::size_t kStreamHeaderSize = 8;
inline constexpr std::size_t kBlockHeaderSize = 8;
inline constexpr std::uint32_t kPadId = BLK_PAD_ID;
// The deepest nesting either side accepts. Bounding it keeps the reader's state fixed in
// size, so a hostile stream of blocks inside blocks cannot make it allocate.
inline constexpr std::size_t kMaxDepth = 64;

// The bytes a payload of `length` bytes occupies once padded to a multiple of 4.
inline constexpr std::uint64_t padded(std::uint64_t length) noexcept {
    return (length + 3u) & ~std::uint64_t{3};
}

}  // namespace vx::blk

struct BlkWriter {
  public:
    // Raise rc::failed when the file cannot be created; std::bad_alloc when out of memory.
    static BlkWriter *open_file(const char *path);
    static BlkWriter *open_memory();
    ~BlkWriter();
    BlkWriter(const BlkWriter &) = delete;
    BlkWriter &operator=(const BlkWriter &) = delete;

    // Opens a block inside the current one. Identifiers 0 (the end of a find table) and the
    // padding identifier are refused (rc::bad_argument), as is nesting beyond kMaxDepth.
    void begin(std::uint32_t id);
    // Closes the innermost block and patches its length; rc::bad_argument when none is open.
    void end();
    void write_u4(const std::uint32_t *values, std::size_t count);
    void write_i4(const std::int32_t *values, std::size_t count);
    void write_fp(const float *values, std::size_t count);
    // Raw bytes; the block's closing pads the payload to a multiple of 4.
    void write_bytes(const void *bytes, std::size_t size);
    // A padding block with `size` zero bytes of payload, which every reader skips.
    void write_padding(std::uint32_t size);

    // The bytes written so far by a memory writer (null and 0 for a file writer). Valid until
    // the next write or the close.
    const unsigned char *memory_data(std::size_t *size) const noexcept;
    std::size_t depth() const noexcept { return open_.size(); }
    bool failed() const noexcept { return failed_; }
    // Flushes and closes the file. False when any write failed, a block is still open, or
    // the data could not be flushed. Does not free the writer.
    bool finish() noexcept;

  private:
    explicit BlkWriter(std::FILE *file) noexcept : file_(file) {}
    static BlkWriter *start(std::FILE *file);  // owns the file from the call on
    template <class Fn>
    void guarded(Fn &&fn);
    void put(const void *bytes, std::size_t size);
    void patch_u32(std::uint64_t offset, std::uint32_t value);
    void flush();

    std::FILE *file_;                    // null for a memory writer
    std::vector<unsigned char> buffer_;  // bytes not yet flushed (all of them in memory)
    std::uint64_t flushed_ = 0;          // stream bytes already written to the file
    std::vector<std::uint64_t> open_;    // stream offsets of the open blocks' headers
    bool failed_ = false;
};

struct BlkReader {
  public:
    // Null when the stream header is missing or is not a known major version. open_file
    // raises rc::failed when the file cannot be opened, std::bad_alloc when out of memory.
    // open_memory borrows the bytes: they must outlive the reader, unchanged.
    static BlkReader *open_file(const char *path);
    static BlkReader *open_memory(const void *data, std::size_t size);
    ~BlkReader();
    BlkReader(const BlkReader &) = delete;
    BlkReader &operator=(const BlkReader &) = delete;

    // Finds the next block of the current level whose identifier is in the table (ended by
    // identifier 0), skipping other blocks and padding, and enters it. 0 at the end of the
    // level, for a null table, and on a malformed stream (the reader then turns bad).
    std::uint32_t find(const BlkBlockId *table) noexcept;
    // Read up to `count` values of the current block; the number read. Never past the block,
    // nothing outside a block.
    std::size_t read_u4(std::uint32_t *values, std::size_t count) noexcept;
    std::size_t read_i4(std::int32_t *values, std::size_t count) noexcept;
    std::size_t read_fp(float *values, std::size_t count) noexcept;
    std::size_t read_bytes(void *bytes, std::size_t size) noexcept;
    // Leaves the current block, skipping what is unread. False when no block is open.
    bool end() noexcept;

    bool bad() const noexcept { return bad_; }
    std::size_t depth() const noexcept { return depth_; }
    std::uint16_t version_minor() const noexcept { return minor_; }
    // Payload bytes of the current block not yet read (0 outside a block).
    std::uint64_t remaining() const noexcept;

  private:
    BlkReader(std::FILE *file, const unsigned char *data, std::uint64_t size) noexcept
        : file_(file), data_(data), size_(size) {}
    bool header_ok() noexcept;
    bool fetch(std::uint64_t offset, void *out, std::size_t size) noexcept;
    bool fetch_u32(std::uint64_t offset, std::uint32_t &value) noexcept;
    std::uint32_t fail() noexcept;
    std::size_t read_words(unsigned char *out, std::size_t count) noexcept;

    struct Level {
        std::uint64_t end;   // end of the payload
        std::uint64_t next;  // where the next block of the enclosing level starts
    };

    std::FILE *file_;            // null for a memory reader
    const unsigned char *data_;  // the borrowed bytes of a memory reader
    std::uint64_t size_;         // bytes in the stream
    std::uint64_t pos_ = 0;
    std::size_t depth_ = 0;
    Level levels_[vx::blk::kMaxDepth] = {};
    bool bad_ = false;
    std::uint16_t minor_ = 0;
    // A file reader's window onto the file.
    static constexpr std::size_t kWindow = 4096;
    unsigned char window_[kWindow] = {};
    std::uint64_t window_start_ = 0;
    std::size_t window_size_ = 0;
};
