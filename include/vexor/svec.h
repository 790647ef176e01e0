/* Shading vectors: packets, vector types, vectors and texture effects.
 *
 * A packet is a named fixed-size record ("sample.position", "shade.diffuse") registered in one
 * or more categories; a category ("sample") numbers its packets from 0 in the order it learns
 * them. A vector type lists packets of one category and lays them out one after another; a
 * vector is a block of memory laid out by a type, with rows and a stack of levels.
 *
 * Packet operations and the layouts of the built-in packets are in vexor/sys/vpacket.h.
 *
 * Threads: one module lock guards the categories, the type pools and the adding of packets, so
 * packets may be defined and types built on any thread. Reading a type (VTypeSize,
 * VTypePacketOffset, VTypeCount) and a vector's packets takes no lock: a type must be complete
 * before other threads read it, and one vector is used by one thread at a time.
 * None of these calls is undoable: types and vectors are working data, not document data. */
#ifndef VEXOR_SVEC_H
#define VEXOR_SVEC_H

#include "vexor/export.h"
#include "vexor/sys/vpacket.h"

VX_EXTERN_C_BEGIN

typedef struct VType VType;     /* a vector type */
typedef struct GVector GVector; /* a vector */

/* The result of look-ups that find no packet. */
#define VPACKET_NONE 0xFFFFFFFFu

/* Flag bits of a packet in a type. Bits 0 and 1 merge when a packet is added again; bit 2 is
 * kept only while every addition sets it. */
#define VTYPE_FLAG_0 1u
#define VTYPE_FLAG_1 2u
#define VTYPE_FLAG_2 4u

/* Modes of GVPacket. */
#define GV_READ 0
#define GV_WRITE 1

/* ---- Module ---------------------------------------------------------------------------- */

/* Reference-counted start: the first call registers the module's classes and defines the 36
 * built-in packets of category "sample". Returns 1, or 0 when it could not start (nothing is
 * left started then). Must come before every module that uses vector types. */
VX_API int SVecStartup(void);
/* Balances SVecStartup; the last call frees every category, type, packet and effect. Types
 * and vectors must not be used after it. */
VX_API void SVecShutdown(void);

/* ---- Packets --------------------------------------------------------------------------- */

/* Defines a packet: a server of class "vectorPacket" named `name` with the tag
 * "vpacket.category" = `category` (blank-separated words); the packet is added to each of
 * those categories. `ops` may be null and must outlive the module; `size` is in bytes, and a
 * packet of size 0 holds one component object pointer. The packet becomes the last defined
 * one for VPacketSetObject. Returns 0, or -1 for a null or empty category or name, a name
 * already defined, or no memory. */
VX_API int VPacketDefine(const char *category, const char *name, const VPacketOps *ops,
                         unsigned int size);
/* Stores three object words in the last defined packet (VPacketObject reads them). */
VX_API void VPacketSetObject(void *a, void *b, void *c);

/* The packet's index in the category, or VPACKET_NONE. A name the category does not know is
 * looked up as a "vectorPacket" server: none logs "Could not lookup packet: <name> !" on the
 * "sampleVector" log; a server without a "vpacket.category" tag logs "Packet server has wrong
 * category: <name> !"; a server whose tag does not list the category yields VPACKET_NONE
 * silently; otherwise the packet joins the category and its new index is returned. A server a
 * host registered itself gives its size by the tag "vpacket.size" (decimal, default 0); such a
 * packet has no operations table (VPacketDefine gives one). */
VX_API unsigned int VPacketOffset(const char *category, const char *name);
/* The same for a packet qualified by an item: an entry matches when the names are equal and
 * `item` is 0 or equals the entry's item. A new entry records `item`. */
VX_API unsigned int VPacketItemOffset(const char *category, const char *name,
                                      unsigned long long item);
/* The declared size of the index-th packet, or -1 when the index is negative or not below
 * VPacketDefCount. */
VX_API int VPacketSize(const char *category, int index);
/* The index-th packet's name (valid until shutdown), or null. */
VX_API const char *VPacketName(const char *category, unsigned int index);
/* The number of packets the category knows; 0 for an unknown category. */
VX_API unsigned int VPacketDefCount(const char *category);
/* The index-th packet's operations table, or null when it has none or there is no packet. */
VX_API const VPacketOps *VPacketInterface(const char *category, unsigned int index);
/* One of the three object words (which = 0, 1, 2) of the index-th packet, or null. */
VX_API void *VPacketObject(const char *category, unsigned int index, int which);

/* ---- Vector types ---------------------------------------------------------------------- */

/* A new empty type of the category (created when unknown), from the category's pool; null for
 * a null or empty category, an exhausted pool or no memory. `reserve` is how many packets to
 * make room for at once (0 for the default). VTypeAllocate(c) is VTypeSubAllocate(c, 0). The
 * caller owns the type and frees it with VTypeFree, before SVecShutdown. */
VX_API VType *VTypeAllocate(const char *category);
VX_API VType *VTypeSubAllocate(const char *category, unsigned int reserve);
/* Returns the type's slot to its pool; null is ignored. No vector of the type may remain. */
VX_API void VTypeFree(VType *type);

/* Adds a packet by name with flags: 1 when the packet is in the type afterwards, 0 when the
 * name is unknown, the type is null, or memory ran out (the type is then unchanged). A packet
 * already in the type keeps its place; its flags gain bits 0-1 of `flags`, and bit 2 stays
 * only when `flags` has it too. */
VX_API int VTypeAddPacket(VType *type, const char *name, unsigned int flags);
/* The same for an item-qualified packet (see VPacketItemOffset). */
VX_API int VTypeAddItemPacket(VType *type, const char *name, unsigned long long item,
                              unsigned int flags);
/* Adds every packet the type's category knows, with flags 0. Returns the type's packet count,
 * or -1 on failure (the type is then unchanged). */
VX_API int VTypeAddCategoryPackets(VType *type);
/* A new type of the same category with the same packets, flags, item and test name, in the
 * same order; null on failure. */
VX_API VType *VTypeCopy(const VType *type);
/* Adds each packet of src to dst with its flags in src, by the adding rule above. Both must be
 * of one category. Returns 1, or 0 (dst unchanged). */
VX_API int VTypeMerge(VType *dst, const VType *src);
/* The same, for the packets of src whose flags share a bit with `mask`. */
VX_API int VTypeMergeByFlags(VType *dst, const VType *src, unsigned int mask);
/* Keeps in dst only the packets that src also has, in dst's order, laid out again. Returns
 * dst's new packet count, or -1 (dst unchanged). */
VX_API int VTypeIntersect(VType *dst, const VType *src);
/* How many packets a and b share, changing nothing; 0 for types of different categories. */
VX_API int VTypeIntersectFast(const VType *a, const VType *b);
/* Makes dst hold exactly src's packets (same category). Returns 1, or 0 (dst unchanged). */
VX_API int VTypeOverwrite(VType *dst, const VType *src);
/* Removes every packet; the test name stays. */
VX_API void VTypeClear(VType *type);

/* The bytes of one vector row: the sum of the packets' sizes, 8 for a packet of size 0. */
VX_API unsigned int VTypeSize(const VType *type);
/* The number of packets. */
VX_API unsigned int VTypeCount(const VType *type);
/* The byte offset of the category's index-th packet in a row, or VPACKET_NONE when the type
 * lacks it. Lock-free. */
VX_API unsigned int VTypePacketOffset(const VType *type, unsigned int index);
/* The category index of the type's n-th packet (in order of adding), or VPACKET_NONE. */
VX_API unsigned int VTypePacketIndex(const VType *type, unsigned int n);
/* The flags of the category's index-th packet in the type, or 0 when it lacks it. */
VX_API unsigned int VTypePacketFlags(const VType *type, unsigned int index);
/* The type's category name, or null. */
VX_API const char *VTypeCategory(const VType *type);
/* Writes the type to the "sampleVector" log, one line per packet: offset, size, flags, name
 * and item. */
VX_API void VTypeDump(const VType *type);

/* A name for tests and debugging output; null clears it. Returns 1, or 0 on failure. */
VX_API int VTypeTestNameSet(VType *type, const char *name);
/* The test name, or null. */
VX_API const char *VTypeTestNameGet(const VType *type);
/* 1 when the type's test name equals `name`, else 0. */
VX_API int VTypeTestName(const VType *type, const char *name);

/* Counting: enabling (or disabling) zeroes both counters; while enabled, every new type counts
 * as an allocation. The packet-addition counter is kept for callers that read it, and stays
 * 0: nothing increments it. */
VX_API void VTypeAddPacketCountEnable(int on);
VX_API unsigned int VTypeAllocateCount(void);
VX_API unsigned int VTypeAddPacketCount(void);

/* ---- Vectors --------------------------------------------------------------------------- */

/* A vector of one row laid out by `type`, at level 0, with every packet zero-filled; when
 * `flag` is non-zero each packet is then reset by its Reset operation. `parent` (a component
 * object or null) gains a reference that the vector holds until it is destroyed. The type must
 * outlive the vector and not change while it lives. Null on failure. */
VX_API GVector *GVCreate(const VType *type, void *parent, int flag);
/* Clears every packet of every level and row and frees the vector; null is ignored. */
VX_API void GVDestroy(GVector *gv);
/* Resets every packet of the current row at the current level (write access). */
VX_API void GVReset(GVector *gv);
/* Clears every packet of every level and row, returns to level 0 and zero-fills the rows. */
VX_API void GVClear(GVector *gv);
/* The vector's parent object, or null. */
VX_API void *GVParent(const GVector *gv);
/* The vector's type. */
VX_API const VType *GVType(const GVector *gv);

/* The storage of the category's index-th packet in the current row at the current level, or
 * null when the type lacks the packet or the current row is past the last. GV_READ returns the
 * packet as the highest level at or below the current one holds it; GV_WRITE first copies the
 * packet up to the current level if it was last written below it, so lower levels keep their
 * values. The pointer is valid until the level is left or rows are appended. */
VX_API void *GVPacket(GVector *gv, unsigned int index, int mode);
/* GVPacket for reading, without checks: the index must be one the type has. */
VX_API void *GVPacketFast(GVector *gv, unsigned int index);
/* GVPacket for reading of the n-th packet of the vector's type (in order of adding). */
VX_API void *GVTypePacketFast(GVector *gv, unsigned int n);
/* The current row at the given level as one block laid out by the type, or null when the
 * level is above the current one. Packets last written below that level hold stale bytes in
 * it; GVToExport gives a complete block. */
VX_API void *GVPacketBlock(GVector *gv, int level);
/* Brings every packet up to the current level and returns the current row there as one block
 * laid out by the type (what an exporter reads), or null when there is no current row. */
VX_API void *GVToExport(GVector *gv);
/* Writes a packet from `src` (its size in bytes) at the current level through its Copy
 * operation. Returns 1, or 0 when the type lacks it. */
VX_API int GVSetPacket(GVector *gv, unsigned int index, const void *src);
/* Stores a component object in a packet of size 0 at the current level, with a new reference;
 * the reference it held there is released. Returns 1, or 0 when the packet is missing or not
 * of size 0. */
VX_API int GVSetObject(GVector *gv, unsigned int index, void *object);

/* The component object a packet of size 0 holds at the current level (no reference is added),
 * or null. Object packets lie on 4-byte boundaries, so read them with this rather than
 * through a pointer. */
VX_API void *GVObject(GVector *gv, unsigned int index);

/* Copies every packet that both vectors have from src's current row and level to dst's,
 * through the packets' Copy operations. Returns the number of packets copied. */
VX_API int GVCopy(GVector *dst, const GVector *src);
/* The same for the packets of `type` only. */
VX_API int GVCopyType(GVector *dst, const GVector *src, const VType *type);
/* GVCopyType writing into dst's storage as it stands, without copying packets up to dst's
 * current level (for vectors at level 0). */
VX_API int GVCopyTypeFast(GVector *dst, const GVector *src, const VType *type);
/* Blends every packet both have: dst := dst + (src - dst) * weight, through the packets'
 * Blend operations. Returns the number of packets blended. */
VX_API int GVBlend(GVector *dst, const GVector *src, float weight);
/* The same for the packets of `type` only. */
VX_API int GVBlendTypeFast(GVector *dst, const GVector *src, const VType *type, float weight);
/* Inverts every packet through its Invert operation; returns how many were inverted. */
VX_API int GVInvert(GVector *gv);
/* The same for the packets of `type` only. */
VX_API int GVInvertTypeFast(GVector *gv, const VType *type);

/* Enters a new level: the current level + 1. Returns the new level, or -1 when memory ran out
 * (the level is unchanged). */
VX_API int GVPush(GVector *gv);
/* Leaves the current level: packets written there are cleared and lower levels show again.
 * Returns the new level; at level 0 nothing happens and 0 is returned. */
VX_API int GVPop(GVector *gv);
/* The current level. */
VX_API int GVLevel(const GVector *gv);
/* Adds a row and makes it current (current := count, count := count + 1). Returns the old
 * count, or -1 when memory ran out (nothing changes). */
VX_API int GVAppend(GVector *gv);
/* The current row. */
VX_API unsigned int GVCurrent(const GVector *gv);
/* current := min(count, n); returns the count. A current row equal to the count is past the
 * last row: packets read as null there. */
VX_API unsigned int GVSetCurrent(GVector *gv, unsigned int n);
/* The number of rows. */
VX_API unsigned int GVCount(const GVector *gv);
/* The category index of the vector's n-th packet, or VPACKET_NONE past the end. */
VX_API unsigned int GVListPacket(const GVector *gv, unsigned int n);

/* ---- Texture effects ------------------------------------------------------------------- */

/* Registers a texture effect: a server of class "textureEffect" named `name` with the tag
 * "textureFX.category" = `category`. When the effect exists, `category` is added to its tag
 * unless listed already, and nothing else changes. `ops` (may be null) and `data` must outlive
 * the module. Returns 1, or 0 for a null or empty category or name, or no memory. */
VX_API int TextureEffectDefine(const char *category, const char *name, const TextureEffectOps *ops,
                               void *data);
/* Registers a texture effect that writes one packet of category "sample": as
 * TextureEffectDefine, and the effect records the packet's index and a vector type holding
 * just that packet (flags 1), and takes a reference on `object` (a component object, may be
 * null). Logs "-> Texture effect defined: name = <name>, custom packet = <packet>" on the
 * "sampleVector" log. When the effect exists it only gains `category`: `packet` and `object`
 * are not looked at. Returns 1, or 0 for an unknown packet or a failure. */
VX_API int PacketEffectDefine(const char *category, const char *packet, void *object,
                              const char *name);
/* The index-th effect (in order of definition) whose categories include `category`; null past
 * the end. A null category lists every effect. */
VX_API const char *TextureEffectList(const char *category, unsigned int index);
/* The category's default effect: the one set by TextureEffectSetDefault, else the first
 * listed; null when there is none. */
VX_API const char *TextureEffectDefault(const char *category);
/* Sets the category's default effect; returns 1, or 0 when the effect does not list the
 * category. */
VX_API int TextureEffectSetDefault(const char *category, const char *name);
/* Makes the effect's object (a component object of class "txtrFX.wrapper", or
 * "packFX.wrapper" for packet effects) into *out with one reference, which the caller
 * releases. Returns VX_OK, VX_E_NOTFOUND for an unknown effect, VX_E_BADARG for a null out,
 * VX_E_REFUSED when the effect's Init refused, VX_E_NOMEMORY. */
VX_API unsigned int TextureEffectAllocate(const char *name, void **out);
/* The packet index in "sample" of a packet effect, or VPACKET_NONE. */
VX_API unsigned int TextureEffectPacket(const char *name);
/* The vector type of a packet effect (owned by the module), or null. */
VX_API const VType *TextureEffectType(const char *name);

VX_EXTERN_C_END

#endif
