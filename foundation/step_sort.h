// A merge sort done one merge at a time (the stepwise sort behind SortCreate/SortStep).
//
// Bottom-up: runs of width 1, 2, 4, ... are merged pairwise through a scratch array and copied
// back at once, so between steps the array is always a permutation of its items. Stable, at
// most n log2(n) comparisons, and correct for any comparison whose answers form a consistent
// order, whatever it records on the side.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace vx {

template <class T, class Less>
class StepSort {
  public:
    // Takes the array (not owned) and allocates the scratch; raises std::bad_alloc.
    StepSort(T *items, std::size_t count, Less less) : items_(items), count_(count), less_(less) {
        scratch_.resize(count);
    }

    // Starts over on other items, at most as many as the scratch was made for (so nothing is
    // allocated): for callers that make room first and learn the count later.
    void restart(T *items, std::size_t count) noexcept {
        items_ = items;
        count_ = count <= scratch_.size() ? count : scratch_.size();
        width_ = 1;
        start_ = 0;
    }

    // Merges the next pair of runs; false once the array is sorted.
    bool step() {
        if (width_ >= count_) return false;
        const std::size_t middle = std::min(start_ + width_, count_);
        const std::size_t end = std::min(start_ + 2 * width_, count_);
        if (middle < end) merge(start_, middle, end);
        start_ = end;
        if (start_ >= count_) {
            start_ = 0;
            width_ *= 2;
        }
        return width_ < count_;
    }

    void run() {
        while (step()) {
        }
    }

  private:
    void merge(std::size_t begin, std::size_t middle, std::size_t end) {
        // Already in order: the common case for nearly sorted input costs one comparison.
        if (!less_(items_[middle], items_[middle - 1])) return;
        std::size_t a = begin, b = middle, out = 0;
        T *scratch = scratch_.data();
        while (a < middle && b < end) {
            // Taking from the right only when strictly less keeps equal items in order.
            if (less_(items_[b], items_[a])) {
                scratch[out++] = items_[b++];
            } else {
                scratch[out++] = items_[a++];
            }
        }
        while (a < middle) scratch[out++] = items_[a++];
        while (b < end) scratch[out++] = items_[b++];
        std::copy(scratch, scratch + out, items_ + begin);
    }

    T *items_;
    std::size_t count_;
    Less less_;
    std::vector<T> scratch_;
    std::size_t width_ = 1;
    std::size_t start_ = 0;
};

}  // namespace vx
