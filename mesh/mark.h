// Mark words: the mark mode that sets and clears them, the filter that enumeration builds from
// a mode, and the subsets of a mesh of kind 2 that enumeration through its instances walks.
#pragma once

#include <cstdint>

#include "mesh/mesh.h"

namespace vx::mesh {

// The kind of mesh whose instances enumerate its subsets under the filter bit kSubsetBit.
inline constexpr std::uint32_t kSubsetKind = 2;
inline constexpr std::uint32_t kSubsetBit = 0x4;

// The marks after marking with a mode: the high half cleared, then the low half set, so a bit
// in both halves ends up set.
inline std::uint16_t marked(std::uint16_t marks, std::uint32_t mode) noexcept {
    return static_cast<std::uint16_t>((static_cast<std::uint32_t>(marks) & ~(mode >> 16)) |
                                      (mode & 0xFFFFu));
}

// Marks an element; returns the clear mask inverted, which callers of the vertex form rely on.
template <class Element>
std::uint32_t mark(Element *element, std::uint32_t mode) noexcept {
    element->marks = marked(element->marks, mode);
    return ~(mode >> 16);
}

// A mode as a filter over the element's flag word and mark word taken together (flags low,
// marks high): one masked compare tests the required marks, the forbidden marks and, unless
// dead elements are shown, the dead bit.
class MarkFilter {
  public:
    MarkFilter(std::uint32_t mode, bool show_dead) noexcept
        : mask_((((mode & 0xFFFFu) | (mode >> 16)) << 16) | (show_dead ? 0u : kDead)),
          value_((mode & 0xFFFFu) << 16) {
        // A mark both required and forbidden: nothing passes (no masked word has a bit
        // outside the mask).
        if (((mode & 0xFFFFu) & (mode >> 16)) != 0) {
            mask_ = 0;
            value_ = 1;
        }
    }

    template <class Element>
    bool passes(const Element *element) const noexcept {
        const std::uint32_t word = static_cast<std::uint32_t>(element->flags) |
                                   (static_cast<std::uint32_t>(element->marks) << 16);
        return (word & mask_) == value_;
    }

  private:
    std::uint32_t mask_;
    std::uint32_t value_;
};

// Kinds and subsets, for the instance and delta machinery. An element joins the subset of its
// own mesh only (raises rc::bad_argument otherwise, std::bad_alloc); the subset keeps the order
// in which elements join it.
void set_kind(Mesh *mesh, std::uint32_t kind) noexcept;
void subset_add(Mesh *mesh, MeshVertex *vertex);
void subset_add(Mesh *mesh, MeshPolygon *polygon);
void subset_clear(Mesh *mesh) noexcept;

}  // namespace vx::mesh
