// Sharpness and brightness measures: the Q15 kernels against a double-precision construction,
// the banded, ring-buffered measure against a straightforward whole-image computation of the
// same integer arithmetic, the vector row kernels against the scalar ones, and the meaning of
// the score (a blurred copy scores lower).

#include "engine/sharpness.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <random>
#include <vector>

#include "tests/engine/sharpness_reference.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;
using tav_sharp_ref::referenceBrightness;
using tav_sharp_ref::referenceScore;
using tav_sharp_ref::referenceTaps;

void fillRandom(tav_sr2_Image* im, std::mt19937& rng) {
    for (int32_t y = 0; y < im->height; ++y) {
        for (int32_t x = 0; x < im->width; ++x)
            im->plane[0][(size_t)y * im->pitch[0] + x] = rng();
    }
}

const double kSigmaB = 0.7;
const double kSigmaA = 0.7 * std::sqrt(2.0);

void compareRows(std::mt19937& rng) {
    tav_sr2_SharpKernel ka;
    tav_sr2_SharpKernel kb;
    for (double sa : {0.0, 0.99, 2.5}) {
        tav_sr2_SharpKernel_make(&ka, sa);
        tav_sr2_SharpKernel_make(&kb, 0.45);
        for (int32_t n = 1; n <= 80; ++n) {
            std::vector<uint8_t> src(n);
            for (auto& v : src)
                v = rng();
            std::vector<int16_t> hs(n), hv(n);
            tav_sr2_sharpRowsScalar.horizontal(src.data(), n, &ka, hs.data());
            tav_sr2_sharpRowsVector.horizontal(src.data(), n, &ka, hv.data());
            ASSERT_EQ(hs, hv) << "n " << n;
            // Rows of the horizontal pass's full range, extremes included.
            std::vector<std::vector<int16_t>> rows(14, std::vector<int16_t>(n));
            const int16_t lim = sa == 0.0 ? -8160 : 8160;
            for (auto& r : rows) {
                for (auto& v : r)
                    v = rng() % 4 == 0 ? lim : (int16_t)(rng() % 8161);
            }
            const int16_t* ra[7];
            const int16_t* rb[7];
            for (int j = 0; j < 7; ++j) {
                ra[j] = rows[j].data();
                rb[j] = rows[7 + j].data();
            }
            ASSERT_EQ(tav_sr2_sharpRowsScalar.energy(ra, rb, n, &ka, &kb),
                      tav_sr2_sharpRowsVector.energy(ra, rb, n, &ka, &kb))
                << "n " << n;
        }
    }
}

TEST(SharpRows, VectorEqualsScalarOnAwkwardLengthsOnEveryTarget) {
    std::mt19937 rng(7);
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        compareRows(rng);
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(Sharpness, EqualsWholeImageReferenceOnAwkwardSizes) {
    Heap heap(64u << 20);
    Workers workers(&heap.pool, 3);
    std::mt19937 rng(11);
    const int32_t sizes[][2] = {{1, 1},  {2, 5},    {7, 3},    {5, 13},  {13, 17},
                                {31, 9}, {100, 67}, {257, 33}, {64, 130}};
    for (const auto& s : sizes) {
        TestImage im(&heap.pool, s[0], s[1], TAV_SR2_FMT_UINT8);
        fillRandom(&im.img, rng);
        const uint32_t expected = referenceScore(im.img, kSigmaA, kSigmaB);
        for (const tav_sr2_SharpRowOps* ops :
             {&tav_sr2_sharpRowsScalar, &tav_sr2_sharpRowsVector}) {
            for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
                uint32_t score = 12345;
                ASSERT_EQ(tav_sr2_Image_sharpnessWithRows(tp, &heap.pool, &score, &im.img, kSigmaA,
                                                          kSigmaB, ops),
                          TAV_OK);
                EXPECT_EQ(score, expected) << s[0] << "x" << s[1];
            }
        }
    }
    // Scratch goes back to the pool: only the images remain in use.
    TestImage probe(&heap.pool, 64, 64, TAV_SR2_FMT_UINT8);
    const uint32_t before = tav_sr2_MemPool_inUse(&heap.pool);
    uint32_t score;
    ASSERT_EQ(tav_sr2_Image_sharpness(&workers.tp, &heap.pool, &score, &probe.img, 1.0, 0.5),
              TAV_OK);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), before);
}

TEST(Sharpness, RefusesBadArgumentsAndReportsAShortPool) {
    Heap heap(1u << 20);
    TestImage im(&heap.pool, 600, 8, TAV_SR2_FMT_UINT8);
    TestImage frame(&heap.pool, 16, 8, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    uint32_t score = 99;
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, nullptr, &score, &im.img, 1, 1), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, &heap.pool, nullptr, &im.img, 1, 1),
              TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, &heap.pool, &score, nullptr, 1, 1), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, &heap.pool, &score, &frame.img, 1, 1),
              TAV_ERROR_UNSUPPORTED);
    tav_sr2_Image empty;
    tav_sr2_Image_init(&empty, &heap.pool);
    empty.format = TAV_SR2_FMT_UINT8;
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, &heap.pool, &score, &empty, 1, 1), TAV_OK);
    EXPECT_EQ(score, 0u);
    // 2 rings x 8 rows x 600 samples x 2 bytes do not fit in what is left.
    Heap tiny(16u << 10);
    score = 99;
    EXPECT_EQ(tav_sr2_Image_sharpness(nullptr, &tiny.pool, &score, &im.img, 1, 1),
              TAV_ERROR_MALLOC);
    EXPECT_EQ(score, 99u);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&tiny.pool), 0u);
}

TEST(Brightness, MeanOfEverySecondRowAndColumn) {
    Heap heap(16u << 20);
    Workers workers(&heap.pool, 4);
    std::mt19937 rng(5);
    const int32_t sizes[][2] = {{2, 2}, {3, 3}, {10, 10}, {64, 48}, {33, 17}, {640, 31}};
    for (const auto& s : sizes) {
        TestImage im(&heap.pool, s[0], s[1], TAV_SR2_FMT_UINT8);
        fillRandom(&im.img, rng);
        for (tav_sr2_TaskSys* ts : {(tav_sr2_TaskSys*)nullptr, workers.ts}) {
            float mean = -1.0f;
            ASSERT_EQ(tav_sr2_Image_brightness(ts, &im.img, &mean), TAV_OK);
            EXPECT_EQ(mean, referenceBrightness(im.img)) << s[0] << "x" << s[1];
        }
    }
    // Odd rows and columns are never read.
    TestImage im(&heap.pool, 8, 8, TAV_SR2_FMT_UINT8);
    for (int32_t y = 0; y < 8; ++y) {
        for (int32_t x = 0; x < 8; ++x)
            im.img.plane[0][y * im.img.pitch[0] + x] = (x | y) & 1 ? 255 : 50;
    }
    float mean = 0;
    ASSERT_EQ(tav_sr2_Image_brightness(workers.ts, &im.img, &mean), TAV_OK);
    EXPECT_EQ(mean, 50.0f);
    // A 1 x 1 image has no divisor; another format is refused.
    TestImage one(&heap.pool, 1, 1, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_Image_brightness(nullptr, &one.img, &mean), TAV_OK);
    EXPECT_EQ(mean, 0.0f);
    TestImage frame(&heap.pool, 8, 8, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    EXPECT_EQ(tav_sr2_Image_brightness(nullptr, &frame.img, &mean), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_Image_brightness(nullptr, nullptr, &mean), TAV_ERROR_PARAM);
}

}  // namespace
