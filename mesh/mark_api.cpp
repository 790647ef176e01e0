// The C interface of marks and enumeration.
#include <vexor/mark.h>

#include "mesh/enum.h"
#include "mesh/mark.h"

using namespace vx::mesh;

extern "C" {

VX_API uint32_t MeshVertexMarks(const MeshVertex *vertex) {
    return vertex != nullptr ? vertex->marks : 0;
}

VX_API uint32_t MeshPolygonMarks(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->marks : 0;
}

VX_API uint32_t MeshMarkVertex(MeshVertex *vertex, uint32_t mode) {
    if (vertex == nullptr) return ~(mode >> 16);
    return mark(vertex, mode);
}

VX_API void MeshMarkPolygon(MeshPolygon *polygon, uint32_t mode) {
    if (polygon != nullptr) mark(polygon, mode);
}

VX_API unsigned int MeshMarkVrts(Mesh *mesh, uint32_t filter, uint32_t mode) {
    return mesh != nullptr ? mark_vertices(mesh, filter, mode) : 0;
}

VX_API unsigned int MeshMarkPols(Mesh *mesh, uint32_t filter, uint32_t mode) {
    return mesh != nullptr ? mark_polygons(mesh, filter, mode) : 0;
}

VX_API unsigned int MeshMarkVrtsOfPols(Mesh *mesh, uint32_t filter, uint32_t mode) {
    return mesh != nullptr ? mark_vertices_of_polygons(mesh, filter, mode) : 0;
}

VX_API unsigned int MeshEnumerateVrts(Mesh *mesh, uint32_t mode, MeshVertexVisitFunc visit,
                                      void *data, void *argument, void *monitor) {
    return enumerate(mesh, mode, visit, data, argument, monitor);
}

VX_API unsigned int MeshEnumeratePols(Mesh *mesh, uint32_t mode, MeshPolygonVisitFunc visit,
                                      void *data, void *argument, void *monitor) {
    return enumerate(mesh, mode, visit, data, argument, monitor);
}

VX_API unsigned int MeshEnumDeadVrts(Mesh *mesh, MeshVertexVisitFunc visit, void *data,
                                     void *argument) {
    return enumerate_dead(mesh, visit, data, argument);
}

VX_API unsigned int MeshEnumDeadPols(Mesh *mesh, MeshPolygonVisitFunc visit, void *data,
                                     void *argument) {
    return enumerate_dead(mesh, visit, data, argument);
}

VX_API unsigned int MeshEnumVrtsThreaded(Mesh *mesh, uint32_t mode, MeshVertexVisitFunc visit,
                                         void *data, void *argument) {
    return enumerate_threaded(mesh, mode, visit, data, argument);
}

VX_API unsigned int MeshEnumPolsThreaded(Mesh *mesh, uint32_t mode, MeshPolygonVisitFunc visit,
                                         void *data, void *argument) {
    return enumerate_threaded(mesh, mode, visit, data, argument);
}

}  // extern "C"
