// Enumeration of vertices and polygons: the plain walk with its optional monitor, the walk of
// dead elements, and the walk split into one share per processor.
#include "mesh/enum.h"

#include <algorithm>
#include <thread>
#include <vector>

#include "foundation/component.h"

namespace vx::mesh {

namespace {

// Lists shorter than this many elements a share are not worth a thread.
constexpr std::size_t kSmallestShare = 4096;

const MonitorMethods *monitor_table(void *monitor) noexcept {
    if (monitor == nullptr) return nullptr;
    return static_cast<const MonitorMethods *>(vx::com::find_interface(monitor, MONITOR_GUID));
}

// A step result with the sign bit set is a failure code: the monitor asks the walk to stop.
bool asks_to_stop(std::uint32_t step_result) noexcept {
    return (step_result & 0x80000000u) != 0;
}

// The code the walk returns when the monitor stops it.
constexpr std::uint32_t kAborted = 1;

template <class Element, class Func>
std::uint32_t enumerate_with(Mesh *mesh, std::uint32_t mode, Func visit, void *data, void *argument,
                             void *monitor) {
    if (mesh == nullptr || visit == nullptr) return 0;
    const WalkPlan<Element> plan = plan_walk<Element>(mesh, mode);
    const MonitorMethods *table = monitor_table(monitor);
    if (table == nullptr) {
        return walk(plan, [&](Element *element) { return visit(element, data, argument); });
    }
    // A non-zero result from a visit is returned before the monitor hears of the step.
    return walk(plan, [&](Element *element) -> std::uint32_t {
        if (const std::uint32_t result = visit(element, data, argument); result != 0) {
            return result;
        }
        return asks_to_stop(table->Step(monitor, 1)) ? kAborted : 0;
    });
}

template <class Element, class Func>
std::uint32_t enumerate_dead_with(Mesh *mesh, Func visit, void *data, void *argument,
                                  std::uint32_t owns_bit) {
    if (mesh == nullptr || visit == nullptr || (mesh->flags & owns_bit) == 0) return 0;
    const ElementList<Element> *items;
    if constexpr (std::is_same_v<Element, MeshVertex>) {
        items = mesh->vertices;
    } else {
        items = mesh->polygons;
    }
    for (std::size_t i = 0; i < items->size(); ++i) {
        Element *element = (*items)[i];
        if ((element->flags & kDead) == 0) continue;
        if (const std::uint32_t code = visit(element, data, argument); code != 0) return code;
    }
    return 0;
}

// Walks the elements [begin, end) of a plan; the threaded walk forbids changes to the lists, so
// they stay put while the shares run.
template <class Element, class Func>
std::uint32_t walk_share(const WalkPlan<Element> &items, std::size_t begin, std::size_t end,
                         MarkFilter filter, Func visit, void *data, void *argument) noexcept {
    if (items.list != nullptr && items.list->store != nullptr) {
        const ElementStore<Element> &store = *items.list->store;
        for (std::size_t i = begin; i < end;) {
            std::size_t count = 0;
            Element *run = store.run(i, count);
            if (count > end - i) count = end - i;
            for (std::size_t k = 0; k < count; ++k, ++i) {
                if (!filter.passes(run + k)) continue;
                if (const std::uint32_t code = visit(run + k, data, argument); code != 0) {
                    return code;
                }
            }
        }
        return 0;
    }
    for (std::size_t i = begin; i < end; ++i) {
        Element *element = items[i];
        if (!filter.passes(element)) continue;
        if (const std::uint32_t code = visit(element, data, argument); code != 0) return code;
    }
    return 0;
}

template <class Element, class Func>
std::uint32_t enumerate_threaded_with(Mesh *mesh, std::uint32_t mode, Func visit, void *data,
                                      void *argument) noexcept {
    if (mesh == nullptr || visit == nullptr) return 0;
    const WalkPlan<Element> plan = plan_walk<Element>(mesh, mode);
    const WalkPlan<Element> &items = plan;
    const std::size_t count = plan.size();

    const std::size_t processors = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t shares =
        std::min(processors, std::max<std::size_t>(1, count / kSmallestShare));
    if (shares == 1) return walk_share(items, 0, count, plan.filter, visit, data, argument);

    std::vector<std::uint32_t> results;
    std::vector<std::thread> threads;
    try {
        results.assign(shares, 0);
        threads.reserve(shares - 1);
    } catch (...) {
        return walk_share(items, 0, count, plan.filter, visit, data, argument);
    }
    auto run_share = [&](std::size_t share) noexcept {
        const std::size_t begin = count * share / shares;
        const std::size_t end = count * (share + 1) / shares;
        results[share] = walk_share(items, begin, end, plan.filter, visit, data, argument);
    };
    for (std::size_t share = 1; share < shares; ++share) {
        try {
            threads.emplace_back(run_share, share);
        } catch (...) {
            // No thread to be had: this share runs here, the rest still in parallel.
            run_share(share);
        }
    }
    run_share(0);
    for (std::thread &thread : threads) thread.join();
    for (const std::uint32_t result : results) {
        if (result != 0) return result;
    }
    return 0;
}

}  // namespace

std::uint32_t enumerate(Mesh *mesh, std::uint32_t mode, MeshVertexVisitFunc visit, void *data,
                        void *argument, void *monitor) {
    return enumerate_with<MeshVertex>(mesh, mode, visit, data, argument, monitor);
}

std::uint32_t enumerate(Mesh *mesh, std::uint32_t mode, MeshPolygonVisitFunc visit, void *data,
                        void *argument, void *monitor) {
    return enumerate_with<MeshPolygon>(mesh, mode, visit, data, argument, monitor);
}

std::uint32_t enumerate_dead(Mesh *mesh, MeshVertexVisitFunc visit, void *data, void *argument) {
    return enumerate_dead_with<MeshVertex>(mesh, visit, data, argument, MESH_OWNS_VERTICES);
}

std::uint32_t enumerate_dead(Mesh *mesh, MeshPolygonVisitFunc visit, void *data, void *argument) {
    return enumerate_dead_with<MeshPolygon>(mesh, visit, data, argument, MESH_OWNS_POLYGONS);
}

std::uint32_t enumerate_threaded(Mesh *mesh, std::uint32_t mode, MeshVertexVisitFunc visit,
                                 void *data, void *argument) noexcept {
    return enumerate_threaded_with<MeshVertex>(mesh, mode, visit, data, argument);
}

std::uint32_t enumerate_threaded(Mesh *mesh, std::uint32_t mode, MeshPolygonVisitFunc visit,
                                 void *data, void *argument) noexcept {
    return enumerate_threaded_with<MeshPolygon>(mesh, mode, visit, data, argument);
}

}  // namespace vx::mesh
