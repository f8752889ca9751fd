// The Gaussian blur against a double-precision convolution, the half-size recursion against
// its composition from the operators, planes of frames, worker counts, row tables and statuses.
#include "enhance/blur.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "enhance/resize.h"
#include "tests/enhance/image_test_util.h"

namespace {

using namespace tav_test;

// Taps on each side: down to FLT_MIN for the first blur, ceil(3 sigma) for the compact one.
int32_t reachOf(double sigma, bool compact) {
    if (compact) return std::min(101, (int32_t)std::ceil(3 * sigma));
    int32_t r = 0;
    while (r < 101 && std::exp(-(r + 1.0) * (r + 1.0) / (2 * sigma * sigma)) >= FLT_MIN)
        ++r;
    return r;
}

// The separable convolution in doubles, borders repeating. With `q15` it uses those weights
// (each / 32768) instead of the exact Gaussian: Q15 weights are off by up to half a step each,
// which is far below a code for 8-bit data but not for 16- or 32-bit data, so those formats are
// held to the arithmetic of their weights and the weights to the Gaussian by the row tests.
std::vector<double> gaussianReference(const tav_sr2_Image& src, double sigma, bool compact,
                                      const tav_sr2_BlurKernel* q15 = nullptr) {
    const int32_t r = q15 ? q15->radius : reachOf(sigma, compact), w = src.width, h = src.height;
    const int32_t c = channels(src.format);
    std::vector<double> taps(r + 1);
    double total = 0;
    for (int32_t t = 0; t <= r; ++t) {
        taps[t] = q15 ? q15->q15[t] : std::exp(-t * t / (2 * sigma * sigma));
        total += t ? 2 * taps[t] : taps[t];
    }
    std::vector<double> tmp(w * h * c), out(w * h * c);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            for (int32_t k = 0; k < c; ++k) {
                double sum = 0;
                for (int32_t t = -r; t <= r; ++t)
                    sum += taps[std::abs(t)] / total * sample(src, clampIndex(x + t, w), y, k);
                tmp[(y * w + x) * c + k] = sum;
            }
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x)
            for (int32_t k = 0; k < c; ++k) {
                double sum = 0;
                for (int32_t t = -r; t <= r; ++t)
                    sum += taps[std::abs(t)] / total * tmp[(clampIndex(y + t, h) * w + x) * c + k];
                out[(y * w + x) * c + k] = sum;
            }
    return out;
}

// Largest (or mean) difference between an image and a reference, in codes.
double maxError(const tav_sr2_Image& img, const std::vector<double>& ref, bool mean = false) {
    double worst = 0, sum = 0;
    const int32_t c = channels(img.format);
    for (int32_t y = 0; y < img.height; ++y)
        for (int32_t x = 0; x < img.width; ++x)
            for (int32_t k = 0; k < c; ++k) {
                const double e = std::fabs(sample(img, x, y, k) - ref[(y * img.width + x) * c + k]);
                worst = std::max(worst, e);
                sum += e;
            }
    return mean ? sum / ((double)img.width * img.height * c) : worst;
}

TEST(BlurTest, DirectBlurMatchesDoubleConvolutionWithinOneCode) {
    Heap heap;
    std::mt19937 rng(31);
    for (int32_t n : {1, 2, 3}) {
        Workers w(&heap.pool, n);
        for (int32_t format : {1, 3, 6, 7, 4, 5}) {
            // Sizes below 33 in one dimension blur directly at any sigma.
            for (auto [width, height] : {std::pair{1, 1}, {9, 1}, {1, 40}, {17, 5}, {32, 40}}) {
                for (double sigma : {0.5, 1.0, 1.8, 3.0, 9.0}) {
                    TestImage src(&heap.pool, width, height, format);
                    src.randomize(rng);
                    TestImage dst(&heap.pool, width, height, format);
                    ASSERT_EQ(tav_sr2_Image_blur(&w.ctx, &dst.img, &src.img, sigma), TAV_OK);
                    // Each integer pass rounds once: one code in all; floats stay close.
                    tav_sr2_BlurKernel k;
                    tav_sr2_BlurKernel_gaussian(&k, sigma);
                    const bool exact = format == 1 || format == 6 || format == 5;
                    const double limit = format == 5 ? 0.01 : 1.0;
                    EXPECT_LE(maxError(dst.img, gaussianReference(src.img, sigma, false,
                                                                  exact ? nullptr : &k)),
                              limit)
                        << "format " << format << " " << width << "x" << height << " sigma "
                        << sigma << " workers " << n;
                }
            }
        }
    }
}

TEST(BlurTest, FramesBlurChromaAtHalfSigmaInPlaceAndRowTablesAgree) {
    Heap heap;
    std::mt19937 rng(41);
    Workers w(&heap.pool, 2);
    for (int32_t format : {48, 49, 52, 53, 44, 47}) {
        TestImage src(&heap.pool, 23, 14, format), dst(&heap.pool, 23, 14, format);
        src.randomize(rng);
        if (format == 52 || format == 53) {  // 10-bit words
            for (size_t i = 0; i + 1 < src.bytes(); i += 2)
                src.img.plane[0][i + 1] &= 3;
        }
        memcpy(dst.img.plane[0], src.img.plane[0], src.bytes());  // the same row padding
        ASSERT_EQ(tav_sr2_Image_blur(&w.ctx, &dst.img, &src.img, 1.2), TAV_OK) << format;
        const bool planar = format == 44 || format == 47;
        const std::vector<decltype(&tav_sr2_Image_viewPlane0)> views =
            planar ? std::vector{tav_sr2_Image_viewPlane0, tav_sr2_Image_viewPlane1,
                                 tav_sr2_Image_viewPlane2}
                   : std::vector{tav_sr2_Image_viewPlane0, tav_sr2_Image_viewChroma};
        for (size_t i = 0; i < views.size(); ++i) {
            tav_sr2_Image s = {}, d = {};
            ASSERT_EQ(views[i](&s, &src.img, 0, 0, 23, 14), TAV_OK);
            ASSERT_EQ(views[i](&d, &dst.img, 0, 0, 23, 14), TAV_OK);
            EXPECT_LE(maxError(d, gaussianReference(s, i == 0 ? 1.2 : 0.6, false)), 1.0) << format;
        }
        // In place gives the same bytes, and so does the scalar row table.
        ASSERT_EQ(tav_sr2_Image_blurWithRows(&w.ctx, &src.img, &src.img, 1.2,
                                             &tav_sr2_blurRowsScalar, &tav_sr2_resizeRowsScalar),
                  TAV_OK);
        EXPECT_EQ(src.snapshot(), dst.snapshot()) << format;
    }
}

TEST(BlurTest, ResultsDoNotDependOnWorkersOrRowTables) {
    Heap heap;
    std::mt19937 rng(43);
    for (int32_t format : {1, 3, 6}) {
        TestImage src(&heap.pool, 77, 41, format);
        src.randomize(rng);
        std::vector<uint8_t> first;
        for (int32_t n : {1, 2, 3}) {
            Workers w(&heap.pool, n);
            for (const tav_sr2_BlurRowOps* rows :
                 {&tav_sr2_blurRowsScalar, &tav_sr2_blurRowsVector}) {
                TestImage dst(&heap.pool, 77, 41, format);
                ASSERT_EQ(tav_sr2_Image_blurWithRows(&w.ctx, &dst.img, &src.img, 4.0, rows,
                                                     &tav_sr2_resizeRowsVector),
                          TAV_OK);
                if (first.empty()) first = dst.snapshot();
                EXPECT_EQ(dst.snapshot(), first) << "format " << format << " workers " << n;
            }
        }
    }
}

TEST(BlurTest, Statuses) {
    Heap heap;
    Workers w(&heap.pool, 1);
    TestImage a(&heap.pool, 8, 8, 1), b(&heap.pool, 8, 7, 1), rgb(&heap.pool, 8, 8, 9);
    EXPECT_EQ(tav_sr2_Image_blur(nullptr, &a.img, &a.img, 1.0), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_blur(&w.ctx, nullptr, &a.img, 1.0), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_blur(&w.ctx, &b.img, &a.img, 1.0), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_blur(&w.ctx, &rgb.img, &rgb.img, 1.0), 0x80000010u);
    tav_sr2_Image empty = {};
    ASSERT_EQ(tav_sr2_Image_crop(&empty, &a.img, 0, 0, 8, 0), TAV_OK);
    EXPECT_EQ(tav_sr2_Image_blur(&w.ctx, &empty, &empty, 1.0), 0x80000000u);
}

#ifdef TAVRIN_FAULT_INJECTION
TEST(BlurTest, MissingIntermediateRowsReturnZeroAndLeaveTheDestination) {
    Heap heap;
    std::mt19937 rng(53);
    Workers w(&heap.pool, 1);
    TestImage src(&heap.pool, 40, 40, 1), dst(&heap.pool, 40, 40, 1);
    src.randomize(rng);
    dst.randomize(rng);
    const std::vector<uint8_t> before = dst.snapshot();
    const uint32_t in_use = tav_sr2_MemPool_inUse(&heap.pool);
    tav_sr2_MemPool_injectFailure(1, true);
    const uint32_t direct = tav_sr2_Image_blur(&w.ctx, &dst.img, &src.img, 1.0);
    tav_sr2_MemPool_injectFailure(0, false);
    EXPECT_EQ(direct, 0u);
    EXPECT_EQ(dst.snapshot(), before);
    // The half-size path: the half-size image is an image allocation, so its failure (the first
    // allocation) is reported; every other allocation is row scratch, answered with 0. Either
    // way nothing reaches the destination.
    tav_sr2_MemPool_injectFailure(0, false);
    ASSERT_EQ(tav_sr2_Image_blur(&w.ctx, &dst.img, &src.img, 4.0), TAV_OK);
    const uint32_t allocations = tav_sr2_MemPool_allocCount();
    ASSERT_GE(allocations, 4u);
    for (uint32_t nth = 1; nth <= allocations; ++nth) {
        memcpy(dst.img.plane[0], before.data(), before.size());
        tav_sr2_MemPool_injectFailure(nth, false);
        const uint32_t halved = tav_sr2_Image_blur(&w.ctx, &dst.img, &src.img, 4.0);
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(halved, nth == 1 ? TAV_ERROR_MALLOC : 0u) << "allocation " << nth;
        EXPECT_EQ(dst.snapshot(), before) << "allocation " << nth;
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), in_use) << "allocation " << nth;
    }
}
#endif

}  // namespace
