/* Meshes: vertices, polygons, polygon types, change events and per-mesh meta data.
 *
 * A mesh holds a list of vertices and a list of polygons. Deleting an element marks it dead
 * and leaves it in its list, so element handles stay valid until the mesh is destroyed while
 * the indices of the live elements close up. Vertex positions are stored as three 32-bit
 * floats; the functions take and give 64-bit floats except the F forms.
 *
 * Every change is announced on the mesh's event port and then on the process-wide mesh port,
 * as a mask of MESH_CHANGE_ bits with the mesh as the event data (the port is the sender).
 * Changes made between MeshBatchBegin and MeshBatchEnd reach listeners as one event with the
 * union of their bits. Nothing is announced while a mesh is being built, nor while the library
 * is recovering from a failure.
 *
 * An instance shares its source's vertex and polygon lists until it changes one of them; it
 * then takes its own copy of that list (copy on write), still pointing at the source's
 * elements. An instance hears its source's changes unless made with takeEvents 0.
 *
 * Failures: a constructor that fails returns null and leaves the mesh as it was, without an
 * event. None of these functions is recorded for undo.
 *
 * Threads: MeshStartup, MeshShutdown, MeshCreate and MeshDestroy may be called from any
 * thread (the process-wide list of meshes has its own lock). A mesh, its instances and its
 * elements are used by one thread at a time; events are delivered on that thread. */
#ifndef VEXOR_MESH_H
#define VEXOR_MESH_H

#include <stddef.h>
#include <stdint.h>

#include "vexor/export.h"
#include "vexor/port.h"

VX_EXTERN_C_BEGIN

typedef struct Mesh Mesh;
typedef struct MeshVertex MeshVertex;
typedef struct MeshPolygon MeshPolygon;
typedef struct PolyType PolyType;
typedef struct MeshMetaClass MeshMetaClass;

/* A four-character code packed big-endian: VX_CODE4('F','A','C','E') is 0x46414345. */
#ifdef __cplusplus
#define VX_CODE4_BYTE(x, shift) (static_cast<uint32_t>(static_cast<unsigned char>(x)) << (shift))
#else
#define VX_CODE4_BYTE(x, shift) ((uint32_t)(unsigned char)(x) << (shift))
#endif
#define VX_CODE4(a, b, c, d) \
    (VX_CODE4_BYTE(a, 24) | VX_CODE4_BYTE(b, 16) | VX_CODE4_BYTE(c, 8) | VX_CODE4_BYTE(d, 0))

/* ---- Start and stop -------------------------------------------------------------------- */

/* The name of the process-wide mesh port (PortLookup finds it while the module runs). */
#define MESH_GLOBAL_PORT_NAME "mesh-db"

/* Starts the mesh module: the undo system (UndoSysStartup), the process-wide mesh port, the
 * built-in polygon types and meta data classes. Counted: only the first call does the work.
 * Returns 1, or 0 when out of memory (nothing counted). */
VX_API int MeshStartup(void);
/* Balances one MeshStartup. The last call destroys every mesh still alive (instances first)
 * and the process-wide mesh port, and balances its UndoSysStartup. Extra calls are ignored. */
VX_API void MeshShutdown(void);
/* The process-wide mesh port (null when the module is not started). It hears every mesh's
 * events after the mesh's own port. */
VX_API Port *MeshGlobalPort(void);
/* The number of meshes alive in the process. */
VX_API unsigned int MeshGlobalCount(void);

/* ---- Meshes ---------------------------------------------------------------------------- */

/* Mesh flags (MeshFlags). */
#define MESH_OWNS_VERTICES 0x1u
#define MESH_OWNS_POLYGONS 0x2u
#define MESH_OWNS_THIRD 0x4u         /* reserved for a third element list; set on new meshes */
#define MESH_NO_SOURCE_EVENTS 0x400u /* an instance that does not hear its source's changes */
#define MESH_HOLD_EVENTS 0x4000u     /* events held back until one carries vertices and polygons */

/* A new empty mesh, owned by the caller (MeshDestroy). Announces nothing. Null when the module
 * is not started or memory ran out. */
VX_API Mesh *MeshCreate(void);
/* An instance of `source` (an instance of an instance is made of the first source). It starts
 * sharing the source's lists and is destroyed with MeshDestroy, before its source. Null for a
 * null source, when out of memory, or while the source is being built. */
VX_API Mesh *MeshCreateInstance(Mesh *source, int takeEvents);
/* Destroys a mesh with its elements, port and meta data. Returns 1; 0 (nothing done) for null
 * or a mesh that still has instances. */
VX_API int MeshDestroy(Mesh *mesh);

/* The source of an instance; null for a mesh that is not an instance. */
VX_API Mesh *MeshSource(const Mesh *mesh);
/* A mesh's instances, in the order they were made. */
VX_API unsigned int MeshInstanceCount(const Mesh *mesh);
VX_API Mesh *MeshInstanceByIndex(const Mesh *mesh, unsigned int index);

/* The mesh's flag word (MESH_HOLD_EVENTS and the others of this header). */
VX_API uint32_t MeshFlags(const Mesh *mesh);
/* Sets MESH_HOLD_EVENTS: events are dropped until one carries both MESH_CHANGE_VERTICES and
 * MESH_CHANGE_POLYGONS, which clears the flag and is delivered. Used while a mesh is filled in
 * two passes whose intermediate states nobody should see. */
VX_API void MeshHoldEvents(Mesh *mesh);

/* The show-dead word: when non-zero, counting aside, indexing sees dead elements too. */
VX_API uint32_t MeshShowDead(const Mesh *mesh);
VX_API void MeshSetShowDead(Mesh *mesh, uint32_t showDead);

/* ---- Elements -------------------------------------------------------------------------- */

/* Element flags: new vertices have 0x1100, new polygons 0x1200; MESH_ELEMENT_DEAD marks a
 * deleted element (the flag word is then negative as a signed 16-bit number);
 * MESH_ELEMENT_CHANGED marks an element changed in the open batch. */
#define MESH_ELEMENT_DEAD 0x8000u
#define MESH_ELEMENT_CHANGED 0x4000u

/* A new vertex at `position` (narrowed to 32-bit floats). Announces MESH_CHANGE_VERTICES. */
VX_API MeshVertex *MeshNewVertex(Mesh *mesh, const double position[3]);
/* Moves a vertex; returns the stored position (three floats, valid until the next vertex is
 * made), or null for a null or dead vertex. Announces MESH_CHANGE_VERTICES and
 * MESH_CHANGE_POSITIONS. */
VX_API const float *MeshVertexSet(Mesh *mesh, MeshVertex *vertex, const double position[3]);
/* Read a position as `mesh` sees it: through the mesh's position map (VMapFindForMesh), so an
 * instance with a position map of its own laid over its source's reads its own values. A null
 * mesh, or a vertex that map has no value for, reads the position stored by the vertex's own
 * mesh. Return 1, or 0 (out untouched) for a null vertex. */
VX_API int MeshVertexPos(const Mesh *mesh, const MeshVertex *vertex, double position[3]);
VX_API int MeshVertexPosF(const Mesh *mesh, const MeshVertex *vertex, float position[3]);
/* The position itself (three floats, read as by MeshVertexPos), or null. */
VX_API const float *MeshVertexPosV(const Mesh *mesh, const MeshVertex *vertex);

/* A polygon of the type with that code ('FACE', 'CURV', ...) with `count` vertex slots, all
 * null. Null for an unknown type or a count above 65535. Announces MESH_CHANGE_POLYGONS. */
VX_API MeshPolygon *MeshNewEmptyPolygon(Mesh *mesh, uint32_t type, unsigned int count);
/* A polygon of those vertices (count may be 0 when vertices is null). With flip and at least
 * three vertices the order is reversed: a type with POLYTYPE_FLIP_KEEPS_FIRST keeps its first
 * vertex first (a, d, c, b), others reverse wholly (d, c, b, a). */
VX_API MeshPolygon *MeshNewPolygon(Mesh *mesh, uint32_t type, unsigned int count,
                                   MeshVertex *const *vertices, int flip);

/* Delete by marking dead. Return 1; 0 for an element already dead or not in the mesh. An
 * instance that shares the list first takes its own copy; an element of its source is then
 * only dropped from the instance's list, the source keeps it. Announce the change. */
VX_API int MeshFreeVertex(Mesh *mesh, MeshVertex *vertex);
VX_API int MeshFreePolygon(Mesh *mesh, MeshPolygon *polygon);

/* Live elements (entries minus dead entries). */
VX_API unsigned int MeshNumVrts(const Mesh *mesh);
VX_API unsigned int MeshNumPols(const Mesh *mesh);
/* The element at an index that counts live elements only (all, when show-dead is set); null
 * past the end. */
VX_API MeshVertex *MeshVrtByIndex(const Mesh *mesh, unsigned int index);
VX_API MeshPolygon *MeshPolByIndex(const Mesh *mesh, unsigned int index);
/* 1 when the mesh has no live vertex and no live polygon. */
VX_API int MeshIsEmpty(const Mesh *mesh);

/* The mesh a vertex belongs to. */
VX_API Mesh *MeshVertexMesh(const MeshVertex *vertex);
/* A vertex's flag word (its dead bit and marks). */
VX_API uint32_t MeshVertexFlags(const MeshVertex *vertex);
/* The mesh a polygon belongs to. */
VX_API Mesh *MeshPolygonMesh(const MeshPolygon *polygon);
/* A polygon's flag word (its dead bit and marks). */
VX_API uint32_t MeshPolygonFlags(const MeshPolygon *polygon);
/* A polygon's type record (see MeshPolyTypeCode for its four-character code). */
VX_API const PolyType *MeshPolygonType(const MeshPolygon *polygon);
/* The number of vertices of a polygon. */
VX_API unsigned int MeshNumVrtInPol(const MeshPolygon *polygon);
/* The polygon's vertex at `index`. An index equal to the count reads the slot after the last
 * vertex, which is always null; a negative index or one past that gives null. */
VX_API MeshVertex *MeshPolVrtByIndex(const MeshPolygon *polygon, int index);
/* Fills a vertex slot of a polygon made empty. Returns 1, or 0 for an index out of range or a
 * vertex of another mesh family. Announces MESH_CHANGE_POLYGONS. */
VX_API int MeshPolSetVrt(Mesh *mesh, MeshPolygon *polygon, unsigned int index, MeshVertex *vertex);

/* ---- Change events --------------------------------------------------------------------- */

#define MESH_CHANGE_VERTICES 0x1u
#define MESH_CHANGE_POLYGONS 0x2u
#define MESH_CHANGE_POSITIONS 0x4u
#define MESH_CHANGE_TAGS 0x20u
#define MESH_CHANGE_MAPS 0x200u
#define MESH_CHANGE_LEVELS 0x400u
#define MESH_CHANGE_SELECTION 0x800u
/* The bits an instance that owns none of its lists keeps in its accumulated mask. */
#define MESH_CHANGE_INSTANCE_BITS 0xE20u
/* An event that is delivered at once: it is neither batched nor accumulated, and neither
 * instances nor meta data hear of it. */
#define MESH_CHANGE_IMMEDIATE 0x100000u

/* The mesh's own port (listeners may also use MeshAttachListener). */
VX_API Port *MeshEventPort(const Mesh *mesh);
/* Announces a change. */
VX_API void MeshChangeEvent(Mesh *mesh, uint32_t mask);
/* Opens a batch (nests); returns the new depth. */
VX_API uint32_t MeshBatchBegin(Mesh *mesh);
/* Closes a batch; the outermost close announces the batch's changes as one event. */
VX_API void MeshBatchEnd(Mesh *mesh);
/* The changes of the open batch so far, or 0xFFFFFFFF when no batch is open. */
VX_API uint32_t MeshBatchMask(const Mesh *mesh);
/* The change bits accumulated since the last call, which clears them. */
VX_API uint32_t MeshReadChanges(Mesh *mesh);

/* Listeners as component objects: an object with the interface MESH_LISTENER_GUID (table in
 * vexor/sys/mesh_listener.h) hears the port's events through its Changed method.
 * MeshAttachListener with a null mesh listens on
 * the process-wide port. The port holds no reference: detach before releasing the object.
 * Attach returns the attachment (0 when the object lacks the interface or memory ran out);
 * detach returns how many attachments of the object were removed. */
#define MESH_LISTENER_GUID "{957900AC-BC06-45D9-B1B1-9CC5A2AEC026}"
/* Attaches the listener object to the mesh's port (null mesh: the process-wide port); returns
 * the attachment, or 0. */
VX_API uint64_t MeshAttachListener(Mesh *mesh, void *listener);
/* Detaches every attachment of the listener object; returns how many there were. */
VX_API unsigned int MeshDetachListener(Mesh *mesh, void *listener);

/* ---- Polygon types --------------------------------------------------------------------- */

/* Type flags (PolyTypeFlags). */
#define POLYTYPE_AREA 0x1u   /* a surface enclosing an area (clear for curve-like types) */
#define POLYTYPE_LINEAR 0x2u /* the surface follows its cage linearly, never smoothed */
/* Flip flags (PolyTypeFlipFlags). */
#define POLYTYPE_FLIP_KEEPS_FIRST 0x1u

/* Bounding box of one polygon as min x, y, z then max x, y, z; 0 when it has none. */
typedef int (*PolyTypeBoundsFunc)(const Mesh *mesh, const MeshPolygon *polygon, float box[6]);

/* The built-in polygon types' codes. */
#define POLYTYPE_FACE VX_CODE4('F', 'A', 'C', 'E') /* a plain face */
#define POLYTYPE_CURV VX_CODE4('C', 'U', 'R', 'V') /* a curve */
#define POLYTYPE_BEZR VX_CODE4('B', 'E', 'Z', 'R') /* a Bezier curve */
#define POLYTYPE_SUBD VX_CODE4('S', 'U', 'B', 'D') /* a subdivision surface face */
#define POLYTYPE_PSUB VX_CODE4('P', 'S', 'U', 'B') /* a subdivision face with per-level detail */
#define POLYTYPE_SPCH VX_CODE4('S', 'P', 'C', 'H') /* a spline patch */
#define POLYTYPE_PTCH VX_CODE4('P', 'T', 'C', 'H') /* a patch */
#define POLYTYPE_TEXT VX_CODE4('T', 'E', 'X', 'T') /* a text polygon */
#define POLYTYPE_LINE VX_CODE4('L', 'I', 'N', 'E') /* a line */
#define POLYTYPE_BONE VX_CODE4('B', 'O', 'N', 'E') /* a bone */

/* Defines a polygon type. Returns it, or the existing type when the code is taken with the
 * same flags; null when the code is taken otherwise, the name is null, or the table is full.
 * Built in: FACE, CURV, BEZR, SUBD, PSUB, SPCH, PTCH, TEXT, LINE, BONE. */
VX_API const PolyType *PolyTypeDefine(uint32_t code, const char *name, uint32_t flags,
                                      uint32_t flipFlags);
VX_API const PolyType *PolyTypeCodeLookup(uint32_t code);
/* The number of types and a type by index, in the order they were defined. */
VX_API unsigned int PolyTypeCount(void);
VX_API const PolyType *PolyTypeByIndex(unsigned int index);
VX_API uint32_t PolyTypeCode(const PolyType *type);
VX_API const char *PolyTypeName(const PolyType *type);
VX_API uint32_t PolyTypeFlags(const PolyType *type);
VX_API uint32_t PolyTypeFlipFlags(const PolyType *type);
/* The type's per-mesh meta data class, or null. Set once by the module that keeps data for the
 * type (subdivision levels and caches); every mesh gets its record at MeshCreate, and meshes
 * made before on first use. Returns 1, or 0 when the type already has another class. */
VX_API int PolyTypeSetMetaClass(const PolyType *type, MeshMetaClass *metaClass);
VX_API MeshMetaClass *PolyTypeMetaClass(const PolyType *type);
/* The type's bounding-box operation: by default the box of the polygon's vertex positions as
 * the mesh sees them (MeshVertexPos). */
VX_API void PolyTypeSetBounds(const PolyType *type, PolyTypeBoundsFunc bounds);
VX_API int PolyTypeBounds(const Mesh *mesh, const MeshPolygon *polygon, float box[6]);

/* ---- Meta data ------------------------------------------------------------------------- */

/* A meta data class: one record per mesh, made on first use and freed with the mesh. The
 * record's derived part is built on demand by MeshMetaValidate and dropped when the mesh
 * announces a change among `depends` (or by MeshMetaInvalidate); persistent fields set by
 * `init` survive a drop. */
typedef struct MeshMetaOps {
    size_t size;      /* bytes of the record, zero-filled when made */
    uint32_t depends; /* change bits that make the derived part stale */
    /* Optional: sets the persistent fields of a new record. Must not fail. */
    void (*init)(void *record, Mesh *mesh);
    /* Builds the derived part; returns 1, or 0 on failure (leaving nothing half built). */
    int (*build)(void *record, Mesh *mesh);
    /* Optional: frees what build made. */
    void (*drop)(void *record, Mesh *mesh);
} MeshMetaOps;

/* Defines a class by name (the table is copied). Defining a name again with the same table
 * returns the same class; another table gives null, as does a full registry. */
VX_API MeshMetaClass *MeshMetaDefine(const char *name, const MeshMetaOps *ops);
VX_API MeshMetaClass *MeshMetaLookup(const char *name);
/* The mesh's record of the class, built first when stale; null when building fails. */
VX_API void *MeshMetaValidate(MeshMetaClass *metaClass, Mesh *mesh);
/* The record without building (its persistent fields), made if needed; null when out of
 * memory. */
VX_API void *MeshMetaRecord(MeshMetaClass *metaClass, Mesh *mesh);
/* Whether the record's derived part is current. */
VX_API int MeshMetaIsValid(MeshMetaClass *metaClass, const Mesh *mesh);
/* Drops the derived part of the class's record (every class's, for a null class). With
 * MESH_META_FREE the records are freed too and made afresh on next use. */
#define MESH_META_FREE 0x1u
/* Drops the derived part (see above); flags 0 or MESH_META_FREE. A null mesh is ignored. */
VX_API void MeshMetaInvalidate(MeshMetaClass *metaClass, Mesh *mesh, uint32_t flags);

/* Built-in classes: "polygonNormals" (one unit normal, three floats, per polygon, read with
 * MeshPolygonNormal) and "meshBounds" (the box of the live vertices: min x, y, z, max x, y,
 * z as floats, then a 32-bit flag that is 1 when the mesh has a live vertex). */
#define MESH_META_NORMALS "polygonNormals"
#define MESH_META_BOUNDS "meshBounds"
/* The cached normal of a polygon (validating the normals first). Returns 1, or 0 for a
 * polygon with fewer than 3 vertices or no area (normal written as zero) or on failure. */
VX_API int MeshPolygonNormal(Mesh *mesh, const MeshPolygon *polygon, float normal[3]);

VX_EXTERN_C_END

#endif
