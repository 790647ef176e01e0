// The positions of a mesh's vertices: three 32-bit floats per vertex, stored densely by the
// vertex's slot (its number in order of creation within its mesh). Positions given as 64-bit
// floats are narrowed on the way in and widened on the way out. This is the storage behind the
// mesh's "OPOS" vertex map; reading a position is one indexed load.
#pragma once

#include <cstdint>

#include "mesh/mesh_storage.h"

namespace vx::mesh {

struct Position {
    float xyz[3];
};

class PositionMap {
  public:
    static constexpr unsigned kDimension = 3;

    using Growth = DenseArray<Position>::Growth;

    // Room for one more vertex; changes nothing.
    void prepare(Growth &growth) const { values_.prepare(growth, 1); }
    // Appends a position for the next slot (room prepared); returns the slot.
    std::uint32_t append(Growth &growth, const double position[3]) noexcept {
        values_.commit(growth);
        values_.push_back(narrow(position));
        return static_cast<std::uint32_t>(values_.size() - 1);
    }
    const float *set(std::uint32_t slot, const double position[3]) noexcept {
        values_[slot] = narrow(position);
        return values_[slot].xyz;
    }
    const float *get(std::uint32_t slot) const noexcept { return values_[slot].xyz; }
    std::size_t size() const noexcept { return values_.size(); }
    void release() noexcept { values_.release(); }

  private:
    static Position narrow(const double position[3]) noexcept {
        return Position{{static_cast<float>(position[0]), static_cast<float>(position[1]),
                         static_cast<float>(position[2])}};
    }
    DenseArray<Position> values_;
};

}  // namespace vx::mesh
