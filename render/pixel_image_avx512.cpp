// The row kernels built for processors with AVX-512, eight pixels at a time
// (sixteen through the levels alone). This file alone is
// compiled with -mavx512f and VX_LANES_ISA=avx512 (see CMakeLists.txt); it is only reached after
// the processor has been asked.
#include "render/pixel_kernels.h"

namespace vx::render {

const KernelTable &avx512_kernels() noexcept {
    return kKernels<8, 16>;
}

}  // namespace vx::render
