// Row kernels of the bilinear resize.
//
// Horizontal pass: out[x] = mix(src[i], src[i + 1], f) at the Q15 position first + x * step,
// indices clamped to 0..sw-1. Vertical pass: out[k] = mix(b0[k], b1[k], f). The integer mix is
// (f * b + (32768 - f) * a + 16384) >> 15; the vector forms compute the equal
// a + ((f * (b - a) + 16384) >> 15), since 32768 * a adds nothing below bit 15. Positions must
// stay below 2^31, which holds for widths under 32768.
//
// This file is compiled once per Highway target (dynamic dispatch); the scalar reference is
// compiled once.

#ifndef TAVRIN_RESIZE_ROWS_SCALAR
#define TAVRIN_RESIZE_ROWS_SCALAR

#include "enhance/resize_rows.h"

namespace tav_sr2_resize_scalar {

static inline int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

template <typename B, typename T>
static inline B mix(T a, T b, int32_t f) {
    return (B)(((int64_t)f * b + (int64_t)(32768 - f) * a + 16384) >> 15);
}
template <>
inline float mix<float, float>(float a, float b, int32_t f) {
    const float w1 = (float)f * (1.0f / 32768.0f);
    const float w0 = (float)(32768 - f) * (1.0f / 32768.0f);
    return a * w0 + b * w1;
}

template <typename T, typename B, int C>
static void horizontal(const T* src, int32_t sw, B* out, int32_t dw, int32_t first, int32_t step) {
    for (int32_t x = 0; x < dw; ++x) {
        const int32_t p = first + x * step;
        const int32_t f = p & 0x7fff;
        const int32_t i0 = clampIndex(p >> 15, sw);
        const int32_t i1 = clampIndex((p >> 15) + 1, sw);
        for (int c = 0; c < C; ++c)
            out[x * C + c] = mix<B>(src[i0 * C + c], src[i1 * C + c], f);
    }
}

template <typename B, typename T>
static void vertical(const B* b0, const B* b1, T* out, int32_t n, int32_t f) {
    for (int32_t k = 0; k < n; ++k)
        out[k] = mix<T>(b0[k], b1[k], f);
}

}  // namespace tav_sr2_resize_scalar

const tav_sr2_ResizeRowOps tav_sr2_resizeRowsScalar = {
    tav_sr2_resize_scalar::horizontal<uint8_t, uint16_t, 1>,
    tav_sr2_resize_scalar::horizontal<uint8_t, uint16_t, 2>,
    tav_sr2_resize_scalar::horizontal<uint16_t, uint16_t, 1>,
    tav_sr2_resize_scalar::horizontal<uint16_t, uint16_t, 2>,
    tav_sr2_resize_scalar::horizontal<int32_t, int32_t, 1>,
    tav_sr2_resize_scalar::horizontal<float, float, 1>,
    tav_sr2_resize_scalar::vertical<uint16_t, uint8_t>,
    tav_sr2_resize_scalar::vertical<uint16_t, uint16_t>,
    tav_sr2_resize_scalar::vertical<int32_t, int32_t>,
    tav_sr2_resize_scalar::vertical<float, float>,
};

#endif  // TAVRIN_RESIZE_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "enhance/resize_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_resize_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One vector of horizontal mixes for single-channel samples of `bytes` bytes (1 or 2). A 32-bit
// gather at the left neighbour fetches both neighbours at once; the gather base is held back
// from the row end so that it never reads past the last sample.
template <int kBytes, class D>
HWY_INLINE hn::Vec<D> mixGathered(D d, const uint8_t* src, int32_t sw, hn::Vec<D> p) {
    const hn::RebindToUnsigned<D> du;
    const auto f = hn::And(p, hn::Set(d, 0x7fff));
    const auto i = hn::ShiftRight<15>(p);
    const auto zero = hn::Zero(d);
    const auto last = hn::Set(d, sw - 1);
    const auto i0 = hn::Min(hn::Max(i, zero), last);
    const auto i1 = hn::Min(hn::Max(hn::Add(i, hn::Set(d, 1)), zero), last);
    const auto base = hn::Min(i0, hn::Set(d, sw - 4 / kBytes));
    const auto offset = kBytes == 1 ? base : hn::Add(base, base);
    const auto word =
        hn::BitCast(du, hn::GatherOffset(d, reinterpret_cast<const int32_t*>(src), offset));
    const auto mask = hn::Set(du, kBytes == 1 ? 0xFFu : 0xFFFFu);
    const auto s0 = hn::ShiftLeft < kBytes == 1 ? 3 : 4 > (hn::Sub(i0, base));
    const auto s1 = hn::ShiftLeft < kBytes == 1 ? 3 : 4 > (hn::Sub(i1, base));
    const auto a = hn::BitCast(d, hn::And(word >> hn::BitCast(du, s0), mask));
    const auto b = hn::BitCast(d, hn::And(word >> hn::BitCast(du, s1), mask));
    const auto t = hn::Add(f * hn::Sub(b, a), hn::Set(d, 16384));
    return hn::Add(a, hn::ShiftRight<15>(t));
}

template <int kBytes>
HWY_INLINE void horizontalGathered(const uint8_t* src, int32_t sw, uint16_t* out, int32_t dw,
                                   int32_t first, int32_t step) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    const int32_t n = (int32_t)hn::Lanes(d);
    int32_t x = 0;
    if (sw >= 4 / kBytes) {
        auto p = hn::Add(hn::Set(d, first), hn::Iota(d, 0) * hn::Set(d, step));
        const auto advance = hn::Set(d, step * n);
        for (; x + n <= dw; x += n) {
            hn::StoreU(hn::DemoteTo(d16, mixGathered<kBytes>(d, src, sw, p)), d16, out + x);
            p = hn::Add(p, advance);
        }
    }
    // The tail (and rows too short for the gather) by the scalar form, from position x.
    if (x < dw) {
        if (kBytes == 1) {
            tav_sr2_resize_scalar::horizontal<uint8_t, uint16_t, 1>(src, sw, out + x, dw - x,
                                                                    first + x * step, step);
        } else {
            tav_sr2_resize_scalar::horizontal<uint16_t, uint16_t, 1>(
                reinterpret_cast<const uint16_t*>(src), sw, out + x, dw - x, first + x * step,
                step);
        }
    }
}

void HorizontalU8(const uint8_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                  int32_t step) {
    horizontalGathered<1>(src, sw, out, dw, first, step);
}

void HorizontalU16(const uint16_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                   int32_t step) {
    horizontalGathered<2>(reinterpret_cast<const uint8_t*>(src), sw, out, dw, first, step);
}

// 8-bit samples: the difference of two buffers fits 16 bits, and MulFixedPoint15 is exactly
// (f * d + 16384) >> 15.
void VerticalU8(const uint16_t* b0, const uint16_t* b1, uint8_t* out, int32_t n, int32_t f) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const auto weight = hn::Set(d, (int16_t)f);
    int32_t k = 0;
    for (; k + lanes <= n; k += lanes) {
        const auto a = hn::LoadU(d, reinterpret_cast<const int16_t*>(b0 + k));
        const auto b = hn::LoadU(d, reinterpret_cast<const int16_t*>(b1 + k));
        const auto r = hn::Add(a, hn::MulFixedPoint15(weight, hn::Sub(b, a)));
        hn::StoreU(hn::DemoteTo(d8, r), d8, out + k);
    }
    tav_sr2_resize_scalar::vertical<uint16_t, uint8_t>(b0 + k, b1 + k, out + k, n - k, f);
}

void VerticalU16(const uint16_t* b0, const uint16_t* b1, uint16_t* out, int32_t n, int32_t f) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const auto weight = hn::Set(d, f);
    const auto half = hn::Set(d, 16384);
    int32_t k = 0;
    for (; k + lanes <= n; k += lanes) {
        const auto a = hn::PromoteTo(d, hn::LoadU(d16, b0 + k));
        const auto b = hn::PromoteTo(d, hn::LoadU(d16, b1 + k));
        const auto t = hn::Add(weight * hn::Sub(b, a), half);
        hn::StoreU(hn::DemoteTo(d16, hn::Add(a, hn::ShiftRight<15>(t))), d16, out + k);
    }
    tav_sr2_resize_scalar::vertical<uint16_t, uint16_t>(b0 + k, b1 + k, out + k, n - k, f);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_resize_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_resize_rows {
HWY_EXPORT(HorizontalU8);
HWY_EXPORT(HorizontalU16);
HWY_EXPORT(VerticalU8);
HWY_EXPORT(VerticalU16);

static void horizontalU8(const uint8_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                         int32_t step) {
    HWY_DYNAMIC_DISPATCH(HorizontalU8)(src, sw, out, dw, first, step);
}
static void horizontalU16(const uint16_t* src, int32_t sw, uint16_t* out, int32_t dw, int32_t first,
                          int32_t step) {
    HWY_DYNAMIC_DISPATCH(HorizontalU16)(src, sw, out, dw, first, step);
}
static void verticalU8(const uint16_t* b0, const uint16_t* b1, uint8_t* out, int32_t n, int32_t f) {
    HWY_DYNAMIC_DISPATCH(VerticalU8)(b0, b1, out, n, f);
}
static void verticalU16(const uint16_t* b0, const uint16_t* b1, uint16_t* out, int32_t n,
                        int32_t f) {
    HWY_DYNAMIC_DISPATCH(VerticalU16)(b0, b1, out, n, f);
}
}  // namespace tav_sr2_resize_rows

const tav_sr2_ResizeRowOps tav_sr2_resizeRowsVector = {
    tav_sr2_resize_rows::horizontalU8,
    tav_sr2_resize_scalar::horizontal<uint8_t, uint16_t, 2>,
    tav_sr2_resize_rows::horizontalU16,
    tav_sr2_resize_scalar::horizontal<uint16_t, uint16_t, 2>,
    tav_sr2_resize_scalar::horizontal<int32_t, int32_t, 1>,
    tav_sr2_resize_scalar::horizontal<float, float, 1>,
    tav_sr2_resize_rows::verticalU8,
    tav_sr2_resize_rows::verticalU16,
    tav_sr2_resize_scalar::vertical<int32_t, int32_t>,
    tav_sr2_resize_scalar::vertical<float, float>,
};
#endif  // HWY_ONCE
