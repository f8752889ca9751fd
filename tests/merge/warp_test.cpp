#include "merge/warp.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/enhance/image_test_util.h"

namespace {

using tav_test::Heap;
using tav_test::TestImage;
using tav_test::Workers;

tav_sr2_Trans2D shift(double dx, double dy) {
    tav_sr2_Trans2D t;
    tav_sr2_Trans2D_identity(&t);
    t.m[2] = dx;
    t.m[5] = dy;
    return t;
}

uint8_t at(const tav_sr2_Image& img, int32_t plane, int32_t x, int32_t y) {
    return img.plane[plane][(size_t)y * img.pitch[plane] + x];
}

// Whole and half-pixel shifts against the sampling rules: 0 outside, the nearest pixel on the
// last column and row, the truncated mean of two pixels half-way; the pairs of a frame follow
// at half the position.
TEST(Warp, SamplesAtTheMappedPositions) {
    Heap heap;
    Workers w(&heap.pool, 2);
    std::mt19937 rng(5);
    constexpr int32_t kW = 300, kH = 40;  // more than two segments per row
    TestImage src(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    src.randomize(rng);
    const struct { double dx, dy; } cases[] = {{0, 0}, {0.5, 0}, {-1, 0}, {2, 1}, {0, 0.5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.dx << ", " << c.dy);
        TestImage dst(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        const tav_sr2_Trans2D m = shift(c.dx, c.dy);
        ASSERT_EQ(tav_sr2_Warp_frame(&w.ctx, &dst.img, &src.img, &m), TAV_OK);
        for (int32_t y = 0; y < kH; ++y) {
            for (int32_t x = 0; x < kW; ++x) {
                const double sx = x + c.dx, sy = y + c.dy;
                int32_t want;
                if (sx < 0 || sy < 0 || sx >= kW || sy >= kH) {
                    want = 0;
                } else if ((int32_t)sx > kW - 2 || (int32_t)sy > kH - 2) {
                    want = at(src.img, 0, (int32_t)sx, (int32_t)sy);
                } else if (sx != (int32_t)sx) {
                    want = (at(src.img, 0, (int32_t)sx, (int32_t)sy) +
                            at(src.img, 0, (int32_t)sx + 1, (int32_t)sy)) /
                           2;
                } else if (sy != (int32_t)sy) {
                    want = (at(src.img, 0, (int32_t)sx, (int32_t)sy) +
                            at(src.img, 0, (int32_t)sx, (int32_t)sy + 1)) /
                           2;
                } else {
                    want = at(src.img, 0, (int32_t)sx, (int32_t)sy);
                }
                ASSERT_EQ(at(dst.img, 0, x, y), want) << x << ", " << y;
            }
        }
        if (c.dx == 2 && c.dy == 1) {  // one pair to the right, half a pair row down
            for (int32_t b = 0; b < 2; ++b)
                EXPECT_EQ(at(dst.img, 1, b, 0),
                          (at(src.img, 1, 2 + b, 0) + at(src.img, 1, 2 + b, 1)) / 2);
        }
    }
    TestImage plane(&heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    TestImage wide(&heap.pool, kW, kH, TAV_SR2_FMT_UINT16);
    const tav_sr2_Trans2D m = shift(0, 0);
    EXPECT_EQ(tav_sr2_Warp_frame(&w.ctx, &plane.img, &src.img, &m), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Warp_frame(&w.ctx, &wide.img, &wide.img, &m), TAV_ERROR_UNSUPPORTED);
}

// The row kernel against the scalar reference: rotations, scales and a perspective, so that
// segments fall inside, across and outside the frame, on sizes that leave partial vectors and
// segments.
TEST(Warp, VectorRowsGiveTheScalarBytes) {
    Heap heap;
    Workers w(&heap.pool, 1);
    std::mt19937 rng(17);
    const struct {
        double m[9];
    } cases[] = {
        {{1, 0, 3.25, 0, 1, -2.5, 0, 0, 1}},
        {{0.998, -0.052, 9.3, 0.052, 0.998, -4.1, 0, 0, 1}},
        {{1.03, 0.01, -7.7, -0.02, 0.97, 5.2, 2e-5, -3e-5, 1}},
        {{0.5, 0, 100.3, 0, 0.5, 40.6, 0, 0, 1}},
    };
    for (int32_t format : {TAV_SR2_FMT_UINT8, TAV_SR2_FMT_YUV420_SEMIPLANAR}) {
        TestImage src(&heap.pool, 518, 206, format);
        src.randomize(rng);
        for (const auto& c : cases) {
            SCOPED_TRACE(c.m[0]);
            tav_sr2_Trans2D m;
            for (int32_t k = 0; k < 9; ++k)
                m.m[k] = c.m[k];
            TestImage scalar(&heap.pool, 518, 206, format);
            TestImage vector(&heap.pool, 518, 206, format);
            ASSERT_EQ(
                tav_sr2_Warp_frameWith(&w.ctx, &scalar.img, &src.img, &m, &tav_sr2_warpRowsScalar),
                TAV_OK);
            ASSERT_EQ(
                tav_sr2_Warp_frameWith(&w.ctx, &vector.img, &src.img, &m, &tav_sr2_warpRowsVector),
                TAV_OK);
            EXPECT_EQ(scalar.snapshot(), vector.snapshot());
        }
    }
    // The kernel alone on positions of every fraction, channel by channel.
    TestImage plane(&heap.pool, 64, 8, TAV_SR2_FMT_UINT88);
    plane.randomize(rng);
    std::vector<int32_t> X(37), Y(37);
    for (int32_t k = 0; k < 37; ++k) {
        X[k] = (int32_t)(rng() % (60u << 15));
        Y[k] = (int32_t)(rng() % (6u << 15));
    }
    for (int32_t channel = 0; channel < 2; ++channel) {
        uint8_t a[74] = {}, b[74] = {};
        tav_sr2_warpRowsScalar.bilinear(plane.img.plane[0], plane.img.pitch[0], 2, channel,
                                        X.data(), Y.data(), 37, a + channel);
        tav_sr2_warpRowsVector.bilinear(plane.img.plane[0], plane.img.pitch[0], 2, channel,
                                        X.data(), Y.data(), 37, b + channel);
        EXPECT_EQ(memcmp(a, b, sizeof(a)), 0);
    }
}

}  // namespace
