// Row kernels of the guided filter (see the header for what each computes).
//
// Bounds: an 8-bit block sums to at most 16 * 255 = 4080 and a line of at most 13 blocks to
// 53040, so the 8-bit sums stay in u16; square sums reach 13 * 16 * 255^2, far inside int32. The
// 16-bit class relies on samples of at most 1023 (its block sum 16368 fits u16); larger samples
// wrap, in both tables alike. The vector forms hold one block or one pixel per 32-bit lane (the
// u16 line sums one per 16-bit lane); what does not fill a vector takes the scalar path.
//
// This file is compiled once per Highway target (dynamic dispatch); the scalar reference is
// compiled once. The build turns off floating-point contraction for this file, so that the f32
// model is the same sequence of roundings in both tables.

#ifndef TAVRIN_GUIDED_ROWS_SCALAR
#define TAVRIN_GUIDED_ROWS_SCALAR

#include "nr/guided_filter_rows.h"

namespace tav_sr2_guided_scalar {

template <typename P>
static void statsFrom(const P* const* rows, int32_t width, int32_t begin, int32_t blocks,
                      uint16_t* sum, int32_t* sq) {
    for (int32_t i = begin; i < blocks; ++i) {
        uint32_t s = 0, q = 0;
        for (int32_t r = 0; r < 4; ++r) {
            for (int32_t c = 0; c < 4; ++c) {
                const int32_t x = 4 * i + c < width ? 4 * i + c : width - 1;
                const uint32_t v = rows[r][x];
                s += v;
                q += v * v;
            }
        }
        sum[i] = (uint16_t)s;
        sq[i] = (int32_t)q;
    }
}

template <typename In, typename Out>
static void sumRowsFrom(const In* const* rows, int32_t taps, int32_t begin, int32_t n, Out* out) {
    for (int32_t x = begin; x < n; ++x) {
        uint32_t s = 0;
        for (int32_t k = 0; k < taps; ++k)
            s += (uint32_t)rows[k][x];
        out[x] = (Out)s;
    }
}

// The model of one block; one and limit as in the header.
template <typename Coef>
static inline void modelOne(float s1, float s2, const uint8_t* map, int32_t i, float eps, float n,
                            float one, float limit, Coef* a_out, Coef* b_out) {
    const float mean = s1 / n;
    float var = s2 / n - mean * mean;
    float e = eps;
    float floor = 0.0f;
    if (map != nullptr) {
        e = eps * (float)map[i] / 32.0f;
        floor = 1e-12f;
    }
    var = var > floor ? var : floor;
    // A negative eps (never a tuned value) could push a outside 0..1; the clamp keeps the stored
    // model in its range. For eps > 0 it changes nothing.
    float a = var / (var + e);
    a = a > 0.0f ? a : 0.0f;
    a = a < 1.0f ? a : 1.0f;
    a_out[i] = (Coef)(int32_t)(a * one + 0.5f);
    float b = mean * (1.0f - a) + 0.5f;
    b = b < limit ? b : limit;
    b_out[i] = (Coef)(int32_t)b;
}

template <typename S1, typename Coef>
static void modelFrom(const S1* s1, const int32_t* s2, const uint8_t* map, float eps, int32_t count,
                      int32_t begin, int32_t n, float one, float limit, Coef* a_out, Coef* b_out) {
    for (int32_t i = begin; i < n; ++i)
        modelOne(s1[i], s2[i], map, i, eps, (float)count, one, limit, a_out, b_out);
}

static inline int32_t between(const int32_t* v, int32_t i, int32_t q) {
    return ((7 - 2 * q) * v[i] + (1 + 2 * q) * v[i + 1] + 32) >> 6;
}

// The columns of blocks begin .. blocks - 2 (each block's four columns between two centres),
// then the two columns at each end.
static void upsampleFrom(const int32_t* v, int32_t begin, int32_t blocks, int32_t* out) {
    for (int32_t i = begin; i + 1 < blocks; ++i) {
        for (int32_t q = 0; q < 4; ++q)
            out[4 * i + 2 + q] = between(v, i, q);
    }
    const int32_t first = (8 * v[0] + 32) >> 6;
    const int32_t last = (8 * v[blocks - 1] + 32) >> 6;
    out[0] = out[1] = first;
    out[4 * blocks - 2] = out[4 * blocks - 1] = last;
}

template <typename P, int32_t kShift, int32_t kLimit>
static void applyFrom(const P* src, const int32_t* a, const int32_t* b, int32_t begin, int32_t n,
                      P* dst) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t v = b[x] + (((1 << (kShift - 1)) + a[x] * (int32_t)src[x]) >> kShift);
        dst[x] = (P)(v < kLimit ? v : kLimit);
    }
}

static void stats8(const uint8_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                   int32_t* sq) {
    statsFrom(rows, width, 0, blocks, sum, sq);
}
static void stats16(const uint16_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                    int32_t* sq) {
    statsFrom(rows, width, 0, blocks, sum, sq);
}
static void sumRows16(const uint16_t* const* rows, int32_t taps, int32_t n, uint16_t* out) {
    sumRowsFrom(rows, taps, 0, n, out);
}
static void sumRows16to32(const uint16_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    sumRowsFrom(rows, taps, 0, n, out);
}
static void sumRows32(const int32_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    sumRowsFrom(rows, taps, 0, n, out);
}
static void model8(const uint16_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                   int32_t count, int32_t n, uint8_t* a_out, uint8_t* b_out) {
    modelFrom(s1, s2, map, eps, count, 0, n, 128.0f, 255.0f, a_out, b_out);
}
static void model16(const int32_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                    int32_t count, int32_t n, uint16_t* a_out, uint16_t* b_out) {
    modelFrom(s1, s2, map, eps, count, 0, n, 512.0f, 65535.0f, a_out, b_out);
}
static void upsample(const int32_t* v, int32_t blocks, int32_t* out) {
    upsampleFrom(v, 0, blocks, out);
}
static void apply8(const uint8_t* src, const int32_t* a, const int32_t* b, int32_t n,
                   uint8_t* dst) {
    applyFrom<uint8_t, 7, 255>(src, a, b, 0, n, dst);
}
static void apply16(const uint16_t* src, const int32_t* a, const int32_t* b, int32_t n,
                    uint16_t* dst) {
    applyFrom<uint16_t, 9, 65535>(src, a, b, 0, n, dst);
}

}  // namespace tav_sr2_guided_scalar

const tav_sr2_GuidedRowOps tav_sr2_guidedRowsScalar = {
    tav_sr2_guided_scalar::stats8,    tav_sr2_guided_scalar::stats16,
    tav_sr2_guided_scalar::sumRows16, tav_sr2_guided_scalar::sumRows16to32,
    tav_sr2_guided_scalar::sumRows32, tav_sr2_guided_scalar::model8,
    tav_sr2_guided_scalar::model16,   tav_sr2_guided_scalar::upsample,
    tav_sr2_guided_scalar::apply8,    tav_sr2_guided_scalar::apply16,
};

#endif  // TAVRIN_GUIDED_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nr/guided_filter_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_guided_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace scalar = tav_sr2_guided_scalar;

using D32 = hn::ScalableTag<int32_t>;
using V32 = hn::Vec<D32>;
using DF = hn::Rebind<float, D32>;
using VF = hn::Vec<DF>;

template <typename P>
HWY_INLINE void StatsT(const P* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                       int32_t* sq) {
    const D32 d;
    const hn::Rebind<P, D32> dp;
    const hn::Rebind<uint16_t, D32> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const int32_t inside = blocks < (width >> 2) ? blocks : (width >> 2);
    int32_t i = 0;
    for (; i + lanes <= inside; i += lanes) {
        V32 s = hn::Zero(d), q = hn::Zero(d);
        for (int32_t r = 0; r < 4; ++r) {
            hn::Vec<decltype(dp)> p[4];
            hn::LoadInterleaved4(dp, rows[r] + 4 * i, p[0], p[1], p[2], p[3]);
            for (int32_t c = 0; c < 4; ++c) {
                const V32 v = hn::PromoteTo(d, p[c]);
                s = hn::Add(s, v);
                q = hn::Add(q, hn::Mul(v, v));
            }
        }
        hn::StoreU(hn::DemoteTo(d16, s), d16, sum + i);
        hn::StoreU(q, d, sq + i);
    }
    scalar::statsFrom(rows, width, i, blocks, sum, sq);
}

void Stats8(const uint8_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum, int32_t* sq) {
    StatsT(rows, width, blocks, sum, sq);
}
void Stats16(const uint16_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
             int32_t* sq) {
    StatsT(rows, width, blocks, sum, sq);
}

void SumRows16(const uint16_t* const* rows, int32_t taps, int32_t n, uint16_t* out) {
    const hn::ScalableTag<uint16_t> d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        auto s = hn::Zero(d);
        for (int32_t k = 0; k < taps; ++k)
            s = hn::Add(s, hn::LoadU(d, rows[k] + x));
        hn::StoreU(s, d, out + x);
    }
    scalar::sumRowsFrom(rows, taps, x, n, out);
}

void SumRows16to32(const uint16_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    const D32 d;
    const hn::Rebind<uint16_t, D32> d16;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        V32 s = hn::Zero(d);
        for (int32_t k = 0; k < taps; ++k)
            s = hn::Add(s, hn::PromoteTo(d, hn::LoadU(d16, rows[k] + x)));
        hn::StoreU(s, d, out + x);
    }
    scalar::sumRowsFrom(rows, taps, x, n, out);
}

void SumRows32(const int32_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        V32 s = hn::Zero(d);
        for (int32_t k = 0; k < taps; ++k)
            s = hn::Add(s, hn::LoadU(d, rows[k] + x));
        hn::StoreU(s, d, out + x);
    }
    scalar::sumRowsFrom(rows, taps, x, n, out);
}

HWY_INLINE V32 LoadWide(const uint16_t* p) {
    return hn::PromoteTo(D32(), hn::LoadU(hn::Rebind<uint16_t, D32>(), p));
}
HWY_INLINE V32 LoadWide(const int32_t* p) {
    return hn::LoadU(D32(), p);
}

// The scalar modelOne, lane by lane, in the same order of operations.
template <typename S1, typename Coef>
HWY_INLINE void ModelT(const S1* s1, const int32_t* s2, const uint8_t* map, float eps,
                       int32_t count, int32_t n, float one, float limit, Coef* a_out, Coef* b_out) {
    const D32 d;
    const DF df;
    const hn::Rebind<uint8_t, D32> d8;
    const hn::Rebind<Coef, D32> dc;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const VF vn = hn::Set(df, (float)count);
    const VF veps = hn::Set(df, eps);
    const VF v32 = hn::Set(df, 32.0f);
    const VF floor = hn::Set(df, map != nullptr ? 1e-12f : 0.0f);
    const VF zero = hn::Zero(df);
    const VF unit = hn::Set(df, 1.0f);
    const VF half = hn::Set(df, 0.5f);
    const VF vone = hn::Set(df, one);
    const VF vlimit = hn::Set(df, limit);
    int32_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const VF f1 = hn::ConvertTo(df, LoadWide(s1 + i));
        const VF f2 = hn::ConvertTo(df, hn::LoadU(d, s2 + i));
        const VF mean = hn::Div(f1, vn);
        VF var = hn::Sub(hn::Div(f2, vn), hn::Mul(mean, mean));
        VF e = veps;
        if (map != nullptr) {
            const VF m = hn::ConvertTo(df, hn::PromoteTo(d, hn::LoadU(d8, map + i)));
            e = hn::Div(hn::Mul(veps, m), v32);
        }
        var = hn::Max(var, floor);
        VF a = hn::Div(var, hn::Add(var, e));
        a = hn::Min(hn::Max(a, zero), unit);
        const V32 ai = hn::ConvertTo(d, hn::Add(hn::Mul(a, vone), half));
        const VF b = hn::Min(hn::Add(hn::Mul(mean, hn::Sub(unit, a)), half), vlimit);
        hn::StoreU(hn::DemoteTo(dc, ai), dc, a_out + i);
        hn::StoreU(hn::DemoteTo(dc, hn::ConvertTo(d, b)), dc, b_out + i);
    }
    scalar::modelFrom(s1, s2, map, eps, count, i, n, one, limit, a_out, b_out);
}

void Model8(const uint16_t* s1, const int32_t* s2, const uint8_t* map, float eps, int32_t count,
            int32_t n, uint8_t* a_out, uint8_t* b_out) {
    ModelT(s1, s2, map, eps, count, n, 128.0f, 255.0f, a_out, b_out);
}
void Model16(const int32_t* s1, const int32_t* s2, const uint8_t* map, float eps, int32_t count,
             int32_t n, uint16_t* a_out, uint16_t* b_out) {
    ModelT(s1, s2, map, eps, count, n, 512.0f, 65535.0f, a_out, b_out);
}

void Upsample(const int32_t* v, int32_t blocks, int32_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 round = hn::Set(d, 32);
    int32_t i = 0;
    // Blocks i .. i + lanes - 1 need v up to i + lanes.
    for (; i + lanes + 1 <= blocks; i += lanes) {
        const V32 v0 = hn::LoadU(d, v + i);
        const V32 v1 = hn::LoadU(d, v + i + 1);
        V32 o[4];
        for (int32_t q = 0; q < 4; ++q) {
            const V32 s =
                hn::Add(hn::Mul(hn::Set(d, 7 - 2 * q), v0), hn::Mul(hn::Set(d, 1 + 2 * q), v1));
            o[q] = hn::ShiftRight<6>(hn::Add(s, round));
        }
        hn::StoreInterleaved4(o[0], o[1], o[2], o[3], d, out + 4 * i + 2);
    }
    scalar::upsampleFrom(v, i, blocks, out);
}

template <typename P, int32_t kShift, int32_t kLimit>
HWY_INLINE void ApplyT(const P* src, const int32_t* a, const int32_t* b, int32_t n, P* dst) {
    const D32 d;
    const hn::Rebind<P, D32> dp;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 round = hn::Set(d, 1 << (kShift - 1));
    const V32 limit = hn::Set(d, kLimit);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 s = hn::PromoteTo(d, hn::LoadU(dp, src + x));
        const V32 prod = hn::Add(hn::Mul(hn::LoadU(d, a + x), s), round);
        const V32 v = hn::Add(hn::LoadU(d, b + x), hn::ShiftRight<kShift>(prod));
        hn::StoreU(hn::DemoteTo(dp, hn::Min(v, limit)), dp, dst + x);
    }
    scalar::applyFrom<P, kShift, kLimit>(src, a, b, x, n, dst);
}

void Apply8(const uint8_t* src, const int32_t* a, const int32_t* b, int32_t n, uint8_t* dst) {
    ApplyT<uint8_t, 7, 255>(src, a, b, n, dst);
}
void Apply16(const uint16_t* src, const int32_t* a, const int32_t* b, int32_t n, uint16_t* dst) {
    ApplyT<uint16_t, 9, 65535>(src, a, b, n, dst);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_guided_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_guided_rows {
HWY_EXPORT(Stats8);
HWY_EXPORT(Stats16);
HWY_EXPORT(SumRows16);
HWY_EXPORT(SumRows16to32);
HWY_EXPORT(SumRows32);
HWY_EXPORT(Model8);
HWY_EXPORT(Model16);
HWY_EXPORT(Upsample);
HWY_EXPORT(Apply8);
HWY_EXPORT(Apply16);

static void stats8(const uint8_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                   int32_t* sq) {
    HWY_DYNAMIC_DISPATCH(Stats8)(rows, width, blocks, sum, sq);
}
static void stats16(const uint16_t* const* rows, int32_t width, int32_t blocks, uint16_t* sum,
                    int32_t* sq) {
    HWY_DYNAMIC_DISPATCH(Stats16)(rows, width, blocks, sum, sq);
}
static void sumRows16(const uint16_t* const* rows, int32_t taps, int32_t n, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(SumRows16)(rows, taps, n, out);
}
static void sumRows16to32(const uint16_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    HWY_DYNAMIC_DISPATCH(SumRows16to32)(rows, taps, n, out);
}
static void sumRows32(const int32_t* const* rows, int32_t taps, int32_t n, int32_t* out) {
    HWY_DYNAMIC_DISPATCH(SumRows32)(rows, taps, n, out);
}
static void model8(const uint16_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                   int32_t count, int32_t n, uint8_t* a_out, uint8_t* b_out) {
    HWY_DYNAMIC_DISPATCH(Model8)(s1, s2, map, eps, count, n, a_out, b_out);
}
static void model16(const int32_t* s1, const int32_t* s2, const uint8_t* map, float eps,
                    int32_t count, int32_t n, uint16_t* a_out, uint16_t* b_out) {
    HWY_DYNAMIC_DISPATCH(Model16)(s1, s2, map, eps, count, n, a_out, b_out);
}
static void upsample(const int32_t* v, int32_t blocks, int32_t* out) {
    HWY_DYNAMIC_DISPATCH(Upsample)(v, blocks, out);
}
static void apply8(const uint8_t* src, const int32_t* a, const int32_t* b, int32_t n,
                   uint8_t* dst) {
    HWY_DYNAMIC_DISPATCH(Apply8)(src, a, b, n, dst);
}
static void apply16(const uint16_t* src, const int32_t* a, const int32_t* b, int32_t n,
                    uint16_t* dst) {
    HWY_DYNAMIC_DISPATCH(Apply16)(src, a, b, n, dst);
}
}  // namespace tav_sr2_guided_rows

const tav_sr2_GuidedRowOps tav_sr2_guidedRowsVector = {
    tav_sr2_guided_rows::stats8,    tav_sr2_guided_rows::stats16,
    tav_sr2_guided_rows::sumRows16, tav_sr2_guided_rows::sumRows16to32,
    tav_sr2_guided_rows::sumRows32, tav_sr2_guided_rows::model8,
    tav_sr2_guided_rows::model16,   tav_sr2_guided_rows::upsample,
    tav_sr2_guided_rows::apply8,    tav_sr2_guided_rows::apply16,
};
#endif  // HWY_ONCE
