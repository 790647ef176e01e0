// The convex hull object behind the ConvexHull functions.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <vexor/axis.h>

#include "foundation/memory.h"

namespace vx {

struct HullPoint {
    double pos[3];    // as appended (z = 0 for 2D points)
    double u, v;      // in the hull's plane
    int32_t removed;  // set by the angular sort: not a hull vertex
    uint32_t index;   // insertion order
    uint64_t client;
};

// Positions already appended, keyed by their three floats: open addressing with linear
// probing, at most half full.
class DuplicateIndex {
  public:
    struct Key {
        uint32_t bits[3];
        bool operator==(const Key &other) const noexcept {
            return bits[0] == other.bits[0] && bits[1] == other.bits[1] && bits[2] == other.bits[2];
        }
    };
    static Key key_of(const double position[3]) noexcept;
    struct Slot {
        Key key;
        bool used;
    };
    bool contains(const Key &key) const noexcept;
    // The slots the index needs to take one more key, when it must grow for it (else empty):
    // made aside, so that a failure later in the same edit leaves the index as it was.
    std::vector<Slot> grown_for_one_more() const;
    // Takes the slots made by grown_for_one_more() (if any) and inserts the key; never fails.
    void insert(const Key &key, std::vector<Slot> &&grown) noexcept;

  private:
    std::size_t find(const Key &key) const noexcept;
    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

struct HullPlane {
    double centre[3] = {0, 0, 0};
    double normal[3] = {0, 0, 1};  // oriented so that normal[axis] > 0
};

class ConvexHullData {
  public:
    ConvexHullData();
    ~ConvexHullData();
    ConvexHullData(const ConvexHullData &) = delete;
    ConvexHullData &operator=(const ConvexHullData &) = delete;

    void start();
    // 0 added, 1 duplicate; raises on a refused point or when out of memory (nothing added).
    int append(const double position[3], double u, double v, bool is3d, uint64_t client);
    bool done();

    // The hull list, first element first (the last vertex the scan accepted).
    std::size_t hull_size() const noexcept { return stack_.size(); }
    const HullPoint &hull_vertex(std::size_t i) const noexcept {
        return *stack_[stack_.size() - 1 - i];
    }
    const AxisTest &axis_test() const noexcept { return axis_; }
    const HullPlane &plane() const noexcept { return plane_; }
    const std::vector<HullPoint *> &points() const noexcept { return points_; }

  private:
    void free_points() noexcept;
    void choose_projection();
    std::size_t find_pivot() const noexcept;
    void drop_inside_extremes() noexcept;
    void scan();

    BlockPool pool_;
    std::vector<HullPoint *> points_;
    std::vector<HullPoint *> stack_;  // the hull list: back() is its first element
    std::unique_ptr<DuplicateIndex> duplicates_;
    AxisTest axis_{};
    HullPlane plane_;
    bool is3d_ = false;
};

}  // namespace vx
