// The process-wide transform settings: the rotation order new rotations start with, and the
// auto-transforms flag that hosts read to decide whether new items get a standard chain.
#include <atomic>

#include "groups/xfrm.h"

namespace vx::xfrm {
namespace {

constexpr int kInitialOrder = 4;

std::atomic<int> g_order{kInitialOrder};
std::atomic<int> g_auto{0};

}  // namespace

int default_rotation_order() noexcept {
    return g_order.load(std::memory_order_relaxed);
}

void set_default_rotation_order(int order) noexcept {
    g_order.store(order >= 0 && order < mat::kRotationOrders ? order : kInitialOrder,
                  std::memory_order_relaxed);
}

int auto_transforms() noexcept {
    return g_auto.load(std::memory_order_relaxed);
}

void set_auto_transforms(int flag) noexcept {
    g_auto.store(flag, std::memory_order_relaxed);
}

}  // namespace vx::xfrm
