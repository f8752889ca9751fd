// Correlation sums of the gradient matcher.
//
// The vector form loads each of the eight window rows once as 32-bit lanes (a capped vector of
// at most eight, so a row is one to eight vectors) and multiplies it by the shift-0 or shift-1
// weights of every template row that the selected offsets pair with it. Lane sums are reduced at
// the end. Products and sums are exact 32-bit integers (at most 49 * 255 * 255), so the order of
// the additions does not matter and both forms give the same sums.

#ifndef TAVRIN_TRACKING_ROWS_COMMON
#define TAVRIN_TRACKING_ROWS_COMMON

#include <stdint.h>

#include "alignment/tracking_rows.h"

namespace tav_sr2_tracking {

inline void corrSumsScalar(const tav_sr2_CorrWeights* w, const uint8_t* window, int32_t pitch,
                           uint32_t offsets, int32_t* sum_x, int32_t* sum_y) {
    for (int32_t o = 0; o < 4; ++o) {
        if ((offsets & (1u << o)) == 0) continue;
        const int32_t ox = o & 1, oy = o >> 1;
        int32_t sx = 0, sy = 0;
        for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
            const uint8_t* q = window + (int64_t)(i + oy) * pitch + ox;
            for (int32_t j = 0; j < TAV_SR2_TEMPLATE_SIDE; ++j) {
                sx += w->x[0][i][j] * q[j];
                sy += w->y[0][i][j] * q[j];
            }
        }
        sum_x[o] = sx;
        sum_y[o] = sy;
    }
}

}  // namespace tav_sr2_tracking

#endif  // TAVRIN_TRACKING_ROWS_COMMON

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "alignment/tracking_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_tracking {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void corrSumsVector(const tav_sr2_CorrWeights* w, const uint8_t* window, int32_t pitch,
                    uint32_t offsets, int32_t* sum_x, int32_t* sum_y) {
    const hn::CappedTag<int32_t, 8> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const int32_t lanes = static_cast<int32_t>(hn::Lanes(d));
    using V = hn::Vec<decltype(d)>;
    // Named accumulators rather than an array, so that sizeless vector targets compile too.
    V x0 = hn::Zero(d), x1 = hn::Zero(d), x2 = hn::Zero(d), x3 = hn::Zero(d);
    V y0 = hn::Zero(d), y1 = hn::Zero(d), y2 = hn::Zero(d), y3 = hn::Zero(d);
    for (int32_t r = 0; r < TAV_SR2_TEMPLATE_SIDE + 1; ++r) {
        const uint8_t* row = window + (int64_t)r * pitch;
        for (int32_t c = 0; c < 8; c += lanes) {
            const V q = hn::PromoteTo(d, hn::LoadU(d8, row + c));
            auto add = [&](int32_t o, V& ax, V& ay) {
                const int32_t ox = o & 1, i = r - (o >> 1);
                if ((offsets & (1u << o)) == 0 || i < 0 || i >= TAV_SR2_TEMPLATE_SIDE) return;
                ax = hn::Add(ax, hn::Mul(hn::LoadU(d, &w->x[ox][i][c]), q));
                ay = hn::Add(ay, hn::Mul(hn::LoadU(d, &w->y[ox][i][c]), q));
            };
            add(0, x0, y0);
            add(1, x1, y1);
            add(2, x2, y2);
            add(3, x3, y3);
        }
    }
    auto put = [&](int32_t o, V ax, V ay) {
        if ((offsets & (1u << o)) == 0) return;
        sum_x[o] = hn::GetLane(hn::SumOfLanes(d, ax));
        sum_y[o] = hn::GetLane(hn::SumOfLanes(d, ay));
    };
    put(0, x0, y0);
    put(1, x1, y1);
    put(2, x2, y2);
    put(3, x3, y3);
}

const tav_sr2_TrackRows* trackRowsForTarget() {
    static constexpr tav_sr2_TrackRows table = {&corrSumsVector};
    return &table;
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_tracking
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_tracking {
HWY_EXPORT(trackRowsForTarget);
}  // namespace tav_sr2_tracking

void tav_sr2_CorrWeights_prepare(const tav_sr2_GradientTemplate* t, tav_sr2_CorrWeights* w) {
    for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
        for (int32_t lane = 0; lane < 8; ++lane) {
            const int32_t k = TAV_SR2_TEMPLATE_SIDE * i;
            w->x[0][i][lane] = lane < 7 ? t->g[k + lane][0] : 0;
            w->y[0][i][lane] = lane < 7 ? t->g[k + lane][1] : 0;
            w->x[1][i][lane] = lane > 0 ? t->g[k + lane - 1][0] : 0;
            w->y[1][i][lane] = lane > 0 ? t->g[k + lane - 1][1] : 0;
        }
    }
}

const tav_sr2_TrackRows* tav_sr2_trackRowsScalar(void) {
    static constexpr tav_sr2_TrackRows table = {&tav_sr2_tracking::corrSumsScalar};
    return &table;
}

const tav_sr2_TrackRows* tav_sr2_trackRowsVector(void) {
    return HWY_DYNAMIC_DISPATCH(tav_sr2_tracking::trackRowsForTarget)();
}
#endif  // HWY_ONCE
