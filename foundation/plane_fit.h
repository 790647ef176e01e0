// The least-squares plane through positions (PlaneFit records of the C interface).
#pragma once

#include <vexor/plane_fit.h>

namespace vx {

void plane_fit_start(PlaneFit &fit) noexcept;
// Positions with a component that is not finite are skipped.
template <class Real>
void plane_fit_add(PlaneFit &fit, const Real position[3]) noexcept;
// Sets fit.centre and fit.normal; false when the positions fix no plane (normal zero then).
bool plane_fit_done(PlaneFit &fit) noexcept;

}  // namespace vx
