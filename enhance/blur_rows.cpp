// Row kernels of the separable Gaussian blur.
//
// Horizontal: out[x] = round(sum over |k| <= r of w[|k|] * src[clamp(x + k)]) per channel, with
// the rounding shift of the format (7 bits kept for 8-bit rows, none for the others). Vertical:
// the same over the row pointers. Sums of the integer forms are exact; all weights are positive
// and total 32768, so an 8-bit vertical sum stays below 65280 * 32768 < 2^31 and a 16-bit sum
// below 65535 * 32768 + 16384 < 2^31, which is why 32-bit vector lanes suffice.
//
// This file is compiled once per Highway target (dynamic dispatch); the scalar reference and the
// kernel builder are compiled once.

#ifndef TAVRIN_BLUR_ROWS_SCALAR
#define TAVRIN_BLUR_ROWS_SCALAR

#include "enhance/blur_rows.h"

namespace tav_sr2_blur_scalar {

static inline int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

template <int kShift>
static inline int64_t roundShift(int64_t sum) {
    return (sum + ((int64_t)1 << (kShift - 1))) >> kShift;
}

// One output sample of the horizontal pass at sample index i (pixel i / c, channel i % c).
template <typename T, typename B, int kShift>
static inline B horizontalSample(const T* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                                 int32_t i) {
    const int32_t x = i / c;
    const int32_t ch = i - x * c;
    int64_t sum = (int64_t)k->q15[0] * src[i];
    for (int32_t t = 1; t <= k->radius; ++t) {
        const int32_t a = clampIndex(x - t, w) * c + ch;
        const int32_t b = clampIndex(x + t, w) * c + ch;
        sum += (int64_t)k->q15[t] * ((int64_t)src[a] + src[b]);
    }
    return (B)roundShift<kShift>(sum);
}

template <typename T, typename B, int kShift>
static void horizontal(const T* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k, B* out) {
    const int32_t n = w * c;
    for (int32_t i = 0; i < n; ++i)
        out[i] = horizontalSample<T, B, kShift>(src, w, c, k, i);
}

template <typename B, typename T, int kShift>
static void vertical(const B* const* rows, int32_t n, const tav_sr2_BlurKernel* k, T* out) {
    const int32_t r = k->radius;
    for (int32_t i = 0; i < n; ++i) {
        int64_t sum = (int64_t)k->q15[0] * rows[r][i];
        for (int32_t t = 1; t <= r; ++t) {
            sum += (int64_t)k->q15[t] * ((int64_t)rows[r - t][i] + rows[r + t][i]);
        }
        out[i] = (T)roundShift<kShift>(sum);
    }
}

static void horizontalF32(const float* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                          float* out) {
    for (int32_t x = 0; x < w; ++x) {
        for (int32_t ch = 0; ch < c; ++ch) {
            float sum = k->f32[0] * src[x * c + ch];
            for (int32_t t = 1; t <= k->radius_f32; ++t) {
                const float a = src[clampIndex(x - t, w) * c + ch];
                const float b = src[clampIndex(x + t, w) * c + ch];
                sum += k->f32[t] * (a + b);
            }
            out[x * c + ch] = sum;
        }
    }
}

static void verticalF32(const float* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                        float* out) {
    const int32_t r = k->radius_f32;
    for (int32_t i = 0; i < n; ++i) {
        float sum = k->f32[0] * rows[r][i];
        for (int32_t t = 1; t <= r; ++t)
            sum += k->f32[t] * (rows[r - t][i] + rows[r + t][i]);
        out[i] = sum;
    }
}

}  // namespace tav_sr2_blur_scalar

const tav_sr2_BlurRowOps tav_sr2_blurRowsScalar = {
    tav_sr2_blur_scalar::horizontal<uint8_t, uint16_t, 7>,
    tav_sr2_blur_scalar::horizontal<uint16_t, uint16_t, 15>,
    tav_sr2_blur_scalar::horizontal<int32_t, int32_t, 15>,
    tav_sr2_blur_scalar::horizontalF32,
    tav_sr2_blur_scalar::vertical<uint16_t, uint8_t, 23>,
    tav_sr2_blur_scalar::vertical<uint16_t, uint16_t, 15>,
    tav_sr2_blur_scalar::vertical<int32_t, int32_t, 15>,
    tav_sr2_blur_scalar::verticalF32,
};

void tav_sr2_BlurKernel_fromTaps(tav_sr2_BlurKernel* k, const double* taps, int32_t reach) {
    if (reach < 0) reach = 0;
    if (reach > TAV_SR2_BLUR_MAX_RADIUS) reach = TAV_SR2_BLUR_MAX_RADIUS;
    double total = taps[0];
    for (int32_t t = 1; t <= reach; ++t)
        total += 2.0 * taps[t];
    int32_t sides = 0;
    k->radius = 0;
    for (int32_t t = 0; t <= TAV_SR2_BLUR_MAX_RADIUS; ++t) {
        const double w = t <= reach ? taps[t] / total : 0.0;
        k->f32[t] = (float)w;
        k->q15[t] = t == 0 ? 0 : (int32_t)(w * 32768.0 + 0.5);
        if (t > 0 && k->q15[t] > 0) k->radius = t;
        sides += k->q15[t];
    }
    k->q15[0] = 32768 - 2 * sides;
    k->radius_f32 = reach;
}

#endif  // TAVRIN_BLUR_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "enhance/blur_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_blur_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Horizontal pass for 8- or 16-bit samples on 32-bit lanes. Samples whose window reaches past
// the row take the scalar path, which clamps.
template <typename T, int kShift>
HWY_INLINE void horizontalLanes(const T* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                                uint16_t* out) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<T, decltype(d)> dt;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const int32_t r = k->radius;
    const int32_t n = w * c;
    const int32_t begin = r * c < n ? r * c : n;
    const int32_t end = (w - r) * c > begin ? (w - r) * c : begin;
    for (int32_t i = 0; i < begin; ++i) {
        out[i] = tav_sr2_blur_scalar::horizontalSample<T, uint16_t, kShift>(src, w, c, k, i);
    }
    int32_t i = begin;
    const auto round = hn::Set(d, 1 << (kShift - 1));
    for (; i + lanes <= end; i += lanes) {
        auto sum = hn::Mul(hn::Set(d, k->q15[0]), hn::PromoteTo(d, hn::LoadU(dt, src + i)));
        for (int32_t t = 1; t <= r; ++t) {
            const auto a = hn::PromoteTo(d, hn::LoadU(dt, src + i - t * c));
            const auto b = hn::PromoteTo(d, hn::LoadU(dt, src + i + t * c));
            sum = hn::Add(sum, hn::Mul(hn::Set(d, k->q15[t]), hn::Add(a, b)));
        }
        const auto v = hn::ShiftRight<kShift>(hn::Add(sum, round));
        hn::StoreU(hn::DemoteTo(d16, v), d16, out + i);
    }
    for (; i < n; ++i) {
        out[i] = tav_sr2_blur_scalar::horizontalSample<T, uint16_t, kShift>(src, w, c, k, i);
    }
}

void HorizontalU8(const uint8_t* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                  uint16_t* out) {
    horizontalLanes<uint8_t, 7>(src, w, c, k, out);
}

void HorizontalU16(const uint16_t* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                   uint16_t* out) {
    horizontalLanes<uint16_t, 15>(src, w, c, k, out);
}

template <typename T, int kShift>
HWY_INLINE void verticalLanes(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                              T* out) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    const hn::Rebind<T, decltype(d)> dt;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const int32_t r = k->radius;
    const auto round = hn::Set(d, 1 << (kShift - 1));
    int32_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        auto sum = hn::Mul(hn::Set(d, k->q15[0]), hn::PromoteTo(d, hn::LoadU(d16, rows[r] + i)));
        for (int32_t t = 1; t <= r; ++t) {
            const auto a = hn::PromoteTo(d, hn::LoadU(d16, rows[r - t] + i));
            const auto b = hn::PromoteTo(d, hn::LoadU(d16, rows[r + t] + i));
            sum = hn::Add(sum, hn::Mul(hn::Set(d, k->q15[t]), hn::Add(a, b)));
        }
        const auto v = hn::ShiftRight<kShift>(hn::Add(sum, round));
        hn::StoreU(hn::DemoteTo(dt, v), dt, out + i);
    }
    if (i < n) {
        const uint16_t* tail[2 * TAV_SR2_BLUR_MAX_RADIUS + 1];
        for (int32_t t = 0; t <= 2 * r; ++t)
            tail[t] = rows[t] + i;
        tav_sr2_blur_scalar::vertical<uint16_t, T, kShift>(tail, n - i, k, out + i);
    }
}

void VerticalU8(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k, uint8_t* out) {
    verticalLanes<uint8_t, 23>(rows, n, k, out);
}

void VerticalU16(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                 uint16_t* out) {
    verticalLanes<uint16_t, 15>(rows, n, k, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_blur_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_blur_rows {
HWY_EXPORT(HorizontalU8);
HWY_EXPORT(HorizontalU16);
HWY_EXPORT(VerticalU8);
HWY_EXPORT(VerticalU16);

static void horizontalU8(const uint8_t* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                         uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(HorizontalU8)(src, w, c, k, out);
}
static void horizontalU16(const uint16_t* src, int32_t w, int32_t c, const tav_sr2_BlurKernel* k,
                          uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(HorizontalU16)(src, w, c, k, out);
}
static void verticalU8(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                       uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(VerticalU8)(rows, n, k, out);
}
static void verticalU16(const uint16_t* const* rows, int32_t n, const tav_sr2_BlurKernel* k,
                        uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(VerticalU16)(rows, n, k, out);
}
}  // namespace tav_sr2_blur_rows

const tav_sr2_BlurRowOps tav_sr2_blurRowsVector = {
    tav_sr2_blur_rows::horizontalU8,
    tav_sr2_blur_rows::horizontalU16,
    tav_sr2_blur_scalar::horizontal<int32_t, int32_t, 15>,
    tav_sr2_blur_scalar::horizontalF32,
    tav_sr2_blur_rows::verticalU8,
    tav_sr2_blur_rows::verticalU16,
    tav_sr2_blur_scalar::vertical<int32_t, int32_t, 15>,
    tav_sr2_blur_scalar::verticalF32,
};
#endif  // HWY_ONCE
