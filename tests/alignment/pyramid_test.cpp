// Pyramid reduction and the local contrast top level against straightforward references.
#include "alignment/pyramid.h"

#include <gtest/gtest.h>

#include "alignment/pyramid_rows.h"
#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fillRandom;
using tav_align_test::pixelOf;
using tav_align_test::pixels;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

std::vector<uint8_t> reduceReference(const tav_sr2_Image* s) {
    const int32_t w = s->width > 2 ? (s->width - 2) / 2 : 0;
    const int32_t h = s->height > 2 ? (s->height - 2) / 2 : 0;
    std::vector<uint8_t> out;
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            auto p = [&](int32_t u, int32_t v) { return (int32_t)pixelOf(s, u, v); };
            const int32_t sum = p(2 * x + 2, 2 * y) + 2 * p(2 * x + 1, 2 * y + 1) +
                                p(2 * x + 3, 2 * y + 1) + p(2 * x, 2 * y + 2) +
                                2 * p(2 * x + 2, 2 * y + 2) + p(2 * x + 1, 2 * y + 3);
            out.push_back((uint8_t)(sum / 8));
        }
    }
    return out;
}

std::vector<uint8_t> contrastReference(const tav_sr2_Image* s) {
    std::vector<uint8_t> out;
    for (int32_t y = 0; y < s->height; ++y) {
        for (int32_t x = 0; x < s->width; ++x) {
            int32_t sum = 0, n = 0;
            for (int32_t v = y - 2; v <= y + 2; ++v) {
                for (int32_t u = x - 2; u <= x + 2; ++u) {
                    if (u < 0 || v < 0 || u >= s->width || v >= s->height) continue;
                    sum += pixelOf(s, u, v);
                    ++n;
                }
            }
            const int32_t mean = n == 25 ? sum * 2621 / 65536 : sum / n;
            const int32_t value = pixelOf(s, x, y) - mean + 128;
            out.push_back((uint8_t)std::min(255, std::max(0, value)));
        }
    }
    return out;
}

TEST(Pyramid, ReduceMatchesReferenceOnAwkwardSizes) {
    Heap heap(8 << 20);
    Workers workers(&heap.pool, 3);
    const int32_t sizes[][2] = {{2, 2},   {3, 5},   {5, 7},    {6, 64},   {37, 41},
                                {64, 31}, {67, 66}, {129, 77}, {300, 12}, {33, 201}};
    const tav_sr2_PyramidRows* tables[] = {tav_sr2_pyramidRowsScalar(),
                                           tav_sr2_pyramidRowsVector()};
    for (const auto& size : sizes) {
        TestImage src(&heap.pool, size[0], size[1], TAV_SR2_FMT_UINT8);
        fillRandom(&src.img, (uint32_t)(size[0] * 1000 + size[1]));
        const std::vector<uint8_t> expected = reduceReference(&src.img);
        for (const tav_sr2_PyramidRows* rows : tables) {
            for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
                TestImage dst(&heap.pool, tav_sr2_Pyramid_nextSide(size[0]),
                              tav_sr2_Pyramid_nextSide(size[1]), TAV_SR2_FMT_UINT8);
                ASSERT_EQ(tav_sr2_Pyramid_reduce(&src.img, &dst.img, tp, rows), TAV_OK);
                EXPECT_EQ(pixels(&dst.img), expected) << size[0] << " x " << size[1];
            }
        }
    }
    // A destination of another size is refused.
    TestImage src(&heap.pool, 20, 20, TAV_SR2_FMT_UINT8);
    TestImage wrong(&heap.pool, 10, 9, TAV_SR2_FMT_UINT8);
    EXPECT_EQ(tav_sr2_Pyramid_reduce(&src.img, &wrong.img, nullptr, tav_sr2_pyramidRowsVector()),
              TAV_ERROR_PARAM);
}

TEST(Pyramid, VectorRowEqualsScalarRowAtEveryWidth) {
    std::mt19937 rng(7);
    for (int32_t width = 0; width <= 148; ++width) {
        // Rows of exactly the bytes a row of `width` outputs reads, so that the address
        // sanitizer sees any read past them; all-255 rows test the top of the 16-bit sums.
        for (int32_t bright = 0; bright < 2; ++bright) {
            std::vector<uint8_t> src[4];
            for (auto& row : src) {
                row.resize(2 * width + 2);
                for (uint8_t& b : row)
                    b = bright ? 255 : (uint8_t)rng();
            }
            std::vector<uint8_t> a(width), b(width);
            tav_sr2_pyramidRowsScalar()->reduce(src[0].data(), src[1].data(), src[2].data(),
                                                src[3].data(), a.data(), width);
            tav_sr2_pyramidRowsVector()->reduce(src[0].data(), src[1].data(), src[2].data(),
                                                src[3].data(), b.data(), width);
            ASSERT_EQ(a, b) << "width " << width;
        }
    }
}

TEST(Pyramid, LocalContrastCutsTheWindowAtTheBorder) {
    Heap heap(1 << 20);
    const int32_t sizes[][2] = {{1, 1}, {2, 7}, {5, 5}, {9, 4}, {29, 21}};
    for (const auto& size : sizes) {
        TestImage img(&heap.pool, size[0], size[1], TAV_SR2_FMT_UINT8);
        fillRandom(&img.img, (uint32_t)size[0] * 31 + size[1]);
        const std::vector<uint8_t> expected = contrastReference(&img.img);
        ASSERT_EQ(tav_sr2_Pyramid_localContrast(&img.img, &heap.pool), TAV_OK);
        EXPECT_EQ(pixels(&img.img), expected) << size[0] << " x " << size[1];
    }
#ifdef TAVRIN_FAULT_INJECTION
    TestImage img(&heap.pool, 8, 8, TAV_SR2_FMT_UINT8);
    tav_sr2_MemPool_injectFailure(1, false);
    EXPECT_EQ(tav_sr2_Pyramid_localContrast(&img.img, &heap.pool), TAV_ERROR_MALLOC);
    tav_sr2_MemPool_injectFailure(0, false);
#endif
}

}  // namespace
