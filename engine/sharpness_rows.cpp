// Row kernels of the sharpness measure.
//
// tav_sr2_SharpKernel_make(k, sigma): the Q15 half kernel of one sigma (see the header).
// tav_sr2_sharpRowsScalar / tav_sr2_sharpRowsVector: horizontal pass and band energy.
//
// Bounds that let the vector form work on 16-bit lanes: a horizontal sample is at most
// 255 * 32768 >> 10 = 8160 in magnitude, so r[y-k] + r[y+k] fits in 16 bits, and with taps that
// add up to 32768 every vertical sum stays within a few units of 8160. The one kernel with a
// negative tap (centre -32768, all others 0) multiplies -32768 by at most 8160, never by -32768,
// so the saturating corner of the rounding multiply is never reached. A pixel score is at most
// 16320 and a row of 32767 pixels sums to below 2^31 in any one 32-bit lane.
//
// This file is compiled once per Highway target (dynamic dispatch); the scalar reference and the
// kernel builder are compiled once.

#ifndef TAVRIN_SHARPNESS_ROWS_SCALAR
#define TAVRIN_SHARPNESS_ROWS_SCALAR

#include "engine/sharpness_rows.h"
#include "foundation/maths.h"

namespace tav_sr2_sharp_scalar {

static inline int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

static inline int16_t horizontalSample(const uint8_t* src, int32_t w, const int16_t* tap,
                                       int32_t x) {
    int32_t sum = tap[0] * src[x];
    for (int32_t k = 1; k <= 3; ++k) {
        sum += tap[k] * src[clampIndex(x - k, w)] + tap[k] * src[clampIndex(x + k, w)];
    }
    return (int16_t)((sum + 512) >> 10);
}

static void horizontal(const uint8_t* src, int32_t w, const tav_sr2_SharpKernel* k, int16_t* out) {
    for (int32_t x = 0; x < w; ++x)
        out[x] = horizontalSample(src, w, k->tap, x);
}

static inline int32_t verticalSum(const int16_t* const* r, const int16_t* tap, int32_t i) {
    int32_t sum = (tap[0] * r[3][i] + 0x4000) >> 15;
    for (int32_t k = 1; k <= 3; ++k)
        sum += (tap[k] * (r[3 - k][i] + r[3 + k][i]) + 0x4000) >> 15;
    return sum;
}

static inline uint32_t pixelScore(const int16_t* const* rows_a, const int16_t* const* rows_b,
                                  const tav_sr2_SharpKernel* ka, const tav_sr2_SharpKernel* kb,
                                  int32_t i) {
    const int32_t d = verticalSum(rows_a, ka->tap, i) - verticalSum(rows_b, kb->tap, i);
    return (uint32_t)(d < 0 ? -d : d);
}

static uint32_t energyFrom(const int16_t* const* rows_a, const int16_t* const* rows_b,
                           int32_t begin, int32_t n, const tav_sr2_SharpKernel* ka,
                           const tav_sr2_SharpKernel* kb) {
    uint32_t total = 0;
    for (int32_t i = begin; i < n; ++i)
        total += pixelScore(rows_a, rows_b, ka, kb, i);
    return total;
}

static uint32_t energy(const int16_t* const* rows_a, const int16_t* const* rows_b, int32_t n,
                       const tav_sr2_SharpKernel* ka, const tav_sr2_SharpKernel* kb) {
    return energyFrom(rows_a, rows_b, 0, n, ka, kb);
}

}  // namespace tav_sr2_sharp_scalar

const tav_sr2_SharpRowOps tav_sr2_sharpRowsScalar = {
    tav_sr2_sharp_scalar::horizontal,
    tav_sr2_sharp_scalar::energy,
};

void tav_sr2_SharpKernel_make(tav_sr2_SharpKernel* k, double sigma) {
    const double two_s2 = 2.0 * sigma * sigma;
    double g[4] = {1.0, 0.0, 0.0, 0.0};
    if (sigma > 0.0 && two_s2 > 0.0) {
        for (int32_t i = 1; i <= 3; ++i) {
            const double x = -(double)(i * i) / two_s2;
            g[i] = x < -700.0 ? 0.0 : tav_sr2_exp(x);  // below that exp is 0 in doubles anyway
        }
    }
    const double s = g[0] + 2.0 * (g[1] + g[2] + g[3]);
    int32_t sides = 0;
    for (int32_t i = 1; i <= 3; ++i) {
        const int32_t t = (int32_t)(g[i] * 32768.0 / s + 0.5);
        k->tap[i] = (int16_t)t;
        sides += t;
    }
    k->tap[0] = (int16_t)(uint16_t)(32768 - 2 * sides);
}

#endif  // TAVRIN_SHARPNESS_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/sharpness_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_sharp_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Horizontal pass on 32-bit lanes; the three pixels at each end take the scalar path, which
// repeats the edge pixel.
void Horizontal(const uint8_t* src, int32_t w, const tav_sr2_SharpKernel* k, int16_t* out) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const hn::Rebind<int16_t, decltype(d)> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const int32_t head = w < 3 ? w : 3;
    for (int32_t x = 0; x < head; ++x) {
        out[x] = tav_sr2_sharp_scalar::horizontalSample(src, w, k->tap, x);
    }
    const auto t0 = hn::Set(d, k->tap[0]);
    const auto t1 = hn::Set(d, k->tap[1]);
    const auto t2 = hn::Set(d, k->tap[2]);
    const auto t3 = hn::Set(d, k->tap[3]);
    const auto round = hn::Set(d, 512);
    int32_t x = head;
    for (; x + lanes + 3 <= w; x += lanes) {
        auto px = [&](int32_t o) { return hn::PromoteTo(d, hn::LoadU(d8, src + x + o)); };
        auto sum = hn::Mul(t0, px(0));
        sum = hn::Add(sum, hn::Mul(t1, hn::Add(px(-1), px(1))));
        sum = hn::Add(sum, hn::Mul(t2, hn::Add(px(-2), px(2))));
        sum = hn::Add(sum, hn::Mul(t3, hn::Add(px(-3), px(3))));
        hn::StoreU(hn::DemoteTo(d16, hn::ShiftRight<10>(hn::Add(sum, round))), d16, out + x);
    }
    for (; x < w; ++x)
        out[x] = tav_sr2_sharp_scalar::horizontalSample(src, w, k->tap, x);
}

// The vertical sums of one kernel for the lanes at i, each term a Q15 rounding multiply.
template <class D, class V>
HWY_INLINE V verticalLanes(D d, const int16_t* const* r, const V* taps, int32_t i) {
    V sum = hn::MulFixedPoint15(hn::LoadU(d, r[3] + i), taps[0]);
    for (int32_t k = 1; k <= 3; ++k) {
        const V pair = hn::Add(hn::LoadU(d, r[3 - k] + i), hn::LoadU(d, r[3 + k] + i));
        sum = hn::Add(sum, hn::MulFixedPoint15(pair, taps[k]));
    }
    return sum;
}

uint32_t Energy(const int16_t* const* rows_a, const int16_t* const* rows_b, int32_t n,
                const tav_sr2_SharpKernel* ka, const tav_sr2_SharpKernel* kb) {
    const hn::ScalableTag<int16_t> d;
    const hn::Repartition<int32_t, decltype(d)> d32;
    using V = hn::Vec<decltype(d)>;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    V taps_a[4];
    V taps_b[4];
    for (int32_t k = 0; k < 4; ++k) {
        taps_a[k] = hn::Set(d, ka->tap[k]);
        taps_b[k] = hn::Set(d, kb->tap[k]);
    }
    const V one = hn::Set(d, 1);
    auto acc0 = hn::Zero(d32);
    auto acc1 = hn::Zero(d32);
    int32_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const V sa = verticalLanes(d, rows_a, taps_a, i);
        const V sb = verticalLanes(d, rows_b, taps_b, i);
        // Widening multiply by 1 adds the 16-bit scores pairwise into 32-bit lanes.
        acc0 = hn::ReorderWidenMulAccumulate(d32, hn::Abs(hn::Sub(sa, sb)), one, acc0, acc1);
    }
    const uint32_t lanes_total = (uint32_t)hn::GetLane(hn::SumOfLanes(d32, hn::Add(acc0, acc1)));
    return lanes_total + tav_sr2_sharp_scalar::energyFrom(rows_a, rows_b, i, n, ka, kb);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_sharp_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_sharp_rows {
HWY_EXPORT(Horizontal);
HWY_EXPORT(Energy);

static void horizontal(const uint8_t* src, int32_t w, const tav_sr2_SharpKernel* k, int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Horizontal)(src, w, k, out);
}
static uint32_t energy(const int16_t* const* rows_a, const int16_t* const* rows_b, int32_t n,
                       const tav_sr2_SharpKernel* ka, const tav_sr2_SharpKernel* kb) {
    return HWY_DYNAMIC_DISPATCH(Energy)(rows_a, rows_b, n, ka, kb);
}
}  // namespace tav_sr2_sharp_rows

const tav_sr2_SharpRowOps tav_sr2_sharpRowsVector = {
    tav_sr2_sharp_rows::horizontal,
    tav_sr2_sharp_rows::energy,
};
#endif  // HWY_ONCE
