#include "foundation/trans2d.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

class Trans2DTest : public ::testing::Test {
protected:
    double uniform(double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng);
    }

    // A camera-like homography: rotation, scale, shear, a shift of up to 100 pixels and a mild
    // perspective, scaled by a random factor as the record is homogeneous.
    tav_sr2_Trans2D randomHomography() {
        double a = uniform(-0.3, 0.3), s = uniform(0.7, 1.4), k = uniform(-0.1, 0.1);
        double h = uniform(0.2, 3.0);
        tav_sr2_Trans2D t = {
            {s * std::cos(a), -s * std::sin(a) + k, uniform(-100, 100), s * std::sin(a),
             s * std::cos(a), uniform(-100, 100), uniform(-3e-5, 3e-5), uniform(-3e-5, 3e-5), 1.0},
            {0, 0, 0}};
        for (double& v : t.m)
            v *= h;
        return t;
    }

    // Reference projection in long double.
    static void project(const tav_sr2_Trans2D& t, long double x, long double y, long double* ox,
                        long double* oy) {
        const double* m = t.m;
        long double den = m[6] * x + m[7] * y + (long double)m[8];
        *ox = (m[0] * x + m[1] * y + (long double)m[2]) / den;
        *oy = (m[3] * x + m[4] * y + (long double)m[5]) / den;
    }

    std::mt19937_64 rng{42};
};

// Two transforms agree on a grid of points over a 4000-pixel frame.
void expectSameMapping(const tav_sr2_Trans2D& a, const tav_sr2_Trans2D& b, double tol) {
    for (double y = 0; y <= 3000; y += 750) {
        for (double x = 0; x <= 4000; x += 1000) {
            double ax, ay, bx, by;
            tav_sr2_Trans2D_apply(&a, &ax, &ay, x, y);
            tav_sr2_Trans2D_apply(&b, &bx, &by, x, y);
            ASSERT_NEAR(ax, bx, tol) << "at " << x << ", " << y;
            ASSERT_NEAR(ay, by, tol) << "at " << x << ", " << y;
        }
    }
}

TEST_F(Trans2DTest, ComposeAndInvertRoundTrips) {
    for (int i = 0; i < 500; ++i) {
        tav_sr2_Trans2D a = randomHomography(), b = randomHomography(), ab, inv;
        ASSERT_EQ(tav_sr2_Trans2D_multiply(&ab, &a, &b), TAV_OK);
        for (int p = 0; p < 8; ++p) {
            double x = uniform(0, 4000), y = uniform(0, 3000), bx, by, abx, aby, ax, ay;
            tav_sr2_Trans2D_apply(&b, &bx, &by, x, y);
            tav_sr2_Trans2D_apply(&a, &ax, &ay, bx, by);
            tav_sr2_Trans2D_apply(&ab, &abx, &aby, x, y);
            ASSERT_NEAR(abx, ax, 1e-8);
            ASSERT_NEAR(aby, ay, 1e-8);
        }
        ASSERT_EQ(tav_sr2_Trans2D_invert(&inv, &a), TAV_OK);
        tav_sr2_Trans2D round_trip, identity;
        tav_sr2_Trans2D_identity(&identity);
        tav_sr2_Trans2D_multiply(&round_trip, &inv, &a);
        expectSameMapping(round_trip, identity, 1e-8);

        // Aliased forms: out may be an operand.
        tav_sr2_Trans2D in_place = a;
        tav_sr2_Trans2D_multiply(&in_place, &in_place, &b);
        expectSameMapping(in_place, ab, 0.0);
        in_place = b;
        tav_sr2_Trans2D_multiply(&in_place, &a, &in_place);
        expectSameMapping(in_place, ab, 0.0);
        in_place = a;
        tav_sr2_Trans2D_invert(&in_place, &in_place);
        expectSameMapping(in_place, inv, 0.0);
    }
}

// Nearest integer with halves away from zero, when v is not within 1e-6 of a half.
bool referenceRound(long double v, int32_t* out) {
    long double f = std::floor(v);
    long double frac = v - f;
    if (std::fabs(frac - 0.5L) < 1e-6L) return false;
    *out = (int32_t)(frac > 0.5L ? f + 1 : f);
    return true;
}

TEST_F(Trans2DTest, FixedPointApplicationRounds) {
    int checked = 0;
    for (int i = 0; i < 2000; ++i) {
        tav_sr2_Trans2D t = randomHomography();
        int32_t qx = (int32_t)uniform(-1000 * 32768.0, 5000 * 32768.0);
        int32_t qy = (int32_t)uniform(-1000 * 32768.0, 4000 * 32768.0);
        long double rx, ry;
        project(t, qx / 32768.0L, qy / 32768.0L, &rx, &ry);
        int32_t ox, oy, ex, ey;
        ASSERT_EQ(tav_sr2_Trans2D_applyQ15(&t, &ox, &oy, qx, qy), TAV_OK);
        if (referenceRound(rx * 32768, &ex) && referenceRound(ry * 32768, &ey)) {
            ASSERT_EQ(ox, ex) << i;
            ASSERT_EQ(oy, ey) << i;
            ++checked;
        }
        int32_t ix = qx >> 15, iy = qy >> 15;
        project(t, ix, iy, &rx, &ry);
        ASSERT_EQ(tav_sr2_Trans2D_applyInt(&t, &ox, &oy, ix, iy), TAV_OK);
        if (referenceRound(rx, &ex) && referenceRound(ry, &ey)) {
            ASSERT_EQ(ox, ex) << i;
            ASSERT_EQ(oy, ey) << i;
            ++checked;
        }
    }
    EXPECT_GT(checked, 3900);

    // Exact halves go away from zero. A shift of half a unit, in a record scaled by 0.5 so
    // that m8 is not 1.
    tav_sr2_Trans2D half_int = {{0.5, 0, 0.25, 0, 0.5, -0.25, 0, 0, 0.5}, {0, 0, 0}};
    int32_t ox, oy;
    tav_sr2_Trans2D_applyInt(&half_int, &ox, &oy, 2, 2);  // 2.5, 1.5
    EXPECT_EQ(ox, 3);
    EXPECT_EQ(oy, 2);
    tav_sr2_Trans2D_applyInt(&half_int, &ox, &oy, -3, -3);  // -2.5, -3.5
    EXPECT_EQ(ox, -3);
    EXPECT_EQ(oy, -4);
    tav_sr2_Trans2D half_q15 = {{0.5, 0, 0.25 / 32768, 0, 0.5, -0.25 / 32768, 0, 0, 0.5},
                                {0, 0, 0}};
    tav_sr2_Trans2D_applyQ15(&half_q15, &ox, &oy, 40000, -40000);  // 40000.5, -40000.5
    EXPECT_EQ(ox, 40001);
    EXPECT_EQ(oy, -40001);

    // Results beyond i32 saturate; a point on the horizon (zero denominator) as well.
    tav_sr2_Trans2D big = {{1e6, 0, 0, 0, 1e6, 0, 0, 0, 1}, {0, 0, 0}};
    tav_sr2_Trans2D_applyInt(&big, &ox, &oy, 5000, -5000);
    EXPECT_EQ(ox, INT32_MAX);
    EXPECT_EQ(oy, INT32_MIN);
    tav_sr2_Trans2D horizon = {{1, 0, 0, 0, 1, 0, 0.01, 0, 0}, {0, 0, 0}};
    tav_sr2_Trans2D_applyInt(&horizon, &ox, &oy, 0, 7);  // 0 / 0 and 7 / 0
    EXPECT_EQ(ox, 0);
    EXPECT_EQ(oy, INT32_MAX);
}

}  // namespace
