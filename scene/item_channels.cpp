// Item channels: the index space over the package chain, look-ups by name and across items,
// and the ranges of vector channels. None of these allocate.
#include <vexor/package.h>

#include <cstring>

#include "scene/scene.h"

namespace vx::cine {

const PackageEntry *entry_of(const CineItem &item, std::uint32_t channel) noexcept {
    for (const PackageEntry &entry : item.chain) {
        if (channel >= entry.first && channel - entry.first < entry.package->channel_count) {
            return &entry;
        }
    }
    return nullptr;
}

const ChannelDesc *item_channel(const CineItem &item, std::uint32_t channel) noexcept {
    const PackageEntry *entry = entry_of(item, channel);
    return entry != nullptr ? &entry->package->channels[channel - entry->first] : nullptr;
}

std::int64_t lookup_channel(const CineItem &item, const char *name) noexcept {
    if (name == nullptr) return -1;
    for (const PackageEntry &entry : item.chain) {
        const ChannelList &channels = entry.package->channels;
        for (std::uint32_t i = 0; i < entry.package->channel_count; ++i) {
            if (channels[i].name == name) return entry.first + i;
        }
    }
    return -1;
}

std::uint32_t chain_position(const CineItem &item, const CinePackage *pkg) noexcept {
    for (std::size_t i = 0; i < item.chain.size(); ++i) {
        if (item.chain[i].package == pkg) return static_cast<std::uint32_t>(i);
    }
    return kNoIndex;
}

std::int64_t match_channel(const CineItem &from, std::uint32_t channel,
                           const CineItem &to) noexcept {
    const PackageEntry *entry = entry_of(from, channel);
    if (entry == nullptr) return -1;
    std::uint32_t at = chain_position(to, entry->package);
    if (at != kNoIndex) return to.chain[at].first + (channel - entry->first);
    return lookup_channel(to, entry->package->channels[channel - entry->first].name.c_str());
}

std::uint32_t common_channels(const CineItem &a, const CineItem &b) noexcept {
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < a.chain.size() && i < b.chain.size(); ++i) {
        if (a.chain[i].package != b.chain[i].package) break;
        count += a.chain[i].package->channel_count;
    }
    return count;
}

}  // namespace vx::cine
