// Baking brackets. Inside a bracket the evaluator reads at the bake time, and every channel it
// reads is remembered, both on the evaluator and as a bake record of the scene. Closing the
// bracket drops those values from every cache of the scene (a bake usually goes on to write
// keys from them), forgets the records and puts the evaluator back at its earlier time.
#include "eval/eval_data.h"
#include "scene/scene.h"

namespace vx::eval {

void begin_bake(CineEval &eval, double time) {
    if (!eval.baking) eval.time_before_bake = eval.time;
    eval.baking = true;
    eval.bake_time = time;
    eval.last_result = 1;
    set_time(eval, time);
}

int end_bake(CineEval &eval) {
    if (!eval.baking) return 0;
    eval.baking = false;
    {
        EvalData &data = *eval.data;
        std::lock_guard lock(data.lock);
        for (const ChannelKey &key : eval.baked) {
            for (Cache *cache : data.caches) {
                if (ValueRecord *rec = cache->find(key)) {
                    rec->invalidate();
                    cache->note_drop();
                }
            }
            auto it = data.bakes.find(key);
            if (it != data.bakes.end() && --it->second == 0) data.bakes.erase(it);
        }
        eval.baked.clear();
    }
    set_time(eval, eval.time_before_bake);
    return eval.last_result;
}

bool channel_is_baked(const CineItem &item, std::uint32_t channel) noexcept {
    if (item.scene == nullptr) return false;
    EvalData *data = find_eval_data(*item.scene);
    if (data == nullptr) return false;
    std::lock_guard lock(data->lock);
    return data->bakes.contains(ChannelKey{&item, channel});
}

}  // namespace vx::eval
