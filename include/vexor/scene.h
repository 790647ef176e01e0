/* Scenes and items.
 *
 * A scene (Cinema) holds items, the graphs that link them ("parent" and "source" among them)
 * and the bookkeeping that tells the host when the scene has changed. An item is made by type
 * (vexor/package.h) and carries the channels of its type's package, of every ancestor type's
 * package and of the add-on packages added to it, numbered from 0 in that order.
 *
 * Everything here is valid between CinemaStartup and the balancing CinemaShutdown
 * (vexor/cinema.h) and is called from the main thread. Scenes, items, graphs and the texts
 * returned are owned by the library. Functions marked undoable are edits of the undo system
 * (vexor/undo.h): an item is taken out of its scene by undoing its creation, and its record
 * stays valid while the undo history can still bring it back. Destroying a scene while the
 * history holds its edits is allowed: those edits then do nothing.
 *
 * Every scene edit sends one event, through one routine, to the global port "cinema-db" (the
 * sender is the scene) and to the scene's own port (CinemaPort); the data is the item unless
 * said otherwise. */
#ifndef VEXOR_SCENE_H
#define VEXOR_SCENE_H

#include <stdint.h>

#include "vexor/cinema.h"
#include "vexor/export.h"
#include "vexor/failure.h"
#include "vexor/package.h"
#include "vexor/port.h"

VX_EXTERN_C_BEGIN

typedef struct LinkGraph LinkGraph;

/* Scene events. */
#define CINE_EVENT_BATCH_BEGIN 0x12000u    /* a change batch opens (data: the scene) */
#define CINE_EVENT_NAMES_REBUILD 0x12002u  /* unique names must be rebuilt */
#define CINE_EVENT_ITEM_ADDED 0x12004u     /* an item entered the scene (made, or redone) */
#define CINE_EVENT_ITEM_REMOVED 0x12005u   /* an item left the scene (its creation undone) */
#define CINE_EVENT_ITEM_NAME 0x12008u      /* an item's unique name changed */
#define CINE_EVENT_BATCH_END 0x12010u      /* a change batch closes (data: the scene) */
#define CINE_EVENT_ITEM_CHANGED 0x12011u   /* name, parent, source or a tag of an item changed */
#define CINE_EVENT_PACKAGE 0x12015u        /* a package was added or removed (CinePackageEvent) */
#define CINE_EVENT_CHANNELS_MOVED 0x1201Bu /* channels of an item moved (CinePackageEvent) */
#define CINE_EVENT_HIDDEN 0x1201Du         /* an item's hidden state changed */
#define CINE_EVENT_CHANGED_STATE 0x11002u  /* the scene went from clean to changed or back */

/* The data of CINE_EVENT_PACKAGE and CINE_EVENT_CHANNELS_MOVED, valid during the event. For a
 * package event, `first` is the index of the package's first channel and `count` its channel
 * count; `itemChannels` is the item's channel count after the change. When a package is
 * removed from the middle of the chain, the channels after it move down by `count` from
 * index `first` on, which is sent as CINE_EVENT_CHANNELS_MOVED after the package event. */
typedef struct CinePackageEvent {
    CineItem *item;
    CinePackage *package;
    uint32_t first;
    uint32_t itemChannels;
    uint32_t count;
    int added; /* 1 added, 0 removed */
} CinePackageEvent;

/* ---- Scenes ------------------------------------------------------------------------------ */

/* Makes a scene with its graphs and, when the action module runs, its default actions, and
 * adds it to the scene list (undoable: undoing takes it out of the list; the scene stays
 * until CinemaDestroy). The first scene listed is the root scene; later ones become its
 * sub-scenes. Null on failure, with nothing left behind. */
VX_API Cinema *CinemaCreate(uint32_t flags);
/* Destroys a scene and its items. Null is ignored. */
VX_API void CinemaDestroy(Cinema *scene);
/* The position of the scene in the scene list, or 0xFFFFFFFF. */
VX_API uint32_t CinemaIndex(const Cinema *scene);
VX_API uint32_t CinemaCount(void);
VX_API Cinema *CinemaByIndex(uint32_t index);
VX_API uint32_t CinemaFlags(const Cinema *scene);
/* The scene's own port (vexor/port.h). */
VX_API Port *CinemaPort(Cinema *scene);
/* The scene's number among untitled scenes (1 + the largest among the listed scenes without
 * a file name when it was made), and the file name ("" when none). */
VX_API uint32_t CinemaUntitledIndex(const Cinema *scene);
VX_API const char *CinemaFileName(const Cinema *scene);
/* Sets the file name; null or "" makes the scene untitled again. Returns 1, 0 on failure. */
VX_API int CinemaSetFileName(Cinema *scene, const char *name);
/* Sets the base text of untitled scenes (default "untitled"); null restores the default. */
VX_API void CinemaDefineStrings(const char *untitled);
VX_API const char *CinemaUntitledText(void);
/* A quiet scene sends no events at all. */
VX_API void CinemaSetQuiet(Cinema *scene, int quiet);
/* Opens and closes a change batch (events CINE_EVENT_BATCH_BEGIN / _END); nests. */
VX_API void CinemaBatchBegin(Cinema *scene);
VX_API void CinemaBatchEnd(Cinema *scene);
VX_API int CinemaBatchDepth(const Cinema *scene);

/* ---- Change counters ----------------------------------------------------------------------
 * `changed` counts the changes since the scene was last marked clean. CinemaChanged with a
 * nonzero flag raises it (once until the next CinemaHasChanged), with 0 resets it; both are
 * undoable, and CINE_EVENT_CHANGED_STATE is sent when the scene flips between clean and
 * changed. Scene edits mark the scene changed themselves. */
VX_API void CinemaChanged(Cinema *scene, int flag);
/* Returns `changed` and makes the next CinemaChanged count again. */
VX_API uint32_t CinemaHasChanged(Cinema *scene);
/* A counter raised by the first change after each read. */
VX_API uint32_t CinemaAbsoluteChanges(Cinema *scene);

/* ---- Unique names -------------------------------------------------------------------------
 * Items of the same base name are told apart by an index in one of five styles:
 * 0 "%s (%d)", 1 "%s(%d)", 2 "%s %d", 3 "%s_%d", 4 "%s%d". The first of a name has none. */
VX_API void CinemaSetIndexStyle(int style);
VX_API int CinemaIndexStyle(void);
/* Writes base and index in the current style into buffer (cut to size, always terminated)
 * and returns buffer; null when buffer is null or size is 0. */
VX_API char *CinemaAppendIndex(const char *base, int index, char *buffer, unsigned int size);

/* ---- Graphs -------------------------------------------------------------------------------- */

/* Registers a graph that every scene made from now on has (kind 1: links between items,
 * kind 2: links between item channels). A name already registered is kept. Returns 1, or 0
 * when out of memory. */
VX_API int CinemaGraphDefault(const char *name, uint32_t kind);
/* The scene's graph of that name (exact comparison), or null. */
VX_API LinkGraph *CinemaGraphLookup(Cinema *scene, const char *name);
VX_API const char *CinemaGraphName(const LinkGraph *graph);

/* ---- Items -------------------------------------------------------------------------------- */

/* Makes an item of a type (undoable). Null when the type is unknown or a package of its
 * chain cannot be made, or on failure. */
VX_API CineItem *CineItemCreate(Cinema *scene, uint32_t type);
/* Takes the item out of its scene (undoable; undo puts it back as it was): its links in every
 * graph of the scene (parent, children, source, memberships) go with it. Its values in actions
 * stay with the item, unread while it is out, and are freed with it once the undo history
 * drops it. The record stays valid while the undo history can bring it back.
 * Returns 1, or 0 for an item not in its scene or on failure. */
VX_API int CineItemDelete(CineItem *item);
VX_API Cinema *CineItemContext(const CineItem *item);
VX_API uint32_t CineItemType(const CineItem *item);
/* 1 when the item's type is the type or one of its descendants. */
VX_API int CineItemTestType(const CineItem *item, uint32_t type);
/* The identity string: unique in the scene, fixed for the item's life. */
VX_API const char *CineItemIdent(const CineItem *item);
/* The item's own name, or null when it has none. */
VX_API const char *CineItemName(const CineItem *item);
/* Sets or (null) clears the item's own name (undoable). Returns 1, 0 on failure. */
VX_API int CineItemSetName(CineItem *item, const char *name);
/* The unique name, made on first request: "*bad*" for null. Valid until the name changes. */
VX_API const char *CineItemUniqueName(CineItem *item);
/* Forgets the cached unique name, so the next request makes it again. */
VX_API void CineItemInvalidateName(CineItem *item);
/* Finds an item by identity string, by unique name, or by "<type>[n]": the n-th item (from
 * 0) of that type or its subtypes. Text that is a hexadecimal number finds nothing. */
VX_API CineItem *CineLookupItem(Cinema *scene, const char *text);
/* For package name synthesisers (CinePackageSynthNameFuncDS): sets the text of the name
 * buffer they are given. */
VX_API void CineNameBufferSet(void *buffer, const char *text);

/* The items of the scene, type by type in order of each type's first item. */
VX_API unsigned int CinemaItemCount(const Cinema *scene);
VX_API CineItem *CinemaItemByIndex(const Cinema *scene, unsigned int index);

/* Puts the item under a parent (null: no parent) at a position among its children (negative:
 * last); undoable. The package of the item's type may refuse: its code is returned (codes 0
 * and 0x80000001 from the package accept). Returns 0 on success; VX_E_REFUSED for an item of
 * another scene or a parent that is the item or one of its descendants. */
VX_API unsigned int CineItemSetParent(CineItem *item, CineItem *parent, int position);
VX_API CineItem *CineItemParent(const CineItem *item);
/* The item's children in order, and the top of its hierarchy (the item when it has no
 * parent). */
VX_API unsigned int CineItemSubCount(const CineItem *item);
VX_API CineItem *CineItemSubByIndex(const CineItem *item, unsigned int index);
VX_API CineItem *CineItemRoot(CineItem *item);

/* The item whose channel values this one falls back on, and its setter (undoable; null
 * clears). Returns 1, 0 when refused (another scene, or a loop of sources) or on failure. */
VX_API CineItem *CineItemSource(const CineItem *item);
VX_API int CineItemSetSource(CineItem *item, CineItem *source);

/* Hidden items (a set shared by every scene). Changing the state sends CINE_EVENT_HIDDEN. */
VX_API void CineItemSetHidden(CineItem *item, int hidden);
VX_API int CineItemHidden(const CineItem *item);

/* While a scene copy is in progress, the copy made of an item; else the item. */
VX_API CineItem *CineItemRedirectCopy(CineItem *item);

/* Item tags: four-character codes with text values. Setting (undoable) replaces the value;
 * null removes the tag. The getter returns null when the item has no such tag. */
VX_API int CineItemSetTag(CineItem *item, uint32_t code, const char *value);
VX_API const char *CineItemGetTag(const CineItem *item, uint32_t code);

/* ---- Channels ----------------------------------------------------------------------------- */

/* The number of channels of the item, over its whole package chain. */
VX_API unsigned int CineChannelCount(const CineItem *item);
/* The name of a channel of the item, or null for an index out of range. */
VX_API const char *CineChannelName(const CineItem *item, unsigned int channel);
/* The index of the named channel, or -1. */
VX_API int CineItemLookupChannel(const CineItem *item, const char *name);
/* The index on `to` of the channel that `channel` of `from` corresponds to: the same package
 * and position, or failing that the same name; -1 when none. */
VX_API int CineItemMatchChannelIndex(const CineItem *from, unsigned int channel,
                                     const CineItem *to);
/* The vector mode of the channel (CINE_VECTOR_...); *component, when given, receives the
 * channel's position inside its vector. */
VX_API unsigned int CineChannelVectorMode(const CineItem *item, unsigned int channel,
                                          unsigned int *component);
/* The range of channels of a channel: mode 2 the whole item (returns 0), mode 0 the whole
 * vector of a vector channel, otherwise the channel alone. *count receives the length. */
VX_API unsigned int Item_ChanRange(const CineItem *item, unsigned int channel, int mode,
                                   unsigned int *count);
/* The channel description of an item channel (opaque; null when out of range), and its index
 * inside its package (0xFFFFFFFF when it is not one of the item's). */
VX_API const void *CineItemChannelDesc(const CineItem *item, unsigned int channel);
VX_API unsigned int Item_ChanOffset(const CineItem *item, const void *desc);

/* ---- Packages on items ------------------------------------------------------------------- */

/* Adds an add-on package (undoable). Returns 1 when the package is on the item (also when it
 * was already), 0 when refused (the package is a type) or on failure. */
VX_API int CineItemAddPackage(CineItem *item, CinePackage *pkg);
/* Removes an add-on package with its channels' values in every action (undoable). Returns 0
 * for a package the item does not have or one of its type chain. */
VX_API int CineItemRemPackage(CineItem *item, CinePackage *pkg);
VX_API int CineItemTestPackage(const CineItem *item, const CinePackage *pkg);
VX_API unsigned int CineItemPackageCount(const CineItem *item);
VX_API CinePackage *CineItemPackageByIndex(const CineItem *item, unsigned int index);
/* The package's object on this item (no reference passed), or null. */
VX_API void *CineItemPackageObject(const CineItem *item, const CinePackage *pkg);
/* The client data the package's attach callback was run with on this item, or null. */
VX_API void *CineItemPackagePeekAttached(const CineItem *item, const CinePackage *pkg);
/* What the package's local set-up callback made for this item, or null. */
VX_API void *CineItemPackageLocal(const CineItem *item, const CinePackage *pkg);
/* The index of the package's first channel on the item, or 0xFFFFFFFF. */
VX_API unsigned int CineItemPackageStartIndex(const CineItem *item, const CinePackage *pkg);
/* The hint table of the package's channel of that name, or null (none, or no such channel). */
VX_API const TextHint *CineItemPackageChannelHints(CinePackage *pkg, const char *channel);
/* The number of leading channels two items share (same packages in the same places). */
VX_API unsigned int CineItemCommonChannels(const CineItem *a, const CineItem *b);

VX_EXTERN_C_END

#endif
