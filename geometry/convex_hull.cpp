// Building a convex hull: appends with the duplicate rule, the projection of 3D points, the
// angular sort around the pivot and the Graham scan.
#include "geometry/convex_hull.h"

#include <cmath>
#include <cstring>

#include "foundation/axis_test.h"
#include "foundation/failure.h"
#include "foundation/plane_fit.h"
#include "foundation/step_sort.h"
#include "foundation/vector_maths.h"

namespace vx {

DuplicateIndex::Key DuplicateIndex::key_of(const double position[3]) noexcept {
    Key key{};
    for (int k = 0; k < 3; ++k) {
        // Compared as floats: -0 and +0 are the same position.
        float f = static_cast<float>(position[k]);
        if (f == 0.0f) f = 0.0f;
        std::memcpy(&key.bits[k], &f, sizeof f);
    }
    return key;
}

std::size_t DuplicateIndex::find(const Key &key) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t h = key.bits[0] * 0x9E3779B1u;
    h ^= (h >> 15) ^ (key.bits[1] * 0x85EBCA77u);
    h ^= (h >> 13) ^ (key.bits[2] * 0xC2B2AE3Du);
    h ^= h >> 16;
    std::size_t i = h & mask;
    while (slots_[i].used && !(slots_[i].key == key)) i = (i + 1) & mask;
    return i;
}

bool DuplicateIndex::contains(const Key &key) const noexcept {
    return !slots_.empty() && slots_[find(key)].used;
}

std::vector<DuplicateIndex::Slot> DuplicateIndex::grown_for_one_more() const {
    if (2 * (used_ + 1) <= slots_.size()) return {};
    DuplicateIndex grown;
    grown.slots_.resize(slots_.empty() ? 64 : slots_.size() * 2);
    for (const Slot &slot : slots_)
        if (slot.used) grown.slots_[grown.find(slot.key)] = slot;
    return std::move(grown.slots_);
}

void DuplicateIndex::insert(const Key &key, std::vector<Slot> &&grown) noexcept {
    if (!grown.empty()) slots_.swap(grown);
    Slot &slot = slots_[find(key)];
    if (!slot.used) ++used_;
    slot = Slot{key, true};
}

ConvexHullData::ConvexHullData() : pool_(sizeof(HullPoint)) {
    axis_test_set(axis_, 2);
}

ConvexHullData::~ConvexHullData() {
    free_points();
}

void ConvexHullData::free_points() noexcept {
    for (HullPoint *p : points_) pool_.free(p);
    points_.clear();
    stack_.clear();
}

void ConvexHullData::start() {
    free_points();
    axis_test_set(axis_, 2);
    plane_ = HullPlane{};
    is3d_ = false;
    duplicates_ = std::make_unique<DuplicateIndex>();
}

int ConvexHullData::append(const double position[3], double u, double v, bool is3d,
                           uint64_t client) {
    if (!duplicates_) fail(rc::refused, "ConvexHullStart must come before appending");
    for (int k = 0; k < 3; ++k)
        if (!std::isfinite(position[k])) fail(rc::bad_argument, "a hull point must be finite");
    const DuplicateIndex::Key key = DuplicateIndex::key_of(position);
    if (duplicates_->contains(key)) return 1;
    // Everything that can fail is made aside first, the new point last (its pool may take a
    // new chunk), so that a failure leaves neither a point nor grown storage behind.
    std::vector<DuplicateIndex::Slot> grown = duplicates_->grown_for_one_more();
    std::vector<HullPoint *> larger;
    const bool grow = points_.size() == points_.capacity();
    if (grow) {
        larger.reserve(points_.capacity() * 2 + 16);
        larger.assign(points_.begin(), points_.end());
    }
    auto *point = static_cast<HullPoint *>(pool_.alloc());
    if (grow) points_.swap(larger);
    for (int k = 0; k < 3; ++k) point->pos[k] = position[k];
    point->u = u;
    point->v = v;
    point->removed = 0;
    point->index = static_cast<uint32_t>(points_.size());
    point->client = client;
    points_.push_back(point);
    duplicates_->insert(key, std::move(grown));
    if (is3d) is3d_ = true;
    return 0;
}

void ConvexHullData::choose_projection() {
    const std::size_t count = points_.size();
    PlaneFit fit;
    plane_fit_start(fit);
    for (const HullPoint *p : points_) plane_fit_add(fit, p->pos);
    double direction[3] = {0.0, 0.0, 1.0};
    bool chosen = plane_fit_done(fit);
    if (chosen) {
        std::memcpy(direction, fit.normal, sizeof direction);
    } else if (count >= 3) {
        const double *p0 = points_[0]->pos, *p1 = points_[1]->pos, *p2 = points_[2]->pos;
        const double a[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
        const double b[3] = {p2[0] - p0[0], p2[1] - p0[1], p2[2] - p0[2]};
        double n[3];
        cross(a, b, n);
        if (normalize(n) > 0.0) {
            std::memcpy(direction, n, sizeof direction);
            chosen = true;
        }
    } else {
        // Two points: their direction, not a normal, picks the projection.
        const double *p0 = points_[0]->pos, *p1 = points_[1]->pos;
        double d[3] = {p0[0] - p1[0], p0[1] - p1[1], p0[2] - p1[2]};
        if (normalize(d) > 0.0) {
            std::memcpy(direction, d, sizeof direction);
            chosen = true;
        }
    }
    if (chosen) {
        axis_test_set_from_vector(axis_, direction);
    } else {
        axis_test_set(axis_, 2);
    }
    for (HullPoint *p : points_) {
        double mapped[3];
        axis_test_multiply(mapped, axis_, p->pos);
        p->u = mapped[axis_.u];
        p->v = mapped[axis_.v];
    }
    // The plane the 3D answers are lifted onto: the fitted one, else the mean across the
    // dropped axis.
    std::memcpy(plane_.centre, fit.centre, sizeof plane_.centre);
    double n[3] = {0.0, 0.0, 0.0};
    if (fit.normal[0] != 0.0 || fit.normal[1] != 0.0 || fit.normal[2] != 0.0) {
        std::memcpy(n, fit.normal, sizeof n);
    } else {
        n[axis_.axis] = 1.0;
    }
    if (n[axis_.axis] < 0.0)
        for (double &c : n) c = -c;
    std::memcpy(plane_.normal, n, sizeof n);
}

namespace {

// The angular order around the pivot: by angle, then nearer first. Of two points on one ray
// the nearer is marked removed; of two in one place, the earlier appended.
struct AroundPivot {
    double pu, pv;
    bool operator()(HullPoint *a, HullPoint *b) const noexcept { return compare(a, b) < 0; }
    int compare(HullPoint *a, HullPoint *b) const noexcept {
        if (a->index == b->index) return 0;
        const double au = a->u - pu, av = a->v - pv, bu = b->u - pu, bv = b->v - pv;
        const double c = au * bv - bu * av;
        if (c > 0.0) return -1;
        if (c < 0.0) return 1;
        const double aau = std::fabs(au), aav = std::fabs(av), abu = std::fabs(bu),
                     abv = std::fabs(bv);
        if (aau < abu || aav < abv) {
            a->removed = 1;
            return -1;
        }
        if (abu < aau || abv < aav) {
            b->removed = 1;
            return 1;
        }
        (a->index <= b->index ? a : b)->removed = 1;
        return 0;
    }
};

}  // namespace

std::size_t ConvexHullData::find_pivot() const noexcept {
    // Smallest v, the largest u among equal v.
    std::size_t pivot = 0;
    for (std::size_t i = 1; i < points_.size(); ++i) {
        const HullPoint *p = points_[i], *best = points_[pivot];
        if (p->v < best->v || (p->v == best->v && p->u > best->u)) pivot = i;
    }
    return pivot;
}

// Points strictly inside the polygon of the extreme points (least and greatest u, v, u + v and
// u - v) can be no hull vertex and need not be sorted: dropping them first takes most of the
// work out of hulls of spread-out points. The test keeps a margin, so points near its edges,
// where rounding could misjudge them, stay.
void ConvexHullData::drop_inside_extremes() noexcept {
    const std::size_t count = points_.size();
    if (count < 8) return;
    const HullPoint *extreme[8];  // counter-clockwise from the bottom
    for (const HullPoint *&e : extreme) e = points_[0];
    for (const HullPoint *p : points_) {
        if (p->v < extreme[0]->v) extreme[0] = p;
        if (p->u - p->v > extreme[1]->u - extreme[1]->v) extreme[1] = p;
        if (p->u > extreme[2]->u) extreme[2] = p;
        if (p->u + p->v > extreme[3]->u + extreme[3]->v) extreme[3] = p;
        if (p->v > extreme[4]->v) extreme[4] = p;
        if (p->v - p->u > extreme[5]->v - extreme[5]->u) extreme[5] = p;
        if (p->u < extreme[6]->u) extreme[6] = p;
        if (-p->u - p->v > -extreme[7]->u - extreme[7]->v) extreme[7] = p;
    }
    double corner[8][2];
    std::size_t corners = 0;
    for (const HullPoint *e : extreme) {
        if (corners > 0 && corner[corners - 1][0] == e->u && corner[corners - 1][1] == e->v)
            continue;
        corner[corners][0] = e->u;
        corner[corners][1] = e->v;
        ++corners;
    }
    while (corners > 1 && corner[corners - 1][0] == corner[0][0] &&
           corner[corners - 1][1] == corner[0][1])
        --corners;
    if (corners < 3) return;
    double scale = 0.0;
    for (std::size_t k = 0; k < corners; ++k)
        scale = std::fmax(scale, std::fmax(std::fabs(corner[k][0]), std::fabs(corner[k][1])));
    const double margin = 1e-9 * scale * scale;
    std::size_t kept = 1;
    for (std::size_t i = 1; i < count; ++i) {
        HullPoint *p = points_[i];
        bool inside = true;
        for (std::size_t k = 0; k < corners && inside; ++k) {
            const double *a = corner[k], *b = corner[(k + 1) % corners];
            inside = (b[0] - a[0]) * (p->v - a[1]) - (b[1] - a[1]) * (p->u - a[0]) > margin;
        }
        if (inside) {
            pool_.free(p);
        } else {
            points_[kept++] = p;
        }
    }
    points_.resize(kept);
}

void ConvexHullData::scan() {
    stack_.clear();
    stack_.reserve(points_.size());
    stack_.push_back(points_[0]);
    stack_.push_back(points_[1]);
    for (std::size_t i = 2; i < points_.size(); ++i) {
        const HullPoint *p = points_[i];
        while (stack_.size() >= 2) {
            const HullPoint *top = stack_.back(), *below = stack_[stack_.size() - 2];
            const double turn =
                (p->v - below->v) * (top->u - below->u) - (top->v - below->v) * (p->u - below->u);
            if (turn > 0.0) break;
            stack_.pop_back();
        }
        stack_.push_back(points_[i]);
    }
}

bool ConvexHullData::done() {
    stack_.clear();
    if (points_.size() < 2) {
        duplicates_.reset();
        return false;
    }
    if (is3d_) choose_projection();
    const std::size_t pivot = find_pivot();
    const AroundPivot order{points_[pivot]->u, points_[pivot]->v};
    // What can fail comes before anything changes but the plane coordinates, which a retry
    // computes again: the sort's scratch and the room of the hull list.
    StepSort<HullPoint *, AroundPivot> sort(points_.data() + 1, points_.size() - 1, order);
    stack_.reserve(points_.size());
    duplicates_.reset();
    if (!is3d_) plane_ = HullPlane{};
    is3d_ = false;

    std::swap(points_[0], points_[pivot]);
    drop_inside_extremes();
    sort.restart(points_.data() + 1, points_.size() - 1);
    sort.run();
    // Points on one ray end up next to each other, nearer first. A correct sort compares
    // neighbours that differ, but not always neighbours that compare equal (two points in one
    // place), so neighbours are compared once more: which points are removed then does not
    // depend on which pairs the sort happened to compare.
    for (std::size_t i = 2; i < points_.size(); ++i) order.compare(points_[i - 1], points_[i]);
    std::size_t kept = 1;
    for (std::size_t i = 1; i < points_.size(); ++i) {
        if (points_[i]->removed == 0) {
            points_[kept++] = points_[i];
        } else {
            pool_.free(points_[i]);
        }
    }
    points_.resize(kept);
    scan();
    return true;
}

}  // namespace vx
