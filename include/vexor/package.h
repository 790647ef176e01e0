/* Item types and packages.
 *
 * A package is a named bundle of channels and callbacks. A package with a super-type is an
 * item type; one without is an add-on package. Packages come from two places and end in one
 * registry of types: those defined here with CinePackageDefine, and servers of class
 * "package" that any module or host registers (vexor/host.h), described by their tags:
 *
 *   "super"              name of the super-type's package; "." for a root type; absent for
 *                        an add-on package
 *   "internal.typeCode"  decimal fixed type code (below 101) of a legacy type
 *   "internal.wrapper"   set on packages defined with CinePackageDefine (value: the name)
 *   "isMaskItem"         items of the type (or of a descendant) act as masks
 *   "pkg.createCmd"      "-": items of this type may not be created by the user
 *   "pkg.convertCmd"     "-": items may not be converted to or from this type
 *
 * Type codes: 0 is no type, fixed codes lie below 101, automatic codes are given from 101
 * upwards in the order in which types are first resolved, 0xFFFFFFFF is not a type. Types
 * are resolved lazily: by CineLookupType, CinePackageItemType, CineDefineType, and by the
 * first type query, which resolves every package server known at that moment.
 *
 * Everything here is valid between CinemaStartup (vexor/cinema.h) and the balancing
 * CinemaShutdown, and is called from the main thread only. Package servers must stay
 * registered while the scene module runs. Type records, type names and the arrays returned
 * here are owned by the library. */
#ifndef VEXOR_PACKAGE_H
#define VEXOR_PACKAGE_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/value.h"

VX_EXTERN_C_BEGIN

/* A resolved or known package: the type record. */
typedef struct CinePackage CinePackage;
/* A cached list of the types that pass a filter. */
typedef struct CineTypeList CineTypeList;

/* Not a type, or a failed type definition. */
#define CINE_TYPE_NONE 0xFFFFFFFFu
/* The first automatic type code; fixed codes lie below it. */
#define CINE_TYPE_AUTO_FIRST 101u

/* Event sent on the "cinema-db" port, with the type record as data, when a package has been
 * resolved as a type. The sender is null. */
#define CINE_EVENT_TYPE_RESOLVED 0x40002u

/* Tags of a channel list (CinePackageAddChannel). Each tag is an unsigned int followed by its
 * values; tags other than 1 to 9 are skipped without reading values.
 *   CINE_CH_NAME (1): name (const char *), storage (int, VX_STORE_...), value type name
 *       (const char *, null for the storage's plain type). Starts a channel; a null name
 *       ends the list (no further values are read).
 *   CINE_CH_VECTOR (2): vector mode (unsigned, CINE_VECTOR_...), component letters
 *       (const char *, null for the mode's own). Makes the current channel a vector: one
 *       channel per component, named "<name>.<letter>".
 *   CINE_CH_EXOTYPE (3): storage (int), value type name (const char *). A further value type
 *       kept with the current channel.
 *   CINE_CH_DEFAULT (4): default (double), given to every component.
 *   CINE_CH_DEFAULT_INT (5): default (int), given to every component.
 *   CINE_CH_USAGE (6): usage code (unsigned, CINE_USAGE_...).
 *   CINE_CH_EXTRA (7): an extra descriptor (void *) kept with the channel.
 *   CINE_CH_HINTS (8): hint table (const TextHint *), flag (unsigned). A null table with flag
 *       1 is TextHintBoolean(). Only integer channels take a table.
 *   CINE_CH_INTERNAL (9): no values; marks the channel internal.
 * A tag that needs a current channel fails when there is none. Pass null pointers as typed
 * pointers ((const char *)0 or NULL), never as a plain 0, which is read as the wrong size. */
#define CINE_CH_NAME 1u
#define CINE_CH_VECTOR 2u
#define CINE_CH_EXOTYPE 3u
#define CINE_CH_DEFAULT 4u
#define CINE_CH_DEFAULT_INT 5u
#define CINE_CH_USAGE 6u
#define CINE_CH_EXTRA 7u
#define CINE_CH_HINTS 8u
#define CINE_CH_INTERNAL 9u

/* Vector modes and their components: scalar (1), pair "UV" (2), position "XYZ" (3), colour
 * "RGB" (3), colour with alpha "RGBA" (4). */
#define CINE_VECTOR_SCALAR 0u
#define CINE_VECTOR_PAIR 1u
#define CINE_VECTOR_XYZ 2u
#define CINE_VECTOR_RGB 3u
#define CINE_VECTOR_RGBA 4u

/* Usage codes of channels, written out through TextHintEncode with CineUsageHints(). */
#define CINE_USAGE_NONE 0u
#define CINE_USAGE_PERCENT 1u
#define CINE_USAGE_DISTANCE 2u
#define CINE_USAGE_ANGLE 3u
#define CINE_USAGE_TIME 4u
#define CINE_USAGE_COLOR 5u
/* The text hints of the usage codes, for TextHintEncode and TextHintDecode (owned by the
 * library, valid for the process). */
VX_API const TextHint *CineUsageHints(void);

/* One record of a legacy channel table (CinePackageAddChannelDesc). */
typedef struct CineChannelDesc {
    const char *name;     /* null ends the table */
    int type;             /* 1: integer channel; anything else: floating channel */
    unsigned int usage;   /* CINE_USAGE_... */
    double defaultValue;  /* truncated for integer channels */
    unsigned int texture; /* legacy texture code; 0xFFFFFFFF for none */
    const TextHint *hints;
    unsigned int hintFlag;
} CineChannelDesc;

/* Item callbacks, stored and called by the scene. Their arguments are those of the host
 * application's package interface; items and dynamic strings are passed as pointers. */
typedef struct CineItemFuncs CineItemFuncs; /* laid out by the host's package interface */
typedef void (*CineSynthNameFunc)(void *item, void *dynString);
typedef void (*CinePostLoadFunc)(void *item);
typedef void (*CineAttachFunc)(void *item, void *client);
typedef void (*CineAttachFunc2)(void *item, void *client, void *extra);
/* Adds channels at instantiation time through addChan (vexor/sys/package.h); returns VX_OK or
 * a failure code. */
typedef unsigned int (*CineChanFunc)(void *client, void *addChan);
/* Gives the interface of that GUID for the package (query list) or an item (sub-objects). */
typedef void *(*CineInterfaceFunc)(void *client, const char *guid);
/* Sets up a package's per-item local data. */
typedef void *(*CineLocalFunc)(void *item, void *client);

/* ---- Package definitions --------------------------------------------------------------
 * All take the package name first; a null name is the current package, the one most
 * recently defined or named by any of these calls. The setters must name a defined package;
 * they return its definition (an opaque pointer), or null when there is none. */

/* Defines a package and publishes it as a server of class "package" tagged
 * "internal.wrapper". Defining a name again makes it current and changes nothing else; a name
 * that another package server has is refused (VX_E_REFUSED). */
VX_API void CinePackageDefine(const char *name);
/* Turns the package into a type with a fixed code (below 101; 0 for an automatic one) under
 * the type of code superCode (0, or a code no package has, for a root type). Returns the type
 * code, or CINE_TYPE_NONE. Call it before anything resolves the package: once resolved
 * without a super (as by the first type query), a package stays an add-on package. */
VX_API uint32_t CineDefineType(uint32_t typeCode, int32_t superCode, const char *name);
/* Appends channels described by a tag list (see CINE_CH_...), ended by CINE_CH_NAME with a
 * null name. All or nothing: returns 1, or 0 with the package unchanged. */
VX_API int CinePackageAddChannel(const char *name, ...);
/* Appends the channels of a legacy table, stopping early at a null name. All or nothing:
 * returns 1 or 0. */
VX_API int CinePackageAddChannelDesc(const char *name, const CineChannelDesc *table,
                                     unsigned int count);
VX_API void *CinePackageAddChanFunc(const char *name, CineChanFunc func, void *client);
VX_API void *CinePackageAttachFunc(const char *name, CineAttachFunc func, void *client);
VX_API void *CinePackageAttachFunc2(const char *name, CineAttachFunc2 func, void *client,
                                    void *extra);
VX_API void *CinePackageSetFuncs(const char *name, const CineItemFuncs *funcs);
VX_API void *CinePackagePostLoadFunc(const char *name, CinePostLoadFunc func);
/* With a null name this sets the library-wide default synthesiser, not the current
 * package's. */
VX_API void CinePackageSynthNameFuncDS(const char *name, CineSynthNameFunc func);
VX_API void *CinePackageSetLocal(const char *name, void *first, CineLocalFunc setup, void *third);
/* Append an entry to the query or sub-object list; the GUID may be given with or without
 * braces. Return 1, or 0 for an unknown package, a malformed GUID or no memory. */
VX_API int CinePackageAddQueryFunc(const char *name, CineInterfaceFunc func, void *client,
                                   const char *guid);
VX_API int CinePackageSubObjectFunc(const char *name, CineInterfaceFunc func, void *client,
                                    const char *guid);
/* Sets the default of a channel, or of every component of a vector channel given by its base
 * name, from values[0], values[1], ... Returns the number of components set, 0 when the
 * package has no such channel. */
VX_API unsigned int CinePackageSetDefault(const char *name, const char *channel,
                                          const double *values);

/* ---- Package and type queries ---------------------------------------------------------- */

/* The record of a known package, without resolving it; null when unknown. */
VX_API CinePackage *CinePackageFind(const char *name);
VX_API const char *CinePackageName(const CinePackage *pkg);
/* The type code, resolving the package if needed; CINE_TYPE_NONE for an add-on package or a
 * package that fails to resolve. */
VX_API uint32_t CinePackageItemType(CinePackage *pkg);
/* The interface of the package's server object (made on first need), or null. No reference
 * is passed to the caller: the object lives until CinemaShutdown. */
VX_API void *CinePackageQueryIfc(CinePackage *pkg, const char *guid);
/* The number of channels the package contributes (making its object); 0 when it cannot be
 * made. */
VX_API unsigned int CineItemPackageChannelCount(CinePackage *pkg);

/* The type code of a package, or CINE_TYPE_NONE when no package of that name is known. */
VX_API uint32_t CineLookupType(const char *name);
VX_API unsigned int CineTypeCount(void);
/* The index-th type in ascending code order, or CINE_TYPE_NONE when index >= count. */
VX_API uint32_t CineTypeByIndex(unsigned int index);
VX_API const char *CineTypeName(uint32_t type);
VX_API uint32_t CineLookupSuper(uint32_t type);
VX_API int CineTypeTest(uint32_t type, uint32_t ancestor);
VX_API uint32_t CineTypeCommonAncestor(uint32_t a, uint32_t b);
VX_API unsigned int CineSubTypeCount(uint32_t type);
VX_API const char *CineSubTypeName(uint32_t type, unsigned int index);
/* Whether the package object of the type or an ancestor reports the interface (objects are
 * made as needed). */
VX_API int CineTypeSupportIfc(uint32_t type, const char *guid);
/* The same from what is known without making objects: objects already made, and the query
 * lists of packages defined with CinePackageDefine. */
VX_API int CineTypeMaySupportIfc(uint32_t type, const char *guid);
/* Tags the type's package server. A code not yet resolved is matched against the
 * "internal.typeCode" tags of the package servers. Returns 1, or 0 when no package has the
 * code. */
VX_API int CineTypeAddTag(uint32_t type, const char *tag, const char *value);
/* A tag of the type's package server; if absent and inherit is nonzero, of the nearest
 * ancestor that has it. Null when absent or for codes below 1. */
VX_API const char *CineTypeGetTag(uint32_t type, const char *tag, int inherit);
VX_API int CineTypeIsMask(uint32_t type);
/* The types whose own package carries "isMaskItem", 0-terminated and in ascending order. The
 * array is built once, on the first call (every package known then is resolved first), and the
 * pointer stays valid until CinemaShutdown; types or tags added later do not change it (ask
 * CineTypeIsMask about those). Null only when the array cannot be made. */
VX_API const uint32_t *CineMaskTypes(void);
/* Writes the codes of the types whose own package carries the tag, up to capacity of them,
 * in ascending order; returns how many types carry it. */
VX_API unsigned int CineTypesOfTag(const char *tag, uint32_t *codes, unsigned int capacity);
VX_API int CineTypeCreateOK(uint32_t type);
VX_API int CineTypeConvertOK(uint32_t type);

/* ---- Type lists ------------------------------------------------------------------------- */

/* Returns nonzero to include the type in the list. */
typedef int (*CineTypeFilterFunc)(void *client, uint32_t type, CineTypeList *list);

/* A list of the types that pass the filter. A lazy list builds its array on request; an eager
 * one builds it now and again whenever a type is resolved. Null when out of memory. Lists
 * still alive at CinemaShutdown are destroyed with the registry. */
VX_API CineTypeList *CineTypeListCreate(CineTypeFilterFunc filter, void *client, int lazy);
/* A lazy list of the types that support the interface (CineTypeSupportIfc). */
VX_API CineTypeList *CineTypeListIfcCreate(const char *guid);
/* The 0-terminated array of matching codes in ascending order; null when out of memory. */
VX_API const uint32_t *CineTypeListArray(CineTypeList *list);
VX_API unsigned int CineTypeListCount(CineTypeList *list);
VX_API int CineTypeListTest(CineTypeList *list, uint32_t type);
VX_API void CineTypeListInvalidate(CineTypeList *list);
VX_API void CineTypeListDestroy(CineTypeList *list);

/* The number of components of a vector mode: 1, 2, 3, 3, 4; 0 for other modes. */
VX_API unsigned int CineChannelVectorSize(unsigned int mode);

VX_EXTERN_C_END

#endif
