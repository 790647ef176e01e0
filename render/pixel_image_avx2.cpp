// The row kernels built for processors with AVX2, four pixels at a time (eight through the levels
// alone). Only this file is compiled with -mavx2 and VX_LANES_ISA=avx2 (see CMakeLists.txt), and
// its table is only used once the processor has said it has AVX2.
#if defined(__AVX2__)

#include "render/pixel_kernels.h"

namespace vx::render {

const KernelTable &avx2_kernels() noexcept {
    return kKernels<4, 8>;
}

}  // namespace vx::render

#endif  // __AVX2__
