/* Action clips: items that own an action of their own.
 *
 * A clip (type "actionclip", fixed code 16) is made with a new action of its scene, whose
 * name the clip keeps in its item tag ACTIONCLIP_ACTION_TAG ("ACTN"); deleting the clip
 * (CineItemDelete) destroys the action in the same edit, and undo brings both back. A scene
 * file keeps the tag, so a loaded clip finds its action again; a clip whose action is missing
 * has none ("Action not found for ActionClip: %s" in the debug log), and every clip function
 * but enabling then returns 0 or null for it (enabling lives in a tag of the clip itself).
 *
 * A clip claims channels: the channels of the items added to it get an entry in its action
 * (marked removed until the animator gives them a value or keys). Matrix and object channels
 * (storage 3 and 4) and the channels of clips are never claimed. A clip is active while its
 * action is a parent of some action of the scene; activation makes it a parent of "edit",
 * so that evaluation reads the clip's values for the channels it holds values for, and takes
 * the other clips of the group out. Clips are kept as members of groups (vexor/group.h).
 *
 * Clip kinds follow the action's type: kind 0 (action type 1) is an animation clip, kind 1
 * (action type 0) a pose clip. While a scene is in its setup state, evaluation leaves out
 * actions of type 1, so poses still apply and animation clips do not. Items of the type
 * "actionpose" (a subtype of "actionclip") are made as poses.
 *
 * The clip channel "mode" (integer, hints "override" 0 and "under" 1, default 1) says where an
 * activated clip's action goes among the parents of "edit": override puts it first, so its
 * values win over those of "scene"; under puts it after "scene", so the scene's own values
 * win and the clip fills in the rest. It is read when the clip is activated.
 *
 * Every edit here is undoable and atomic (one undo step; a failure changes nothing). Valid
 * between ActionClipStartup and the balancing ActionClipShutdown; main thread only. */
#ifndef VEXOR_ACTIONCLIP_H
#define VEXOR_ACTIONCLIP_H

#include <stdint.h>

#include "vexor/cinema.h"
#include "vexor/export.h"

VX_EXTERN_C_BEGIN

#define ACTIONCLIP_TYPE_CODE 16u
/* The item tag holding the name of the clip's action: "ACTN". */
#define ACTIONCLIP_ACTION_TAG 0x4143544Eu
/* The item tag of a disabled clip: "ACEB" = "disabled". */
#define ACTIONCLIP_DISABLED_TAG 0x41434542u
#define ACTIONCLIP_KIND_ANIMATION 0u
#define ACTIONCLIP_KIND_POSE 1u
#define ACTIONCLIP_KIND_NONE 0xFFFFFFFFu
#define ACTIONCLIP_MODE_OVERRIDE 0
#define ACTIONCLIP_MODE_UNDER 1
/* The flag of ActionClipSetActive and ActionClipSetEnabled that toggles the state. */
#define ACTIONCLIP_TOGGLE 0xFFFFFFFFu

/* Starts the module (and the scene module) on the first call: the types "actionclip" and
 * "actionpose". Further calls only count. Returns 1, or 0 when it could not start. */
VX_API int ActionClipStartup(void);
/* Drops a reference; the last one stops the module. */
VX_API void ActionClipShutdown(void);

/* The clip's action, or null (not a clip, or its action is missing). */
VX_API CineAction *ActionClipAction(CineItem *clip);
/* The clip that owns the action, or null. */
VX_API CineItem *ActionClipFromAction(CineAction *action);
/* The kind (ACTIONCLIP_KIND_...): none for a clip without an action or of another type. */
VX_API unsigned int ActionClipType(CineItem *clip);
/* Sets the kind: 1 when set or already so (other kinds change nothing), 0 without action. */
VX_API int ActionClipSetType(CineItem *clip, unsigned int kind);

/* Claims every channel of the item that the action does not hold yet (and of its transform
 * items, for items with a transform stack). The group may be null. 1 when done; 0 for a clip
 * without action, an item of another scene, or an item that is itself a clip. */
VX_API int ActionClipAddItem(CineItem *clip, CineItem *group, CineItem *item);
/* Releases the item's channels, except those that `group` (may be null) holds as channel
 * members. 1 when done, 0 as for ActionClipAddItem. */
VX_API int ActionClipRemoveItem(CineItem *clip, CineItem *group, CineItem *item);
/* The same for one channel; the group argument is not used. 1 when the channel was claimed
 * (released), 0 when nothing changed or the channel cannot be claimed. */
VX_API int ActionClipAddChannel(CineItem *clip, CineItem *group, CineItem *item,
                                unsigned int channel);
VX_API int ActionClipRemoveChannel(CineItem *clip, CineItem *group, CineItem *item,
                                   unsigned int channel);

/* Adds the clip's action as the last parent of `child` and `parent` as the last parent of the
 * clip's action; either may be null. 1, or 0 when nothing was done. */
VX_API int ActionClipParentAction(CineItem *clip, CineAction *parent, CineAction *child);
/* With a nonzero flag, makes the scene's "scene" action a parent of the clip's action; with 0
 * takes it away. 1, or 0 on failure (parenting in a scene without "scene" logs a failure
 * line; taking away there does nothing and returns 1). */
VX_API int ActionClipSetParenting(CineItem *clip, int flag);
/* Activates (1), deactivates (0) or toggles (ACTIONCLIP_TOGGLE) the clip; a flag equal to the
 * current state does nothing. Otherwise every clip member of `group` (may be null) is first
 * deactivated, and so is the clip when deactivating; activating then makes the clip's action a
 * parent of "edit" at the place its "mode" asks for. Returns 1 when the clip ends in the asked
 * state, 0 otherwise: in a scene without "edit" the group's clips are still deactivated, and
 * a failure line is logged. */
VX_API int ActionClipSetActive(CineItem *clip, CineItem *group, unsigned int flag);
/* 1 when some action of the scene has the clip's action as a parent. */
VX_API int ActionClipIsActive(CineItem *clip);
/* The first clip member of the group that is active, or null. */
VX_API CineItem *ActionClipGetActive(CineItem *group);

/* Enables (1), disables (0) or toggles (ACTIONCLIP_TOGGLE) a clip: the tag "ACEB" holds
 * "disabled" while it is disabled. 1 when the clip ends in the asked state, 0 for a non-clip
 * or on failure. */
VX_API int ActionClipSetEnabled(CineItem *clip, unsigned int flag);
/* 1 for a clip without the tag; 0 for a disabled clip or anything that is not a clip. */
VX_API int ActionClipIsEnabled(CineItem *clip);

VX_EXTERN_C_END

#endif
