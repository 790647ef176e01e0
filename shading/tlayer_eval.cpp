// Evaluation of a layer stack at a shading sample: bottom to top, each layer's value blended
// over what the layers below gave, by its mode and opacity.
#include <vexor/tlayer.h>

#include <cmath>
#include <cstring>

#include "shading/tlayer_module.h"

using namespace vx::shade;

namespace {

bool takes_part(CineItem *layer, const char *effect) noexcept {
    if (!is_layer(layer) || read_number(layer, nullptr, "enable", 1.0) == 0.0) return false;
    const char *own = TLayerEffect(layer);
    return effect == nullptr || std::strcmp(own, "(all)") == 0 || std::strcmp(own, effect) == 0;
}

int evaluate(CineItem *group, CineEval *eval, GVector *sample, const char *effect, double dest[4],
             int depth) noexcept {
    int blended = 0;
    for (unsigned i = 0, n = CineItemSubCount(group); i < n; ++i) {
        CineItem *layer = CineItemSubByIndex(group, i);
        if (!takes_part(layer, effect)) continue;
        TextureLayerValue value = {0.0, 1.0, {0.0, 0.0, 0.0}};
        if (is_a(layer, mask_type())) {
            // A group is one layer whose colour is its own stack's, weighed by its coverage.
            double inner[4] = {0.0, 0.0, 0.0, 0.0};
            if (depth > 64 || evaluate(layer, eval, sample, effect, inner, depth + 1) == 0)
                continue;
            for (int c = 0; c < 3; ++c) value.rgb[c] = inner[3] > 0.0 ? inner[c] / inner[3] : 0.0;
            value.value = (value.rgb[0] + value.rgb[1] + value.rgb[2]) / 3.0;
            value.opacity = inner[3];
        } else {
            void *client = nullptr;
            const TextureLayerOps *ops = ops_of(layer, &client);
            if (ops == nullptr || ops->Evaluate == nullptr ||
                ops->Evaluate(client, layer, eval, sample, &value) == 0) {
                continue;
            }
        }
        const auto mode = static_cast<int>(std::lround(read_number(layer, eval, "blend", 0.0)));
        TextureLayerBlendValue(&value, dest, 1, mode, read_number(layer, eval, "opacity", 1.0));
        ++blended;
    }
    return blended;
}

}  // namespace

extern "C" {

VX_API int TLayerEvaluate(CineItem *group, CineEval *eval, GVector *sample, const char *effect,
                          double dest[4]) {
    if (group == nullptr || dest == nullptr || !started()) return 0;
    const int blended = evaluate(group, eval, sample, effect, dest, 0);
    const unsigned packet = VPacketOffset("sample", "texture.value");
    if (auto *out = static_cast<VPTextureValue *>(
            sample != nullptr ? GVPacket(sample, packet, GV_WRITE) : nullptr)) {
        for (int c = 0; c < 3; ++c) out->color[c] = static_cast<float>(dest[c]);
        out->opacity = static_cast<float>(dest[3]);
        out->value = static_cast<float>((dest[0] + dest[1] + dest[2]) / 3.0);
    }
    return blended;
}

}  // extern "C"
