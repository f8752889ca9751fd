// Row kernels of the pattern upscaler and the resampler: the scalar reference and its Highway
// twin. The vector 2x filter handles four source pixels at a time in two 8-lane vectors, a pixel
// in each half: its four outputs of one tap sit side by side in the filter, so a tap costs one
// pair of 64-bit loads, a byte shuffle that spreads each pixel over its half, one fixed-point
// multiply and one add.
#include "merge/upscaler_rows.h"

#ifndef TAVRIN_UPSCALER_ROWS_SCALAR
#define TAVRIN_UPSCALER_ROWS_SCALAR

namespace tav_sr2_upscale_scalar {

inline int32_t digit(int32_t c, int32_t n, int32_t t) {
    return (c > n + t ? 2 : 0) + (n > c + t ? 1 : 0);
}

// Pattern index of the pixel at padded column x + 2.
inline uint16_t indexAt(const uint8_t* const* rows, int32_t x, int32_t t) {
    const int32_t c = rows[1][x + 2];
    int32_t index = 0;
    for (int32_t r = 0; r < 3; ++r) {
        for (int32_t k = 1; k <= 3; ++k) {
            if (r == 1 && k == 2) continue;
            index = index * 3 + digit(c, rows[r][x + k], t);
        }
    }
    return (uint16_t)index;
}

void classify(const uint8_t* const* rows, int32_t n, int32_t t, uint16_t* index) {
    for (int32_t x = 0; x < n; ++x)
        index[x] = indexAt(rows, x, t);
}

inline uint8_t clampByte(int32_t v) {
    return (uint8_t)(v < 0 ? 0 : (v > 255 ? 255 : v));
}

void filterPixel(const uint8_t* const* rows, const int16_t* f, int32_t x, uint8_t* out0,
                 uint8_t* out1) {
    int32_t acc[4] = {0, 0, 0, 0};
    for (int32_t r = 0; r < 5; ++r) {
        for (int32_t k = 0; k < 5; ++k) {
            const int32_t p = rows[r][x + k];
            const int16_t* c = f + (r * 5 + k) * 4;
            for (int32_t o = 0; o < 4; ++o)
                acc[o] += (c[o] * p + 2) >> 2;
        }
    }
    out0[2 * x] = clampByte((acc[0] + 512) >> 10);
    out0[2 * x + 1] = clampByte((acc[1] + 512) >> 10);
    out1[2 * x] = clampByte((acc[2] + 512) >> 10);
    out1[2 * x + 1] = clampByte((acc[3] + 512) >> 10);
}

void filter2x(const uint8_t* const* rows, const uint16_t* index, const int16_t* const* patterns,
              int32_t n, uint8_t* out0, uint8_t* out1) {
    for (int32_t x = 0; x < n; ++x)
        filterPixel(rows, patterns[index[x]], x, out0, out1);
}

template <typename T>
void verticalFrom(const T* const* rows, const int16_t* taps, int32_t from, int32_t n, int32_t shift,
                  int16_t* out) {
    const int32_t half = 1 << (shift - 1);
    for (int32_t x = from; x < n; ++x) {
        int32_t acc = half;
        for (int32_t k = 0; k < 8; ++k)
            acc += taps[k] * rows[k][x];
        acc >>= shift;
        out[x] = (int16_t)(acc < -32768 ? -32768 : (acc > 32767 ? 32767 : acc));
    }
}

void vertical8(const uint8_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
               int16_t* out) {
    verticalFrom(rows, taps, 0, n, shift, out);
}
void vertical16(const uint16_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                int16_t* out) {
    verticalFrom(rows, taps, 0, n, shift, out);
}

inline int32_t tapSum(const int16_t* row, const int16_t* taps) {
    int32_t acc = 0;
    for (int32_t k = 0; k < 8; ++k)
        acc += taps[k] * row[k];
    return acc;
}

inline int32_t roundClamp(int32_t acc, int32_t shift, int32_t max) {
    const int32_t v = (acc + (1 << (shift - 1))) >> shift;
    return v < 0 ? 0 : (v > max ? max : v);
}

void horizontal8From(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t from,
                     int32_t n, int32_t shift, uint8_t* out) {
    for (int32_t i = from; i < n; ++i)
        out[i] = (uint8_t)roundClamp(tapSum(row + base[i], taps + 8 * i), shift, 255);
}

void horizontal8(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                 int32_t shift, uint8_t* out) {
    horizontal8From(row, base, taps, 0, n, shift, out);
}

void horizontal16From(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t from,
                      int32_t n, int32_t shift, int32_t max, uint16_t* out) {
    for (int32_t i = from; i < n; ++i)
        out[i] = (uint16_t)roundClamp(tapSum(row + base[i], taps + 8 * i), shift, max);
}

void horizontal16(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                  int32_t shift, int32_t max, uint16_t* out) {
    horizontal16From(row, base, taps, 0, n, shift, max, out);
}

}  // namespace tav_sr2_upscale_scalar

const tav_sr2_UpscaleRowOps tav_sr2_upscaleRowsScalar = {
    tav_sr2_upscale_scalar::classify,    tav_sr2_upscale_scalar::filter2x,
    tav_sr2_upscale_scalar::vertical8,   tav_sr2_upscale_scalar::vertical16,
    tav_sr2_upscale_scalar::horizontal8, tav_sr2_upscale_scalar::horizontal16,
};

void tav_sr2_upscalePixel(const int16_t* filter, const uint8_t win[5][5], uint8_t out[4]) {
    const uint8_t* rows[5] = {win[0], win[1], win[2], win[3], win[4]};
    uint8_t row0[2];
    uint8_t row1[2];
    tav_sr2_upscale_scalar::filterPixel(rows, filter, 0, row0, row1);
    out[0] = row0[0];
    out[1] = row0[1];
    out[2] = row1[0];
    out[3] = row1[1];
}

#endif  // TAVRIN_UPSCALER_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "merge/upscaler_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_upscale_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace scalar = tav_sr2_upscale_scalar;

// The classification on 16-bit lanes: digits from two comparisons, accumulated base 3.
void Classify(const uint8_t* const* rows, int32_t n, int32_t t, uint16_t* index) {
    const hn::ScalableTag<int16_t> d;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    const hn::Rebind<uint16_t, decltype(d)> du;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const auto vt = hn::Set(d, (int16_t)(t > 1024 ? 1024 : t));
    const auto one = hn::Set(d, 1);
    const auto two = hn::Set(d, 2);
    const auto three = hn::Set(d, 3);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const auto c = hn::PromoteTo(d, hn::LoadU(d8, rows[1] + x + 2));
        auto idx = hn::Zero(d);
        for (int32_t r = 0; r < 3; ++r) {
            for (int32_t k = 1; k <= 3; ++k) {
                if (r == 1 && k == 2) continue;
                const auto nb = hn::PromoteTo(d, hn::LoadU(d8, rows[r] + x + k));
                const auto darker = hn::IfThenElseZero(hn::Gt(c, hn::Add(nb, vt)), two);
                const auto brighter = hn::IfThenElseZero(hn::Gt(nb, hn::Add(c, vt)), one);
                idx = hn::Add(hn::Mul(idx, three), hn::Add(darker, brighter));
            }
        }
        hn::StoreU(hn::BitCast(du, idx), du, index + x);
    }
    for (; x < n; ++x)
        index[x] = scalar::indexAt(rows, x, t);
}

template <typename T>
void Vertical(const T* const* rows, const int16_t* taps, int32_t n, int32_t shift, int16_t* out) {
    const hn::ScalableTag<int32_t> d;
    const hn::Rebind<T, decltype(d)> dt;
    const hn::Rebind<int16_t, decltype(d)> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const auto half = hn::Set(d, 1 << (shift - 1));
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        auto acc = half;
        for (int32_t k = 0; k < 8; ++k) {
            const auto v = hn::PromoteTo(d, hn::LoadU(dt, rows[k] + x));
            acc = hn::Add(acc, hn::Mul(v, hn::Set(d, taps[k])));
        }
        hn::StoreU(hn::DemoteTo(d16, hn::ShiftRightSame(acc, shift)), d16, out + x);
    }
    scalar::verticalFrom(rows, taps, x, n, shift, out);
}

void Vertical8(const uint8_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
               int16_t* out) {
    if (n <= 0) return;
    Vertical(rows, taps, n, shift, out);
}

void Vertical16(const uint16_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                int16_t* out) {
    if (n <= 0) return;
    Vertical(rows, taps, n, shift, out);
}

#if HWY_TARGET == HWY_SCALAR
// One lane is no vector: the 128-bit kernels below fall back to the scalar reference.
void Filter2x(const uint8_t* const* rows, const uint16_t* index, const int16_t* const* patterns,
              int32_t n, uint8_t* out0, uint8_t* out1) {
    scalar::filter2x(rows, index, patterns, n, out0, out1);
}
void Horizontal8(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                 int32_t shift, uint8_t* out) {
    scalar::horizontal8(row, base, taps, n, shift, out);
}
void Horizontal16(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                  int32_t shift, int32_t max, uint16_t* out) {
    scalar::horizontal16(row, base, taps, n, shift, max, out);
}
#else
using D16 = hn::FixedTag<int16_t, 8>;
using D32 = hn::FixedTag<int32_t, 4>;

// Byte shuffles of the 2x filter: pick k puts 16-bit lane k in lanes 0..3 and lane k + 1 in
// lanes 4..7.
#define TAVRIN_PICK(k)                                                                          \
    {                                                                                           \
        2 * (k), 2 * (k) + 1, 2 * (k), 2 * (k) + 1, 2 * (k), 2 * (k) + 1, 2 * (k), 2 * (k) + 1, \
            2 * (k) + 2, 2 * (k) + 3, 2 * (k) + 2, 2 * (k) + 3, 2 * (k) + 2, 2 * (k) + 3,       \
            2 * (k) + 2, 2 * (k) + 3                                                            \
    }
alignas(16) static constexpr uint8_t kPickBytes[7][16] = {
    TAVRIN_PICK(0), TAVRIN_PICK(1), TAVRIN_PICK(2), TAVRIN_PICK(3),
    TAVRIN_PICK(4), TAVRIN_PICK(5), TAVRIN_PICK(6)};
#undef TAVRIN_PICK
using V16 = hn::Vec<D16>;

// Two pixels' outputs (8 lanes, pixel a then pixel b) of one row's five taps, added to `sum`.
// `pixels` holds the padded row from pixel a's column - 2 on, scaled by 128; pick[k] spreads
// lane k over the low half and lane k + 1 over the high half.
HWY_INLINE V16 pairRow(V16 sum, V16 pixels, const int16_t* fa, const int16_t* fb,
                       const hn::Vec<hn::Repartition<uint8_t, D16> >* pick) {
    const D16 d;
    const hn::FixedTag<int16_t, 4> d4;
    for (int32_t k = 0; k < 5; ++k) {
        const V16 coef = hn::Combine(d, hn::LoadU(d4, fb + 4 * k), hn::LoadU(d4, fa + 4 * k));
        const V16 p = hn::BitCast(d, hn::TableLookupBytes(pixels, pick[k]));
        sum = hn::Add(sum, hn::MulFixedPoint15(coef, p));
    }
    return sum;
}

// Lanes to bytes: (s >> 4) + ((s >> 3) & 1), saturated to 0 .. 255.
HWY_INLINE V16 finishLanes(V16 s) {
    const D16 d;
    return hn::Add(hn::ShiftRight<4>(s), hn::And(hn::ShiftRight<3>(s), hn::Set(d, 1)));
}

void Filter2x(const uint8_t* const* rows, const uint16_t* index, const int16_t* const* patterns,
              int32_t n, uint8_t* out0, uint8_t* out1) {
    const D16 d;
    const D32 d32;
    const hn::Repartition<uint8_t, D16> db;
    const hn::FixedTag<uint8_t, 8> d8;
    const hn::FixedTag<uint16_t, 8> du;
    hn::Vec<decltype(db)> pick[7];
    for (int32_t k = 0; k < 7; ++k)
        pick[k] = hn::Load(db, kPickBytes[k]);
    // The first two pixels and whatever is left after the last group of four take the scalar
    // form: a group must not read beyond padded column x + 7.
    int32_t x = 0;
    for (; x < 2 && x < n; ++x)
        scalar::filterPixel(rows, patterns[index[x]], x, out0, out1);
    for (; x + 4 <= n - 2; x += 4) {
        const int16_t* f0 = patterns[index[x]];
        const int16_t* f1 = patterns[index[x + 1]];
        const int16_t* f2 = patterns[index[x + 2]];
        const int16_t* f3 = patterns[index[x + 3]];
        V16 s01 = hn::Zero(d);
        V16 s23 = hn::Zero(d);
        for (int32_t r = 0; r < 5; ++r) {
            const auto wide = hn::PromoteTo(du, hn::LoadU(d8, rows[r] + x));
            const V16 pixels = hn::ShiftLeft<7>(hn::BitCast(d, wide));
            s01 = pairRow(s01, pixels, f0 + 20 * r, f1 + 20 * r, pick);
            s23 = pairRow(s23, pixels, f2 + 20 * r, f3 + 20 * r, pick + 2);
        }
        // As 32-bit lanes each vector holds (o0 o1) (o2 o3) of its two pixels: the even lanes
        // belong to row 2y, the odd ones to row 2y + 1.
        const auto w01 = hn::BitCast(d32, finishLanes(s01));
        const auto w23 = hn::BitCast(d32, finishLanes(s23));
        const V16 top = hn::BitCast(d, hn::ConcatEven(d32, w23, w01));
        const V16 bottom = hn::BitCast(d, hn::ConcatOdd(d32, w23, w01));
        hn::StoreU(hn::DemoteTo(d8, top), d8, out0 + 2 * x);
        hn::StoreU(hn::DemoteTo(d8, bottom), d8, out1 + 2 * x);
    }
    for (; x < n; ++x)
        scalar::filterPixel(rows, patterns[index[x]], x, out0, out1);
}

// Four outputs at once: each output's eight taps against its eight samples in one widening
// multiply-add, then the four vectors of partial sums folded into one vector of four sums.
HWY_INLINE hn::Vec<D32> fourSums(const int16_t* row, const int32_t* base, const int16_t* taps) {
    const D16 d;
    const D32 d32;
    const hn::Repartition<int64_t, D32> d64;
    hn::Vec<D32> part[4];
    for (int32_t j = 0; j < 4; ++j) {
        auto unused = hn::Zero(d32);
        part[j] = hn::ReorderWidenMulAccumulate(d32, hn::LoadU(d, row + base[j]),
                                                hn::LoadU(d, taps + 8 * j), hn::Zero(d32), unused);
        part[j] = hn::Add(part[j], unused);
    }
    // (a0+a2, b0+b2, a1+a3, b1+b3) and the same of c, d; then the 64-bit halves add up.
    const auto ab = hn::Add(hn::InterleaveLower(d32, part[0], part[1]),
                            hn::InterleaveUpper(d32, part[0], part[1]));
    const auto cd = hn::Add(hn::InterleaveLower(d32, part[2], part[3]),
                            hn::InterleaveUpper(d32, part[2], part[3]));
    const auto lo =
        hn::BitCast(d32, hn::InterleaveLower(d64, hn::BitCast(d64, ab), hn::BitCast(d64, cd)));
    const auto hi =
        hn::BitCast(d32, hn::InterleaveUpper(d64, hn::BitCast(d64, ab), hn::BitCast(d64, cd)));
    return hn::Add(lo, hi);
}

HWY_INLINE hn::Vec<D32> roundClamp(hn::Vec<D32> sum, int32_t shift, int32_t max) {
    const D32 d32;
    const auto v = hn::ShiftRightSame(hn::Add(sum, hn::Set(d32, 1 << (shift - 1))), shift);
    return hn::Min(hn::Max(v, hn::Zero(d32)), hn::Set(d32, max));
}

void Horizontal8(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                 int32_t shift, uint8_t* out) {
    const hn::FixedTag<uint8_t, 4> d8;
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const auto v = roundClamp(fourSums(row, base + i, taps + 8 * i), shift, 255);
        hn::StoreU(hn::DemoteTo(d8, v), d8, out + i);
    }
    scalar::horizontal8From(row, base, taps, i, n, shift, out);
}

void Horizontal16(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                  int32_t shift, int32_t max, uint16_t* out) {
    const hn::FixedTag<uint16_t, 4> du;
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const auto v = roundClamp(fourSums(row, base + i, taps + 8 * i), shift, max);
        hn::StoreU(hn::DemoteTo(du, v), du, out + i);
    }
    scalar::horizontal16From(row, base, taps, i, n, shift, max, out);
}
#endif  // HWY_TARGET == HWY_SCALAR

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_upscale_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_upscale_rows {
HWY_EXPORT(Classify);
HWY_EXPORT(Filter2x);
HWY_EXPORT(Vertical8);
HWY_EXPORT(Vertical16);
HWY_EXPORT(Horizontal8);
HWY_EXPORT(Horizontal16);

static void classify(const uint8_t* const* rows, int32_t n, int32_t t, uint16_t* index) {
    HWY_DYNAMIC_DISPATCH(Classify)(rows, n, t, index);
}
static void filter2x(const uint8_t* const* rows, const uint16_t* index,
                     const int16_t* const* patterns, int32_t n, uint8_t* out0, uint8_t* out1) {
    HWY_DYNAMIC_DISPATCH(Filter2x)(rows, index, patterns, n, out0, out1);
}
static void vertical8(const uint8_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                      int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Vertical8)(rows, taps, n, shift, out);
}
static void vertical16(const uint16_t* const* rows, const int16_t* taps, int32_t n, int32_t shift,
                       int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Vertical16)(rows, taps, n, shift, out);
}
static void horizontal8(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                        int32_t shift, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Horizontal8)(row, base, taps, n, shift, out);
}
static void horizontal16(const int16_t* row, const int32_t* base, const int16_t* taps, int32_t n,
                         int32_t shift, int32_t max, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(Horizontal16)(row, base, taps, n, shift, max, out);
}
}  // namespace tav_sr2_upscale_rows

const tav_sr2_UpscaleRowOps tav_sr2_upscaleRowsVector = {
    tav_sr2_upscale_rows::classify,    tav_sr2_upscale_rows::filter2x,
    tav_sr2_upscale_rows::vertical8,   tav_sr2_upscale_rows::vertical16,
    tav_sr2_upscale_rows::horizontal8, tav_sr2_upscale_rows::horizontal16,
};
#endif  // HWY_ONCE
