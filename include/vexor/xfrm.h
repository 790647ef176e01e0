/* Transforms: the chains of transform items that place locators and other items in space,
 * and the matrices composed from them.
 *
 * A placed item has the type "xfrmcore" (24) or a subtype: "locator" (3), and under it
 * "camera" (6), "light" (5) and "groupLocator" (17). Its channels are, from index 0:
 * "localMatrix", "parentMatrix", "wposMatrix", "wrotMatrix", "wsclMatrix", "wpivPosMatrix",
 * "wpivRotMatrix", "worldMatrix", "wParentMatrix" (4x4 matrices) and the switches
 * "inheritPos", "inheritRot", "inheritScl" (on by default). A transform has the type
 * "transform" (18) or a subtype: "translation" (19, channels "pos.X/Y/Z"), "rotation" (20,
 * "rot.X/Y/Z" in radians and "order"), "scale" (21, "scl.X/Y/Z") or "shear" (22, "shearXY",
 * "shearXZ", "shearYZ"); every transform has "matrix" (index 0) and "type" (index 1), and its
 * own channels start at index 2.
 *
 * Matrices follow vexor/matrix4.h: 16 doubles row by row, points are row vectors
 * (p' = p * M), the translation is in the last row, and in A * B the transformation A applies
 * first. A chain lists its members first to last in the order they apply to a point, so
 *     localMatrix  = M(first) * ... * M(last)
 *     worldMatrix  = localMatrix * parentMatrix
 * where parentMatrix is the world matrix of the nearest ancestor (in the "parent" graph) that
 * is a placed item, split as scale * rotation * position and taken part by part as the
 * inherit switches say (all three on: the whole world matrix; no placed ancestor: the
 * identity). The world matrix splits the same way into wsclMatrix (scale and shear, a lower
 * triangle), wrotMatrix (a rotation) and wposMatrix (the translation); wpivPosMatrix is the
 * translation to the world position of the pivot point (the pivot's translation in the item's
 * own space), wpivRotMatrix the pivot rotation's rotation times wrotMatrix, and wParentMatrix
 * the parent's whole world matrix. These channels are computed by evaluation modifiers, so an
 * evaluator reads them at any time and they follow every animated channel they depend on.
 *
 * Standard members (the kinds below) are marked with an item tag ('XSTD', the kind's name) and
 * stand in a standard chain in this order, first to last:
 *     pivotComp, pivotRotationComp, scale, shear, rotation, pivotRotation, pivot, translation
 * so that scale, shear and rotation happen about the pivot. A pivot's partner (its first
 * forward link in "xfrmLocal") is its compensation, whose matrix is always the inverse of the
 * pivot's; the same holds for the pivot rotation and its compensation. Pivots and their
 * compensations are made together.
 *
 * Everything here is valid between CinemaStartup and CinemaShutdown and runs on the main
 * thread, except the matrix reads, which follow the evaluator's thread rules (vexor/eval.h).
 * Chain edits are undoable: each is one undo step, and a failed edit changes nothing.
 * Failures are logged under the source name "iloc". */
#ifndef VEXOR_XFRM_H
#define VEXOR_XFRM_H

#include "vexor/cinema.h"
#include "vexor/eval.h"
#include "vexor/export.h"
#include "vexor/scene.h"

VX_EXTERN_C_BEGIN

/* Type codes. */
#define XFRM_TYPE_LOCATOR 3u
#define XFRM_TYPE_LIGHT 5u
#define XFRM_TYPE_CAMERA 6u
#define XFRM_TYPE_GROUP_LOCATOR 17u
#define XFRM_TYPE_TRANSFORM 18u
#define XFRM_TYPE_TRANSLATION 19u
#define XFRM_TYPE_ROTATION 20u
#define XFRM_TYPE_SCALE 21u
#define XFRM_TYPE_SHEAR 22u
#define XFRM_TYPE_CORE 24u

/* Standard kinds and their names. */
#define XFRM_KIND_SCALE 0          /* "scale" */
#define XFRM_KIND_ROTATION 1       /* "rotation" */
#define XFRM_KIND_TRANSLATION 2    /* "translation" */
#define XFRM_KIND_PIVOT 3          /* "pivot" (a translation) */
#define XFRM_KIND_PIVOT_COMP 4     /* "pivotComp" (a translation) */
#define XFRM_KIND_SHEAR 5          /* "shear" */
#define XFRM_KIND_PIVOT_ROTATION 6 /* "pivotRotation" (a rotation) */
#define XFRM_KIND_PIVOT_ROT_COMP 7 /* "pivotRotationComp" (a rotation) */

/* The item tag of standard members, 'XSTD'. */
#define XFRM_STD_TAG 0x58535444u

/* The scene's graph "xfrmCore" or "xfrmLocal"; null for a null scene. */
VX_API LinkGraph *XfrmCoreGraph(Cinema *scene);
VX_API LinkGraph *XfrmLocalGraph(Cinema *scene);

/* Makes a transform of the type (18 or a subtype) and links it at the end of the item's
 * chain; a new rotation's "order" is set to XfrmDefaultRotationOrder() in the scene's "setup"
 * action. Undoable. Null when the item is not placed, the type is not a transform type
 * (logged) or on failure. */
VX_API CineItem *XfrmAddTransformItem(CineItem *item, uint32_t type);
/* The first or last member of the chain; null when there is none or the item is not placed. */
VX_API CineItem *XfrmGetFirstTransform(CineItem *item);
VX_API CineItem *XfrmGetLastTransform(CineItem *item);
/* Writes the chain first to last into array (up to capacity; array may be null when capacity
 * is 0) and returns the length of the chain, 0 when it is empty. */
VX_API unsigned int XfrmGetTransformArray(CineItem *item, CineItem **array, unsigned int capacity);
/* The same for the item's pre-transforms: its reverse links in "xfrmLocal". */
VX_API unsigned int XfrmGetPreTransformArray(CineItem *item, CineItem **array,
                                             unsigned int capacity);
/* The first (first non-zero) or last member of exactly that type; null when none or the item
 * is not placed. */
VX_API CineItem *XfrmFindTransformOfType(CineItem *item, uint32_t type, int first);
/* The item a transform places; null when it places none or is not a transform. */
VX_API CineItem *XfrmRootItem(CineItem *transform);
/* Moves the transform to stand just before (after 0) or after the target in the target's
 * chain. Undoable. 1, or 0 when the two are the same, either is not a transform, or the
 * target is in no chain (logged). */
VX_API int XfrmMoveRelative(CineItem *transform, CineItem *target, int after);

/* The standard member of the kind (0 to 7). With create non-zero a missing one is made
 * (XfrmAddStdTransform). Null when missing, or for an item that is not placed. */
VX_API CineItem *XfrmGetStdTransform(CineItem *item, int kind, int create);
/* Makes the standard member of the kind at its place in the chain, with its partner for the
 * pivot kinds. Undoable. Null when it exists already ("Standard transform already assigned")
 * or cannot be made ("Failed to create standard transform"), both logged. */
VX_API CineItem *XfrmAddStdTransform(CineItem *item, int kind);
/* XfrmGetStdTransform without creating, for a kind named exactly as in the table above;
 * null for any other name. */
VX_API CineItem *XfrmGetStdTransformByName(CineItem *item, const char *name);
/* Maps a legacy channel name ("pos.X", "rot.Y", "rotOrd", "scl.Z", "pivPos.X", "pivPosC.Y")
 * to the standard member that holds it (not made when missing) and the channel's index on it
 * (*component: 2, 3, 4 for X, Y, Z; 5 for "rotOrd"; unchanged when the name has no axis).
 * *kind gets the kind, -1 when the name maps to none. Either output may be null. */
VX_API CineItem *XfrmFindLegacyChannel(CineItem *item, const char *name, int *component, int *kind);

/* Matrix reads at the evaluator's action and time. Each returns 1, or 0 with the outputs left
 * alone (no action, an item of another scene or not placed). */
VX_API int XfrmLocalTransform4(CineEval *eval, CineItem *item, double out[16]);
VX_API int XfrmWorldTransform4(CineEval *eval, CineItem *item, double out[16]);
/* The upper 3x3 of "worldMatrix", and with an offset its translation. */
VX_API int XfrmWorldTransform3(CineEval *eval, CineItem *item, double out[9]);
VX_API int XfrmWorldTransform3Off(CineEval *eval, CineItem *item, double out[9], double offset[3]);
/* The translation of "wposMatrix", or the whole matrix. */
VX_API int XfrmWorldPosition(CineEval *eval, CineItem *item, double out[3]);
VX_API int XfrmWorldPosition4(CineEval *eval, CineItem *item, double out[16]);
/* The upper 3x3 of "wrotMatrix", or the whole matrix. */
VX_API int XfrmWorldRotation(CineEval *eval, CineItem *item, double out[9]);
VX_API int XfrmWorldRotation4(CineEval *eval, CineItem *item, double out[16]);
/* The upper 3x3 of "wsclMatrix". */
VX_API int XfrmWorldScale(CineEval *eval, CineItem *item, double out[9]);

/* The product of the chain with `transform`'s matrix replaced by `matrix`, and its partner's
 * (if it has one) by the inverse of `matrix`; the other members as evaluated. */
VX_API int XfrmBuildTransform(CineEval *eval, CineItem *item, CineItem *transform,
                              const double matrix[16], double out[16]);
/* The matrix the standard member of the kind (made when missing, undoably) would need for the
 * chain to compose to `matrix`: the inverses of the members before it, nearest first, then
 * `matrix`, then the inverses of the members after it, last first. 0 when a member's matrix
 * cannot be inverted. */
VX_API int XfrmExtractTransform(CineEval *eval, CineItem *item, int kind, const double matrix[16],
                                double out[16]);

/* The rotation order new rotations take (0 to 5, see vexor/matrix4.h; initially 4); a value
 * outside 0 to 5 stores 4. Process-wide; any thread. */
VX_API void XfrmSetDefaultRotationOrder(int order);
VX_API int XfrmDefaultRotationOrder(void);
/* The auto-transforms flag (initially 0), stored for the host. Process-wide; any thread. */
VX_API void XfrmSetAutoTransforms(int flag);
VX_API int XfrmAutoTransforms(void);

VX_EXTERN_C_END

#endif
