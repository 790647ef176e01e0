// The results of a run of calls as one list: the elements of a braced list are evaluated left
// to right, so the calls run in the order written, and one comparison shows every result.
//     EXPECT_EQ(in_order({GroupAddItem(g, a), GroupAddItem(g, a)}), (Ints{1, 0}));
#pragma once

#include <initializer_list>
#include <vector>

namespace vx::test {

using Ints = std::vector<long long>;
using Ptrs = std::vector<const void *>;

inline Ints in_order(std::initializer_list<long long> results) {
    return results;
}
inline Ptrs in_order(std::initializer_list<const void *> results) {
    return results;
}

}  // namespace vx::test
