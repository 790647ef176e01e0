// The smoothed UV outline, through a polygon vertex buffer in outline mode.
#include "geometry/uv_outline.h"

#include <vexor/subd.h>
#include <vexor/vmap.h>

#include "mesh/poly_type.h"

namespace vx::geometry {

bool SmoothedOutline::applies(const VMap *vmap, const MeshPolygon &polygon) {
    const std::uint32_t flags = polygon.type()->flags;
    return (flags & POLYTYPE_AREA) != 0 && (flags & POLYTYPE_LINEAR) == 0 &&
           SUBDGetLinearUV(VMapMesh(vmap)) == 0;
}

SmoothedOutline::SmoothedOutline(const VMap *vmap, const MeshPolygon &polygon) noexcept {
    buffer_ = PolyVBufCreate(VMapMesh(vmap), const_cast<VMap *>(vmap), PVBUF_OUTLINE);
    if (buffer_ == nullptr) return;
    PolyVBufResetCount(buffer_);
    if (PolyVBufCountPoly(buffer_, &polygon) == 0 || PolyVBufAllocate(buffer_) == 0) return;
    PolyVBufResetCount(buffer_);
    const unsigned samples = PolyVBufGenPoly(buffer_, &polygon);
    if (samples == 0 || samples % polygon.count != 0) return;
    attributes_ = PolyVBufAttributes(buffer_);
    AVBGrab(attributes_);
    if (AVBUpdateBegin(attributes_, &view_) == 0) return;
    ready_ = view_.dimension == 2 && view_.count == samples;
    if (!ready_) AVBUpdateEnd(attributes_);
}

SmoothedOutline::~SmoothedOutline() {
    if (attributes_ != nullptr) {
        if (ready_) AVBUpdateEnd(attributes_);
        AVBDrop(attributes_);
    }
    PolyVBufDestroy(buffer_);
}

}  // namespace vx::geometry
