// What the foundation's tests share: the test framework, the parts of the standard library most
// of them use, failures, and the allocation counters of the test support.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vexor/failure.h>

#include "foundation/failure.h"
#include "support/alloc_injection.h"

namespace vx::test {

// Blocks allocated and not yet freed, over all threads.
inline std::int64_t live_blocks() {
    return alloc_counts().live_blocks;
}

}  // namespace vx::test
