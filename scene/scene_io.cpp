// Fields of scene files, the contexts through which I/O clients refer to items and channels,
// and the registry of I/O clients.
#include "scene/scene_io.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "foundation/failure.h"
#include "foundation/log.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::cine::io {

// ---- Fields ----

void put_u32(BlkWriter &writer, std::uint32_t value) {
    writer.write_u4(&value, 1);
}

void put_i32(BlkWriter &writer, std::int32_t value) {
    writer.write_i4(&value, 1);
}

void put_double(BlkWriter &writer, double value) {
    std::uint64_t bits;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    const std::uint32_t words[2] = {static_cast<std::uint32_t>(bits),
                                    static_cast<std::uint32_t>(bits >> 32)};
    writer.write_u4(words, 2);
}

void put_text(BlkWriter &writer, std::string_view text) {
    if (text.size() > 0xFFFFFFF0u) fail(rc::bad_argument, "a text too long for a scene file");
    put_u32(writer, static_cast<std::uint32_t>(text.size()));
    writer.write_bytes(text.data(), text.size());
    static constexpr char kZeros[4] = {};
    writer.write_bytes(kZeros, (4 - text.size() % 4) % 4);
}

void corrupt(const char *what) {
    VX_FAIL_LINE("corrupt scene file:", what);
    char text[120];
    std::snprintf(text, sizeof text, "corrupt scene file: %s", what);
    fail(rc::failed, text);
}

std::uint32_t Fields::u32() {
    std::uint32_t value = 0;
    if (reader_.read_u4(&value, 1) != 1) corrupt("a block too short for its fields");
    return value;
}

std::int32_t Fields::i32() {
    std::int32_t value = 0;
    if (reader_.read_i4(&value, 1) != 1) corrupt("a block too short for its fields");
    return value;
}

double Fields::f64() {
    std::uint32_t words[2] = {0, 0};
    if (reader_.read_u4(words, 2) != 2) corrupt("a block too short for its fields");
    const std::uint64_t bits = words[0] | (std::uint64_t{words[1]} << 32);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string Fields::text() {
    const std::uint64_t size = u32();
    const std::uint64_t padded = (size + 3) & ~std::uint64_t{3};
    if (padded > reader_.remaining()) corrupt("a text longer than its block");
    std::string text(static_cast<std::size_t>(size), '\0');
    reader_.read_bytes(text.data(), text.size());
    char pad[4];
    reader_.read_bytes(pad, static_cast<std::size_t>(padded - size));
    if (text.find('\0') != std::string::npos) corrupt("a text with a null byte");
    return text;
}

// ---- Saving ----

SaveContext::SaveContext(const Cinema &scene) : scene_(scene) {
    for_each_item(scene, [&](CineItem &item) {
        item_at_.emplace(&item, static_cast<std::uint32_t>(items_.size()));
        items_.push_back(&item);
        for (const PackageEntry &entry : item.chain) {
            if (package_at_.emplace(entry.package, static_cast<std::uint32_t>(packages_.size()))
                    .second) {
                packages_.push_back(entry.package);
            }
        }
    });
}

std::uint32_t SaveContext::item_index(const CineItem *item) const noexcept {
    auto it = item_at_.find(item);
    return it != item_at_.end() ? it->second : kNone;
}

std::uint32_t SaveContext::package_index(const CinePackage *pkg) const noexcept {
    auto it = package_at_.find(pkg);
    return it != package_at_.end() ? it->second : kNone;
}

bool SaveContext::put_channel(BlkWriter &writer, const CineItem &item,
                              std::uint32_t channel) const {
    const std::uint32_t index = item_index(&item);
    const PackageEntry *entry = entry_of(item, channel);
    if (index == kNone || entry == nullptr) return false;
    put_u32(writer, index);
    put_u32(writer, package_index(entry->package));
    put_text(writer, entry->package->channels[channel - entry->first].name);
    return true;
}

// ---- Loading ----

CineItem *LoadContext::item(std::uint32_t index) const {
    if (index >= items_.size()) corrupt("a reference to an item not read yet");
    return items_[index];
}

CinePackage *LoadContext::package(std::uint32_t index) const {
    if (index >= packages_.size()) corrupt("a reference to a package not read yet");
    return packages_[index];
}

bool LoadContext::get_channel(Fields &fields, CineItem *&item, std::uint32_t &channel) {
    CineItem *owner = this->item(fields.u32());
    CinePackage *pkg = package(fields.u32());
    const std::string name = fields.text();
    // A dropped item or a missing package has been reported already.
    if (owner == nullptr || pkg == nullptr) return false;
    const std::uint32_t at = chain_position(*owner, pkg);
    if (at == kNoIndex) {
        lost("a channel of a package the item lacks:", pkg->name);
        return false;
    }
    const ChannelList &channels = pkg->channels;
    for (std::uint32_t i = 0; i < pkg->channel_count && i < channels.size(); ++i) {
        if (channels[i].name == name) {
            item = owner;
            channel = owner->chain[at].first + i;
            return true;
        }
    }
    lost("no such channel:", name.c_str());
    return false;
}

void LoadContext::lost(const char *what, const char *name) const {
    if (strict_) {
        char text[160];
        std::snprintf(text, sizeof text, "the scene file needs what this session lacks: %s %s",
                      what, name != nullptr ? name : "");
        fail(rc::not_found, text);
    }
    VX_FAIL_LINE(what, name);
}

void LoadContext::repaired(const char *what, const char *name) const {
    if (strict_) {
        char text[160];
        std::snprintf(text, sizeof text, "the scene file holds a value out of range: %s %s", what,
                      name != nullptr ? name : "");
        fail(rc::failed, text);
    }
    VX_FAIL_LINE(what, name);
}

// ---- Clients ----

namespace {

std::vector<Client> &registered() noexcept {
    static std::vector<Client> list;
    return list;
}

}  // namespace

void add_client(const Client &client) {
    std::vector<Client> &list = registered();
    for (Client &known : list) {
        if (std::strcmp(known.name, client.name) == 0) {
            known = client;
            return;
        }
    }
    list.push_back(client);
}

void remove_client(const char *name) noexcept {
    std::erase_if(registered(),
                  [&](const Client &client) { return std::strcmp(client.name, name) == 0; });
}

const Client *find_client(std::string_view name) noexcept {
    for (const Client &client : registered()) {
        if (name == client.name) return &client;
    }
    return nullptr;
}

const std::vector<Client> &clients() noexcept {
    return registered();
}

}  // namespace vx::cine::io
