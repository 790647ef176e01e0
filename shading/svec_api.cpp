// The C interface of packets, vector types and vectors: argument checks and the guard around
// the module's operations.
#include <vexor/svec.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "shading/gvector.h"

using namespace vx::svec;

namespace {

// Runs a registry look-up on a category under the module lock; `none` when it is unknown.
template <class Result, class Body>
Result with_category(const char *category, Result none, Body &&body) {
    std::lock_guard hold(module_lock());
    Category *c = find_category_locked(category);
    return c != nullptr ? body(*c) : none;
}

const CategoryEntry *entry_locked(Category &c, unsigned int index) noexcept {
    return index < c.entries.size() ? &c.entries[index] : nullptr;
}

std::uint32_t offset_of(const char *category, const char *name, std::uint64_t item,
                        bool qualified) {
    return vx::guard<std::uint32_t>(kNone, [&] {
        std::lock_guard hold(module_lock());
        if (!started() || category == nullptr || name == nullptr) return kNone;
        return resolve_locked(category_locked(category), name, item, qualified);
    });
}

// Applies a packet operation to each packet of `walk` that both vectors have.
template <class Op>
int each_shared(GVector &dst, const GVector *src, const VType &walk, Op op) noexcept {
    if (dst.current >= dst.count || (src != nullptr && src->current >= src->count)) return 0;
    int done = 0;
    for (const VType::Entry &e : walk.entries) {
        const GVector::Slot *to = slot_of(dst, e.index);
        const GVector::Slot *from = src != nullptr ? slot_of(*src, e.index) : to;
        if (to == nullptr || from == nullptr) continue;
        if (op(*to->def, e.index, from)) ++done;
    }
    return done;
}

int blend(GVector *dst, const GVector *src, const VType *walk, float weight) noexcept {
    if (dst == nullptr || src == nullptr || walk == nullptr) return 0;
    return each_shared(*dst, src, *walk,
                       [&](const PacketDef &def, std::uint32_t index, const GVector::Slot *from) {
                           if (def.ops == nullptr || def.ops->Blend == nullptr) return false;
                           def.ops->Blend(write_packet(*dst, index), read_packet(*src, *from),
                                          weight);
                           return true;
                       });
}

int invert(GVector *gv, const VType *walk) noexcept {
    if (gv == nullptr || walk == nullptr) return 0;
    return each_shared(*gv, nullptr, *walk,
                       [&](const PacketDef &def, std::uint32_t index, const GVector::Slot *) {
                           if (def.ops == nullptr || def.ops->Invert == nullptr) return false;
                           def.ops->Invert(write_packet(*gv, index));
                           return true;
                       });
}

}  // namespace

extern "C" {

/* ---- Module and packets ---- */

VX_API int SVecStartup(void) {
    return vx::guard(0, [] {
        start_module();
        return 1;
    });
}

VX_API void SVecShutdown(void) {
    stop_module();
}

VX_API int VPacketDefine(const char *category, const char *name, const VPacketOps *ops,
                         unsigned int size) {
    return vx::guard(-1, [&] {
        std::lock_guard hold(module_lock());
        define_packet_locked(category, name, ops, size);
        return 0;
    });
}

VX_API void VPacketSetObject(void *a, void *b, void *c) {
    std::lock_guard hold(module_lock());
    if (PacketDef *def = last_defined()) {
        def->object[0] = a;
        def->object[1] = b;
        def->object[2] = c;
    }
}

VX_API unsigned int VPacketOffset(const char *category, const char *name) {
    return offset_of(category, name, 0, false);
}

VX_API unsigned int VPacketItemOffset(const char *category, const char *name,
                                      unsigned long long item) {
    return offset_of(category, name, item, true);
}

VX_API int VPacketSize(const char *category, int index) {
    return with_category(category, -1, [&](Category &c) {
        if (index < 0) return -1;
        const CategoryEntry *e = entry_locked(c, static_cast<unsigned>(index));
        return e != nullptr ? static_cast<int>(e->def->size) : -1;
    });
}

VX_API const char *VPacketName(const char *category, unsigned int index) {
    return with_category(category, static_cast<const char *>(nullptr), [&](Category &c) {
        const CategoryEntry *e = entry_locked(c, index);
        return e != nullptr ? e->name.c_str() : nullptr;
    });
}

VX_API unsigned int VPacketDefCount(const char *category) {
    return with_category(category, 0u,
                         [](Category &c) { return static_cast<unsigned>(c.entries.size()); });
}

VX_API const VPacketOps *VPacketInterface(const char *category, unsigned int index) {
    return with_category(category, static_cast<const VPacketOps *>(nullptr), [&](Category &c) {
        const CategoryEntry *e = entry_locked(c, index);
        return e != nullptr ? e->def->ops : nullptr;
    });
}

VX_API void *VPacketObject(const char *category, unsigned int index, int which) {
    return with_category(category, static_cast<void *>(nullptr), [&](Category &c) {
        const CategoryEntry *e = entry_locked(c, index);
        return e != nullptr && which >= 0 && which < 3 ? e->def->object[which] : nullptr;
    });
}

/* ---- Vector types ---- */

VX_API VType *VTypeAllocate(const char *category) {
    return VTypeSubAllocate(category, 0);
}

VX_API VType *VTypeSubAllocate(const char *category, unsigned int reserve) {
    return vx::guard<VType *>(nullptr, [&] { return allocate_type(category, reserve); });
}

VX_API void VTypeFree(VType *type) {
    if (type != nullptr) free_type(type);
}

VX_API int VTypeAddPacket(VType *type, const char *name, unsigned int flags) {
    if (type == nullptr) return 0;
    return vx::guard(0, [&] { return add_packet(*type, name, 0, false, flags) ? 1 : 0; });
}

VX_API int VTypeAddItemPacket(VType *type, const char *name, unsigned long long item,
                              unsigned int flags) {
    if (type == nullptr) return 0;
    return vx::guard(0, [&] { return add_packet(*type, name, item, true, flags) ? 1 : 0; });
}

VX_API int VTypeAddCategoryPackets(VType *type) {
    if (type == nullptr) return -1;
    return vx::guard(-1, [&] {
        // A type of the whole category, merged in all at once.
        VType all(type->category);
        {
            std::lock_guard hold(module_lock());
            std::vector<VType::Entry> every;
            every.reserve(type->category->entries.size());
            for (const CategoryEntry &ce : type->category->entries) {
                every.push_back({ce.index, ce.name.c_str(), ce.item, 0, 0, ce.def});
            }
            all.entries.swap(every);
        }
        merge(*type, all, ~0u);
        return static_cast<int>(type->entries.size());
    });
}

VX_API VType *VTypeCopy(const VType *type) {
    if (type == nullptr) return nullptr;
    return vx::guard<VType *>(nullptr, [&] { return copy_type(*type); });
}

VX_API int VTypeMerge(VType *dst, const VType *src) {
    return VTypeMergeByFlags(dst, src, ~0u);
}

VX_API int VTypeMergeByFlags(VType *dst, const VType *src, unsigned int mask) {
    if (dst == nullptr || src == nullptr) return 0;
    return vx::guard(0, [&] {
        merge(*dst, *src, mask);
        return 1;
    });
}

VX_API int VTypeIntersect(VType *dst, const VType *src) {
    if (dst == nullptr || src == nullptr) return -1;
    return vx::guard(-1, [&] {
        std::vector<VType::Entry> keep;
        if (dst->category == src->category) {
            for (const VType::Entry &e : dst->entries) {
                if (src->offset_of(e.index) != kNone) keep.push_back(e);
            }
        }
        relayout(*dst, keep);
        return static_cast<int>(dst->entries.size());
    });
}

VX_API int VTypeIntersectFast(const VType *a, const VType *b) {
    if (a == nullptr || b == nullptr || a->category != b->category) return 0;
    int shared = 0;
    for (const VType::Entry &e : a->entries) shared += b->offset_of(e.index) != kNone ? 1 : 0;
    return shared;
}

VX_API int VTypeOverwrite(VType *dst, const VType *src) {
    if (dst == nullptr || src == nullptr || dst->category != src->category) return 0;
    if (dst == src) return 1;
    return vx::guard(0, [&] {
        relayout(*dst, src->entries);
        return 1;
    });
}

VX_API void VTypeClear(VType *type) {
    if (type == nullptr) return;
    type->entries.clear();
    type->with_bit1.clear();
    type->with_bit0.clear();
    std::fill(type->offsets.begin(), type->offsets.end(), kNone);
    type->size = 0;
}

VX_API unsigned int VTypeSize(const VType *type) {
    return type != nullptr ? type->size : 0;
}

VX_API unsigned int VTypeCount(const VType *type) {
    return type != nullptr ? static_cast<unsigned>(type->entries.size()) : 0;
}

VX_API unsigned int VTypePacketOffset(const VType *type, unsigned int index) {
    return type != nullptr ? type->offset_of(index) : kNone;
}

VX_API unsigned int VTypePacketIndex(const VType *type, unsigned int n) {
    return type != nullptr && n < type->entries.size() ? type->entries[n].index : kNone;
}

VX_API unsigned int VTypePacketFlags(const VType *type, unsigned int index) {
    const VType::Entry *e = type != nullptr ? type->find(index) : nullptr;
    return e != nullptr ? e->flags : 0;
}

VX_API const char *VTypeCategory(const VType *type) {
    return type != nullptr ? type->category->name.c_str() : nullptr;
}

VX_API void VTypeDump(const VType *type) {
    if (type == nullptr) return;
    vx::log::named(kLog, "vector type%s%s%s of \"%s\": %zu packets, %u bytes\n",
                   type->has_test_name ? " \"" : "", type->test_name.c_str(),
                   type->has_test_name ? "\"" : "", type->category->name.c_str(),
                   type->entries.size(), type->size);
    for (const VType::Entry &e : type->entries) {
        char item[32] = "";
        if (e.item != 0) std::snprintf(item, sizeof item, " (item %" PRIu64 ")", e.item);
        vx::log::named(kLog, "  %6u  %4u bytes  flags %u  %s%s\n", e.offset, e.def->slot_size(),
                       e.flags, e.name, item);
    }
}

VX_API int VTypeTestNameSet(VType *type, const char *name) {
    if (type == nullptr) return 0;
    return vx::guard(0, [&] {
        type->test_name = name != nullptr ? name : "";
        type->has_test_name = name != nullptr;
        return 1;
    });
}

VX_API const char *VTypeTestNameGet(const VType *type) {
    return type != nullptr && type->has_test_name ? type->test_name.c_str() : nullptr;
}

VX_API int VTypeTestName(const VType *type, const char *name) {
    return type != nullptr && name != nullptr && type->has_test_name && type->test_name == name ? 1
                                                                                                : 0;
}

VX_API void VTypeAddPacketCountEnable(int on) {
    set_counting(on != 0);
}

VX_API unsigned int VTypeAllocateCount(void) {
    return allocation_count();
}

VX_API unsigned int VTypeAddPacketCount(void) {
    return 0;  // kept for callers that read it; nothing counts additions
}

/* ---- Vectors ---- */

VX_API GVector *GVCreate(const VType *type, void *parent, int flag) {
    if (type == nullptr) return nullptr;
    return vx::guard<GVector *>(nullptr, [&] { return create_vector(*type, parent, flag != 0); });
}

VX_API void GVDestroy(GVector *gv) {
    if (gv != nullptr) destroy_vector(gv);
}

VX_API void GVReset(GVector *gv) {
    if (gv == nullptr || gv->current >= gv->count) return;
    for (const VType::Entry &e : gv->type->entries) {
        reset_value(*e.def, write_packet(*gv, e.index), e.def->slot_size());
    }
}

VX_API void GVClear(GVector *gv) {
    if (gv != nullptr) clear(*gv);
}

VX_API void *GVParent(const GVector *gv) {
    return gv != nullptr ? gv->parent : nullptr;
}

VX_API const VType *GVType(const GVector *gv) {
    return gv != nullptr ? gv->type : nullptr;
}

VX_API void *GVPacket(GVector *gv, unsigned int index, int mode) {
    if (gv == nullptr || gv->current >= gv->count) return nullptr;
    const GVector::Slot *s = slot_of(*gv, index);
    if (s == nullptr) return nullptr;
    return mode == GV_WRITE ? write_packet(*gv, index) : read_packet(*gv, *s);
}

VX_API void *GVPacketFast(GVector *gv, unsigned int index) {
    return read_packet(*gv, gv->slots[index]);
}

VX_API void *GVTypePacketFast(GVector *gv, unsigned int n) {
    return read_packet(*gv, gv->slots[gv->type->entries[n].index]);
}

VX_API void *GVPacketBlock(GVector *gv, int level) {
    if (gv == nullptr || level < 0 || level > gv->level || gv->current >= gv->count) return nullptr;
    return row_at(*gv, level);
}

VX_API void *GVToExport(GVector *gv) {
    if (gv == nullptr || gv->current >= gv->count) return nullptr;
    for (const VType::Entry &e : gv->type->entries) write_packet(*gv, e.index);
    return row_at(*gv, gv->level);
}

VX_API int GVSetPacket(GVector *gv, unsigned int index, const void *src) {
    void *dst = GVPacket(gv, index, GV_WRITE);
    if (dst == nullptr || src == nullptr) return 0;
    copy_value(*gv->slots[index].def, dst, src);
    return 1;
}

VX_API int GVSetObject(GVector *gv, unsigned int index, void *object) {
    if (gv == nullptr) return 0;
    const GVector::Slot *s = slot_of(*gv, index);
    if (s == nullptr || !s->def->holds_object()) return 0;
    void *dst = GVPacket(gv, index, GV_WRITE);
    if (dst == nullptr) return 0;
    copy_value(*s->def, dst, &object);
    return 1;
}

VX_API void *GVObject(GVector *gv, unsigned int index) {
    if (gv == nullptr) return nullptr;
    const GVector::Slot *s = slot_of(*gv, index);
    if (s == nullptr || !s->def->holds_object()) return nullptr;
    const void *packet = GVPacket(gv, index, GV_READ);
    void *object = nullptr;
    if (packet != nullptr) std::memcpy(&object, packet, sizeof object);
    return object;
}

VX_API int GVCopy(GVector *dst, const GVector *src) {
    return dst != nullptr && src != nullptr ? copy(*dst, *src, nullptr, false) : 0;
}

VX_API int GVCopyType(GVector *dst, const GVector *src, const VType *type) {
    return dst != nullptr && src != nullptr && type != nullptr ? copy(*dst, *src, type, false) : 0;
}

VX_API int GVCopyTypeFast(GVector *dst, const GVector *src, const VType *type) {
    return dst != nullptr && src != nullptr && type != nullptr ? copy(*dst, *src, type, true) : 0;
}

VX_API int GVBlend(GVector *dst, const GVector *src, float weight) {
    return blend(dst, src, dst != nullptr ? dst->type : nullptr, weight);
}

VX_API int GVBlendTypeFast(GVector *dst, const GVector *src, const VType *type, float weight) {
    return blend(dst, src, type, weight);
}

VX_API int GVInvert(GVector *gv) {
    return invert(gv, gv != nullptr ? gv->type : nullptr);
}

VX_API int GVInvertTypeFast(GVector *gv, const VType *type) {
    return invert(gv, type);
}

VX_API int GVPush(GVector *gv) {
    if (gv == nullptr) return -1;
    return vx::guard(-1, [&] { return push(*gv) ? gv->level : -1; });
}

VX_API int GVPop(GVector *gv) {
    return gv != nullptr ? pop(*gv) : 0;
}

VX_API int GVLevel(const GVector *gv) {
    return gv != nullptr ? gv->level : 0;
}

VX_API int GVAppend(GVector *gv) {
    if (gv == nullptr) return -1;
    return vx::guard(-1, [&] {
        const auto old = static_cast<int>(gv->count);
        return append(*gv) ? old : -1;
    });
}

VX_API unsigned int GVCurrent(const GVector *gv) {
    return gv != nullptr ? gv->current : 0;
}

VX_API unsigned int GVSetCurrent(GVector *gv, unsigned int n) {
    if (gv == nullptr) return 0;
    gv->current = std::min(gv->count, n);
    return gv->count;
}

VX_API unsigned int GVCount(const GVector *gv) {
    return gv != nullptr ? gv->count : 0;
}

VX_API unsigned int GVListPacket(const GVector *gv, unsigned int n) {
    return gv != nullptr ? VTypePacketIndex(gv->type, n) : kNone;
}

}  // extern "C"
