// Plane fitting: the normal is the eigenvector of the positions' scatter matrix with the least
// eigenvalue, found by Eigen's symmetric eigen solver.
#include "foundation/plane_fit.h"

#include <cmath>
#include <cstring>

#include <Eigen/Eigenvalues>

namespace vx {

void plane_fit_start(PlaneFit &fit) noexcept {
    std::memset(&fit, 0, sizeof fit);
}

template <class Real>
void plane_fit_add(PlaneFit &fit, const Real position[3]) noexcept {
    double p[3];
    for (int k = 0; k < 3; ++k) {
        p[k] = static_cast<double>(position[k]);
        if (!std::isfinite(p[k])) return;
    }
    if (fit.count == 0)
        for (int k = 0; k < 3; ++k) fit.origin[k] = p[k];
    // Relative to the first position, so that a small patch far from the origin keeps its
    // precision in the squared sums.
    const double d[3] = {p[0] - fit.origin[0], p[1] - fit.origin[1], p[2] - fit.origin[2]};
    for (int k = 0; k < 3; ++k) fit.sum[k] += d[k];
    fit.sum2[0] += d[0] * d[0];
    fit.sum2[1] += d[0] * d[1];
    fit.sum2[2] += d[0] * d[2];
    fit.sum2[3] += d[1] * d[1];
    fit.sum2[4] += d[1] * d[2];
    fit.sum2[5] += d[2] * d[2];
    ++fit.count;
}

template void plane_fit_add<double>(PlaneFit &, const double[3]) noexcept;
template void plane_fit_add<float>(PlaneFit &, const float[3]) noexcept;

bool plane_fit_done(PlaneFit &fit) noexcept {
    for (int k = 0; k < 3; ++k) fit.normal[k] = 0.0;
    if (fit.count == 0) {
        for (int k = 0; k < 3; ++k) fit.centre[k] = 0.0;
        return false;
    }
    const double n = fit.count;
    const double mean[3] = {fit.sum[0] / n, fit.sum[1] / n, fit.sum[2] / n};
    for (int k = 0; k < 3; ++k) fit.centre[k] = fit.origin[k] + mean[k];
    if (fit.count < 3) return false;
    // The scatter about the mean.
    Eigen::Matrix3d scatter;
    scatter(0, 0) = fit.sum2[0] - n * mean[0] * mean[0];
    scatter(0, 1) = scatter(1, 0) = fit.sum2[1] - n * mean[0] * mean[1];
    scatter(0, 2) = scatter(2, 0) = fit.sum2[2] - n * mean[0] * mean[2];
    scatter(1, 1) = fit.sum2[3] - n * mean[1] * mean[1];
    scatter(1, 2) = scatter(2, 1) = fit.sum2[4] - n * mean[1] * mean[2];
    scatter(2, 2) = fit.sum2[5] - n * mean[2] * mean[2];
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(scatter);
    if (solver.info() != Eigen::Success) return false;
    const Eigen::Vector3d spread = solver.eigenvalues();  // ascending
    // All the same position, or all on one line: no plane.
    if (!(spread[2] > 0.0) || spread[1] <= 1e-12 * spread[2]) return false;
    Eigen::Vector3d normal = solver.eigenvectors().col(0).normalized();
    int largest = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(normal[k]) > std::fabs(normal[largest])) largest = k;
    if (normal[largest] < 0.0) normal = -normal;
    for (int k = 0; k < 3; ++k) fit.normal[k] = normal[k];
    return true;
}

}  // namespace vx

extern "C" {

VX_API void PlaneFitStart(PlaneFit *fit, unsigned int) {
    if (fit != nullptr) vx::plane_fit_start(*fit);
}

VX_API void PlaneFitAddPos(PlaneFit *fit, const double position[3]) {
    if (fit != nullptr && position != nullptr) vx::plane_fit_add(*fit, position);
}

VX_API void PlaneFitAddPosF(PlaneFit *fit, const float position[3]) {
    if (fit != nullptr && position != nullptr) vx::plane_fit_add(*fit, position);
}

VX_API int PlaneFitDone(PlaneFit *fit) {
    return fit != nullptr && vx::plane_fit_done(*fit) ? 1 : 0;
}

}  // extern "C"
