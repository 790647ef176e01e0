// The C interface of transforms.
#include <vexor/xfrm.h>

#include <algorithm>

#include "foundation/guard.h"
#include "groups/xfrm.h"
#include "scene/scene.h"

namespace {

using namespace vx::xfrm;
namespace mat = vx::mat;

mat::Matrix4 load(const double *m) noexcept {
    mat::Matrix4 out;
    std::copy(m, m + 16, out.begin());
    return out;
}

unsigned int copy_out(const std::vector<CineItem *> &items, CineItem **array,
                      unsigned int capacity) {
    const std::size_t n = std::min<std::size_t>(items.size(), capacity);
    if (array != nullptr) std::copy_n(items.begin(), n, array);
    return static_cast<unsigned int>(items.size());
}

// Reads one matrix channel of a placed item and hands it to `take`; 1, or 0 on a failure.
template <class Take>
int read_placed(CineEval *eval, CineItem *item, std::uint32_t channel, Take &&take) {
    if (eval == nullptr || !is_placed(item)) return 0;
    return vx::guard(0, [&] {
        take(read_matrix(*eval, *item, channel));
        return 1;
    });
}

void put(const double *from, std::size_t n, double *out) {
    std::copy(from, from + n, out);
}

}  // namespace

extern "C" {

VX_API LinkGraph *XfrmCoreGraph(Cinema *scene) {
    return scene != nullptr ? core_graph(*scene) : nullptr;
}

VX_API LinkGraph *XfrmLocalGraph(Cinema *scene) {
    return scene != nullptr ? local_graph(*scene) : nullptr;
}

VX_API CineItem *XfrmAddTransformItem(CineItem *item, uint32_t type) {
    if (item == nullptr) return nullptr;
    return vx::guard<CineItem *>(nullptr, [&] { return &add_transform(*item, type); });
}

VX_API CineItem *XfrmGetFirstTransform(CineItem *item) {
    return item != nullptr && chain_size(*item) > 0 ? chain_at(*item, 0) : nullptr;
}

VX_API CineItem *XfrmGetLastTransform(CineItem *item) {
    const std::size_t n = item != nullptr ? chain_size(*item) : 0;
    return n > 0 ? chain_at(*item, n - 1) : nullptr;
}

VX_API unsigned int XfrmGetTransformArray(CineItem *item, CineItem **array, unsigned int capacity) {
    if (item == nullptr) return 0;
    return vx::guard(0u, [&] { return copy_out(chain_of(*item), array, capacity); });
}

VX_API unsigned int XfrmGetPreTransformArray(CineItem *item, CineItem **array,
                                             unsigned int capacity) {
    if (item == nullptr) return 0;
    return vx::guard(0u, [&] { return copy_out(pre_transforms_of(*item), array, capacity); });
}

VX_API CineItem *XfrmFindTransformOfType(CineItem *item, uint32_t type, int first) {
    if (item == nullptr) return nullptr;
    CineItem *found = nullptr;
    for (std::size_t i = 0, n = chain_size(*item); i < n; ++i) {
        CineItem *member = chain_at(*item, i);
        if (CineItemType(member) != type) continue;
        if (first != 0) return member;
        found = member;
    }
    return found;
}

VX_API CineItem *XfrmRootItem(CineItem *transform) {
    return transform != nullptr ? root_of(*transform) : nullptr;
}

VX_API int XfrmMoveRelative(CineItem *transform, CineItem *target, int after) {
    if (transform == nullptr || target == nullptr) return 0;
    return vx::guard(0, [&] { return move_relative(*transform, *target, after != 0) ? 1 : 0; });
}

VX_API CineItem *XfrmGetStdTransform(CineItem *item, int kind, int create) {
    if (item == nullptr) return nullptr;
    return vx::guard<CineItem *>(nullptr, [&] { return std_transform(*item, kind, create != 0); });
}

VX_API CineItem *XfrmAddStdTransform(CineItem *item, int kind) {
    if (item == nullptr) return nullptr;
    return vx::guard<CineItem *>(nullptr, [&] { return &add_std_transform(*item, kind); });
}

VX_API CineItem *XfrmGetStdTransformByName(CineItem *item, const char *name) {
    const int kind = kind_named(name);
    return kind >= 0 ? XfrmGetStdTransform(item, kind, 0) : nullptr;
}

VX_API CineItem *XfrmFindLegacyChannel(CineItem *item, const char *name, int *component,
                                       int *kind) {
    if (item == nullptr) {
        if (kind != nullptr) *kind = -1;
        return nullptr;
    }
    return legacy_channel(*item, name, component, kind);
}

VX_API int XfrmLocalTransform4(CineEval *eval, CineItem *item, double out[16]) {
    return read_placed(eval, item, kLocalMatrix,
                       [&](const mat::Matrix4 &m) { put(m.data(), 16, out); });
}

VX_API int XfrmWorldTransform4(CineEval *eval, CineItem *item, double out[16]) {
    return read_placed(eval, item, kWorldMatrix,
                       [&](const mat::Matrix4 &m) { put(m.data(), 16, out); });
}

VX_API int XfrmWorldTransform3(CineEval *eval, CineItem *item, double out[9]) {
    return read_placed(eval, item, kWorldMatrix,
                       [&](const mat::Matrix4 &m) { put(mat::sub_matrix(m).data(), 9, out); });
}

VX_API int XfrmWorldTransform3Off(CineEval *eval, CineItem *item, double out[9], double offset[3]) {
    return read_placed(eval, item, kWorldMatrix, [&](const mat::Matrix4 &m) {
        put(mat::sub_matrix(m).data(), 9, out);
        put(mat::translation_of(m).data(), 3, offset);
    });
}

VX_API int XfrmWorldPosition(CineEval *eval, CineItem *item, double out[3]) {
    return read_placed(eval, item, kWposMatrix,
                       [&](const mat::Matrix4 &m) { put(mat::translation_of(m).data(), 3, out); });
}

VX_API int XfrmWorldPosition4(CineEval *eval, CineItem *item, double out[16]) {
    return read_placed(eval, item, kWposMatrix,
                       [&](const mat::Matrix4 &m) { put(m.data(), 16, out); });
}

VX_API int XfrmWorldRotation(CineEval *eval, CineItem *item, double out[9]) {
    return read_placed(eval, item, kWrotMatrix,
                       [&](const mat::Matrix4 &m) { put(mat::sub_matrix(m).data(), 9, out); });
}

VX_API int XfrmWorldRotation4(CineEval *eval, CineItem *item, double out[16]) {
    return read_placed(eval, item, kWrotMatrix,
                       [&](const mat::Matrix4 &m) { put(m.data(), 16, out); });
}

VX_API int XfrmWorldScale(CineEval *eval, CineItem *item, double out[9]) {
    return read_placed(eval, item, kWsclMatrix,
                       [&](const mat::Matrix4 &m) { put(mat::sub_matrix(m).data(), 9, out); });
}

VX_API int XfrmBuildTransform(CineEval *eval, CineItem *item, CineItem *transform,
                              const double matrix[16], double out[16]) {
    if (eval == nullptr || item == nullptr || matrix == nullptr || out == nullptr) return 0;
    return vx::guard(0, [&] {
        put(build(*eval, *item, transform, load(matrix)).data(), 16, out);
        return 1;
    });
}

VX_API int XfrmExtractTransform(CineEval *eval, CineItem *item, int kind, const double matrix[16],
                                double out[16]) {
    if (eval == nullptr || item == nullptr || matrix == nullptr || out == nullptr) return 0;
    return vx::guard(0, [&] {
        put(extract(*eval, *item, kind, load(matrix)).data(), 16, out);
        return 1;
    });
}

VX_API void XfrmSetDefaultRotationOrder(int order) {
    set_default_rotation_order(order);
}

VX_API int XfrmDefaultRotationOrder(void) {
    return default_rotation_order();
}

VX_API void XfrmSetAutoTransforms(int flag) {
    set_auto_transforms(flag);
}

VX_API int XfrmAutoTransforms(void) {
    return auto_transforms();
}
}
