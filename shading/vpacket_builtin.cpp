// The built-in packets of category "sample", in their defined order, and their operations.
//
// Every built-in layout starts with its float fields, so one descriptor per packet says how
// many leading floats blend linearly and how inverting treats the first three of them; one
// template makes each packet's operations table from its descriptor.
#include <vexor/sys/vpacket.h>

#include <array>
#include <cstring>
#include <utility>

#include "shading/svec_module.h"

namespace vx::svec {
namespace {

enum class Invert { none, complement, negate };

struct Builtin {
    const char *name;
    std::uint32_t size;
    bool ops;
    std::uint32_t blend_floats;  // leading float fields that blend linearly
    Invert invert;               // applied to the first three floats
};

constexpr Builtin kBuiltins[] = {
    {"sample.position", 144, true, 32, Invert::none},
    {"sample.ray", 112, false, 0, Invert::none},
    {"sample.xfrm", 192, true, 45, Invert::none},
    {"sample.parms", 280, true, 66, Invert::none},
    {"sample.mask", 12, true, 3, Invert::complement},
    {"sample.groupMask", 4, true, 0, Invert::none},
    {"sample.driver", 16, true, 2, Invert::none},
    {"sample.stencil", 12, true, 3, Invert::complement},
    {"sample.volume", 52, true, 13, Invert::none},
    {"sample.density", 12, true, 3, Invert::complement},
    {"sample.facet", 224, false, 0, Invert::none},
    {"sample.dissolve", 4, false, 0, Invert::none},
    {"texture.input", 232, true, 54, Invert::none},
    {"texture.output", 112, false, 0, Invert::none},
    {"texture.value", 40, false, 0, Invert::none},
    {"texture.locator", 264, false, 0, Invert::none},
    {"surface.normal", 84, true, 19, Invert::negate},
    {"sample.bump", 80, true, 16, Invert::negate},
    {"surface.smoothing", 12, false, 0, Invert::none},
    {"shade.opacity", 12, false, 0, Invert::none},
    {"shade.components", 180, true, 44, Invert::none},
    {"shade.output", 124, true, 27, Invert::none},
    {"shade.diffuse", 12, true, 3, Invert::complement},
    {"shade.specular", 12, true, 3, Invert::complement},
    {"shade.mirror", 12, true, 3, Invert::complement},
    {"shade.transparency", 12, true, 3, Invert::complement},
    {"shade.subsurface", 12, true, 3, Invert::complement},
    {"shade.luminosity", 12, true, 3, Invert::complement},
    {"displace", 44, true, 9, Invert::negate},
    {"surfFlags", 88, true, 1, Invert::none},
    {"surfFog", 32, false, 0, Invert::none},
    {"fur", 280, true, 67, Invert::none},
    {"particleSample", 108, false, 0, Invert::none},
    {"shaderType", 12, false, 0, Invert::none},
    {"groupLayer", 20, true, 1, Invert::none},
    {"sample.clip", 16, false, 0, Invert::none},
};
constexpr std::size_t kBuiltinCount = std::size(kBuiltins);
static_assert(kBuiltinCount == 36);

// The public layouts have exactly the declared sizes.
static_assert(sizeof(VPSamplePosition) == 144 && sizeof(VPSampleRay) == 112);
static_assert(sizeof(VPSampleXfrm) == 192 && sizeof(VPSampleParms) == 280);
static_assert(sizeof(VPColor) == 12 && sizeof(VPGroupMask) == 4 && sizeof(VPDissolve) == 4);
static_assert(sizeof(VPSampleDriver) == 16 && sizeof(VPSampleVolume) == 52);
static_assert(sizeof(VPSampleFacet) == 224 && sizeof(VPTextureInput) == 232);
static_assert(sizeof(VPTextureOutput) == 112 && sizeof(VPTextureValue) == 40);
static_assert(sizeof(VPTextureLocator) == 264 && sizeof(VPSurfaceNormal) == 84);
static_assert(sizeof(VPSampleBump) == 80 && sizeof(VPShadeComponents) == 180);
static_assert(sizeof(VPShadeOutput) == 124 && sizeof(VPDisplace) == 44);
static_assert(sizeof(VPSurfFlags) == 88 && sizeof(VPSurfFog) == 32 && sizeof(VPFur) == 280);
static_assert(sizeof(VPParticleSample) == 108 && sizeof(VPShaderType) == 12);
static_assert(sizeof(VPGroupLayer) == 20 && sizeof(VPSampleClip) == 16);
// The blending floats lie inside their packets.
static_assert([] {
    for (const Builtin &b : kBuiltins) {
        if (b.blend_floats * sizeof(float) > b.size) return false;
        if (b.invert != Invert::none && b.blend_floats < 3) return false;
    }
    return true;
}());

// Packets are 4-byte aligned and read through their layouts, so floats are accessed in place.
float *floats(void *packet) noexcept {
    return static_cast<float *>(packet);
}

template <std::size_t P>
void reset(void *packet) {
    std::memset(packet, 0, kBuiltins[P].size);
}

template <std::size_t P>
void blend(void *dst, const void *src, float weight) {
    float *d = floats(dst);
    const float *s = static_cast<const float *>(src);
    for (std::uint32_t i = 0; i < kBuiltins[P].blend_floats; ++i) d[i] += (s[i] - d[i]) * weight;
}

template <std::size_t P>
void invert(void *packet) {
    float *f = floats(packet);
    for (int i = 0; i < 3; ++i)
        f[i] = kBuiltins[P].invert == Invert::complement ? 1.0f - f[i] : -f[i];
}

template <std::size_t P>
constexpr VPacketOps make_ops() {
    return {{nullptr, nullptr, nullptr},
            &reset<P>,
            nullptr,  // plain bytes copy
            nullptr,  // nothing to release
            kBuiltins[P].blend_floats > 0 ? &blend<P> : nullptr,
            kBuiltins[P].invert != Invert::none ? &invert<P> : nullptr};
}

template <std::size_t... P>
constexpr std::array<VPacketOps, kBuiltinCount> make_all(std::index_sequence<P...>) {
    return {make_ops<P>()...};
}

constexpr std::array<VPacketOps, kBuiltinCount> kOps =
    make_all(std::make_index_sequence<kBuiltinCount>());

}  // namespace

void define_builtin_packets_locked() {
    for (std::size_t i = 0; i < kBuiltinCount; ++i) {
        const Builtin &b = kBuiltins[i];
        define_packet_locked("sample", b.name, b.ops ? &kOps[i] : nullptr, b.size);
    }
}

}  // namespace vx::svec
