// The library's maths against the system's libm. Bounds, measured with margin on x86-64:
//   exp2core, log2: relative 1e-15 (subnormal results of exp2core: 4 subnormal units);
//   exp, sqrt, pow: relative 1e-15 (1 + |v|), v the argument of the exponential core, because the
//     product that forms v is rounded before the core sees it;
//   hypot: relative 2e-15; cos, sin: absolute 1e-15 (1 + |x|), the turn reduction loses more as
//     |x| grows; tan: absolute 1e-15 (1 + tan^2); atan, atan2: absolute 1e-15; asin, acos:
//     absolute 1e-15 (1 + 1 / sqrt(1 - x^2)); cosh, sinh: 1e-15 (1 + |x|) cosh x; tanh: 1e-15.
#include "foundation/maths.h"

#include <gtest/gtest.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kDenormMin = std::numeric_limits<double>::denorm_min();

uint64_t bits(double x) {
    uint64_t b;
    memcpy(&b, &x, sizeof b);
    return b;
}
double fromBits(uint64_t b) {
    double x;
    memcpy(&x, &b, sizeof x);
    return x;
}

class MathsTest : public ::testing::Test {
protected:
    double uniform(double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng);
    }
    std::mt19937_64 rng{20250811};
    static constexpr int kSamples = 200000;
};

double relative(double r, double ref) {
    return std::fabs(r - ref) / std::fabs(ref);
}

TEST_F(MathsTest, Exp2CoreAgainstLibm) {
    for (int i = 0; i < kSamples; ++i) {
        double v = uniform(-1022.0, 1024.0);
        ASSERT_LE(relative(tav_sr2_exp2core(v), std::exp2(v)), 1e-15) << v;
        double small = uniform(-1074.0, -1022.0);  // subnormal results
        ASSERT_LE(std::fabs(tav_sr2_exp2core(small) - std::exp2(small)), 4 * kDenormMin) << small;
    }
    // Whole powers come out exact, normal and subnormal alike.
    for (int n = -1074; n <= 1023; ++n)
        ASSERT_EQ(tav_sr2_exp2core(n), std::ldexp(1.0, n)) << n;
    EXPECT_EQ(tav_sr2_exp2core(-1075.0), 0.0);
    EXPECT_EQ(tav_sr2_exp2core(-1074.5), kDenormMin);
    EXPECT_EQ(tav_sr2_exp2core(1024.0), kInf);
    EXPECT_EQ(tav_sr2_exp2core(kInf), kInf);
    EXPECT_EQ(tav_sr2_exp2core(-kInf), 0.0);
    EXPECT_TRUE(std::isnan(tav_sr2_exp2core(std::nan(""))));
}

TEST_F(MathsTest, Log2AgainstLibm) {
    for (int i = 0; i < kSamples; ++i) {
        double x = std::exp2(uniform(-1021.0, 1023.0));
        ASSERT_LE(relative(tav_sr2_log2(x), std::log2(x)), 1e-15) << x;
        double near_one = uniform(0.5, 2.0);  // both sides of the sqrt(2) split
        ASSERT_LE(std::fabs(tav_sr2_log2(near_one) - std::log2(near_one)), 5e-16) << near_one;
        double subnormal =
            fromBits(std::uniform_int_distribution<uint64_t>(1, (1ull << 52) - 1)(rng));
        ASSERT_LE(relative(tav_sr2_log2(subnormal), std::log2(subnormal)), 1e-15) << subnormal;
    }
    EXPECT_EQ(tav_sr2_log2(kDenormMin), -1074.0);
    EXPECT_EQ(tav_sr2_log2(kInf), kInf);
    EXPECT_EQ(tav_sr2_log2(0.0), -kInf);
    EXPECT_EQ(tav_sr2_log2(-0.0), -kInf);
    EXPECT_EQ(bits(tav_sr2_log2(-1.0)), 0xFFF8000000000000ull);
    EXPECT_EQ(bits(tav_sr2_log2(-kInf)), 0xFFF8000000000000ull);
    // A NaN comes back quiet, with its payload and sign.
    EXPECT_EQ(bits(tav_sr2_log2(fromBits(0x7FF0000000000123ull))), 0x7FF8000000000123ull);
    EXPECT_EQ(bits(tav_sr2_log2(fromBits(0xFFF8000000000005ull))), 0xFFF8000000000005ull);
}

TEST_F(MathsTest, ExpSqrtPowAgainstLibm) {
    for (int i = 0; i < kSamples; ++i) {
        double x = uniform(-700.0, 700.0);
        ASSERT_LE(relative(tav_sr2_exp(x), std::exp(x)), 1e-15 * (1 + std::fabs(x) * 1.45)) << x;

        double s = std::exp2(uniform(-1000.0, 1000.0));
        double v = 0.5 * std::log2(s);
        ASSERT_LE(relative(tav_sr2_sqrt(s), std::sqrt(s)), 1e-15 * (1 + std::fabs(v))) << s;

        double base = std::exp2(uniform(-30.0, 30.0));
        double y = uniform(-20.0, 20.0);
        double pv = y * std::log2(base);
        ASSERT_LE(relative(tav_sr2_pow(base, y), std::pow(base, y)), 1e-15 * (1 + std::fabs(pv)))
            << base << "^" << y;
    }
    EXPECT_EQ(tav_sr2_exp(1000.0), kInf);
    EXPECT_EQ(tav_sr2_exp(-1000.0), 0.0);
    EXPECT_EQ(tav_sr2_sqrt(kInf), kInf);
    EXPECT_TRUE(std::isnan(tav_sr2_sqrt(-1.0)));
}

TEST_F(MathsTest, HypotAgainstLibm) {
    for (int i = 0; i < kSamples; ++i) {
        double x = uniform(-1e6, 1e6) * std::exp2(uniform(-20, 20));
        double y = uniform(-1e6, 1e6) * std::exp2(uniform(-20, 20));
        ASSERT_LE(relative(tav_sr2_hypot(x, y), std::hypot(x, y)), 2e-15) << x << ", " << y;
    }
    EXPECT_EQ(tav_sr2_hypot(0.0, -0.0), 0.0);
    EXPECT_EQ(tav_sr2_hypot(0.0, -2.5), 2.5);  // (0 / 2.5)^2 + 1 is exactly 1
    EXPECT_EQ(tav_sr2_hypot(-kInf, 1.0), kInf);
    EXPECT_EQ(tav_sr2_hypot(std::nan(""), kInf), kInf);
}

TEST_F(MathsTest, TrigonometryAgainstLibm) {
    for (int i = 0; i < kSamples; ++i) {
        double x = i % 2 ? uniform(-4.0, 4.0) : uniform(-1e4, 1e4);
        double turn_bound = 1e-15 * (1 + std::fabs(x));
        ASSERT_LE(std::fabs(tav_sr2_cos(x) - std::cos(x)), turn_bound) << x;
        ASSERT_LE(std::fabs(tav_sr2_sin(x) - std::sin(x)), turn_bound) << x;

        double a = uniform(-1.55, 1.55);
        double t = std::tan(a);
        ASSERT_LE(std::fabs(tav_sr2_tan(a) - t), 1e-15 * (1 + t * t)) << a;

        double slope = std::tan(uniform(-1.5707, 1.5707));
        ASSERT_LE(std::fabs(tav_sr2_atan(slope) - std::atan(slope)), 1e-15) << slope;

        double px = uniform(-1e3, 1e3), py = uniform(-1e3, 1e3);
        ASSERT_LE(std::fabs(tav_sr2_atan2(py, px) - std::atan2(py, px)), 1e-15) << py << ", " << px;

        double s = uniform(-1.0, 1.0);
        double asin_bound = 1e-15 * (1 + 1 / std::sqrt(1 - s * s));
        ASSERT_LE(std::fabs(tav_sr2_asin(s) - std::asin(s)), asin_bound) << s;
        ASSERT_LE(std::fabs(tav_sr2_acos(s) - std::acos(s)), asin_bound) << s;
    }
    EXPECT_TRUE(std::isnan(tav_sr2_cos(kInf)));
    EXPECT_TRUE(std::isnan(tav_sr2_sin(-kInf)));
    EXPECT_LE(std::fabs(tav_sr2_cos(1e300)), 1.0);  // ends, without accuracy
    EXPECT_EQ(tav_sr2_atan(kInf), M_PI_2);
    // The axes and the signed zeros of atan2.
    EXPECT_EQ(tav_sr2_atan2(0.0, 0.0), 0.0);
    EXPECT_EQ(tav_sr2_atan2(0.0, -0.0), M_PI);
    EXPECT_EQ(tav_sr2_atan2(-0.0, -0.0), -M_PI);
    EXPECT_TRUE(std::signbit(tav_sr2_atan2(-0.0, 0.0)));
    EXPECT_EQ(tav_sr2_atan2(0.0, -1.0), M_PI);
    EXPECT_EQ(tav_sr2_atan2(-0.0, -1.0), -M_PI);
    EXPECT_EQ(tav_sr2_atan2(2.0, 0.0), M_PI_2);
    EXPECT_EQ(tav_sr2_asin(1.0), M_PI_2);
    EXPECT_EQ(tav_sr2_acos(1.0), 0.0);
}

// Floor of the square root by definition: r^2 <= n < (r + 1)^2.
bool isFloorSqrt(int32_t n, int32_t r) {
    int64_t r64 = r;
    return r64 * r64 <= n && (r64 + 1) * (r64 + 1) > n;
}

TEST_F(MathsTest, IntegerSquareRoot) {
    EXPECT_EQ(tav_sr2_isqrt(0), 0);
    EXPECT_EQ(tav_sr2_isqrt(INT32_MAX), 46340);
    EXPECT_EQ(tav_sr2_isqrt(-5), 0);
    EXPECT_EQ(tav_sr2_isqrt(INT32_MIN), 0);
    for (int32_t n = 1; n <= (1 << 20); ++n)
        ASSERT_TRUE(isFloorSqrt(n, tav_sr2_isqrt(n))) << n;
    for (int32_t k = 2; k <= 46340; ++k) {
        for (int32_t n : {k * k - 1, k * k, k * k + 1}) {
            ASSERT_TRUE(isFloorSqrt(n, tav_sr2_isqrt(n))) << n;
        }
    }
    std::uniform_int_distribution<int32_t> any(1, INT32_MAX);
    for (int i = 0; i < kSamples; ++i) {
        int32_t n = any(rng);
        ASSERT_TRUE(isFloorSqrt(n, tav_sr2_isqrt(n))) << n;
    }
}

}  // namespace
