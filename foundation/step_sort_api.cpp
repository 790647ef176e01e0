// The C interface of the stepwise sort.
#include <vexor/sort.h>

#include "foundation/guard.h"
#include "foundation/step_sort.h"

namespace {

struct CompareThrough {
    SortCompareFunc compare;
    void *client;
    bool operator()(void *a, void *b) const { return compare(a, b, client) < 0; }
};

}  // namespace

struct SortState {
    vx::StepSort<void *, CompareThrough> sort;
};

extern "C" {

VX_API SortState *SortCreate(void **items, unsigned int count, SortCompareFunc compare,
                             void *client) {
    return vx::guard<SortState *>(nullptr, [&]() -> SortState * {
        if ((items == nullptr && count != 0) || compare == nullptr)
            vx::fail(vx::rc::bad_argument, "SortCreate needs an array and a comparison");
        return new SortState{vx::StepSort<void *, CompareThrough>(items, count, {compare, client})};
    });
}

VX_API int SortStep(SortState *sort) {
    if (sort == nullptr) return 0;
    return sort->sort.step() ? 1 : 0;
}

VX_API void SortDestroy(SortState *sort) {
    delete sort;
}

}  // extern "C"
