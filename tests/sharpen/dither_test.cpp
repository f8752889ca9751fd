// Grain: it removes banding from a slow gradient brought to 8 bits, it is the same for the same
// frame on any worker count, and its modes and allocations behave.
#include "sharpen/dither.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "enhance/image_rows.h"
#include "foundation/depth_convert.h"
#include "tests/enhance/image_test_util.h"

namespace {

constexpr int32_t kW = 256, kH = 128;

// Luma rising by 1 code (10-bit) every 4 columns from 400; grey chroma.
void gradient(tav_sr2_Image* frame) {
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x)
            tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] = uint16_t(400 + x / 4);
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW; ++x)
            tav_sr2_rowOf<uint16_t>(frame, 1, y)[x] = 512;
}

TEST(DitherTest, A10BitGradientKeepsItsStepsIn8Bits) {
    tav_test::Heap heap;
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::TestImage out(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    // The worst column mean's distance from the true level, in 8-bit codes, with and without grain.
    // The conversion rounds (v + 2) >> 2: under grain its mean is (v + 0.5) / 4.
    auto worstColumn = [&](double level) {
        gradient(&frame.img);
        EXPECT_EQ(
            tav_sr2_Dither_run16(&one.ctx, &frame.img, &frame.img, 768, 255, 8, 0, level, 0, 0),
            TAV_OK);
        EXPECT_EQ(tav_sr2_convert10to8(nullptr, &heap.pool, &out.img, &frame.img), TAV_OK);
        double worst = 0;
        for (int32_t x0 = 8; x0 < kW - 8; x0 += 4) {  // four columns of one level
            double mean = 0;
            for (int32_t y = 0; y < kH; ++y)
                for (int32_t x = x0; x < x0 + 4; ++x)
                    mean += tav_sr2_rowOf<const uint8_t>(&out.img, 0, y)[x];
            worst = std::max(worst, std::abs(mean / (4 * kH) - (400 + x0 / 4 + 0.5) / 4.0));
        }
        return worst;
    };
    EXPECT_GE(worstColumn(0.0), 0.37);  // plain rounding: steps of a whole code
    EXPECT_LE(worstColumn(4.0), 0.1);   // grain: the columns follow the quarter codes
}

TEST(DitherTest, SameFrameSameGrainOnAnyWorkerCount) {
    tav_test::Heap heap{32u << 20};
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::Workers two(&heap.pool, 2);
    tav_test::TestImage a(&heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::TestImage b(&heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    for (const int32_t mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        gradient(&a.img);
        gradient(&b.img);
        ASSERT_EQ(tav_sr2_Dither_run16(&one.ctx, &a.img, &a.img, 512, 255, 8, mode, 6.0, 2.0, 3.0),
                  TAV_OK);
        ASSERT_EQ(tav_sr2_Dither_run16(&two.ctx, &b.img, &b.img, 512, 255, 8, mode, 6.0, 2.0, 3.0),
                  TAV_OK);
        EXPECT_EQ(a.snapshot(), b.snapshot());
        // Another centre sample reseeds everything.
        gradient(&b.img);
        tav_sr2_rowOf<uint16_t>(&b.img, 0, kH / 2)[kW / 2] += 1;
        ASSERT_EQ(tav_sr2_Dither_run16(&two.ctx, &b.img, &b.img, 512, 255, 8, mode, 6.0, 2.0, 3.0),
                  TAV_OK);
        int32_t same = 0;
        for (int32_t y = 0; y < kH; ++y)
            for (int32_t x = 0; x < kW; ++x)
                same += tav_sr2_rowOf<uint16_t>(&a.img, 0, y)[x] ==
                        tav_sr2_rowOf<uint16_t>(&b.img, 0, y)[x];
        EXPECT_LT(same, kW * kH / 2);
    }
}

// Level 0 and uv 0 leave their planes; the 8-bit form touches only what its levels ask for; the
// grain has no bias.
TEST(DitherTest, LevelsSelectThePlanes) {
    tav_test::Heap heap;
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    auto fill = [&] { memset(frame.img.plane[0], 120, frame.bytes()); };
    auto plane = [&](int32_t p) {
        const uint8_t* base = frame.img.plane[p];
        return std::vector<uint8_t>(base, base + size_t(frame.img.pitch[p]) * (p ? kH / 2 : kH));
    };
    fill();
    const std::vector<uint8_t> luma = plane(0), chroma = plane(1);
    ASSERT_EQ(tav_sr2_Dither_run8(&one.ctx, &frame.img, &frame.img, 100, 255, 8, 0.0, 0.0), TAV_OK);
    EXPECT_EQ(plane(0), luma);
    ASSERT_EQ(tav_sr2_Dither_run8(&one.ctx, &frame.img, &frame.img, 100, 255, 8, 0.0, 5.0), TAV_OK);
    EXPECT_EQ(plane(0), luma);
    EXPECT_NE(plane(1), chroma);
    fill();
    ASSERT_EQ(tav_sr2_Dither_run8(&one.ctx, &frame.img, &frame.img, 100, 255, 8, 5.0, 0.0), TAV_OK);
    EXPECT_EQ(plane(1), chroma);
    double mean = 0;
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x)
            mean += tav_sr2_rowOf<const uint8_t>(&frame.img, 0, y)[x];
    EXPECT_NEAR(mean / (kW * kH), 120.0, 0.1);
    EXPECT_EQ(tav_sr2_Dither_run16(&one.ctx, &frame.img, &frame.img, 100, 255, 8, 0, 5.0, 0, 0),
              TAV_ERROR_UNSUPPORTED);
}

#if TAVRIN_FAULT_INJECTION
TEST(DitherTest, FailingNoiseImagesLeaveTheFrame) {
    tav_test::Heap heap;
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    for (const int32_t mode : {1, 2}) {
        const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
        for (uint32_t nth = 1;; ++nth) {
            gradient(&frame.img);
            const std::vector<uint8_t> before = frame.snapshot();
            tav_sr2_MemPool_injectFailure(nth, false);
            const uint32_t status = tav_sr2_Dither_run16(&one.ctx, &frame.img, &frame.img, 512, 255,
                                                         8, mode, 6.0, 0, 0);
            const uint32_t attempts = tav_sr2_MemPool_allocCount();
            tav_sr2_MemPool_injectFailure(0, false);
            EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << mode << " " << nth;
            if (attempts < nth) break;
            EXPECT_TRUE(status == TAV_OK || frame.snapshot() == before) << mode << " " << nth;
        }
    }
}
#endif

}  // namespace
