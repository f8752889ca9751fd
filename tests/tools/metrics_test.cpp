// Quality figures: PSNR's border and its infinity, SSIM against a direct two-dimensional
// computation, the bicubic enlarger on ramps, and the window registration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tools/toolkit/metrics.h"

namespace {

using tavtool::PlaneView;

std::vector<uint16_t> randomPlane(int32_t w, int32_t h, uint32_t seed, int32_t lo = 0,
                                  int32_t hi = 255) {
    std::mt19937 rng(seed);
    std::vector<uint16_t> p(size_t(w) * h);
    for (uint16_t& v : p)
        v = uint16_t(lo + rng() % uint32_t(hi - lo + 1));
    return p;
}

// SSIM by the textbook: for each window position, weighted means, variances and covariance over
// the 11 x 11 Gaussian window, then the mean of the map.
double referenceSsim(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b, int32_t w,
                     int32_t h, int32_t crop) {
    double g[11], sum = 0;
    for (int k = 0; k < 11; ++k)
        sum += g[k] = std::exp(-(k - 5) * (k - 5) / 4.5);
    const double c1 = std::pow(0.01 * 255, 2), c2 = std::pow(0.03 * 255, 2);
    double total = 0;
    int n = 0;
    for (int32_t y = crop; y + 11 <= h - crop; ++y) {
        for (int32_t x = crop; x + 11 <= w - crop; ++x) {
            double ma = 0, mb = 0, saa = 0, sbb = 0, sab = 0;
            for (int j = 0; j < 11; ++j) {
                for (int i = 0; i < 11; ++i) {
                    const double wt = g[i] * g[j] / (sum * sum);
                    const double va = a[size_t(y + j) * w + x + i];
                    const double vb = b[size_t(y + j) * w + x + i];
                    ma += wt * va;
                    mb += wt * vb;
                    saa += wt * va * va;
                    sbb += wt * vb * vb;
                    sab += wt * va * vb;
                }
            }
            const double va = saa - ma * ma, vb = sbb - mb * mb, cov = sab - ma * mb;
            total +=
                (2 * ma * mb + c1) * (2 * cov + c2) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
            ++n;
        }
    }
    return total / n;
}

TEST(Metrics, PsnrIsInfiniteForEqualPlanesAndHonoursTheBorder) {
    const int32_t w = 40, h = 30;
    std::vector<uint16_t> a = randomPlane(w, h, 1, 10, 240);
    std::vector<uint16_t> b = a;
    const PlaneView va{a.data(), w, h}, vb{b.data(), w, h};
    EXPECT_TRUE(std::isinf(tavtool::psnr(va, vb, 0, 255)));
    for (uint16_t& v : b)
        v = uint16_t(v + 3);
    EXPECT_NEAR(tavtool::psnr(va, vb, 0, 255), 10 * std::log10(255.0 * 255.0 / 9.0), 1e-12);
    // Differences only in the outer ring of 4: gone with a border of 4, not with 3.
    b = a;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            if (x < 4 || y < 4 || x >= w - 4 || y >= h - 4) b[size_t(y) * w + x] ^= 1;
    EXPECT_TRUE(std::isinf(tavtool::psnr(va, vb, 4, 255)));
    const double ring = 2.0 * (w - 6) + 2.0 * (h - 8);  // pixels of the ring at distance 3
    EXPECT_NEAR(tavtool::psnr(va, vb, 3, 255),
                10 * std::log10(255.0 * 255.0 / (ring / ((w - 6.0) * (h - 6.0)))), 1e-9);
    EXPECT_TRUE(std::isnan(tavtool::psnr(va, PlaneView{b.data(), w - 1, h}, 0, 255)));
    EXPECT_TRUE(std::isnan(tavtool::psnr(va, vb, 15, 255)));
}

TEST(Metrics, SsimMatchesTheDirectComputation) {
    const int32_t w = 31, h = 26;
    const std::vector<uint16_t> a = randomPlane(w, h, 2);
    std::vector<uint16_t> b = a;
    std::mt19937 rng(3);
    for (uint16_t& v : b)
        v = uint16_t(std::clamp(int(v) + int(rng() % 41) - 20, 0, 255));
    const PlaneView va{a.data(), w, h}, vb{b.data(), w, h};
    EXPECT_NEAR(tavtool::ssim(va, va, 0, 255), 1.0, 1e-12);
    for (int32_t crop : {0, 3}) {
        const double s = tavtool::ssim(va, vb, crop, 255);
        EXPECT_NEAR(s, referenceSsim(a, b, w, h, crop), 1e-9) << crop;
        EXPECT_LT(s, 0.99);
        EXPECT_NEAR(s, tavtool::ssim(vb, va, crop, 255), 1e-12);
    }
    EXPECT_TRUE(std::isnan(tavtool::ssim(va, vb, 8, 255)));  // 15 x 10 left: no window fits
}

TEST(Metrics, BicubicKeepsRampsAndConstants) {
    const int32_t w = 9, h = 7;
    std::vector<uint16_t> ramp(size_t(w) * h), flat(size_t(w) * h, 77);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            ramp[size_t(y) * w + x] = uint16_t(20 * x + 8 * y);
    const std::vector<uint16_t> up = tavtool::bicubicResize({ramp.data(), w, h}, 18, 21, 255);
    // Cubic convolution reproduces a linear function away from the repeated edges.
    for (int32_t y = 6; y < 15; ++y) {
        for (int32_t x = 4; x < 14; ++x) {
            const double sx = (x + 0.5) * w / 18.0 - 0.5, sy = (y + 0.5) * h / 21.0 - 0.5;
            EXPECT_NEAR(up[size_t(y) * 18 + x], 20 * sx + 8 * sy, 0.5) << x << "," << y;
        }
    }
    for (uint16_t v : tavtool::bicubicResize({flat.data(), w, h}, 20, 3, 255))
        EXPECT_EQ(v, 77);
}

}  // namespace
