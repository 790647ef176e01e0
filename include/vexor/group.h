/* Groups: items that collect other items and single channels of items.
 *
 * A group is an item of the type "group" (fixed code 1). Its members live as links in two
 * graphs that every scene has: "itemGroups" (a link from the group to each member item, in
 * member order) and "chanGroups" (a link from the group's node (group, -1) to each member
 * channel's node (item, channel)). A third graph, "groups", is registered for every scene for
 * the host's own use. A group also has a kind, kept in the item tag GROUP_KIND_TAG ("GTYP"):
 * "assembly" (1), "actor" (2) or "render" (3); no tag or any other text is kind 0.
 *
 * Membership edits and kind changes are undoable and atomic: a failed edit changes nothing
 * and returns 0. Each sends CINE_EVENT_ITEM_CHANGED for the group. Deleting an item
 * (CineItemDelete) takes its memberships away in the same edit, so undo brings them back in
 * place. Edits refuse (return 0) a group that is null, not in its scene or not an item of the
 * group type, and a member that is null or in another scene; an item cannot be a member of
 * itself, but a group's own channels can be.
 *
 * Valid between GroupStartup and the balancing GroupShutdown; main thread only. */
#ifndef VEXOR_GROUP_H
#define VEXOR_GROUP_H

#include <stdint.h>

#include "vexor/cinema.h"
#include "vexor/export.h"
#include "vexor/scene.h"

VX_EXTERN_C_BEGIN

#define GROUP_TYPE_CODE 1u
/* The item tag of a group's kind: the four characters "GTYP". */
#define GROUP_KIND_TAG 0x47545950u
#define GROUP_KIND_NONE 0u
#define GROUP_KIND_ASSEMBLY 1u
#define GROUP_KIND_ACTOR 2u
#define GROUP_KIND_RENDER 3u
/* The position returned for an item or channel that is not a member. */
#define GROUP_NOT_MEMBER 0xFFFFFFFFu
/* Interfaces of the component classes "group.item" and "group.enum" (vexor/sys/group.h). */
#define GROUP_ITEM_GUID "{47FDFD87-3FBA-41A4-8044-74EC9D9AA986}"
#define GROUP_ENUM_GUID "{CA4E1FE0-B655-429F-9674-3E1D7DEA5D04}"

/* Starts the module (and the scene module) on the first call: defines the package and type
 * "group" with its channel "mirror", the classes "group.item" and "group.enum", the three
 * graphs, and listens to "cinema-db". Further calls only count. Returns 1, or 0 when it could
 * not start (nothing is left started). */
VX_API int GroupStartup(void);
/* Drops a reference; the last one stops the module (and drops its scene module reference). */
VX_API void GroupShutdown(void);

/* The scene's graphs "groups", "itemGroups" and "chanGroups" (null when the scene was made
 * before the module started). */
VX_API LinkGraph *GroupGraph(Cinema *scene);
VX_API LinkGraph *GroupItemGraph(Cinema *scene);
VX_API LinkGraph *GroupChanGraph(Cinema *scene);
/* 1 when the graph's name is exactly "itemGroups" / "chanGroups". */
VX_API int GraphIsGroupItemGraph(const LinkGraph *graph);
VX_API int GraphIsGroupChanGraph(const LinkGraph *graph);

/* Adds the item as the last member (undoable): 1, or 0 when it already was one. */
VX_API int GroupAddItem(CineItem *group, CineItem *item);
/* As GroupAddItem, inserting at a position among the members (past the end: last). */
VX_API int GroupSetItem(CineItem *group, CineItem *item, unsigned int position);
/* Takes the item out of the group (undoable): 1, or 0 when it was not a member. With a null
 * group, takes the item out of every group and returns 1. */
VX_API int GroupRemItem(CineItem *group, CineItem *item);
/* The same for one channel of an item. A channel out of the item's range is refused. */
VX_API int GroupAddChannel(CineItem *group, CineItem *item, unsigned int channel);
VX_API int GroupRemChannel(CineItem *group, CineItem *item, unsigned int channel);
/* Moves a member to a position among the members (past the end: last); undoable. 1, or 0
 * when it is not a member. */
VX_API int GroupSetItemPosition(CineItem *group, CineItem *item, unsigned int position);
VX_API int GroupSetChannelPosition(CineItem *group, CineItem *item, unsigned int channel,
                                   unsigned int position);
/* Appends to `group` every member of `source` that it lacks, each item taken through
 * CineItemRedirectCopy: while a scene copy is in progress, a member that was copied too is
 * replaced by its copy, and other members are shared. This is how a copied group keeps its
 * members. Undoable; returns the number of members added. */
VX_API unsigned int GroupCopyMembers(CineItem *group, CineItem *source);

/* The group's kind (GROUP_KIND_...), 0 for anything that is not a group. */
VX_API unsigned int GroupType(CineItem *group);
/* Writes the kind tag (any other kind clears it) and renames nothing but forgets the cached
 * unique name; undoable. 1, or 0 on failure. */
VX_API int GroupSetType(CineItem *group, unsigned int kind);
/* 1 when the item's type is exactly the group type and its kind is "assembly". */
VX_API int GroupIsAssembly(CineItem *item);

/* what 0: the first group that has the item as a member; what 1: the first group that has
 * the channel as a member; null otherwise. */
VX_API CineItem *GroupGet(CineItem *item, unsigned int channel, unsigned int what);
/* Number of item members (what 0) or channel members (what nonzero). */
VX_API unsigned int GroupMemberCount(CineItem *group, unsigned int what);
/* Positions among the members, or GROUP_NOT_MEMBER. */
VX_API unsigned int GroupMemberItem(CineItem *group, CineItem *item);
VX_API unsigned int GroupMemberChannel(CineItem *group, CineItem *item, unsigned int channel);
/* The channel member at a position (*item and *channel set), 1; 0 past the end. */
VX_API int GroupMemberChannelByIndex(CineItem *group, unsigned int index, CineItem **item,
                                     unsigned int *channel);

/* The member filter: a member passes when `type` is CINE_TYPE_NONE or the member is of that
 * type (or of a subtype, with includeSubtypes), and `excluded` is CINE_TYPE_NONE or the
 * member is not of that type (nor of a subtype, with excludeSubtypes). Members in order. */
VX_API unsigned int GroupMemberItemTypeCount(CineItem *group, uint32_t type, int includeSubtypes,
                                             uint32_t excluded, int excludeSubtypes);
VX_API CineItem *GroupMemberItemTypeByIndex(CineItem *group, uint32_t type, int includeSubtypes,
                                            uint32_t excluded, int excludeSubtypes,
                                            unsigned int index);

/* Called for each member: item members (what 0) with channel 0xFFFFFFFF, channel members
 * (what 1) with their channel. A nonzero result ends the scan and is returned. */
typedef int (*GroupScanFunc)(CineItem *group, void *client, CineItem *item, uint32_t channel);
/* Visits the members of a hierarchy of groups (the "parent" graph). Scope 0: the group
 * alone; 1 (and 5 or more): the group and the groups below it; 2: starting at the nearest
 * ancestor with more than one child (climbing through single children), and below it; 3: as
 * 2 from that ancestor's parent, without the start itself; 4: from the root of the group's
 * hierarchy. A start that does not exist falls back to the group. Groups are visited depth
 * first in child order, members in member order; GroupScanRev visits everything in exactly
 * the reverse order. `group` may be any item: one that is not a group has no members, and
 * the groups below it are visited all the same. The callback must not edit memberships.
 * Returns the first nonzero callback result, or 0. */
VX_API int GroupScan(CineItem *group, unsigned int what, GroupScanFunc func, unsigned int scope,
                     void *client);
VX_API int GroupScanRev(CineItem *group, unsigned int what, GroupScanFunc func, unsigned int scope,
                        void *client);

/* A new "group.enum" object over the group's members (what as in GroupScan), with one
 * reference for the caller; null for a non-group or on failure. */
VX_API void *GroupEnumCreate(CineItem *group, unsigned int what);

VX_EXTERN_C_END

#endif
