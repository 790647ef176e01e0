// The C interface of items: creation, names and look-ups, links, tags, channels and packages.
#include <vexor/scene.h>
#include <vexor/sys/item.h>

#include "foundation/guard.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

using namespace vx::cine;

namespace {

int as_int(std::int64_t index) noexcept {
    return index < 0 ? -1 : static_cast<int>(index);
}

}  // namespace

extern "C" {

VX_API CineItem *CineItemCreate(Cinema *scene, uint32_t type) {
    return vx::guard<CineItem *>(nullptr, [&]() -> CineItem * {
        if (scene == nullptr) return nullptr;
        return &create_item(*scene, type);
    });
}

VX_API int CineItemDelete(CineItem *item) {
    if (item == nullptr || !item->in_scene) return 0;
    return vx::guard(0, [&] {
        delete_item(*item);
        return 1;
    });
}

VX_API Cinema *CineItemContext(const CineItem *item) {
    return item != nullptr ? item->scene : nullptr;
}

VX_API uint32_t CineItemType(const CineItem *item) {
    return item != nullptr ? item->type->type_code : 0;
}

VX_API int CineItemTestType(const CineItem *item, uint32_t type) {
    return item != nullptr && test_type(*item, type) ? 1 : 0;
}

VX_API void *CineItemObject(CineItem *item) {
    return item != nullptr ? item->object : nullptr;
}

VX_API const char *CineItemIdent(const CineItem *item) {
    return item != nullptr ? item->ident.c_str() : nullptr;
}

VX_API const char *CineItemName(const CineItem *item) {
    return item != nullptr && item->has_name ? item->name.c_str() : nullptr;
}

VX_API int CineItemSetName(CineItem *item, const char *name) {
    return vx::guard(0, [&] {
        if (item == nullptr) return 0;
        set_name(*item, name);
        return 1;
    });
}

VX_API const char *CineItemUniqueName(CineItem *item) {
    if (item == nullptr) return "*bad*";
    return vx::guard<const char *>("*bad*", [&] { return unique_name(*item).c_str(); });
}

VX_API void CineItemInvalidateName(CineItem *item) {
    if (item != nullptr) invalidate_name(*item);
}

VX_API CineItem *CineLookupItem(Cinema *scene, const char *text) {
    return vx::guard<CineItem *>(nullptr, [&]() -> CineItem * {
        return scene != nullptr ? lookup_item(*scene, text) : nullptr;
    });
}

VX_API unsigned int CinemaItemCount(const Cinema *scene) {
    if (scene == nullptr) return 0;
    std::size_t count = 0;
    for (const TypeItems &list : scene->item_lists) count += list.items.size();
    return static_cast<unsigned int>(count);
}

VX_API CineItem *CinemaItemByIndex(const Cinema *scene, unsigned int index) {
    if (scene == nullptr) return nullptr;
    std::size_t n = index;
    for (const TypeItems &list : scene->item_lists) {
        if (n < list.items.size()) return list.items[n];
        n -= list.items.size();
    }
    return nullptr;
}

VX_API unsigned int CineItemSetParent(CineItem *item, CineItem *parent, int position) {
    if (item == nullptr) return VX_E_BADARG;
    unsigned int result = VX_E_FAILED;
    unsigned int code = vx::latch([&] { result = set_parent(*item, parent, position); });
    return code != VX_OK ? code : result;
}

VX_API CineItem *CineItemParent(const CineItem *item) {
    return item != nullptr ? item_parent(*item) : nullptr;
}

VX_API unsigned int CineItemSubCount(const CineItem *item) {
    return item != nullptr ? static_cast<unsigned int>(child_count(*item)) : 0;
}

VX_API CineItem *CineItemSubByIndex(const CineItem *item, unsigned int index) {
    return item != nullptr ? child_at(*item, index) : nullptr;
}

VX_API CineItem *CineItemRoot(CineItem *item) {
    if (item == nullptr) return nullptr;
    while (CineItem *parent = item_parent(*item)) item = parent;
    return item;
}

VX_API CineItem *CineItemSource(const CineItem *item) {
    return item != nullptr ? item_source(*item) : nullptr;
}

VX_API int CineItemSetSource(CineItem *item, CineItem *source) {
    return vx::guard(0, [&] {
        if (item == nullptr) return 0;
        set_source(*item, source);
        return 1;
    });
}

VX_API void CineItemSetHidden(CineItem *item, int hidden) {
    vx::guard([&] {
        if (item != nullptr) set_hidden(*item, hidden != 0);
    });
}

VX_API int CineItemHidden(const CineItem *item) {
    return item != nullptr && is_hidden(*item) ? 1 : 0;
}

VX_API CineItem *CineItemRedirectCopy(CineItem *item) {
    return item != nullptr ? redirect_copy(*item) : nullptr;
}

VX_API int CineItemSetTag(CineItem *item, uint32_t code, const char *value) {
    return vx::guard(0, [&] {
        if (item == nullptr) return 0;
        set_item_tag(*item, code, value);
        return 1;
    });
}

VX_API const char *CineItemGetTag(const CineItem *item, uint32_t code) {
    const std::string *value = item != nullptr ? item_tag(*item, code) : nullptr;
    return value != nullptr ? value->c_str() : nullptr;
}

// ---- Channels ----

VX_API unsigned int CineChannelCount(const CineItem *item) {
    return item != nullptr ? item->channel_count : 0;
}

VX_API const char *CineChannelName(const CineItem *item, unsigned int channel) {
    const ChannelDesc *desc = item != nullptr ? item_channel(*item, channel) : nullptr;
    return desc != nullptr ? desc->name.c_str() : nullptr;
}

VX_API int CineItemLookupChannel(const CineItem *item, const char *name) {
    return item != nullptr ? as_int(lookup_channel(*item, name)) : -1;
}

VX_API int CineItemMatchChannelIndex(const CineItem *from, unsigned int channel,
                                     const CineItem *to) {
    if (from == nullptr || to == nullptr) return -1;
    return as_int(match_channel(*from, channel, *to));
}

VX_API unsigned int CineChannelVectorMode(const CineItem *item, unsigned int channel,
                                          unsigned int *component) {
    const PackageEntry *entry = item != nullptr ? entry_of(*item, channel) : nullptr;
    if (entry == nullptr) {
        if (component != nullptr) *component = 0;
        return CINE_VECTOR_SCALAR;
    }
    const ChannelDesc &desc = entry->package->channels[channel - entry->first];
    if (component != nullptr) *component = channel - entry->first - desc.vector_first;
    return desc.vector_mode;
}

VX_API unsigned int Item_ChanRange(const CineItem *item, unsigned int channel, int mode,
                                   unsigned int *count) {
    unsigned int length = 1;
    unsigned int first = channel;
    const PackageEntry *entry = item != nullptr ? entry_of(*item, channel) : nullptr;
    if (mode == 2) {
        length = item != nullptr ? item->channel_count : 0;
        first = 0;
    } else if (mode == 0 && entry != nullptr) {
        const ChannelDesc &desc = entry->package->channels[channel - entry->first];
        if (desc.vector_mode != CINE_VECTOR_SCALAR) {
            length = vector_size(desc.vector_mode);
            first = entry->first + desc.vector_first;
        }
    }
    if (count != nullptr) *count = length;
    return first;
}

VX_API const void *CineItemChannelDesc(const CineItem *item, unsigned int channel) {
    return item != nullptr ? item_channel(*item, channel) : nullptr;
}

VX_API unsigned int Item_ChanOffset(const CineItem *item, const void *desc) {
    if (item == nullptr || desc == nullptr) return kNoIndex;
    for (const PackageEntry &entry : item->chain) {
        const ChannelList &channels = entry.package->channels;
        for (std::uint32_t i = 0; i < entry.package->channel_count; ++i) {
            if (&channels[i] == desc) return i;
        }
    }
    return kNoIndex;
}

// ---- Packages ----

VX_API int CineItemAddPackage(CineItem *item, CinePackage *pkg) {
    return vx::guard(
        0, [&] { return item != nullptr && pkg != nullptr && add_package(*item, *pkg) ? 1 : 0; });
}

VX_API int CineItemRemPackage(CineItem *item, CinePackage *pkg) {
    return vx::guard(0, [&] {
        return item != nullptr && pkg != nullptr && remove_package(*item, *pkg) ? 1 : 0;
    });
}

VX_API int CineItemTestPackage(const CineItem *item, const CinePackage *pkg) {
    return item != nullptr && chain_position(*item, pkg) != kNoIndex ? 1 : 0;
}

VX_API unsigned int CineItemPackageCount(const CineItem *item) {
    return item != nullptr ? static_cast<unsigned int>(item->chain.size()) : 0;
}

VX_API CinePackage *CineItemPackageByIndex(const CineItem *item, unsigned int index) {
    if (item == nullptr || index >= item->chain.size()) return nullptr;
    return item->chain[index].package;
}

namespace {
const PackageEntry *entry_for(const CineItem *item, const CinePackage *pkg) noexcept {
    if (item == nullptr) return nullptr;
    std::uint32_t at = chain_position(*item, pkg);
    return at != kNoIndex ? &item->chain[at] : nullptr;
}
}  // namespace

VX_API void *CineItemPackageObject(const CineItem *item, const CinePackage *pkg) {
    const PackageEntry *entry = entry_for(item, pkg);
    return entry != nullptr ? entry->object : nullptr;
}

VX_API void *CineItemPackagePeekAttached(const CineItem *item, const CinePackage *pkg) {
    const PackageEntry *entry = entry_for(item, pkg);
    return entry != nullptr ? entry->attached : nullptr;
}

VX_API void *CineItemPackageLocal(const CineItem *item, const CinePackage *pkg) {
    const PackageEntry *entry = entry_for(item, pkg);
    return entry != nullptr ? entry->local : nullptr;
}

VX_API unsigned int CineItemPackageStartIndex(const CineItem *item, const CinePackage *pkg) {
    const PackageEntry *entry = entry_for(item, pkg);
    return entry != nullptr ? entry->first : kNoIndex;
}

VX_API const TextHint *CineItemPackageChannelHints(CinePackage *pkg, const char *channel) {
    if (pkg == nullptr || channel == nullptr || instantiate(*pkg) == nullptr) return nullptr;
    for (const ChannelDesc &desc : pkg->channels) {
        if (desc.name == channel) return desc.hints;
    }
    return nullptr;
}

VX_API unsigned int CineItemCommonChannels(const CineItem *a, const CineItem *b) {
    return a != nullptr && b != nullptr ? common_channels(*a, *b) : 0;
}
}
