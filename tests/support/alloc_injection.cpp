#include "support/alloc_injection.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace vx::test {

namespace {

std::atomic<std::int64_t> live_blocks{0};
std::atomic<std::int64_t> live_bytes{0};

struct ThreadInjection {
    std::uint64_t allocations = 0;
    std::uint64_t fail_at = 0;  // 0: nothing armed
    bool from_then_on = false;
    bool raised = false;
};
thread_local ThreadInjection injection;

// Each block carries a header in front of the caller's pointer, so that unsized deletes know
// what they release. The header keeps the caller's alignment.
struct Header {
    std::size_t size;
    std::uint32_t offset;
    std::uint32_t magic;
};
constexpr std::uint32_t kMagic = 0x5678A11Cu;
constexpr std::size_t kDefaultAlign = alignof(std::max_align_t);
static_assert(sizeof(Header) <= kDefaultAlign);

bool should_fail() noexcept {
    ThreadInjection &t = injection;
    ++t.allocations;
    if (t.fail_at == 0 || t.allocations < t.fail_at) return false;
    if (t.allocations == t.fail_at || t.from_then_on) {
        t.raised = true;
        return true;
    }
    return false;
}

void *allocate(std::size_t size, std::size_t align, bool nothrow) {
    if (should_fail()) {
        if (nothrow) return nullptr;
        throw std::bad_alloc();
    }
    if (align < kDefaultAlign) align = kDefaultAlign;
    const std::size_t offset = align;  // room for the header, keeping the alignment
    std::size_t total = size + offset;
    total = (total + align - 1) / align * align;
    void *base = std::aligned_alloc(align, total);
    if (base == nullptr) {
        if (nothrow) return nullptr;
        throw std::bad_alloc();
    }
    auto *user = static_cast<unsigned char *>(base) + offset;
    auto *header = reinterpret_cast<Header *>(user - sizeof(Header));
    header->size = size;
    header->offset = static_cast<std::uint32_t>(offset);
    header->magic = kMagic;
    live_blocks.fetch_add(1, std::memory_order_relaxed);
    live_bytes.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);
    return user;
}

void release(void *pointer) noexcept {
    if (pointer == nullptr) return;
    auto *user = static_cast<unsigned char *>(pointer);
    auto *header = reinterpret_cast<Header *>(user - sizeof(Header));
    if (header->magic != kMagic) std::abort();  // not ours, or freed twice
    header->magic = 0;
    live_blocks.fetch_sub(1, std::memory_order_relaxed);
    live_bytes.fetch_sub(static_cast<std::int64_t>(header->size), std::memory_order_relaxed);
    std::free(user - header->offset);
}

}  // namespace

AllocCounts alloc_counts() noexcept {
    return AllocCounts{live_blocks.load(std::memory_order_relaxed),
                       live_bytes.load(std::memory_order_relaxed)};
}

std::uint64_t thread_allocations() noexcept {
    return injection.allocations;
}

void fail_allocation(std::uint64_t nth, FailMode mode) noexcept {
    injection.fail_at = nth == 0 ? 0 : injection.allocations + nth;
    injection.from_then_on = mode == FailMode::from_then_on;
    injection.raised = false;
}

void stop_failing() noexcept {
    injection.fail_at = 0;
    injection.from_then_on = false;
}

bool injected_failure_raised() noexcept {
    return injection.raised;
}

}  // namespace vx::test

// The replacements, the single-object and the array forms alike. They sit on malloc, so
// sanitizer builds still see every block. The nothrow forms cannot throw: allocate() answers
// null when asked not to.
#define VEXOR_REPLACE_NEW_AND_DELETE(array)                                       \
    void *operator new array(std::size_t size) {                                  \
        return vx::test::allocate(size, 0, false);                                \
    }                                                                             \
    void *operator new array(std::size_t size, const std::nothrow_t &) noexcept { \
        return vx::test::allocate(size, 0, true);                                 \
    }                                                                             \
    void *operator new array(std::size_t size, std::align_val_t align) {          \
        return vx::test::allocate(size, static_cast<std::size_t>(align), false);  \
    }                                                                             \
    void operator delete array(void *p) noexcept {                                \
        vx::test::release(p);                                                     \
    }                                                                             \
    void operator delete array(void *p, std::size_t) noexcept {                   \
        vx::test::release(p);                                                     \
    }                                                                             \
    void operator delete array(void *p, std::align_val_t) noexcept {              \
        vx::test::release(p);                                                     \
    }                                                                             \
    void operator delete array(void *p, std::size_t, std::align_val_t) noexcept { \
        vx::test::release(p);                                                     \
    }

VEXOR_REPLACE_NEW_AND_DELETE()
VEXOR_REPLACE_NEW_AND_DELETE([])
