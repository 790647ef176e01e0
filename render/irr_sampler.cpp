// The sky sampler: irradiance under a uniform sky and a sun over an infinite ground plane, for
// tests and demonstrations of the cache.
#include <vexor/irr_cache.h>

#include <algorithm>

extern "C" VX_API int IrrCacheSkySampler(void *client, const float position[3],
                                         const float normal[3], float, IrrCacheSample *sample) {
    if (client == nullptr || position == nullptr || normal == nullptr || sample == nullptr)
        return 0;
    const auto &scene = *static_cast<const IrrCacheSkyScene *>(client);
    // The part of the sky the normal's hemisphere sees, and of the ground.
    const float sky = 0.5f + 0.5f * normal[2];
    const float ground = 1.0f - sky;
    const float sun =
        std::max(0.0f, normal[0] * scene.sunDirection[0] + normal[1] * scene.sunDirection[1] +
                           normal[2] * scene.sunDirection[2]);
    const float sun_on_ground = std::max(0.0f, scene.sunDirection[2]);
    for (int c = 0; c < 3; ++c) {
        const float lit_ground =
            scene.groundAlbedo * (scene.skyColor[c] + scene.sunColor[c] * sun_on_ground);
        sample->irradiance[c] = scene.skyColor[c] * sky + lit_ground * ground;
        sample->irradiance2[c] = scene.sunColor[c] * sun;
        sample->gradient[c] = 0.0f;
        sample->gradient2[c] = 0.0f;
    }
    // Far from the ground the light changes slowly: the value holds farther.
    sample->radius = std::clamp(std::max(position[2], 0.0f), scene.minRadius, scene.maxRadius);
    return 1;
}
