// Row kernels of the Gaussian blur: the kernel builder, the scalar reference against the
// convolution written out here, and every compiled vector target against the scalar reference.
#include "enhance/blur_rows.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

tav_sr2_BlurKernel gaussian(double sigma, int32_t reach) {
    std::vector<double> taps(reach + 1);
    for (int32_t t = 0; t <= reach; ++t)
        taps[t] = std::exp(-t * t / (2 * sigma * sigma));
    tav_sr2_BlurKernel k;
    tav_sr2_BlurKernel_fromTaps(&k, taps.data(), reach);
    return k;
}

int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

// The convolution over t = -r..r with repeated borders, then the format's rounding shift.
template <typename T>
int64_t convolve(const std::vector<T>& s, int32_t w, int32_t c, const tav_sr2_BlurKernel& k,
                 int32_t x, int32_t ch, int shift) {
    int64_t sum = 0;
    for (int32_t t = -k.radius; t <= k.radius; ++t) {
        sum += (int64_t)k.q15[t < 0 ? -t : t] * s[clampIndex(x + t, w) * c + ch];
    }
    return (sum + ((int64_t)1 << (shift - 1))) >> shift;
}

TEST(BlurRowsTest, KernelSumsTo32768AndCutsZeroTaps) {
    for (double sigma : {0.1, 0.5, 1.0, 1.8, 4.0, 30.0}) {
        const tav_sr2_BlurKernel k = gaussian(sigma, 101);
        int32_t sum = k.q15[0];
        for (int32_t t = 1; t <= k.radius; ++t) {
            sum += 2 * k.q15[t];
            EXPECT_GT(k.q15[t], 0);
            if (t >= 2) {  // the centre holds the rounding, so it may fall below tap 1
                EXPECT_LE(k.q15[t], k.q15[t - 1]);
            }
        }
        EXPECT_EQ(sum, 32768) << sigma;
        EXPECT_LE(k.radius, 101);
        for (int32_t t = k.radius + 1; t <= 101; ++t)
            EXPECT_EQ(k.q15[t], 0);
        // The cut sits where the Gaussian drops below half a Q15 step of the whole.
        const double norm = std::sqrt(2 * M_PI) * sigma;
        if (sigma >= 1.0 && sigma <= 4.0) {
            EXPECT_LT(std::exp(-(k.radius + 1.0) * (k.radius + 1.0) / (2 * sigma * sigma)) / norm,
                      0.6 / 32768);
            EXPECT_GT(std::exp(-1.0 * k.radius * k.radius / (2 * sigma * sigma)) / norm,
                      0.4 / 32768);
        }
    }
}

TEST(BlurRowsTest, ScalarMatchesConvolutionAtBorders) {
    std::mt19937 rng(7);
    for (double sigma : {0.6, 1.8, 7.0}) {
        const tav_sr2_BlurKernel k = gaussian(sigma, 101);
        for (int32_t w : {1, 2, 3, 9, 40}) {
            for (int32_t c : {1, 2}) {
                std::vector<uint8_t> s8(w * c);
                std::vector<uint16_t> s16(w * c);
                std::vector<int32_t> s32(w * c);
                for (auto& v : s8)
                    v = (uint8_t)rng();
                for (auto& v : s16)
                    v = (uint16_t)rng();
                for (auto& v : s32)
                    v = (int32_t)(rng() % 2000001) - 1000000;
                std::vector<uint16_t> o8(w * c), o16(w * c);
                std::vector<int32_t> o32(w * c);
                tav_sr2_blurRowsScalar.h_u8(s8.data(), w, c, &k, o8.data());
                tav_sr2_blurRowsScalar.h_u16(s16.data(), w, c, &k, o16.data());
                tav_sr2_blurRowsScalar.h_i32(s32.data(), w, c, &k, o32.data());
                for (int32_t x = 0; x < w; ++x) {
                    for (int32_t ch = 0; ch < c; ++ch) {
                        ASSERT_EQ(o8[x * c + ch], convolve(s8, w, c, k, x, ch, 7));
                        ASSERT_EQ(o16[x * c + ch], convolve(s16, w, c, k, x, ch, 15));
                        ASSERT_EQ(o32[x * c + ch], convolve(s32, w, c, k, x, ch, 15));
                    }
                }
            }
        }
    }
}

// The vertical pass of each integer form: Q8 rows of 8-bit data round by 23 bits, 16-bit and
// INT32 rows by 15, half up.
TEST(BlurRowsTest, VerticalRoundsEachForm) {
    const tav_sr2_BlurKernel k = gaussian(1.0, 101);
    const int32_t n = 5, taps = 2 * k.radius + 1;
    std::mt19937 rng(3);
    std::vector<std::vector<uint16_t>> q8(taps, std::vector<uint16_t>(n)), u16 = q8;
    std::vector<std::vector<int32_t>> i32(taps, std::vector<int32_t>(n));
    std::vector<const uint16_t*> q8_rows, u16_rows;
    std::vector<const int32_t*> i32_rows;
    for (int32_t t = 0; t < taps; ++t) {
        for (int32_t i = 0; i < n; ++i) {
            q8[t][i] = (uint16_t)(rng() % 65281);
            u16[t][i] = (uint16_t)rng();
            i32[t][i] = (int32_t)(rng() % 2000001) - 1000000;
        }
        q8_rows.push_back(q8[t].data());
        u16_rows.push_back(u16[t].data());
        i32_rows.push_back(i32[t].data());
    }
    std::vector<uint8_t> o8(n);
    std::vector<uint16_t> o16(n);
    std::vector<int32_t> o32(n);
    tav_sr2_blurRowsScalar.v_u8(q8_rows.data(), n, &k, o8.data());
    tav_sr2_blurRowsScalar.v_u16(u16_rows.data(), n, &k, o16.data());
    tav_sr2_blurRowsScalar.v_i32(i32_rows.data(), n, &k, o32.data());
    auto column = [&](const auto& rows, int32_t i, int shift) {
        int64_t sum = 0;
        for (int32_t t = -k.radius; t <= k.radius; ++t)
            sum += (int64_t)k.q15[t < 0 ? -t : t] * rows[k.radius + t][i];
        return (sum + ((int64_t)1 << (shift - 1))) >> shift;
    };
    for (int32_t i = 0; i < n; ++i) {
        EXPECT_EQ(o8[i], column(q8, i, 23));
        EXPECT_EQ(o16[i], column(u16, i, 15));
        EXPECT_EQ(o32[i], column(i32, i, 15));
    }
}

TEST(BlurRowsTest, VectorTargetsEqualScalar) {
    std::mt19937 rng(11);
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        for (double sigma : {0.01, 0.8, 1.8, 9.0}) {
            const tav_sr2_BlurKernel k = gaussian(sigma, 101);
            for (int32_t w : {1, 2, 5, 8, 15, 16, 17, 33, 70, 257}) {
                for (int32_t c : {1, 2}) {
                    std::vector<uint8_t> s8(w * c);
                    std::vector<uint16_t> s16(w * c);
                    for (auto& v : s8)
                        v = (uint8_t)rng();
                    for (auto& v : s16)
                        v = (uint16_t)rng();
                    std::vector<uint16_t> a(w * c), b(w * c);
                    tav_sr2_blurRowsScalar.h_u8(s8.data(), w, c, &k, a.data());
                    tav_sr2_blurRowsVector.h_u8(s8.data(), w, c, &k, b.data());
                    ASSERT_EQ(a, b) << "h_u8 w " << w << " c " << c << " sigma " << sigma;
                    tav_sr2_blurRowsScalar.h_u16(s16.data(), w, c, &k, a.data());
                    tav_sr2_blurRowsVector.h_u16(s16.data(), w, c, &k, b.data());
                    ASSERT_EQ(a, b) << "h_u16 w " << w << " c " << c << " sigma " << sigma;
                }
                std::vector<std::vector<uint16_t>> rows(2 * k.radius + 1, std::vector<uint16_t>(w));
                std::vector<const uint16_t*> ptrs;
                for (auto& r : rows) {
                    for (auto& v : r)
                        v = (uint16_t)rng();
                    ptrs.push_back(r.data());
                }
                std::vector<uint16_t> a16(w), b16(w);
                tav_sr2_blurRowsScalar.v_u16(ptrs.data(), w, &k, a16.data());
                tav_sr2_blurRowsVector.v_u16(ptrs.data(), w, &k, b16.data());
                ASSERT_EQ(a16, b16) << "v_u16 w " << w;
                for (auto& r : rows)
                    for (auto& v : r)
                        v = (uint16_t)(rng() % 65281);  // Q8 rows of 8-bit data
                std::vector<uint8_t> a8(w), b8(w);
                tav_sr2_blurRowsScalar.v_u8(ptrs.data(), w, &k, a8.data());
                tav_sr2_blurRowsVector.v_u8(ptrs.data(), w, &k, b8.data());
                ASSERT_EQ(a8, b8) << "v_u8 w " << w;
            }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
