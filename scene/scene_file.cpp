// The scene chunk of scene files: the file's head, its table of packages, the items with their
// names, add-on packages, tags and hidden state, the parent and source links, and the chunks
// of the I/O clients. Byte layout in docs/formats.md, "Scene files".
//
// Loading makes a new scene and fills it through the scene's own operations with undo
// suspended: the load is not an undo step (undoing cannot take the scene away again) and the
// loaded scene is clean. The scene stays quiet while it is filled, since until the load returns
// nobody holds it and it may yet be destroyed; a failure destroys it, so nothing is left.
#include <cstdio>
#include <memory>
#include <string>

#include "foundation/failure.h"
#include "foundation/log.h"
#include "foundation/undo.h"
#include "scene/package_registry.h"
#include "scene/scene.h"
#include "scene/scene_io.h"

namespace vx::cine::io {
namespace {

// Version of the scene chunk, apart from the block stream's own: readers refuse another
// major version and read any minor one, skipping what they do not know.
constexpr std::uint32_t kFormatMajor = 1;
constexpr std::uint32_t kFormatMinor = 0;

constexpr std::uint32_t kScene = 200;
constexpr std::uint32_t kHead = 201;
constexpr std::uint32_t kPackage = 202;
constexpr std::uint32_t kItem = 203;
constexpr std::uint32_t kAddOn = 204;
constexpr std::uint32_t kTag = 205;
constexpr std::uint32_t kParent = 206;
constexpr std::uint32_t kSource = 207;
constexpr std::uint32_t kClient = 208;

constexpr std::uint32_t kItemNamed = 0x1;
constexpr std::uint32_t kItemHidden = 0x2;

constexpr BlkBlockId kTopBlocks[] = {{kScene, "scene"}, {0, nullptr}};
constexpr BlkBlockId kSceneBlocks[] = {
    {kHead, "head"},     {kPackage, "package"}, {kItem, "item"}, {kParent, "parent"},
    {kSource, "source"}, {kClient, "client"},   {0, nullptr}};
constexpr BlkBlockId kItemBlocks[] = {{kAddOn, "addon"}, {kTag, "tag"}, {0, nullptr}};

// ---- Saving ----

void save_item(const SaveContext &context, const CineItem &item, BlkWriter &writer) {
    writer.begin(kItem);
    put_u32(writer, context.package_index(item.type));
    put_u32(writer, (item.has_name ? kItemNamed : 0u) | (is_hidden(item) ? kItemHidden : 0u));
    put_u32(writer, item.name_index);
    put_text(writer, item.has_name ? item.name : std::string());
    // The type's chain is made again from the type; what follows it was added.
    const std::uint32_t type_at = chain_position(item, item.type);
    for (std::size_t i = type_at + 1; i < item.chain.size(); ++i) {
        writer.begin(kAddOn);
        put_u32(writer, context.package_index(item.chain[i].package));
        writer.end();
    }
    for (const ItemTag &tag : item.tags) {
        writer.begin(kTag);
        put_u32(writer, tag.code);
        put_text(writer, tag.value);
        writer.end();
    }
    writer.end();
}

void save_link(BlkWriter &writer, std::uint32_t id, std::uint32_t from, std::uint32_t to) {
    writer.begin(id);
    put_u32(writer, from);
    put_u32(writer, to);
    writer.end();
}

// ---- Loading ----

// Undo suspended for the lifetime of the object.
struct SuspendUndo {
    SuspendUndo() noexcept { UndoSysSuspend(); }
    ~SuspendUndo() { UndoSysResume(); }
    SuspendUndo(const SuspendUndo &) = delete;
    SuspendUndo &operator=(const SuspendUndo &) = delete;
};

// The flags of the scene, from the head, which must come first.
std::uint32_t read_head(BlkReader &reader) {
    if (reader.find(kSceneBlocks) != kHead) corrupt("the scene block does not start with its head");
    LeaveBlock leave{reader};
    Fields fields(reader);
    const std::uint32_t major = fields.u32();
    fields.u32();  // minor: later minor versions only add what this reader skips
    const std::uint32_t flags = fields.u32();
    if (major != kFormatMajor) {
        VX_FAIL_LINE("scene file of another major version:", nullptr);
        fail(rc::refused, "the scene file is of a major version this library does not read");
    }
    return flags;
}

void read_package(LoadContext &context, BlkReader &reader) {
    const std::string name = Fields(reader).text();
    CinePackage *pkg = package_named(name.c_str());
    // A package the host has only now provided is resolved here; one that cannot be resolved
    // counts as missing.
    if (pkg != nullptr && pkg->type_code == 0) {
        try {
            resolve(*pkg);
        } catch (const Failure &) {
        }
        if (pkg->type_code == 0) pkg = nullptr;
    }
    if (pkg == nullptr) context.lost("missing package:", name.c_str());
    context.add_package(pkg);
}

void read_tag(CineItem &item, BlkReader &reader) {
    Fields fields(reader);
    const std::uint32_t code = fields.u32();
    std::string value = fields.text();
    for (ItemTag &tag : item.tags) {
        if (tag.code == code) {
            tag.value = std::move(value);
            return;
        }
    }
    item.tags.push_back(ItemTag{code, std::move(value)});
}

void read_add_on(LoadContext &context, CineItem &item, BlkReader &reader) {
    CinePackage *pkg = context.package(Fields(reader).u32());
    if (pkg == nullptr) return;  // missing: reported with the package table
    if (pkg->type_code != CINE_TYPE_NONE || !add_package(item, *pkg)) {
        context.lost("a package that is not an add-on package:", pkg->name);
    }
}

// An item whose type this session lacks is dropped with all it holds: its position in the
// file then stands for nothing.
void read_item(LoadContext &context, BlkReader &reader) {
    Fields fields(reader);
    CinePackage *type = context.package(fields.u32());
    const std::uint32_t flags = fields.u32();
    const std::uint32_t name_index = fields.u32();
    std::string name = fields.text();
    std::uint32_t code = type != nullptr ? type->type_code : CINE_TYPE_NONE;
    if (type != nullptr && code == CINE_TYPE_NONE) {
        context.lost("an item type that is not a type:", type->name);
        code = CINE_TYPE_NONE;
    }
    if (code == CINE_TYPE_NONE) {
        context.add_item(nullptr);
        return;
    }
    CineItem &item = create_item(context.scene(), code);
    context.add_item(&item);
    if ((flags & kItemNamed) != 0) {
        item.name = std::move(name);
        item.has_name = true;
    }
    item.name_index = name_index;
    if ((flags & kItemHidden) != 0) set_hidden(item, true);
    for (;;) {
        const std::uint32_t id = reader.find(kItemBlocks);
        if (id == 0) break;
        LeaveBlock leave{reader};
        if (id == kAddOn) {
            read_add_on(context, item, reader);
        } else {
            read_tag(item, reader);
        }
    }
}

// Parents are written child by child in each parent's order, so appending keeps the order.
void read_parent(LoadContext &context, BlkReader &reader) {
    Fields fields(reader);
    CineItem *child = context.item(fields.u32());
    CineItem *parent = context.item(fields.u32());
    if (child == nullptr || parent == nullptr) return;
    if (set_parent(*child, parent, -1) != rc::ok) {
        context.lost("a parent link the item's package refuses:", child->type->name);
    }
}

void read_source(LoadContext &context, BlkReader &reader) {
    Fields fields(reader);
    CineItem *item = context.item(fields.u32());
    CineItem *source = context.item(fields.u32());
    if (item == nullptr || source == nullptr) return;
    for (CineItem *at = source; at != nullptr; at = item_source(*at)) {
        if (at == item) corrupt("a loop of source links");
    }
    set_source(*item, source);
}

void read_client(LoadContext &context, BlkReader &reader) {
    const std::string name = Fields(reader).text();
    // A client that does not run in this session (or is newer than this library) is skipped.
    if (const Client *client = find_client(name)) client->load(context, reader);
}

void read_body(LoadContext &context, BlkReader &reader) {
    for (;;) {
        const std::uint32_t id = reader.find(kSceneBlocks);
        if (id == 0) break;
        LeaveBlock leave{reader};
        switch (id) {
            case kPackage:
                read_package(context, reader);
                break;
            case kItem:
                read_item(context, reader);
                break;
            case kParent:
                read_parent(context, reader);
                break;
            case kSource:
                read_source(context, reader);
                break;
            case kClient:
                read_client(context, reader);
                break;
            default:
                corrupt("a second head");
        }
    }
    if (reader.bad()) corrupt("a malformed block stream");
}

// Runs the post-load callbacks of the packages of every item, once the scene is complete.
void run_post_load(const Cinema &scene) {
    for_each_item(scene, [](CineItem &item) {
        for (const PackageEntry &entry : item.chain) {
            const PackageDef *def = definition_of(*entry.package);
            if (def != nullptr && def->post_load != nullptr) def->post_load(&item);
        }
    });
}

}  // namespace

void save_scene(const Cinema &scene, BlkWriter &writer) {
    const SaveContext context(scene);
    writer.begin(kScene);
    writer.begin(kHead);
    put_u32(writer, kFormatMajor);
    put_u32(writer, kFormatMinor);
    put_u32(writer, scene.flags);
    writer.end();
    for (const CinePackage *pkg : context.packages()) {
        writer.begin(kPackage);
        put_text(writer, pkg->name);
        writer.end();
    }
    for (const CineItem *item : context.items()) save_item(context, *item, writer);
    for (const CineItem *item : context.items()) {
        for (std::size_t i = 0; i < child_count(*item); ++i) {
            save_link(writer, kParent, context.item_index(child_at(*item, i)),
                      context.item_index(item));
        }
    }
    for (const CineItem *item : context.items()) {
        if (const CineItem *source = item_source(*item)) {
            save_link(writer, kSource, context.item_index(item), context.item_index(source));
        }
    }
    for (const Client &client : clients()) {
        writer.begin(kClient);
        put_text(writer, client.name);
        client.save(context, writer);
        writer.end();
    }
    writer.end();
}

void save_scene_file(const Cinema &scene, const char *path) {
    if (path == nullptr || *path == '\0') fail(rc::bad_argument, "no file name");
    const std::string part = std::string(path) + ".part";
    bool written = false;
    {
        std::unique_ptr<BlkWriter> writer(BlkWriter::open_file(part.c_str()));
        OnFailure drop([&] { std::remove(part.c_str()); });
        save_scene(scene, *writer);
        written = writer->finish();
    }
    if (!written || std::rename(part.c_str(), path) != 0) {
        std::remove(part.c_str());
        fail(rc::failed, "the scene file could not be written");
    }
}

Cinema *load_scene(BlkReader &reader, std::uint32_t options, const char *file) {
    if ((options & ~kLoadStrict) != 0) fail(rc::bad_argument, "reserved load options are set");
    if (reader.find(kTopBlocks) != kScene) {
        corrupt(reader.bad() ? "a malformed block stream" : "no scene block");
    }
    LeaveBlock leave{reader};
    const std::uint32_t flags = read_head(reader);
    resolve_all();

    SuspendUndo suspend;
    Cinema *scene = create_scene(flags, /*quiet=*/true);
    OnFailure drop([&] { destroy_scene(scene); });
    scene->making = true;
    LoadContext context(*scene, options);
    read_body(context, reader);
    if (file != nullptr) scene->file = file;
    scene->quiet = false;
    scene->making = false;
    run_post_load(*scene);
    return scene;
}

Cinema *load_scene_file(const char *path, std::uint32_t options) {
    if (path == nullptr) fail(rc::bad_argument, "no file name");
    std::unique_ptr<BlkReader> reader(BlkReader::open_file(path));
    if (!reader) corrupt("not a block stream this library reads");
    return load_scene(*reader, options, path);
}

}  // namespace vx::cine::io
