// The results of a run of calls as one list: the elements of a braced list are evaluated left
// to right, so the calls run in the order written, and one comparison shows every result.
#pragma once

#include <initializer_list>
#include <vector>

namespace vx::test {

inline std::vector<long long> in_order(std::initializer_list<long long> results) {
    return results;
}

}  // namespace vx::test
