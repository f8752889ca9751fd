// Corner detection against a 64-bit reference of the response and of the cell rules.
#include "alignment/corners.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "alignment/corners_rows.h"
#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fill;
using tav_align_test::fillRandom;
using tav_align_test::pixelOf;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

int64_t floorSqrt(int64_t n) {
    int64_t r = 0;
    while ((r + 1) * (r + 1) <= n)
        ++r;
    return r;
}

int64_t referenceResponse(const tav_sr2_Image* img, int32_t x, int32_t y) {
    int64_t sxx = 0, syy = 0, sxy = 0;
    for (int32_t v = y - 1; v <= y + 2; ++v) {
        for (int32_t u = x - 1; u <= x + 2; ++u) {
            const int64_t gx = pixelOf(img, u + 1, v) - pixelOf(img, u - 1, v);
            const int64_t gy = pixelOf(img, u, v + 1) - pixelOf(img, u, v - 1);
            sxx += gx * gx;
            syy += gy * gy;
            sxy += gx * gy;
        }
    }
    // Arithmetic shifts: floor division by 4, also for a negative sxy.
    const int64_t a = sxx / 4, b = syy / 4, c = (sxy - ((sxy % 4 + 4) % 4)) / 4;
    const int64_t r = a * b - c * c - (a + b) * (a + b) / 16;
    return std::min<int64_t>(std::max<int64_t>(r, 0), 0x7fffffff);
}

struct RefGrid {
    int32_t cell, step;
};

RefGrid referenceGrid(int32_t w, int32_t h, int32_t limit) {
    const int64_t a = floorSqrt((int64_t)w * h / limit);
    if (a < 5) return {4, 2};
    return {(int32_t)a, a < 9 ? 2 : a < 36 ? (int32_t)a / 4 : 8};
}

// The response at grid point (i, j), zero where the detector does not compute it.
int64_t referenceMapAt(const tav_sr2_Image* img, int32_t step, int32_t i, int32_t j) {
    const int32_t first = 2 / step + 1;
    if (i < first || j < first || i >= (img->width - 3) / step || j >= (img->height - 3) / step) {
        return 0;
    }
    return referenceResponse(img, i * step, j * step);
}

std::vector<tav_sr2_Corner> referenceDetect(const tav_sr2_Image* img, int32_t limit,
                                            int32_t capacity) {
    std::vector<tav_sr2_Corner> out;
    if (img->width < 24 || img->height < 24 || limit < 1) return out;
    const RefGrid g = referenceGrid(img->width, img->height, limit);
    for (int32_t y0 = 0; y0 < img->height; y0 += g.cell) {
        for (int32_t x0 = 0; x0 < img->width; x0 += g.cell) {
            if ((int32_t)out.size() == capacity) break;
            tav_sr2_Corner c = {};
            c.x0 = x0;
            c.y0 = y0;
            c.x1 = std::min(x0 + g.cell, img->width);
            c.y1 = std::min(y0 + g.cell, img->height);
            int64_t best = 0;
            for (int32_t j = y0 / g.step; j < c.y1 / g.step; ++j) {
                for (int32_t i = x0 / g.step; i < c.x1 / g.step; ++i) {
                    const int64_t r = referenceMapAt(img, g.step, i, j);
                    if (r > 0 && r >= best) {
                        best = r;
                        c.x = i * g.step;
                        c.y = j * g.step;
                    }
                }
            }
            if (best == 0) continue;
            c.strength = (int32_t)std::min<int64_t>(255, floorSqrt(floorSqrt(best)) * 16384 >> 15);
            out.push_back(c);
        }
    }
    std::stable_sort(out.begin(), out.end(), [](const tav_sr2_Corner& a, const tav_sr2_Corner& b) {
        return a.strength > b.strength;
    });
    if ((int32_t)out.size() > limit) out.resize(limit);
    return out;
}

void fillPattern(tav_sr2_Image* img, int32_t kind) {
    if (kind == 0) {
        fillRandom(img, (uint32_t)img->width * 7 + img->height);
    } else if (kind == 1) {  // checkers: many equal responses, so the tie rule matters
        fill(img, [](int32_t x, int32_t y) { return (uint8_t)(((x / 5 + y / 5) & 1) ? 200 : 40); });
    } else {
        const tav_align_test::Texture texture(11);
        tav_align_test::fillShifted(img, texture, 0.0, 0.0);
    }
}

TEST(Corners, ResponseMapMatchesReference) {
    Heap heap(16 << 20);
    Workers workers(&heap.pool, 16);  // 16 workers: the map goes out in 16 jobs
    const int32_t sizes[][3] = {
        {1000, 750, 256}, {97, 61, 256}, {200, 200, 256}, {24, 24, 256}, {300, 90, 40}};
    const tav_sr2_CornerRows* tables[] = {tav_sr2_cornerRowsScalar(), tav_sr2_cornerRowsVector()};
    for (const auto& s : sizes) {
        TestImage img(&heap.pool, s[0], s[1], TAV_SR2_FMT_UINT8);
        fillPattern(&img.img, s[0] % 3);
        tav_sr2_CornerGrid g;
        ASSERT_TRUE(tav_sr2_CornerList_grid(s[0], s[1], s[2], &g));
        for (const tav_sr2_CornerRows* rows : tables) {
            for (tav_sr2_ThreadPool* tp : {(tav_sr2_ThreadPool*)nullptr, &workers.tp}) {
                TestImage map(&heap.pool, g.map_width, g.map_height, TAV_SR2_FMT_INT32);
                ASSERT_EQ(tav_sr2_CornerList_responseMap(&img.img, &g, &map.img, tp, rows), TAV_OK);
                int32_t mismatches = 0;
                for (int32_t j = 0; j < g.map_height; ++j) {
                    const int32_t* row = (const int32_t*)(map.img.plane[0] + j * map.img.pitch[0]);
                    for (int32_t i = 0; i < g.map_width; ++i) {
                        mismatches += row[i] != referenceMapAt(&img.img, g.step, i, j);
                    }
                }
                EXPECT_EQ(mismatches, 0) << s[0] << " x " << s[1];
            }
        }
    }
}

TEST(Corners, VectorResponseRowEqualsScalar) {
    std::mt19937 rng(3);
    // Pictures held in exactly their bytes, so that the address sanitizer sees a read past the
    // last grid point's columns or rows.
    for (int32_t width : {24, 31, 157}) {
        const int32_t height = 26;
        std::vector<uint8_t> picture((size_t)width * height);
        for (uint8_t& p : picture)
            p = (uint8_t)rng();
        for (int32_t step = 2; step <= 8; ++step) {
            const int32_t first = 2 / step + 1;
            const int32_t i_end = (width - 3) / step, j_end = (height - 3) / step;
            for (int32_t j = first; j < j_end; ++j) {
                for (int32_t i1 = first; i1 <= i_end; ++i1) {
                    std::vector<int32_t> a(i_end + 1, -1), b(i_end + 1, -1);
                    tav_sr2_cornerRowsScalar()->response(picture.data(), width, j * step, step,
                                                         first, i1, a.data());
                    tav_sr2_cornerRowsVector()->response(picture.data(), width, j * step, step,
                                                         first, i1, b.data());
                    ASSERT_EQ(a, b) << "width " << width << " step " << step << " i1 " << i1;
                }
            }
        }
    }
}

TEST(Corners, DetectKeepsTheCellRulesAndSortsStably) {
    Heap heap(16 << 20);
    Workers workers(&heap.pool, 2);
    // {width, height, limit, capacity}: the last two have more cells than room, so the bottom
    // cells are dropped before the sort.
    const int32_t cases[][4] = {{1000, 750, 256, 256},
                                {200, 200, 256, 256},
                                {97, 61, 256, 256},
                                {200, 200, 20, 20},
                                {300, 90, 40, 25}};
    for (const auto& c : cases) {
        for (int32_t kind = 0; kind < 3; ++kind) {
            TestImage img(&heap.pool, c[0], c[1], TAV_SR2_FMT_UINT8);
            fillPattern(&img.img, kind);
            tav_sr2_CornerList list;
            ASSERT_EQ(tav_sr2_CornerList_init(&list, &heap.pool, c[3]), TAV_OK);
            ASSERT_EQ(tav_sr2_CornerList_detect(&list, &img.img, c[2], &workers.tp), TAV_OK);
            const std::vector<tav_sr2_Corner> expected = referenceDetect(&img.img, c[2], c[3]);
            ASSERT_EQ(list.count, (int32_t)expected.size()) << c[0] << " x " << c[1];
            for (int32_t k = 0; k < list.count; ++k) {
                EXPECT_EQ(memcmp(&list.corners[k], &expected[k], sizeof(tav_sr2_Corner)), 0)
                    << "corner " << k << " of " << c[0] << " x " << c[1] << " kind " << kind;
            }
            tav_sr2_CornerList_finish(&list);
        }
    }
}

TEST(Corners, FlatOrSmallImagesGiveNoCorners) {
    Heap heap(4 << 20);
    tav_sr2_CornerList list;
    ASSERT_EQ(tav_sr2_CornerList_init(&list, &heap.pool, 256), TAV_OK);
    TestImage flat(&heap.pool, 320, 240, TAV_SR2_FMT_UINT8);
    fill(&flat.img, [](int32_t, int32_t) { return (uint8_t)77; });
    EXPECT_EQ(tav_sr2_CornerList_detect(&list, &flat.img, 256, nullptr), TAV_OK);
    EXPECT_EQ(list.count, 0);
    TestImage narrow(&heap.pool, 23, 400, TAV_SR2_FMT_UINT8);
    fillRandom(&narrow.img, 5);
    EXPECT_EQ(tav_sr2_CornerList_detect(&list, &narrow.img, 256, nullptr), TAV_OK);
    EXPECT_EQ(list.count, 0);
#ifdef TAVRIN_FAULT_INJECTION
    // Out of memory for the map or the sort buffer is reported, nothing leaks.
    TestImage noisy(&heap.pool, 64, 64, TAV_SR2_FMT_UINT8);
    fillRandom(&noisy.img, 9);
    const uint32_t before = tav_sr2_MemPool_inUse(&heap.pool);
    for (uint32_t nth = 1; nth <= 2; ++nth) {
        tav_sr2_MemPool_injectFailure(nth, false);
        EXPECT_EQ(tav_sr2_CornerList_detect(&list, &noisy.img, 256, nullptr), TAV_ERROR_MALLOC);
        tav_sr2_MemPool_injectFailure(0, false);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), before);
    }
#endif
    tav_sr2_CornerList_finish(&list);
}

}  // namespace
