// The row kernels built for processors with AVX2, four pixels at a time
// (eight through the levels alone). This file alone is
// compiled with -mavx2 and VX_LANES_ISA=avx2 (see CMakeLists.txt); it is only reached after the
// processor has been asked.
#include "render/pixel_kernels.h"

namespace vx::render {

const KernelTable &avx2_kernels() noexcept {
    return kKernels<4, 8>;
}

}  // namespace vx::render
