// The C interface of polygon tags: argument checks and the guard around the C++ operations.
#include <vexor/ptag.h>

#include "foundation/guard.h"
#include "mesh/mesh.h"
#include "mesh/ptag.h"

using namespace vx::mesh;

extern "C" {

VX_API int PTagSet(MeshPolygon *polygon, uint32_t type, const char *text) {
    return vx::guard(0, [&] { return tag_set(polygon, type, text) ? 1 : 0; });
}

VX_API const char *PTagGet(const MeshPolygon *polygon, uint32_t type) {
    return polygon != nullptr ? tag_get(polygon, type) : nullptr;
}

VX_API const char *PTagGetByIndex(const MeshPolygon *polygon, int index, uint32_t *type) {
    return polygon != nullptr ? tag_by_index(polygon, index, type) : nullptr;
}

VX_API unsigned int PTagCount(const MeshPolygon *polygon) {
    return polygon != nullptr ? polygon->tag_count : 0;
}

VX_API void PTagDelete(MeshPolygon *polygon) {
    if (polygon != nullptr) tag_delete(polygon);
}

VX_API int PTagDuplicate(MeshPolygon *target, const MeshPolygon *source) {
    return vx::guard(0, [&] { return tag_duplicate(target, source) ? 1 : 0; });
}

VX_API int SMGPTagsAreDifferent(const MeshPolygon *polygon, const char *text) {
    return smoothing_different(polygon, text) ? 1 : 0;
}

VX_API const char *MeshDefaultTag(const Mesh *mesh, uint32_t type) {
    return mesh != nullptr ? mesh->tags.get(type) : nullptr;
}

VX_API int MeshSetDefaultTag(Mesh *mesh, uint32_t type, const char *text) {
    if (mesh == nullptr) return 0;
    return vx::guard(0, [&] {
        mesh->tags.set(type, text);
        return 1;
    });
}

VX_API const char *MeshDefaultMaterialName(void) {
    return "Default";
}

VX_API const char *MeshDefaultPartName(void) {
    return "Default";
}

VX_API unsigned int PTagRecordCount(void) {
    return static_cast<unsigned>(record_count());
}

VX_API int32_t PTagRecordUses(uint32_t type, const char *text) {
    return text != nullptr ? record_uses(type, text) : 0;
}

}  // extern "C"
