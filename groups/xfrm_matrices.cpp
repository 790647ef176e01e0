// Matrices read through an evaluator, and the two compositions of a chain with one member
// replaced (build) or solved for (extract).
#include "eval/eval_data.h"
#include "foundation/failure.h"
#include "groups/xfrm.h"
#include "scene/scene.h"

namespace vx::xfrm {
namespace {

mat::Matrix4 inverse(const mat::Matrix4 &m) {
    mat::Matrix4 out;
    if (!mat::invert(m, out)) fail(rc::bad_argument, "a matrix of the chain cannot be inverted");
    return out;
}

}  // namespace

mat::Matrix4 read_matrix(CineEval &eval, const CineItem &item, std::uint32_t channel) {
    const eval::ValueRecord &rec = eval::read_channel(eval, item, channel);
    if (rec.object == nullptr || value::kind_of(rec.object->type()) != value::Kind::matrix)
        fail(rc::type_mismatch, "not a matrix channel");
    return rec.object->get_matrix();
}

mat::Matrix4 build(CineEval &eval, CineItem &item, const CineItem *transform,
                   const mat::Matrix4 &matrix) {
    if (!is_placed(&item)) fail(rc::bad_argument, "the item is not placed by transforms");
    const CineItem *partner = transform != nullptr ? partner_of(*transform) : nullptr;
    const mat::Matrix4 compensation = partner != nullptr ? inverse(matrix) : mat::identity();
    mat::Matrix4 out = mat::identity();
    for (const CineItem *member : chain_of(item)) {
        if (member == transform) {
            mat::compose(out, matrix);
        } else if (member == partner) {
            mat::compose(out, compensation);
        } else {
            mat::compose(out, read_matrix(eval, *member, kMatrix));
        }
    }
    return out;
}

mat::Matrix4 extract(CineEval &eval, CineItem &item, int kind, const mat::Matrix4 &matrix) {
    CineItem *member = std_transform(item, kind, true);
    if (member == nullptr) fail(rc::bad_argument, "not a placed item or not a standard kind");
    const std::vector<CineItem *> chain = chain_of(item);
    std::size_t k = 0;
    while (k < chain.size() && chain[k] != member) ++k;
    // The members before k and after it are undone around the given matrix, nearest first.
    mat::Matrix4 out = mat::identity();
    for (std::size_t i = k; i-- > 0;)
        mat::compose(out, inverse(read_matrix(eval, *chain[i], kMatrix)));
    mat::compose(out, matrix);
    for (std::size_t i = chain.size(); i-- > k + 1;)
        mat::compose(out, inverse(read_matrix(eval, *chain[i], kMatrix)));
    return out;
}

}  // namespace vx::xfrm
