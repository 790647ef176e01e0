/* Texture layers: the shader tree of a scene, its layer types, material look-up by polygon tag
 * and the evaluation of a layer stack.
 *
 * A texture layer is a scene item of the type "textureLayer" (fixed code 12) or of a type
 * derived from it. Its group is its parent item and its place in the stack its index among the
 * parent's children: index 0 is the bottom of the stack, evaluated first. Every layer has the
 * channels "enable" (integer, 1), "opacity" (1), "blend" (the blend mode, integer, 0) and
 * "effect" (text; empty means "(all)").
 *
 * Built-in layer types (all derived from "textureLayer"):
 *   "mask"              a group; "ptag" (text: the polygon tag it serves) and "ptyp" (text: the
 *                       tag type's name, "Material", "Part" or "Selection Set")
 *   "advancedMaterial"  the material of a group: "diffCol" (RGB, 0.8), "diffAmt" (0.8),
 *                       "specAmt" (0), "rough" (0.4)
 *   "renderOutput"      a render output: "filename" (text), "watermark" (integer, 0),
 *                       "levelLow" (0) and "levelHigh" (1), the output levels
 *   "constant"          a constant value: "color" (RGB, 1), "value" (1)
 *   "checker"           a procedural checkerboard in texture space: "color" (RGB, 1),
 *                       "color2" (RGB, 0), "size" (1)
 *
 * Layers are tied to what they shade by the scene graph "shadeLoc": an item that links
 * forward to a layer is the layer's base layer. Types declare the kind of thing their items
 * are for shading with the type tag "shade.context" ("surface", "light", "environment",
 * "camera" or "scene"), inherited by derived types; the library's own "light" and "camera"
 * types (vexor/xfrm.h) carry "light" and "camera".
 *
 * Channel values are read through the scene's "setup" action unless an evaluator is given.
 * Calls are made on the thread that edits the scene. */
#ifndef VEXOR_TLAYER_H
#define VEXOR_TLAYER_H

#include <stdint.h>

#include "vexor/blend.h"
#include "vexor/eval.h"
#include "vexor/export.h"
#include "vexor/scene.h"
#include "vexor/svec.h"
#include "vexor/sys/tlayer.h"

VX_EXTERN_C_BEGIN

/* The type code of "textureLayer". */
#define TLAYER_TYPE_CODE 12u
/* TLayerFlags of a render output. */
#define TLAYER_FLAG_OUTPUT 0x10000u

/* Reference-counted start and stop of the shading module: starts the shading vectors and the
 * scene module, registers the graph "shadeLoc" and the built-in layer types. Returns 1, or 0
 * when it could not start. Scenes made before the first start have no "shadeLoc" graph. */
VX_API int ShadeStartup(void);
VX_API void ShadeShutdown(void);

/* Registers a layer type: the package `name` (defined here when it does not exist yet, else
 * with the channels its definer gave it) becomes a type derived from "textureLayer" with the
 * operations `ops` (may be null; must outlive the module). TextureLayerDefine2's last argument
 * is the type to derive from (0: "textureLayer"; it must be a texture layer type). Defining a
 * registered name again replaces its operations. Returns the type code, or 0xFFFFFFFF. */
VX_API uint32_t TextureLayerDefine(const char *name, const TextureLayerOps *ops, void *client);
VX_API uint32_t TextureLayerDefine2(const char *name, const TextureLayerOps *ops, void *client,
                                    uint32_t superType);
/* The number of registered layer types (the built-in ones included). */
VX_API unsigned int TextureLayerDefCount(void);
/* The type code of the index-th registered layer type, or 0xFFFFFFFF. */
VX_API uint32_t TextureLayerDefByIndex(unsigned int index);

/* 1 when the item is a texture layer. */
VX_API int TLayerIsLayer(const CineItem *item);
/* The layer's base layer: the first item linked to it in "shadeLoc", or null. */
VX_API CineItem *TLayerBaseLayer(const CineItem *layer);
/* The number of items linked to the layer in "shadeLoc" (non-zero: it is a mask layer). */
VX_API int TLayerIsMaskLayer(const CineItem *layer);
/* The next layer up: the parent's child after this one, or null when it is the last or has no
 * parent. */
VX_API CineItem *TLayerNextLayer(const CineItem *layer);
/* The next layer down, or null. */
VX_API CineItem *TLayerPrevLayer(const CineItem *layer);
/* What the layer shades: "surface", "light", "environment", "camera" or "scene". */
VX_API const char *TLayerShadeContext(const CineItem *layer);
/* TLAYER_FLAG_OUTPUT for render outputs, else the flags of the layer type's operations, or 0. */
VX_API unsigned int TLayerFlags(CineItem *layer);
/* The layer's effect: its "effect" channel, "(all)" when that is empty; null for an item that
 * is not a layer. The text stays valid until the channel changes. */
VX_API const char *TLayerEffect(CineItem *layer);
/* The number of enabled layers directly under `group` whose effect is `effect` (layers of
 * "(all)" count for every effect). */
VX_API unsigned int TLayerEffectCount(CineItem *group, const char *effect);
/* 1 when some group above the layer is a "mask" serving a polygon tag (the layer applies only
 * to polygons with that tag). */
VX_API int TLayerIsMasked(CineItem *layer);
/* The first layer of the group whose effect is "groupMask", or null. */
VX_API CineItem *TLayerGroupMaskLayer(CineItem *group);
/* The top of the layer's shader tree: the highest texture layer among its ancestors, or the
 * layer itself. */
VX_API CineItem *TLayerRootItem(CineItem *layer);
/* Links `from` forward to `layer` in "shadeLoc" (undoable): `from` becomes a base of the
 * layer. Returns 1, or 0 (no graph, items of two scenes, or a failure). */
VX_API int TLayerLinkShade(CineItem *from, CineItem *layer);

/* Gives `copy` every "shadeLoc" link of `original` (forward and backward) that it lacks, as
 * one undoable edit. Returns the number of links made, or -1 (no graph, items of two scenes,
 * or a failure, which leaves no link made). */
VX_API int TLayerRestoreLinks(CineItem *copy, const CineItem *original);
/* Duplicates a layer just above it in its group: an item of the same type with the layer's
 * channel entries of the "setup" action, its children duplicated alike, and its "shadeLoc"
 * links restored. One undoable edit; null on failure, which leaves nothing made. */
VX_API CineItem *TLayerDuplicateItem(CineItem *layer);

/* The name of a polygon-tag type for a "mask" group's "ptyp" channel: "Material" for MATR,
 * "Part" for PART, "Selection Set" for PICK; null for others. */
VX_API const char *TLayerTagTypeName(uint32_t tagType);

/* The nested "mask" group under `group` (depth first, not `group` itself) whose "ptag" equals
 * `tag` as read through `action` (null: the default), or null. */
VX_API CineItem *PTagGroupLookup(CineAction *action, CineItem *group, const char *tag);
/* The "advancedMaterial" serving polygon tag `tag` under `parent`: a "mask" child of parent
 * whose nested groups or own "ptag" match, else (when `item` is given) the first "mask" child
 * linked forward to `item` in "shadeLoc"; its first material child, or parent's when no group
 * matched. When there is none and `create` is non-zero, makes a "mask" group with "ptag" =
 * tag and "ptyp" = "Material" at the end of parent, a material in it, and moves the group to
 * TLayerInitPosition, all as one undoable edit that fails as a whole. Null when there is no
 * material and nothing was made. */
VX_API CineItem *MaterialLookup(CineItem *parent, CineItem *item, const char *tag, int create);
/* As MaterialLookup, returning the material's group (null when the material has none). */
VX_API CineItem *MaterialMaskLookup(CineItem *parent, CineItem *item, const char *tag, int create);
/* Where the group of a new layer belongs among its parent's children: just above the last
 * "mask" group that comes before every other kind of layer there (the material groups stay
 * together at the bottom of the stack, in the order they were made). -1 when the layer has no
 * group or the group no parent. */
VX_API int TLayerInitPosition(CineItem *layer);

/* Evaluates the layers under `group` at a shading sample, bottom to top, into `dest` (RGB and
 * coverage, as TextureLayerBlendValue): each enabled layer whose effect is `effect` or "(all)"
 * (a null effect takes every layer) gives its value through its type's Evaluate operation and
 * is blended by its "blend" mode and "opacity"; a nested "mask" group is evaluated the same
 * way into a value of its own, which is then blended as one layer with its coverage as
 * opacity. When `sample` has a "texture.value" packet the result is written there too.
 * Returns the number of layers blended. */
VX_API int TLayerEvaluate(CineItem *group, CineEval *eval, GVector *sample, const char *effect,
                          double dest[4]);

VX_EXTERN_C_END

#endif
