/* Marks and enumeration of mesh elements.
 *
 * Every vertex and polygon carries a 16-bit mark word. Which bit means selected, hidden or
 * "seen by this operation" is for the callers to agree on; the library only sets, clears and
 * tests them.
 *
 * One 32-bit mark mode does both jobs. When marking, the low 16 bits are the marks to set and
 * the high 16 bits the marks to clear (a bit in both halves ends up set). When enumerating, the
 * mode is a filter: the low half lists marks that must all be set, the high half marks that
 * must all be clear; a mode of 0 passes every element. MESH_MARK_MODE(set, clear) builds one.
 *
 * Enumeration walks a mesh's vertex or polygon list in list order, skipping dead elements
 * unless the mesh's show-dead word is set (MeshSetShowDead), and calls the client's function
 * for each element that passes the filter. A non-zero result from the function stops the walk
 * and becomes the enumeration's result; a walk that reaches the end gives 0.
 *
 * A filter with MESH_MARK_SUBSET, on an instance whose source is a mesh of kind 2, walks the
 * source's subset of elements instead of the instance's list, and the bit itself is not
 * required of the elements. Meshes of kind 2 and their subsets are made by the instance and
 * delta machinery.
 *
 * Marking does not announce a change: a caller that changes what the user sees (a selection)
 * announces it with MeshChangeEvent.
 *
 * Threads: the plain functions run on the caller's thread, one thread per mesh as for every
 * mesh function. MeshEnumVrtsThreaded and MeshEnumPolsThreaded call the client's function from
 * several threads at once, each element once; the function may read the mesh and mark the
 * element it is given, but must not make or delete elements. */
#ifndef VEXOR_MARK_H
#define VEXOR_MARK_H

#include <stdint.h>

#include "vexor/export.h"
#include "vexor/mesh.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

/* ---- Modes ----------------------------------------------------------------------------- */

/* A mode that sets (or requires) the marks `set` and clears (or forbids) the marks `clear`. */
#define MESH_MARK_MODE(set, clear) ((((clear)&0xFFFFu) << 16) | ((set)&0xFFFFu))
#define MESH_MARK_SET_HALF(mode) ((mode)&0xFFFFu)
#define MESH_MARK_CLEAR_HALF(mode) (((mode) >> 16) & 0xFFFFu)

/* In a filter: enumerate the kind-2 source's subset instead (see above). */
#define MESH_MARK_SUBSET 0x4u

/* ---- Marking --------------------------------------------------------------------------- */

/* The element's mark word; 0 for null. */
VX_API uint32_t MeshVertexMarks(const MeshVertex *vertex);
VX_API uint32_t MeshPolygonMarks(const MeshPolygon *polygon);

/* Marks a vertex: its marks lose the high half of the mode, then gain the low half. Returns
 * the complement of the high half, ~(mode >> 16), whatever the vertex; a null vertex is left
 * alone. Dead vertices are marked like live ones. */
VX_API uint32_t MeshMarkVertex(MeshVertex *vertex, uint32_t mode);
/* The same for a polygon. */
VX_API void MeshMarkPolygon(MeshPolygon *polygon, uint32_t mode);

/* Marks with `mode` every vertex (polygon) that MeshEnumerateVrts (MeshEnumeratePols) would
 * visit with the filter `filter`. Returns how many were marked; 0 for a null mesh. */
VX_API unsigned int MeshMarkVrts(Mesh *mesh, uint32_t filter, uint32_t mode);
VX_API unsigned int MeshMarkPols(Mesh *mesh, uint32_t filter, uint32_t mode);
/* Marks with `mode` the vertices of every polygon that passes `filter` (as for
 * MeshEnumeratePols). Returns the number of those polygons. */
VX_API unsigned int MeshMarkVrtsOfPols(Mesh *mesh, uint32_t filter, uint32_t mode);

/* ---- Enumeration ----------------------------------------------------------------------- */

/* The client's function: gets the element and the client's two values; a non-zero result
 * stops the enumeration and is returned by it. */
typedef unsigned int (*MeshVertexVisitFunc)(MeshVertex *vertex, void *data, void *argument);
typedef unsigned int (*MeshPolygonVisitFunc)(MeshPolygon *polygon, void *data, void *argument);

/* A progress monitor: a component object with the interface MONITOR_GUID. Its Step method,
 * called with 1 after each visited element, reports one step of progress; a result with the
 * sign bit set (a failure code) asks the work to stop. Initialize announces the number of
 * steps to come where the caller knows it; enumeration does not call it. */
#define MONITOR_GUID "{EDDDE716-31BD-470C-84BF-87A8B2D24871}"
typedef struct MonitorMethods {
    XObjectMethods object;
    unsigned int (*Initialize)(void *obj, unsigned int total);
    unsigned int (*Step)(void *obj, unsigned int count);
} MonitorMethods;

/* Calls `visit` for each vertex (polygon) that passes the filter `mode`, in list order. With a
 * monitor (a component object with MONITOR_GUID, or null), its Step runs after each visit; when
 * it asks to stop, the enumeration returns 1. Returns the first non-zero result of `visit`, or
 * 0 at the end of the list or for a null mesh or function. */
VX_API unsigned int MeshEnumerateVrts(Mesh *mesh, uint32_t mode, MeshVertexVisitFunc visit,
                                      void *data, void *argument, void *monitor);
VX_API unsigned int MeshEnumeratePols(Mesh *mesh, uint32_t mode, MeshPolygonVisitFunc visit,
                                      void *data, void *argument, void *monitor);

/* Calls `visit` for each dead vertex (polygon) of the list, stopping at the first non-zero
 * result, which is returned; 0 when done. Only for a mesh that owns the list: an instance that
 * still shares its source's list gives 0 without a call. */
VX_API unsigned int MeshEnumDeadVrts(Mesh *mesh, MeshVertexVisitFunc visit, void *data,
                                     void *argument);
VX_API unsigned int MeshEnumDeadPols(Mesh *mesh, MeshPolygonVisitFunc visit, void *data,
                                     void *argument);

/* As MeshEnumerateVrts (MeshEnumeratePols) without a monitor, with the list cut into one
 * contiguous share per processor and the shares walked at once; the calling thread walks the
 * first. Small lists are walked on the calling thread alone. Each passing element is visited
 * exactly once. A non-zero result stops the walk of its own share only; the function returns
 * the non-zero result of the earliest share that had one, else 0. */
VX_API unsigned int MeshEnumVrtsThreaded(Mesh *mesh, uint32_t mode, MeshVertexVisitFunc visit,
                                         void *data, void *argument);
VX_API unsigned int MeshEnumPolsThreaded(Mesh *mesh, uint32_t mode, MeshPolygonVisitFunc visit,
                                         void *data, void *argument);

VX_EXTERN_C_END

#endif
