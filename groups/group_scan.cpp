// The scan over a hierarchy of groups: which groups a scope starts from and takes in, then a
// callback for each member of each, forwards or in exactly the reverse order.
#include <algorithm>

#include "groups/group.h"
#include "scene/scene.h"

namespace vx::group {
namespace {

// Climbs through parents that have this one child only; stops at the first ancestor with more
// than one child (or the root).
CineItem *branching_ancestor(CineItem &group) noexcept {
    CineItem *at = &group;
    while (CineItem *parent = cine::item_parent(*at)) {
        at = parent;
        if (cine::child_count(*parent) > 1) break;
    }
    return at;
}

CineItem *root_of(CineItem &item) noexcept {
    CineItem *at = &item;
    while (CineItem *parent = cine::item_parent(*at)) at = parent;
    return at;
}

CineItem *start_of(CineItem &group, std::uint32_t scope) noexcept {
    switch (scope) {
        case 2:
            return branching_ancestor(group);
        case 3:
            return cine::item_parent(*branching_ancestor(group));
        case 4:
            return root_of(group);
        default:
            return &group;
    }
}

void add_below(CineItem &item, std::vector<CineItem *> &groups) {
    for (std::size_t i = 0, n = cine::child_count(item); i < n; ++i) {
        CineItem *child = cine::child_at(item, i);
        if (is_group(*child)) groups.push_back(child);
        add_below(*child, groups);
    }
}

struct Visit {
    CineItem *group;
    CineItem *item;
    std::uint32_t channel;
};

}  // namespace

std::vector<CineItem *> scan_groups(CineItem &group, std::uint32_t scope) {
    CineItem *start = start_of(group, scope);
    if (start == nullptr) start = &group;
    std::vector<CineItem *> groups;
    if (scope != 3 && is_group(*start)) groups.push_back(start);
    if (scope != 0) add_below(*start, groups);
    return groups;
}

int scan(CineItem &group, std::uint32_t what, GroupScanFunc func, std::uint32_t scope, void *client,
         bool reverse) {
    if (what > 1) return 0;
    // The whole visit is listed first, so that the reverse scan is exactly the forward one
    // backwards.
    std::vector<Visit> visits;
    for (CineItem *g : scan_groups(group, scope)) {
        for (std::size_t i = 0, n = member_count(*g, what != 0); i < n; ++i) {
            Visit visit{g, nullptr, 0xFFFFFFFFu};
            if (what == 0) {
                visit.item = member_item(*g, i);
            } else {
                member_channel(*g, i, visit.item, visit.channel);
            }
            visits.push_back(visit);
        }
    }
    if (reverse) std::reverse(visits.begin(), visits.end());
    for (const Visit &visit : visits) {
        if (const int result = func(visit.group, client, visit.item, visit.channel)) return result;
    }
    return 0;
}

}  // namespace vx::group
