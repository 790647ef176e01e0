/* Polygon tags: short texts attached to polygons under a tag type, such as the material a
 * polygon is shaded with ("MATR"), the part it belongs to ("PART") or its smoothing groups
 * ("SMGP"). A polygon has at most one tag of each type; PTagGetByIndex walks them in ascending
 * order of type.
 *
 * Each distinct (type, text) pair is stored once, process-wide, and shared by every polygon
 * that carries it; the texts these functions return stay valid while some polygon holds the
 * tag. A shared record is freed as soon as the last polygon lets go of it (PTagSet to another
 * text, PTagDelete, or the destruction of the polygon's mesh). A polygon deleted with
 * MeshFreePolygon keeps its tags until its mesh is destroyed.
 *
 * Smoothing-group texts are normalised when set: their distinct characters in ascending byte
 * order, at most 127 of them ("ba" and "aab" both become "ab"). A polygon's smoothing groups
 * are the characters of its text.
 *
 * Every new polygon made with MeshNewPolygon gets its mesh's default tags; a new mesh has
 * "MATR" = MeshDefaultMaterialName() and "PART" = MeshDefaultPartName(), an instance its
 * source's defaults at the time it is made.
 *
 * Changes to a polygon's tags are announced on its mesh as MESH_CHANGE_TAGS (not for the
 * default tags of a new polygon, which are part of its creation). None of these functions is
 * recorded for undo; a failure leaves the polygon and the shared records as they were.
 *
 * Threads: the shared records have their own lock, so polygons of meshes used on different
 * threads may carry the same tags. A polygon's tags follow its mesh's one-thread rule. */
#ifndef VEXOR_PTAG_H
#define VEXOR_PTAG_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"

VX_EXTERN_C_BEGIN

#define PTAG_MATERIAL VX_CODE4('M', 'A', 'T', 'R')
#define PTAG_PART VX_CODE4('P', 'A', 'R', 'T')
#define PTAG_SMOOTHING VX_CODE4('S', 'M', 'G', 'P')

/* Sets the polygon's tag of `type` to `text` (copied into the shared record), replacing its
 * tag of that type or adding one. A null text removes the polygon's tag of that type. Returns
 * 1, or 0 for a null or dead polygon or when memory runs out. */
VX_API int PTagSet(MeshPolygon *polygon, uint32_t type, const char *text);
/* The polygon's text of `type`, or null when it has none. */
VX_API const char *PTagGet(const MeshPolygon *polygon, uint32_t type);
/* The polygon's tag at `index` in ascending order of type, its type written to `type` (which
 * may be null); null for a negative index or one not below PTagCount. */
VX_API const char *PTagGetByIndex(const MeshPolygon *polygon, int index, uint32_t *type);
VX_API unsigned int PTagCount(const MeshPolygon *polygon);
/* Removes every tag of the polygon. */
VX_API void PTagDelete(MeshPolygon *polygon);
/* Gives `target` the same tags as `source`, replacing its own; nothing when the source has no
 * tags. Returns 1, or 0 for a null argument, a dead target or when memory runs out. */
VX_API int PTagDuplicate(MeshPolygon *target, const MeshPolygon *source);

/* Whether the polygon's smoothing groups and the groups of `text` differ: 0 when they share a
 * group; 1 when they share none or `text` is empty. When the polygon has no "SMGP" tag or text
 * is null, 1 unless both are missing. */
VX_API int SMGPTagsAreDifferent(const MeshPolygon *polygon, const char *text);

/* The mesh's default tag of `type`, or null. */
VX_API const char *MeshDefaultTag(const Mesh *mesh, uint32_t type);
/* Sets the default of `type` for polygons made from now on (a null text removes it). Returns
 * 1, or 0 for a null mesh or when memory runs out (the defaults then unchanged). */
VX_API int MeshSetDefaultTag(Mesh *mesh, uint32_t type, const char *text);
/* The texts a new mesh's default material and part tags start with: "Default". */
VX_API const char *MeshDefaultMaterialName(void);
VX_API const char *MeshDefaultPartName(void);

/* The shared records alive in the process, and the number of polygons that hold the record of
 * (type, text) (a smoothing-group text normalised first), 0 when there is none. For
 * diagnostics and tests. */
VX_API unsigned int PTagRecordCount(void);
VX_API int32_t PTagRecordUses(uint32_t type, const char *text);

VX_EXTERN_C_END

#endif
