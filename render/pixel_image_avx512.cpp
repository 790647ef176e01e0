// The row kernels built for processors with AVX-512, eight pixels at a time (sixteen through the
// levels alone). Only this file is compiled with -mavx512f and VX_LANES_ISA=avx512 (see
// CMakeLists.txt), and its table is only used once the processor has said it has AVX-512.
#if defined(__AVX512F__)

#include "render/pixel_kernels.h"

namespace vx::render {

const KernelTable &avx512_kernels() noexcept {
    return kKernels<8, 16>;
}

}  // namespace vx::render

#endif  // __AVX512F__
