// The scene file: the scene chunk (items with everything the scene keeps about them) and the
// I/O clients, named writers and readers of sub-chunks that the modules above the scene
// register, so that the scene module needs to know nothing of what they keep (actions, for
// one). Byte layout in docs/formats.md, "Scene files".
//
// Inside a file, items and packages are referred to by their position in the file: packages by
// name (type codes differ between sessions), items by the order in which they were written.
// Identity strings are not kept; a loaded item gets a new one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/block_stream.h"

struct Cinema;
struct CineItem;
struct CinePackage;

namespace vx::cine::io {

inline constexpr std::uint32_t kNone = 0xFFFFFFFFu;

// Options of a load. Every other bit is reserved and must be 0.
inline constexpr std::uint32_t kLoadStrict = 0x1u;

// ---- Fields (scene_io.cpp) ------------------------------------------------------------------

// A text is its byte length (u32), its bytes and zero bytes up to a multiple of 4. A double is
// its 8 bytes as two u32, the low word first.
void put_u32(BlkWriter &writer, std::uint32_t value);
void put_i32(BlkWriter &writer, std::int32_t value);
void put_double(BlkWriter &writer, double value);
void put_text(BlkWriter &writer, std::string_view text);

// Raises rc::failed with "corrupt scene file: <what>", after logging it.
[[noreturn]] void corrupt(const char *what);

// Reads the fields of the reader's current block in order; a field the block is too short for
// (or a text holding a null byte) makes the file corrupt. A text longer than what is left of
// the block is found out before anything is allocated for it.
class Fields {
  public:
    explicit Fields(BlkReader &reader) noexcept : reader_(reader) {}
    std::uint32_t u32();
    std::int32_t i32();
    double f64();
    std::string text();

  private:
    BlkReader &reader_;
};

// Leaves the reader's current block however the scope ends.
struct LeaveBlock {
    explicit LeaveBlock(BlkReader &r) noexcept : reader(r) {}
    BlkReader &reader;
    LeaveBlock(const LeaveBlock &) = delete;
    LeaveBlock &operator=(const LeaveBlock &) = delete;
    ~LeaveBlock() { reader.end(); }
};

// ---- Contexts handed to the clients ---------------------------------------------------------

// What a client needs to refer to the scene's items and channels while saving.
class SaveContext {
  public:
    explicit SaveContext(const Cinema &scene);
    const Cinema &scene() const noexcept { return scene_; }
    // The item's position in the file, or kNone when it is not saved (not in its scene).
    std::uint32_t item_index(const CineItem *item) const noexcept;
    // Writes a reference to an item channel (item, package, channel name). False, writing
    // nothing, when the item is not saved or has no such channel.
    bool put_channel(BlkWriter &writer, const CineItem &item, std::uint32_t channel) const;

    // For the scene chunk itself.
    const std::vector<CineItem *> &items() const noexcept { return items_; }
    const std::vector<const CinePackage *> &packages() const noexcept { return packages_; }
    std::uint32_t package_index(const CinePackage *pkg) const noexcept;

  private:
    const Cinema &scene_;
    std::vector<CineItem *> items_;
    std::unordered_map<const CineItem *, std::uint32_t> item_at_;
    std::vector<const CinePackage *> packages_;
    std::unordered_map<const CinePackage *, std::uint32_t> package_at_;
};

// What a client needs while loading: the scene being made and what the file's references
// stand for in this session. Items and packages the session lacks are null; what refers to
// them is dropped (lost()), or fails the load in strict mode.
class LoadContext {
  public:
    LoadContext(Cinema &scene, std::uint32_t options) noexcept
        : scene_(scene), strict_((options & kLoadStrict) != 0) {}
    Cinema &scene() noexcept { return scene_; }

    // The item of a file position: null when it was dropped. A position not yet read is
    // corrupt.
    CineItem *item(std::uint32_t index) const;
    CinePackage *package(std::uint32_t index) const;
    // Reads a channel reference written by SaveContext::put_channel. False when the item or
    // channel is not in this session (the caller drops what the reference was for).
    bool get_channel(Fields &fields, CineItem *&item, std::uint32_t &channel);
    // Something in the file this session cannot take: fails in strict mode (rc::not_found),
    // else logs it and returns so the caller can drop it.
    void lost(const char *what, const char *name) const;
    // A field the loader has mended (set to its default): fails in strict mode (rc::failed,
    // a damaged file), else logs it so the rest of the scene loads.
    void repaired(const char *what, const char *name) const;

    // For the scene chunk itself.
    void add_package(CinePackage *pkg) { packages_.push_back(pkg); }
    void add_item(CineItem *item) { items_.push_back(item); }
    const std::vector<CineItem *> &items() const noexcept { return items_; }

  private:
    Cinema &scene_;
    bool strict_;
    std::vector<CinePackage *> packages_;
    std::vector<CineItem *> items_;
};

// ---- I/O clients (scene_io.cpp) -------------------------------------------------------------

struct Client {
    const char *name;  // static text, written in the file
    // Writes the client's blocks for the scene into the writer's current block.
    void (*save)(const SaveContext &context, BlkWriter &writer);
    // Reads the client's blocks from the reader's current block into the scene being loaded.
    // Raises failures; the load then destroys the scene.
    void (*load)(LoadContext &context, BlkReader &reader);
};

// Registers a client, replacing one of the same name. Raises std::bad_alloc.
void add_client(const Client &client);
void remove_client(const char *name) noexcept;
const Client *find_client(std::string_view name) noexcept;
const std::vector<Client> &clients() noexcept;

// ---- The scene file (scene_file.cpp) --------------------------------------------------------

// Writes the scene's block at the writer's current position. Changes nothing in the scene.
void save_scene(const Cinema &scene, BlkWriter &writer);
// Saves into a file: written beside it first and moved over it once complete, so a failed
// save leaves any earlier file as it was.
void save_scene_file(const Cinema &scene, const char *path);
// Makes a scene from the next scene block of the reader. Not recorded for undo, and the new
// scene is clean. Raises failures, leaving nothing behind. `file` (may be null) becomes the
// scene's file name.
Cinema *load_scene(BlkReader &reader, std::uint32_t options, const char *file);
Cinema *load_scene_file(const char *path, std::uint32_t options);

// ---- The objects of the saver and loader "$Cinema" (scene_file_object.cpp) ------------------

// Defines the component class "cinema.file". Raises failures.
void define_file_class();
// The factory of the servers: a "cinema.file" object with one reference.
void *make_file_object(void *data);

}  // namespace vx::cine::io
