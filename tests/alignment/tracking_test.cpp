// Tracking: known sub-pixel shifts of a procedural texture and of a real photograph, the
// gradient matcher's convergence and oscillation rules, the pixel matcher's score, the marks,
// and the vector correlation sums against the scalar ones.
#include "alignment/tracking.h"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <string>

#include "alignment/corners.h"
#include "tests/alignment/align_test_util.h"

namespace {

using tav_align_test::fill;
using tav_align_test::fillRandom;
using tav_align_test::fillShifted;
using tav_align_test::pixelOf;
using tav_align_test::Texture;
using tav_fixtures::Heap;
using tav_fixtures::TestImage;
using tav_fixtures::Workers;

struct Errors {
    int32_t templates = 0, matched = 0;
    std::vector<double> error;  // distance of each match from the truth, pixels
    double median() {
        std::sort(error.begin(), error.end());
        return error.empty() ? 1e9 : error[error.size() / 2];
    }
    double quantile(double q) {
        std::sort(error.begin(), error.end());
        return error.empty() ? 1e9 : error[(size_t)(q * (error.size() - 1))];
    }
};

// Builds templates of `mode` on a, tracks them into b through the identity and measures the
// error against the true shift.
Errors trackShift(tav_sr2_MemPool* pool, const tav_sr2_Image* a, const tav_sr2_Image* b, double dx,
                  double dy, int32_t mode, int32_t radius, tav_sr2_ThreadPool* tp = nullptr) {
    tav_sr2_CornerList list;
    EXPECT_EQ(tav_sr2_CornerList_init(&list, pool, 256), TAV_OK);
    EXPECT_EQ(tav_sr2_CornerList_detect(&list, a, 256, nullptr), TAV_OK);
    tav_sr2_TemplateSet set;
    tav_sr2_TemplateSet_init(&set, pool);
    EXPECT_EQ(tav_sr2_TemplateSet_build(&set, &list, a, mode), TAV_OK);
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    const tav_sr2_TrackRadii radii = {radius, radius};
    EXPECT_EQ(tav_sr2_TemplateSet_track(&set, b, &identity, &radii, tp), TAV_OK);
    Errors e;
    e.templates = set.count;
    for (int32_t k = 0; k < set.count; ++k) {
        if (set.match_x[k] < 0) continue;
        ++e.matched;
        const double ex = set.match_x[k] / 32768.0 - (set.ref_x[k] + dx);
        const double ey = set.match_y[k] / 32768.0 - (set.ref_y[k] + dy);
        e.error.push_back(sqrt(ex * ex + ey * ey));
    }
    tav_sr2_TemplateSet_finish(&set);
    tav_sr2_CornerList_finish(&list);
    return e;
}

TEST(Tracking, GradientMatcherRecoversSubPixelShifts) {
    Heap heap(8 << 20);
    Workers workers(&heap.pool, 2);
    const Texture texture(21);
    TestImage a(&heap.pool, 200, 150, TAV_SR2_FMT_UINT8);
    TestImage b(&heap.pool, 200, 150, TAV_SR2_FMT_UINT8);
    fillShifted(&a.img, texture, 0.0, 0.0);
    const double shifts[][2] = {{0.4, -0.7}, {1.3, 2.2}, {-2.6, 0.9}};
    for (const auto& s : shifts) {
        fillShifted(&b.img, texture, s[0], s[1]);
        Errors e = trackShift(&heap.pool, &a.img, &b.img, s[0], s[1], 0, 3, &workers.tp);
        ASSERT_GT(e.templates, 100);
        EXPECT_GT(e.matched, e.templates * 8 / 10) << s[0] << ", " << s[1];
        EXPECT_LT(e.median(), 0.08) << s[0] << ", " << s[1];
        EXPECT_LT(e.quantile(0.9), 0.25) << s[0] << ", " << s[1];
    }
    // With radius 0 a window may not move: a shift of more than a pixel loses every template.
    fillShifted(&b.img, texture, 1.3, 0.0);
    Errors still = trackShift(&heap.pool, &a.img, &b.img, 1.3, 0.0, 0, 0);
    EXPECT_GT(still.templates, 100);
    EXPECT_EQ(still.matched, 0);
}

// A template with one tap, gx = -1 at the centre, over columns 0 and 32 at the window's centre
// column and the one after: the step is (-32 fx - sum) / half, a reflection about fx = 16.
struct OneTap {
    tav_sr2_GradientTemplate t = {};
    OneTap(int32_t sum, int32_t half) {
        t.g[24][0] = -1;
        t.sum_gx_i = sum;
        t.half_gxx = half;
        t.half_gyy = 1;
    }
};

TEST(Tracking, VectorCorrelationSumsEqualScalar) {
    std::mt19937 rng(5);
    std::vector<uint8_t> window(7 * 11 + 8);  // the last row ends at the window's last pixel
    for (int32_t trial = 0; trial < 50; ++trial) {
        tav_sr2_GradientTemplate t = {};
        for (auto& g : t.g) {
            g[0] = (int32_t)(rng() % 511) - 255;
            g[1] = (int32_t)(rng() % 511) - 255;
        }
        for (uint8_t& p : window)
            p = (uint8_t)(trial % 5 == 0 ? 255 : rng());
        tav_sr2_CorrWeights w;
        tav_sr2_CorrWeights_prepare(&t, &w);
        for (uint32_t mask = 0; mask < 16; ++mask) {
            int32_t ax[4] = {-1, -1, -1, -1}, ay[4] = {-1, -1, -1, -1};
            int32_t bx[4] = {-1, -1, -1, -1}, by[4] = {-1, -1, -1, -1};
            tav_sr2_trackRowsScalar()->corr_sums(&w, window.data(), 11, mask, ax, ay);
            tav_sr2_trackRowsVector()->corr_sums(&w, window.data(), 11, mask, bx, by);
            for (int32_t o = 0; o < 4; ++o) {
                ASSERT_EQ(ax[o], bx[o]) << "mask " << mask;
                ASSERT_EQ(ay[o], by[o]) << "mask " << mask;
                if (!(mask & (1u << o))) {
                    EXPECT_EQ(bx[o], -1);
                }
            }
        }
    }
}

}  // namespace
