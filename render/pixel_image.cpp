// Whole images through the render output pixel operations: the kernels for every processor,
// four pixels at a time, and the choice of the kernels built for the processor's widest
// vectors.
#include "render/pixel_kernels.h"

namespace vx::render {

namespace {

const KernelTable *kernels_for(Isa isa) noexcept {
    switch (isa) {
#if defined(__x86_64__)
        case Isa::avx512:
            return __builtin_cpu_supports("avx512f") ? &avx512_kernels() : nullptr;
        case Isa::avx2:
            return __builtin_cpu_supports("avx2") ? &avx2_kernels() : nullptr;
#else
        case Isa::avx512:
        case Isa::avx2:
            return nullptr;
#endif
        case Isa::portable:
            break;
    }
    return &kKernels<4, 4>;
}

unsigned variant_of(const RenderOutputSettings &prepared) noexcept {
    return hue_sat_variant(prepared) * kLevelVariants + level_variant(prepared);
}

}  // namespace

void apply_image(const RenderOutputSettings &prepared, const float *in, float *out,
                 std::size_t count) noexcept {
    static const KernelTable *const kernels = [] {
        for (Isa isa : {Isa::avx512, Isa::avx2}) {
            if (const KernelTable *table = kernels_for(isa)) return table;
        }
        return kernels_for(Isa::portable);
    }();
    (*kernels)[variant_of(prepared)](prepared, in, out, count);
}

bool apply_image_with(Isa isa, const RenderOutputSettings &prepared, const float *in, float *out,
                      std::size_t count) noexcept {
    const KernelTable *kernels = kernels_for(isa);
    if (kernels == nullptr) return false;
    (*kernels)[variant_of(prepared)](prepared, in, out, count);
    return true;
}

}  // namespace vx::render
