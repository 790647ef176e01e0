// The frame rate and the Hermite basis the curves are built on.
#include "foundation/foundation_fixture.h"

#include <vexor/maths.h>
#include <vexor/time.h>

#include "foundation/maths.h"
#include "foundation/time.h"

namespace vx {
namespace {

TEST(TimeGlobalFPS, StartsAtTwentyFourAndRefusesRatesThatAreNotFiniteAndPositive) {
    EXPECT_EQ(TimeGlobalFPS(), 24.0);
    TimeSetGlobalFPS(29.97);
    constexpr double kInf = std::numeric_limits<double>::infinity();
    for (double bad : {0.0, -0.0, -25.0, std::numeric_limits<double>::quiet_NaN(), kInf, -kInf}) {
        EXPECT_THROW(TimeSetGlobalFPS(bad), Failure) << bad;
        EXPECT_EQ(::TimeSetGlobalFPS(bad), 0);
        EXPECT_EQ(VxLastFailure().code, VX_E_BADARG);
        EXPECT_EQ(::TimeGlobalFPS(), 29.97) << "a refused rate leaves the rate as it was";
    }
    EXPECT_EQ(::TimeSetGlobalFPS(1e-3), 1);
    EXPECT_EQ(TimeGlobalFPS(), 1e-3);
    TimeSetGlobalFPS(24.0);
}

// A Hermite span b0 p0 + b1 p1 + b2 m0 + b3 m1 reproduces any cubic from its end values and
// end slopes; a wrong coefficient anywhere shows.
TEST(Hermite, ReproducesACubicFromItsEndValuesAndSlopesInCxxAndC) {
    // f(u) = 2u^3 - u^2 + 3u - 1: f(0) = -1, f(1) = 3, f'(0) = 3, f'(1) = 7.
    auto f = [](double u) { return ((2.0 * u - 1.0) * u + 3.0) * u - 1.0; };
    for (double u = -0.5; u <= 1.5; u += 0.125) {
        double cxx[4], c[4];
        Hermite(u, cxx);
        ::Hermite(u, c);
        EXPECT_NEAR(-cxx[0] + 3.0 * cxx[1] + 3.0 * cxx[2] + 7.0 * cxx[3], f(u), 1e-12) << u;
        for (int k = 0; k < 4; ++k) EXPECT_EQ(c[k], cxx[k]);
    }
}

}  // namespace
}  // namespace vx
