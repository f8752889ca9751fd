// The colour guided filter: chroma noise falls, luma is untouched, colour edges stay, the clip
// step moves nothing by more than 4 codes, and failing allocations keep nothing.
#include "nr/chroma_nr.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "enhance/image_rows.h"
#include "tests/engine/run_fixtures.h"
#include "tests/enhance/image_test_util.h"

namespace {

constexpr int32_t kW = 256, kH = 192;

// The picture's chroma (value noise where the photographs are missing) with noise sigma on U and
// V only, into a frame of either depth; `clean` receives the chroma without noise (8-bit units).
void colourFrame(tav_sr2_Image* frame, double sigma, std::vector<double>* clean) {
    tav_run::Scene s;
    std::string why;
    if (!tav_run::loadKodak("kodim23.png", kW, kH, &s, &why)) {
        s = tav_run::valueNoiseScene(kW, kH, 8);
        for (size_t i = 0; i < s.chroma.size(); ++i)
            s.chroma[i] = uint8_t(96 + s.luma[i * 2 % s.luma.size()] / 4);
    }
    const bool deep = tav_sr2_isSemiPlanar10(frame->format);
    std::mt19937 rng(5);
    std::normal_distribution<double> noise(0.0, sigma);
    clean->clear();
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const int32_t v = s.y(x, y) * (deep ? 4 : 1);
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] = uint16_t(v);
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 0, y)[x] = uint8_t(v);
            }
        }
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const double c = s.chroma[size_t(y) * kW + x];
            clean->push_back(c);
            const double v = std::clamp(c + noise(rng), 0.0, 255.0) * (deep ? 4 : 1);
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 1, y)[x] = uint16_t(std::lround(v));
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 1, y)[x] = uint8_t(std::lround(v));
            }
        }
}

std::vector<double> chromaOf(const tav_sr2_Image& frame) {
    const bool deep = tav_sr2_isSemiPlanar10(frame.format);
    std::vector<double> out;
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW; ++x)
            out.push_back(deep ? tav_sr2_rowOf<const uint16_t>(&frame, 1, y)[x] / 4.0
                               : tav_sr2_rowOf<const uint8_t>(&frame, 1, y)[x]);
    return out;
}

double psnr(const std::vector<double>& a, const std::vector<double>& b) {
    double q = 0;
    for (size_t i = 0; i < a.size(); ++i)
        q += (a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * double(a.size()) / q);
}

// Measured with colour noise sigma 5 (window 9, eps 0.6, scale 2): chroma PSNR 34.1 -> 41.3 dB on
// kodim23 and 36.6 dB on the value-noise stand-in, on both depths.
TEST(ChromaNrTest, ColourNoiseFallsAndLumaStays) {
    tav_test::Heap heap{64u << 20};
    tav_test::Workers two(&heap.pool, 2);
    for (const int32_t format : {TAV_SR2_FMT_YUV420_SEMIPLANAR, TAV_SR2_FMT_YUV10B420_SEMIPLANAR}) {
        SCOPED_TRACE(format);
        tav_test::TestImage frame(&heap.pool, kW, kH, format);
        std::vector<double> clean;
        colourFrame(&frame.img, 5.0, &clean);
        const double before = psnr(chromaOf(frame.img), clean);
        const std::vector<uint8_t> luma(frame.img.plane[0], frame.img.plane[1]);
        ASSERT_EQ(tav_sr2_ChromaNR_run(&two.ctx, &frame.img, &frame.img, nullptr, 9, 0.05f, 0.6f,
                                       0.6f, 1.0f, 2.0f),
                  TAV_OK);
        const double after = psnr(chromaOf(frame.img), clean);
        EXPECT_GT(after, before + 2.0);
        EXPECT_EQ(std::vector<uint8_t>(frame.img.plane[0], frame.img.plane[1]), luma);
    }
}

// A sharp colour boundary (U 80 | 176, V the other way) on flat luma: away from the boundary's
// few cells every sample keeps its side's value; the clip step moves nothing by more than 4.
TEST(ChromaNrTest, ColourEdgesStayAndTheClipHolds) {
    tav_test::Heap heap{64u << 20};
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    auto paint = [&] {
        memset(frame.img.plane[0], 110, size_t(frame.img.pitch[0]) * kH);
        for (int32_t y = 0; y < kH / 2; ++y)
            for (int32_t x = 0; x < kW / 2; ++x) {
                uint8_t* pair = tav_sr2_rowOf<uint8_t>(&frame.img, 1, y) + 2 * x;
                pair[0] = x < 61 ? 80 : 176;
                pair[1] = x < 61 ? 176 : 80;
            }
    };
    paint();
    ASSERT_EQ(tav_sr2_ChromaNR_run(&one.ctx, &frame.img, &frame.img, nullptr, 9, 0.05f, 0.6f, 0.6f,
                                   1.0f, 2.0f),
              TAV_OK);
    int32_t bled = 0;
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW / 2; ++x) {
            const uint8_t* pair = tav_sr2_rowOf<const uint8_t>(&frame.img, 1, y) + 2 * x;
            const int32_t want = x < 61 ? 80 : 176;
            if (std::abs(x - 61) > 6 && std::abs(pair[0] - want) > 3) ++bled;
        }
    EXPECT_EQ(bled, 0);
    paint();
    const std::vector<uint8_t> before = frame.snapshot();
    ASSERT_EQ(tav_sr2_ChromaNR_clip(&one.ctx, &frame.img, 21, 2.0f), TAV_OK);
    const std::vector<uint8_t> after = frame.snapshot();
    int32_t worst = 0;
    for (size_t i = 0; i < before.size(); ++i)
        worst = std::max(worst, std::abs(int32_t(after[i]) - before[i]));
    EXPECT_LE(worst, 4);
    EXPECT_EQ(tav_sr2_ChromaNR_run(&one.ctx, &frame.img, &frame.img, nullptr, 0, 0, 0, 0, 1, 2),
              TAV_ERROR_PARAM);
    tav_test::TestImage plain(&heap.pool, kW, kH, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_ChromaNR_run(&one.ctx, &plain.img, &plain.img, nullptr, 9, 0, 0, 0, 1, 2),
              TAV_ERROR_UNSUPPORTED);
}

#if TAVRIN_FAULT_INJECTION
// Every allocation of the three steps may fail: nothing is kept (and, under the sanitizers,
// nothing is touched that should not be).
TEST(ChromaNrTest, EveryFailingAllocation) {
    tav_test::Heap heap{64u << 20};
    const tav_test::Workers one(&heap.pool, 1);
    tav_test::TestImage frame(&heap.pool, kW, kH, TAV_SR2_FMT_YUV10B420_SEMIPLANAR);
    tav_test::TestImage map(&heap.pool, kW / 4, kH / 4, TAV_SR2_FMT_UINT8);
    memset(map.img.plane[0], 40, map.bytes());
    std::vector<double> clean;
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    for (uint32_t nth = 1;; ++nth) {
        colourFrame(&frame.img, 4.0, &clean);
        tav_sr2_MemPool_injectFailure(nth, false);
        tav_sr2_ChromaNR_run(&one.ctx, &frame.img, &frame.img, &map.img, 9, 0.05f, 0.6f, 0.6f, 0.9f,
                             4.0f);
        tav_sr2_ChromaNR_clip(&one.ctx, &frame.img, 9, 4.0f);
        tav_sr2_ChromaNR_highFrequency(&one.ctx, &frame.img, &map.img);
        const uint32_t attempts = tav_sr2_MemPool_allocCount();
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << nth;
        if (attempts < nth) break;
    }
}
#endif

}  // namespace
