/* Interfaces between packages and the items they are on, for modules and hosts that supply
 * packages as servers (vexor/sys/package.h), and the objects the scene module gives out.
 *
 * A package object may have the item-package interface: the scene then asks it for a
 * per-item object when the package is put on an item, and the package of an item's type is
 * asked before the item is given a parent. Packages defined with CinePackageDefine get a
 * per-item object of class "pwrap.inst" with the package-instance interface. Scenes and items
 * have component objects of classes "scene" and "item". */
#ifndef VEXOR_SYS_ITEM_H
#define VEXOR_SYS_ITEM_H

#include "vexor/scene.h"
#include "vexor/sys/component.h"
#include "vexor/sys/package.h"

VX_EXTERN_C_BEGIN

#define CINE_ITEM_PACKAGE_GUID "{DC3E12A8-560C-4990-8E2D-301A759EA1E6}"
#define CINE_ITEM_GUID "{A316E2D7-D581-4A61-A750-F976BC2582E0}"

typedef struct CineItemPackageMethods {
    XObjectMethods object;
    /* Makes the package's object for the item into *out (one reference, which the item
     * keeps); leaving *out null is allowed. Returns VX_OK or a failure code, which refuses
     * the item or the package. May be null. */
    unsigned int (*Instance)(void *pkgObj, CineItem *item, void **out);
    /* Asked before the item is put under `parent` at `position` (negative: last). VX_OK and
     * VX_E_FAILED accept; any other code refuses and is returned to the caller. May be null. */
    unsigned int (*TestParent)(void *pkgObj, CineItem *item, CineItem *parent, int position);
} CineItemPackageMethods;

/* The package-instance interface of "pwrap.inst" objects. */
typedef struct CinePackageInstanceMethods {
    XObjectMethods object;
    CineItem *(*Item)(void *obj);
    CinePackage *(*Package)(void *obj);
} CinePackageInstanceMethods;

/* The interfaces of the "scene" and "item" objects. */
typedef struct CineSceneMethods {
    XObjectMethods object;
    Cinema *(*Scene)(void *obj);
} CineSceneMethods;

typedef struct CineItemMethods {
    XObjectMethods object;
    CineItem *(*Item)(void *obj);
} CineItemMethods;

/* The component object of a scene or an item (no reference passed). */
VX_API void *CinemaObject(Cinema *scene);
VX_API void *CineItemObject(CineItem *item);

VX_EXTERN_C_END

#endif
