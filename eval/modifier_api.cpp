// The C calls a modifier node makes while it declares its links and while it evaluates.
#include <vexor/sys/modifier.h>

#include "eval/modifier.h"
#include "foundation/guard.h"
#include "scene/scene.h"

namespace {

using vx::eval::ChannelKey;

int add_channel(CineModLinks *links, CineItem *item, unsigned int channel, bool output) {
    if (links == nullptr || item == nullptr) return -1;
    CineModNode &node = *links->node;
    if (item->scene != node.item->scene || vx::cine::item_channel(*item, channel) == nullptr)
        return -1;
    auto &list = output ? node.outputs : node.inputs;
    return vx::guard(-1, [&] {
        list.push_back(ChannelKey{item, channel});
        return static_cast<int>(list.size() - 1);
    });
}

vx::eval::OutputRun *output_at(CineModEval *eval, unsigned int index) {
    if (eval == nullptr || index >= eval->output_count) return nullptr;
    return &eval->outputs[index];
}

}  // namespace

extern "C" {

VX_API int CineModAddInput(CineModLinks *links, CineItem *item, unsigned int channel) {
    return add_channel(links, item, channel, false);
}

VX_API int CineModAddTimeInput(CineModLinks *links) {
    if (links == nullptr) return -1;
    auto &inputs = links->node->inputs;
    return vx::guard(-1, [&] {
        inputs.push_back(ChannelKey{nullptr, 0});
        return static_cast<int>(inputs.size() - 1);
    });
}

VX_API int CineModAddOutput(CineModLinks *links, CineItem *item, unsigned int channel) {
    return add_channel(links, item, channel, true);
}

VX_API void CineModSetControl(CineModLinks *links, unsigned int flags) {
    if (links == nullptr) return;
    links->node->has_control = true;
    links->node->control = flags;
}

VX_API double CineModInput(CineModEval *eval, unsigned int index) {
    if (eval == nullptr || index >= eval->input_count) return 0.0;
    return eval->inputs[index]->number;
}

VX_API const double *CineModInputMatrix(CineModEval *eval, unsigned int index) {
    if (eval == nullptr || index >= eval->input_count) return nullptr;
    const vx::value::Value *object = eval->inputs[index]->object;
    if (object == nullptr || vx::value::kind_of(object->type()) != vx::value::Kind::matrix)
        return nullptr;
    return object->get_matrix().data();
}

VX_API double CineModOutput(CineModEval *eval, unsigned int index) {
    vx::eval::OutputRun *out = output_at(eval, index);
    return out != nullptr ? out->number : 0.0;
}

VX_API void CineModSetOutput(CineModEval *eval, unsigned int index, double value) {
    if (vx::eval::OutputRun *out = output_at(eval, index)) out->number = value;
}

VX_API void CineModSetOutputMatrix(CineModEval *eval, unsigned int index, const double *matrix) {
    vx::eval::OutputRun *out = output_at(eval, index);
    if (out == nullptr || matrix == nullptr || out->object == nullptr) return;
    if (vx::value::kind_of(out->object->type()) != vx::value::Kind::matrix) return;
    vx::value::Matrix4 m;
    for (std::size_t i = 0; i < m.size(); ++i) m[i] = matrix[i];
    out->object->set_matrix(m);
    out->written = true;
}

VX_API double CineModTime(CineModEval *eval) {
    return eval != nullptr ? eval->time : 0.0;
}
}
