// The gated two-round fit over tracker output, and the per-level statistics and verdict bits.
#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <vector>

#include "alignment/motion_model.h"
#include "tests/alignment/scene_util.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

using tav_scene::aboutCentre;
using tav_scene::meanCornerError;

// Tracker output for a level, as the template set keeps it.
struct Level {
    std::vector<int32_t> ref_x, ref_y, match_x, match_y, score, inlier;
    tav_sr2_MatchView view() {
        return {(int32_t)ref_x.size(), ref_x.data(), ref_y.data(), match_x.data(),
                match_y.data(),        score.data(), inlier.data()};
    }
    void add(int32_t rx, int32_t ry, double mx, double my, int32_t s) {
        ref_x.push_back(rx);
        ref_y.push_back(ry);
        match_x.push_back((int32_t)lround(mx * 32768));
        match_y.push_back((int32_t)lround(my * 32768));
        score.push_back(s);
        inlier.push_back(0);
    }
    void addMark(int32_t mark) {
        add(5, 5, 0, 0, 200);
        match_x.back() = mark;
        match_y.back() = mark;
    }
};

const int32_t kW = 320, kH = 240;

Level matchesOf(const tav_sr2_Trans2D& t, int n, uint32_t seed) {
    std::mt19937 rng(seed);
    Level l;
    for (int i = 0; i < n; ++i) {
        const int32_t x = 8 + rng() % (kW - 16), y = 8 + rng() % (kH - 16);
        double mx, my;
        tav_scene::project(t, x, y, &mx, &my);
        l.add(x, y, mx, my, 60 + rng() % 100);
    }
    return l;
}

struct ModelFixture {
    tav_fixtures::Heap heap{1 << 16};
    tav_sr2_MotionModel model;
    ModelFixture() {
        tav_sr2_MotionModel_init(&model, &heap.pool);
        EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 2), TAV_OK);
    }
    ~ModelFixture() { tav_sr2_MotionModel_finish(&model); }
};

TEST(MotionFit, GateRejectsOutliersAndKeepsEveryGoodMatch) {
    ModelFixture f;
    const tav_sr2_Trans2D truth = aboutCentre(1.1, 1.015, 6.5, -4.25, 2e-5, -1e-5, kW / 2, kH / 2);
    Level l = matchesOf(truth, 120, 1);
    const size_t good = l.ref_x.size();
    std::mt19937 rng(2);
    for (int i = 0; i < 20; ++i) {  // displaced 6 to 20 pixels in any direction
        const int32_t x = 8 + rng() % (kW - 16), y = 8 + rng() % (kH - 16);
        const double r = 6 + (rng() % 1400) / 100.0, a = (rng() % 628) / 100.0;
        double mx, my;
        tav_scene::project(truth, x, y, &mx, &my);
        l.add(x, y, mx + r * cos(a), my + r * sin(a), 150);
    }
    l.addMark(TAV_TRACK_LOST);
    l.addMark(TAV_TRACK_OUTSIDE);
    l.inlier[good + 20] = 7;  // marks are not visited: left as they are
    l.inlier[good + 21] = 7;
    tav_sr2_MatchView v = l.view();

    tav_sr2_Trans2D t = aboutCentre(0, 1, 4, -2, 0, 0, 0, 0);  // the start: a rough shift
    EXPECT_EQ(tav_sr2_MotionModel_fitGated(&f.model, &v, 3, &t), 0u);
    for (size_t i = 0; i < good; ++i)
        EXPECT_EQ(l.inlier[i], 1) << i;
    for (size_t i = good; i < good + 20; ++i)
        EXPECT_EQ(l.inlier[i], 0) << i;
    EXPECT_EQ(l.inlier[good + 20], 7);
    EXPECT_EQ(l.inlier[good + 21], 7);
    // Q15 positions round by 1.5e-5 px; the gated result is as good as the rounding allows.
    EXPECT_LT(meanCornerError(t, truth, kW, kH), 1e-3);

    // One round over the same matches, for comparison: the outliers pull it well away.
    tav_sr2_MotionModel_reset(&f.model);
    for (int32_t i = 0; i < v.count; ++i)
        if (l.match_x[i] >= 0)
            tav_sr2_MotionModel_addMatchQ15(&f.model, l.ref_x[i] << 15, l.ref_y[i] << 15,
                                            l.match_x[i], l.match_y[i], 1.0);
    tav_sr2_Trans2D one = aboutCentre(0, 1, 4, -2, 0, 0, 0, 0);
    tav_sr2_MotionModel_setStart(&f.model, &one);
    tav_sr2_MotionModel_solve(&f.model);
    tav_sr2_MotionModel_getTransform(&f.model, &one);
    EXPECT_GT(meanCornerError(one, truth, kW, kH), 0.2);
}

// Statistics in Q15 shares, computed here the long way.
int32_t share(int64_t part, int64_t whole) {
    return (int32_t)(part * 32768 / std::max<int64_t>(whole, 1));
}

TEST(MotionFit, VerdictBitsFromLevelCounts) {
    struct Case {
        int32_t count, tried, matched, inliers;
        int64_t score_sum;
        int32_t min_mean_score;
        uint32_t bits;
        int skip;
    };
    const Case cases[] = {
        {100, 90, 80, 40, 8000, 0, 0, 0},
        {100, 90, 15, 15, 1500, 0, TAV_ALIGN_WEAK_MATCHES, 1},   // under 16 matches
        {100, 90, 16, 16, 1600, 0, 0, 0},                        // 16 is enough
        {100, 90, 20, 20, 59, 0, TAV_ALIGN_WEAK_MATCHES, 0},     // mean score 2.95
        {100, 90, 20, 20, 60, 0, 0, 0},                          // mean score 3.0
        {100, 100, 50, 9, 5000, 0, TAV_ALIGN_WEAK_MATCHES, 0},   // 9 % inliers
        {100, 100, 50, 10, 5000, 0, 0, 0},                       // 10 % inliers
        {100, 90, 80, 40, 8000, 12801, TAV_ALIGN_LOW_SCORE, 0},  // mean 100 in Q7 is 12800
        {100, 90, 80, 40, 8000, 12800, 0, 0},
        {10, 0, 0, 0, 0, 0, TAV_ALIGN_WEAK_MATCHES, 1},
        {300, 300, 200, 150, 0x500000, 0, 0, 0},  // score sum capped
        {0, 0, 0, 0, 0, 0, TAV_ALIGN_WEAK_MATCHES, 1},
        {4, 4, 1, 0, 77, 0, TAV_ALIGN_WEAK_MATCHES, 1},
    };
    const tav_sr2_FitConfig base_config = {3, 3, 0.5, 0};
    for (const Case& c : cases) {
        tav_sr2_LevelCounts counts = {c.count, c.tried, c.matched, c.inliers, c.score_sum};
        tav_sr2_FitConfig config = base_config;
        config.min_mean_score = c.min_mean_score;
        int32_t stats[3] = {-1, -1, -1};
        int skip = -1;
        uint32_t bits = tav_sr2_Align_verdictBeforeFit(&counts, stats, &skip);
        bits |= tav_sr2_Align_verdictAfterFit(&counts, &config, stats);
        EXPECT_EQ(bits, c.bits) << c.matched << " " << c.score_sum;
        EXPECT_EQ(skip, c.skip);
        EXPECT_EQ(stats[0], share(c.matched, c.count));
        EXPECT_EQ(stats[1], share(c.inliers, c.tried));
        const int64_t capped = std::min<int64_t>(c.score_sum, 0x400000) * 128;
        EXPECT_EQ(stats[2], (int32_t)(c.matched >= 2 ? capped / c.matched : capped));
    }
}

}  // namespace
