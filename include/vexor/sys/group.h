/* The interfaces of the group component classes.
 *
 * "group.item" (GROUP_ITEM_GUID) is what the package "group" answers when asked for the group
 * item interface (CinePackageQueryIfc); its methods take the group item itself, so one table
 * serves every group. "group.enum" (GROUP_ENUM_GUID) objects walk the members of one group,
 * made by GroupEnumCreate. */
#ifndef VEXOR_SYS_GROUP_H
#define VEXOR_SYS_GROUP_H

#include "vexor/group.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

typedef struct GroupItemMethods {
    XObjectMethods object;
    /* GroupType, GroupMemberCount and GroupMemberItemTypeByIndex of the group. */
    unsigned int (*Kind)(CineItem *group);
    unsigned int (*Count)(CineItem *group, unsigned int what);
    CineItem *(*ItemByIndex)(CineItem *group, unsigned int index);
} GroupItemMethods;

typedef struct GroupEnumMethods {
    XObjectMethods object;
    /* Back to before the first member. */
    void (*Reset)(void *obj);
    /* The next member into *item and *channel (0xFFFFFFFF for item members): VX_OK, or
     * VX_E_NOTFOUND at the end (also when the group has left its scene). */
    unsigned int (*Next)(void *obj, CineItem **item, unsigned int *channel);
} GroupEnumMethods;

VX_EXTERN_C_END

#endif
