// Allocation-failure injection for the tests.
//
// The test executables replace the global operator new and delete. Every allocation is
// counted; the live blocks and bytes are tracked for leak checks; and the calling thread can
// make its Nth allocation from now on fail, once or from then on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx::test {

struct AllocCounts {
    std::int64_t live_blocks;
    std::int64_t live_bytes;
};

// Blocks and bytes allocated and not yet freed, over all threads.
AllocCounts alloc_counts() noexcept;

// Allocations made by the calling thread since it started.
std::uint64_t thread_allocations() noexcept;

enum class FailMode { once, from_then_on };

// Makes the calling thread's `nth` allocation from now on (1 = the next one) throw
// std::bad_alloc; with FailMode::from_then_on every later one fails too, until disarmed.
void fail_allocation(std::uint64_t nth, FailMode mode = FailMode::once) noexcept;
void stop_failing() noexcept;
// Whether an injected failure has been raised since the last fail_allocation().
bool injected_failure_raised() noexcept;

// Arms a failure for the lifetime of the object.
class FailAllocation {
  public:
    explicit FailAllocation(std::uint64_t nth, FailMode mode = FailMode::once) noexcept {
        fail_allocation(nth, mode);
    }
    ~FailAllocation() { stop_failing(); }
    FailAllocation(const FailAllocation &) = delete;
    FailAllocation &operator=(const FailAllocation &) = delete;
};

}  // namespace vx::test
