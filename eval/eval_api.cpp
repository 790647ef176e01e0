// The C interface of evaluators.
#include <vexor/eval.h>

#include <cmath>
#include <limits>

#include "eval/action_access.h"
#include "eval/eval_data.h"
#include "foundation/guard.h"
#include "scene/scene.h"

namespace {

using namespace vx::eval;

// Where an object value can be read from C, or null for the kinds that have no such form.
const void *object_pointer(const vx::value::Value &value) {
    switch (vx::value::kind_of(value.type())) {
        case vx::value::Kind::matrix:
            return value.get_matrix().data();
        case vx::value::Kind::object:
            return value.get_object();
        default:
            return nullptr;
    }
}

// A read that fails inside a baking bracket makes the bracket's result 0.
// An evaluator whose scene has been destroyed is inert: every call fails (answers its failure
// result with rc::refused) until CineEvalDestroy frees it.
bool inert(const CineEval *eval) noexcept {
    if (eval == nullptr) return true;
    if (eval->data != nullptr) return false;
    vx::guard([] { vx::fail(vx::rc::refused, "the evaluator's scene is gone"); });
    return true;
}

template <class Result, class Body>
Result read(CineEval *eval, Result failed, Body &&body) {
    if (inert(eval)) return failed;
    bool ok = false;
    Result result = vx::guard(failed, [&] {
        Result value = body(*eval);
        ok = true;
        return value;
    });
    if (!ok && eval->baking) eval->last_result = 0;
    return result;
}

int to_int(double value) {
    if (std::isnan(value)) return 0;
    const double rounded = std::round(value);
    if (rounded <= static_cast<double>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    if (rounded >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    return static_cast<int>(rounded);
}

}  // namespace

extern "C" {

VX_API CineEval *CineEvalCreate(Cinema *scene) {
    return CineEvalCreateSpecial(scene, 0);
}

VX_API CineEval *CineEvalCreateSpecial(Cinema *scene, unsigned int mode) {
    if (scene == nullptr) return nullptr;
    return vx::guard<CineEval *>(nullptr, [&] { return make_evaluator(*scene, mode); });
}

VX_API void CineEvalDestroy(CineEval *eval) {
    destroy_evaluator(eval);
}

VX_API Cinema *CineEvalContext(CineEval *eval) {
    return !inert(eval) ? &eval->data->scene : nullptr;
}

VX_API void CineEvalSetAction(CineEval *eval, CineAction *action) {
    if (inert(eval)) return;
    vx::guard([&] { set_action(*eval, action); });
}

VX_API CineAction *CineEvalAction(CineEval *eval) {
    return eval != nullptr ? eval->action : nullptr;
}

VX_API void CineEvalSetTime(CineEval *eval, double time) {
    if (inert(eval)) return;
    vx::guard([&] { set_time(*eval, time); });
}

VX_API double CineEvalTime(CineEval *eval) {
    return eval != nullptr ? eval->time : 0.0;
}

VX_API void CineEvalSetIncremental(CineEval *, int) {}

VX_API double CineEvalChannel(CineEval *eval, CineItem *item, unsigned int channel) {
    if (item == nullptr) return 0.0;
    return read(eval, 0.0, [&](CineEval &e) { return read_channel(e, *item, channel).number; });
}

VX_API int CineEvalChannelInt(CineEval *eval, CineItem *item, unsigned int channel) {
    if (item == nullptr) return 0;
    return read(eval, 0,
                [&](CineEval &e) { return to_int(read_channel(e, *item, channel).number); });
}

VX_API const void *CineEvalChannelVal(CineEval *eval, CineItem *item, unsigned int channel) {
    if (item == nullptr) return nullptr;
    return read(eval, static_cast<const void *>(nullptr), [&](CineEval &e) -> const void * {
        const ValueRecord &rec = read_channel(e, *item, channel);
        if (rec.object != nullptr) return object_pointer(*rec.object);
        const vx::value::Kind kind =
            vx::value::kind_of(*vx::cine::item_channel(*item, channel)->value_type);
        return kind == vx::value::Kind::floating || kind == vx::value::Kind::integer ? &rec.number
                                                                                     : nullptr;
    });
}

VX_API Envelope *CineEvalRawChannelEnv(CineEval *eval, CineItem *item, unsigned int channel) {
    if (inert(eval) || item == nullptr) return nullptr;
    const vx::act::ValueSource source = vx::act::find_value(eval->action, *item, channel);
    return const_cast<Envelope *>(source.envelope);
}

VX_API const void *CineEvalRawChannelVal(CineEval *eval, CineItem *item, unsigned int channel) {
    if (inert(eval) || item == nullptr) return nullptr;
    const vx::cine::ChannelDesc *desc = vx::cine::item_channel(*item, channel);
    if (desc == nullptr) return nullptr;
    const vx::act::ValueSource source = vx::act::find_value(eval->action, *item, channel);
    const vx::value::Value &value =
        source.constant != nullptr ? *source.constant : desc->default_value;
    return value.address();
}

VX_API int CinemaEvaluate(CineEval *eval) {
    if (eval == nullptr) return 0;
    return read(eval, 0, [](CineEval &e) {
        evaluate(e);
        return 1;
    });
}

VX_API void CineEvalBeginBake(CineEval *eval, double time) {
    if (inert(eval)) return;
    vx::guard([&] { begin_bake(*eval, time); });
}

VX_API int CineEvalEndBake(CineEval *eval) {
    if (inert(eval)) return 0;
    return vx::guard(0, [&] { return end_bake(*eval); });
}

VX_API int CineChannelIsBaked(CineItem *item, unsigned int channel) {
    return item != nullptr && channel_is_baked(*item, channel) ? 1 : 0;
}

VX_API unsigned int CinemaModNodeCount(Cinema *scene) {
    EvalData *data = scene != nullptr ? find_eval_data(*scene) : nullptr;
    if (data == nullptr) return 0;
    std::lock_guard lock(data->lock);
    return static_cast<unsigned int>(data->modifiers.order.size());
}

VX_API CineModNode *CinemaModNodeByIndex(Cinema *scene, unsigned int index) {
    EvalData *data = scene != nullptr ? find_eval_data(*scene) : nullptr;
    if (data == nullptr) return nullptr;
    std::lock_guard lock(data->lock);
    const auto &order = data->modifiers.order;
    return index < order.size() ? order[index] : nullptr;
}

VX_API const char *CineModNodeName(CineModNode *node) {
    return node != nullptr ? node->name.c_str() : nullptr;
}

VX_API int CineModIsEnabled(CineModNode *node) {
    if (node == nullptr) return 0;
    return !node->has_control || (node->control & 1) != 0 ? 1 : 0;
}
}
