// Row kernels of the sharpening stage (see the header for what each computes).
//
// Bounds: a horizontal or vertical sum is at most 32768 * 1023 * 8 < 2^31 (taps may be negative
// only through rounding, never here), so the passes run in 32-bit lanes and their results, at most
// 255 * 32 or 1023 * 8, fit i16. In the outputs d is below 2^14 and g m below 2^20 (gain at most
// 8192): the 8-bit band takes g m in Q10 first, so c ((g m) >> 5) stays below 2^30, and
// d ((g m) >> 7) below 2^27.
//
// The vector forms take one pixel per 32-bit lane; what does not fill a vector takes the scalar
// path, and so does a vector of the soft add in which any pixel passes the overshoot limit (its
// mix is in double precision). The build turns off floating-point contraction for this file so
// that the f32 mixes round the same way in both tables.

#ifndef TAVRIN_SHARPEN_ROWS_SCALAR
#define TAVRIN_SHARPEN_ROWS_SCALAR

#include "sharpen/sharpen_rows.h"

namespace tav_sr2_sharpen_scalar {

static inline int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

template <typename P, int32_t kRound, int32_t kShift>
static void horizontalFrom(const P* src, int32_t n, const int32_t* taps, int32_t radius,
                           int32_t begin, int32_t end, int16_t* out) {
    for (int32_t x = begin; x < end; ++x) {
        int32_t s = kRound;
        for (int32_t k = -radius; k <= radius; ++k)
            s += taps[k + radius] * (int32_t)src[clampTo(x + k, 0, n - 1)];
        out[x] = (int16_t)(s >> kShift);
    }
}

static void verticalFrom(const int16_t* const* rows, const int32_t* taps, int32_t radius,
                         int32_t begin, int32_t n, int16_t* out) {
    for (int32_t x = begin; x < n; ++x) {
        int32_t s = 16384;
        for (int32_t k = 0; k <= 2 * radius; ++k)
            s += taps[k] * (int32_t)rows[k][x];
        out[x] = (int16_t)(s >> 15);
    }
}

static inline int32_t weightAt(const uint8_t* weight, int32_t x) {
    return weight != nullptr ? weight[x] : 128;
}

static void band7_8From(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                        int32_t t, int32_t begin, int32_t n, uint8_t* out) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t d = lp2[x] - lp1[x];
        const int32_t c = d - clampTo(d, -t, t);
        const int32_t k = (gain * weightAt(weight, x)) >> 5;
        const int32_t e = clampTo((c * k + 512) >> 10, -32768, 32767);
        out[x] = (uint8_t)clampTo(128 + ((e + 4) >> 3), 0, 255);
    }
}

static void band7_16From(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight,
                         int32_t gain, int32_t t, int32_t begin, int32_t n, uint16_t* out) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t d = lp1[x] - lp2[x];
        const int32_t e = (128 + d * ((gain * weightAt(weight, x)) >> 7)) >> 8;
        out[x] = (uint16_t)clampTo((e - clampTo(e, -t, t) + 4100) >> 3, 0, 1023);
    }
}

static void band5_8From(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                        const uint8_t* y, int32_t begin, int32_t n, uint8_t* out) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t k = (gain * weightAt(weight, x)) >> 7;
        const int32_t v = (((int32_t)y[x] << 5) | 16) + ((128 + (lp2[x] - lp1[x]) * k) >> 8);
        out[x] = (uint8_t)clampTo(v >> 5, 0, 255);
    }
}

static void band5_16From(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight,
                         int32_t gain, int32_t t, const uint16_t* y, int32_t begin, int32_t n,
                         uint16_t* out) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t k = (gain * weightAt(weight, x)) >> 7;
        const int32_t e = (32 + (lp2[x] - lp1[x]) * k) >> 6;
        const int32_t v = (((int32_t)y[x] << 3) | 4) + e - clampTo(e, -4 * t, 4 * t);
        out[x] = (uint16_t)clampTo(v >> 3, 0, 1023);
    }
}

template <typename P, int32_t kBias, int32_t kLimit>
static void addFrom(const P* y, const P* h, int32_t gain, int32_t begin, int32_t n, P* out) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t v = y[x] + ((512 + ((int32_t)h[x] - kBias) * gain) >> 10);
        out[x] = (P)clampTo(v, 0, kLimit);
    }
}

static inline int32_t softOne(int32_t y, int32_t h, int32_t gain, float white, float black) {
    int32_t v = clampTo(y + ((512 + (h - 512) * gain) >> 10), 0, 32767);
    if (v - y > 40) v = (int32_t)((1.0 - (double)white) * y + (double)(white * (float)v));
    if (v - y < -40) v = (int32_t)((1.0 - (double)black) * y + (double)(black * (float)v));
    return v;
}

static void addSoft16From(const uint16_t* y, const uint16_t* h, int32_t gain, float white,
                          float black, int32_t begin, int32_t n, uint16_t* out) {
    for (int32_t x = begin; x < n; ++x)
        out[x] = (uint16_t)softOne(y[x], h[x], gain, white, black);
}

static inline int32_t rangeOne(int32_t y, int32_t h, int32_t top, int32_t bottom, int32_t gain,
                               float white, float black) {
    const int32_t v = clampTo(y + ((512 + (h - 512) * gain) >> 10), 0, 32767);
    if (v >= top) return (int32_t)(white * (float)(v - top) + (float)top);
    if (v <= bottom) return (int32_t)((float)bottom - black * (float)(bottom - v));
    return v;
}

static void addRange16From(const uint16_t* y, const uint16_t* h, const uint16_t* local_max,
                           const uint16_t* local_min, int32_t gain, float white, float black,
                           int32_t begin, int32_t n, uint16_t* out) {
    for (int32_t x = begin; x < n; ++x)
        out[x] = (uint16_t)rangeOne(y[x], h[x], local_max[x], local_min[x], gain, white, black);
}

static void horizontal8(const uint8_t* src, int32_t n, const int32_t* taps, int32_t radius,
                        int16_t* out) {
    horizontalFrom<uint8_t, 512, 10>(src, n, taps, radius, 0, n, out);
}
static void horizontal16(const uint16_t* src, int32_t n, const int32_t* taps, int32_t radius,
                         int16_t* out) {
    horizontalFrom<uint16_t, 2048, 12>(src, n, taps, radius, 0, n, out);
}
static void vertical(const int16_t* const* rows, int32_t n, const int32_t* taps, int32_t radius,
                     int16_t* out) {
    verticalFrom(rows, taps, radius, 0, n, out);
}
static void band7_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    int32_t t, int32_t n, uint8_t* out) {
    band7_8From(lp1, lp2, weight, gain, t, 0, n, out);
}
static void band7_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, int32_t n, uint16_t* out) {
    band7_16From(lp1, lp2, weight, gain, t, 0, n, out);
}
static void band5_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    const uint8_t* y, int32_t n, uint8_t* out) {
    band5_8From(lp1, lp2, weight, gain, y, 0, n, out);
}
static void band5_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, const uint16_t* y, int32_t n, uint16_t* out) {
    band5_16From(lp1, lp2, weight, gain, t, y, 0, n, out);
}
static void add8(const uint8_t* y, const uint8_t* h, int32_t gain, int32_t n, uint8_t* out) {
    addFrom<uint8_t, 128, 255>(y, h, gain, 0, n, out);
}
static void add16(const uint16_t* y, const uint16_t* h, int32_t gain, int32_t n, uint16_t* out) {
    addFrom<uint16_t, 512, 32767>(y, h, gain, 0, n, out);
}
static void addSoft16(const uint16_t* y, const uint16_t* h, int32_t gain, float white, float black,
                      int32_t n, uint16_t* out) {
    addSoft16From(y, h, gain, white, black, 0, n, out);
}
static void addRange16(const uint16_t* y, const uint16_t* h, const uint16_t* local_max,
                       const uint16_t* local_min, int32_t gain, float white, float black, int32_t n,
                       uint16_t* out) {
    addRange16From(y, h, local_max, local_min, gain, white, black, 0, n, out);
}

}  // namespace tav_sr2_sharpen_scalar

const tav_sr2_SharpenRowOps tav_sr2_sharpenRowsScalar = {
    tav_sr2_sharpen_scalar::horizontal8, tav_sr2_sharpen_scalar::horizontal16,
    tav_sr2_sharpen_scalar::vertical,    tav_sr2_sharpen_scalar::band7_8,
    tav_sr2_sharpen_scalar::band7_16,    tav_sr2_sharpen_scalar::band5_8,
    tav_sr2_sharpen_scalar::band5_16,    tav_sr2_sharpen_scalar::add8,
    tav_sr2_sharpen_scalar::add16,       tav_sr2_sharpen_scalar::addSoft16,
    tav_sr2_sharpen_scalar::addRange16,
};

#endif  // TAVRIN_SHARPEN_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "sharpen/sharpen_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_sharpen_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace scalar = tav_sr2_sharpen_scalar;

using D32 = hn::ScalableTag<int32_t>;
using V32 = hn::Vec<D32>;
using D16 = hn::Rebind<int16_t, D32>;
using DU16 = hn::Rebind<uint16_t, D32>;
using D8 = hn::Rebind<uint8_t, D32>;
using DF = hn::Rebind<float, D32>;

HWY_INLINE V32 Load(const uint8_t* p) {
    return hn::PromoteTo(D32(), hn::LoadU(D8(), p));
}
HWY_INLINE V32 Load(const uint16_t* p) {
    return hn::PromoteTo(D32(), hn::LoadU(DU16(), p));
}
HWY_INLINE V32 Load(const int16_t* p) {
    return hn::PromoteTo(D32(), hn::LoadU(D16(), p));
}
HWY_INLINE void Store(V32 v, uint8_t* p) {
    hn::StoreU(hn::DemoteTo(D8(), v), D8(), p);
}
HWY_INLINE void Store(V32 v, uint16_t* p) {
    hn::StoreU(hn::DemoteTo(DU16(), v), DU16(), p);
}
HWY_INLINE void Store(V32 v, int16_t* p) {
    hn::StoreU(hn::DemoteTo(D16(), v), D16(), p);
}

HWY_INLINE V32 Clamp(V32 v, V32 lo, V32 hi) {
    return hn::Min(hn::Max(v, lo), hi);
}

HWY_INLINE V32 WeightAt(const uint8_t* weight, int32_t x) {
    return weight != nullptr ? Load(weight + x) : hn::Set(D32(), 128);
}

template <typename P, int32_t kRound, int32_t kShift>
HWY_INLINE void HorizontalT(const P* src, int32_t n, const int32_t* taps, int32_t radius,
                            int16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const int32_t head = radius < n ? radius : n;
    scalar::horizontalFrom<P, kRound, kShift>(src, n, taps, radius, 0, head, out);
    int32_t x = head;
    for (; x + lanes + radius <= n; x += lanes) {
        V32 s = hn::Set(d, kRound);
        for (int32_t k = -radius; k <= radius; ++k)
            s = hn::Add(s, hn::Mul(hn::Set(d, taps[k + radius]), Load(src + x + k)));
        Store(hn::ShiftRight<kShift>(s), out + x);
    }
    scalar::horizontalFrom<P, kRound, kShift>(src, n, taps, radius, x, n, out);
}

void Horizontal8(const uint8_t* src, int32_t n, const int32_t* taps, int32_t radius, int16_t* out) {
    HorizontalT<uint8_t, 512, 10>(src, n, taps, radius, out);
}
void Horizontal16(const uint16_t* src, int32_t n, const int32_t* taps, int32_t radius,
                  int16_t* out) {
    HorizontalT<uint16_t, 2048, 12>(src, n, taps, radius, out);
}

void Vertical(const int16_t* const* rows, int32_t n, const int32_t* taps, int32_t radius,
              int16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        V32 s = hn::Set(d, 16384);
        for (int32_t k = 0; k <= 2 * radius; ++k)
            s = hn::Add(s, hn::Mul(hn::Set(d, taps[k]), Load(rows[k] + x)));
        Store(hn::ShiftRight<15>(s), out + x);
    }
    scalar::verticalFrom(rows, taps, radius, x, n, out);
}

void Band7_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain, int32_t t,
             int32_t n, uint8_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 vt = hn::Set(d, t), nt = hn::Set(d, -t), g = hn::Set(d, gain);
    const V32 lo16 = hn::Set(d, -32768), hi16 = hn::Set(d, 32767);
    const V32 zero = hn::Zero(d), top = hn::Set(d, 255);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 dd = hn::Sub(Load(lp2 + x), Load(lp1 + x));
        const V32 c = hn::Sub(dd, Clamp(dd, nt, vt));
        const V32 k = hn::ShiftRight<5>(hn::Mul(g, WeightAt(weight, x)));
        const V32 e =
            Clamp(hn::ShiftRight<10>(hn::Add(hn::Mul(c, k), hn::Set(d, 512))), lo16, hi16);
        const V32 v = hn::Add(hn::Set(d, 128), hn::ShiftRight<3>(hn::Add(e, hn::Set(d, 4))));
        Store(Clamp(v, zero, top), out + x);
    }
    scalar::band7_8From(lp1, lp2, weight, gain, t, x, n, out);
}

void Band7_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
              int32_t t, int32_t n, uint16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 vt = hn::Set(d, t), nt = hn::Set(d, -t), g = hn::Set(d, gain);
    const V32 zero = hn::Zero(d), top = hn::Set(d, 1023);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 dd = hn::Sub(Load(lp1 + x), Load(lp2 + x));
        const V32 k = hn::ShiftRight<7>(hn::Mul(g, WeightAt(weight, x)));
        const V32 e = hn::ShiftRight<8>(hn::Add(hn::Set(d, 128), hn::Mul(dd, k)));
        const V32 v = hn::ShiftRight<3>(hn::Add(hn::Sub(e, Clamp(e, nt, vt)), hn::Set(d, 4100)));
        Store(Clamp(v, zero, top), out + x);
    }
    scalar::band7_16From(lp1, lp2, weight, gain, t, x, n, out);
}

void Band5_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
             const uint8_t* y, int32_t n, uint8_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 g = hn::Set(d, gain), zero = hn::Zero(d), top = hn::Set(d, 255);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 k = hn::ShiftRight<7>(hn::Mul(g, WeightAt(weight, x)));
        const V32 dd = hn::Sub(Load(lp2 + x), Load(lp1 + x));
        const V32 add = hn::ShiftRight<8>(hn::Add(hn::Set(d, 128), hn::Mul(dd, k)));
        const V32 base = hn::Or(hn::ShiftLeft<5>(Load(y + x)), hn::Set(d, 16));
        Store(Clamp(hn::ShiftRight<5>(hn::Add(base, add)), zero, top), out + x);
    }
    scalar::band5_8From(lp1, lp2, weight, gain, y, x, n, out);
}

void Band5_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
              int32_t t, const uint16_t* y, int32_t n, uint16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 g = hn::Set(d, gain), zero = hn::Zero(d), top = hn::Set(d, 1023);
    const V32 vt = hn::Set(d, 4 * t), nt = hn::Set(d, -4 * t);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 k = hn::ShiftRight<7>(hn::Mul(g, WeightAt(weight, x)));
        const V32 dd = hn::Sub(Load(lp2 + x), Load(lp1 + x));
        const V32 e = hn::ShiftRight<6>(hn::Add(hn::Set(d, 32), hn::Mul(dd, k)));
        const V32 base = hn::Or(hn::ShiftLeft<3>(Load(y + x)), hn::Set(d, 4));
        const V32 v = hn::Add(base, hn::Sub(e, Clamp(e, nt, vt)));
        Store(Clamp(hn::ShiftRight<3>(v), zero, top), out + x);
    }
    scalar::band5_16From(lp1, lp2, weight, gain, t, y, x, n, out);
}

// v = y + ((512 + (h - bias) g) >> 10), unclamped.
template <typename P>
HWY_INLINE V32 Added(const P* y, const P* h, int32_t x, V32 bias, V32 g) {
    const V32 hv = hn::Sub(Load(h + x), bias);
    return hn::Add(Load(y + x), hn::ShiftRight<10>(hn::Add(hn::Set(D32(), 512), hn::Mul(hv, g))));
}

void Add8(const uint8_t* y, const uint8_t* h, int32_t gain, int32_t n, uint8_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 bias = hn::Set(d, 128), g = hn::Set(d, gain), zero = hn::Zero(d);
    const V32 top = hn::Set(d, 255);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes)
        Store(Clamp(Added(y, h, x, bias, g), zero, top), out + x);
    scalar::addFrom<uint8_t, 128, 255>(y, h, gain, x, n, out);
}

void Add16(const uint16_t* y, const uint16_t* h, int32_t gain, int32_t n, uint16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 bias = hn::Set(d, 512), g = hn::Set(d, gain), zero = hn::Zero(d);
    const V32 top = hn::Set(d, 32767);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes)
        Store(Clamp(Added(y, h, x, bias, g), zero, top), out + x);
    scalar::addFrom<uint16_t, 512, 32767>(y, h, gain, x, n, out);
}

void AddSoft16(const uint16_t* y, const uint16_t* h, int32_t gain, float white, float black,
               int32_t n, uint16_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 bias = hn::Set(d, 512), g = hn::Set(d, gain), zero = hn::Zero(d);
    const V32 top = hn::Set(d, 32767), limit = hn::Set(d, 40);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 v = Clamp(Added(y, h, x, bias, g), zero, top);
        const V32 diff = hn::Abs(hn::Sub(v, Load(y + x)));
        if (!hn::AllFalse(d, hn::Gt(diff, limit))) {
            scalar::addSoft16From(y, h, gain, white, black, x, x + lanes, out);
            continue;
        }
        Store(v, out + x);
    }
    scalar::addSoft16From(y, h, gain, white, black, x, n, out);
}

void AddRange16(const uint16_t* y, const uint16_t* h, const uint16_t* local_max,
                const uint16_t* local_min, int32_t gain, float white, float black, int32_t n,
                uint16_t* out) {
    const D32 d;
    const DF df;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 bias = hn::Set(d, 512), g = hn::Set(d, gain), zero = hn::Zero(d);
    const V32 top = hn::Set(d, 32767);
    const auto w = hn::Set(df, white), b = hn::Set(df, black);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const V32 v = Clamp(Added(y, h, x, bias, g), zero, top);
        const V32 hi = Load(local_max + x), lo = Load(local_min + x);
        const auto fhi = hn::ConvertTo(df, hi), flo = hn::ConvertTo(df, lo);
        const V32 above =
            hn::ConvertTo(d, hn::Add(hn::Mul(w, hn::ConvertTo(df, hn::Sub(v, hi))), fhi));
        const V32 below =
            hn::ConvertTo(d, hn::Sub(flo, hn::Mul(b, hn::ConvertTo(df, hn::Sub(lo, v)))));
        V32 r = hn::IfThenElse(hn::Gt(v, lo), v, below);
        r = hn::IfThenElse(hn::Lt(v, hi), r, above);
        Store(r, out + x);
    }
    scalar::addRange16From(y, h, local_max, local_min, gain, white, black, x, n, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_sharpen_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_sharpen_rows {
HWY_EXPORT(Horizontal8);
HWY_EXPORT(Horizontal16);
HWY_EXPORT(Vertical);
HWY_EXPORT(Band7_8);
HWY_EXPORT(Band7_16);
HWY_EXPORT(Band5_8);
HWY_EXPORT(Band5_16);
HWY_EXPORT(Add8);
HWY_EXPORT(Add16);
HWY_EXPORT(AddSoft16);
HWY_EXPORT(AddRange16);

static void horizontal8(const uint8_t* src, int32_t n, const int32_t* taps, int32_t radius,
                        int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Horizontal8)(src, n, taps, radius, out);
}
static void horizontal16(const uint16_t* src, int32_t n, const int32_t* taps, int32_t radius,
                         int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Horizontal16)(src, n, taps, radius, out);
}
static void vertical(const int16_t* const* rows, int32_t n, const int32_t* taps, int32_t radius,
                     int16_t* out) {
    HWY_DYNAMIC_DISPATCH(Vertical)(rows, n, taps, radius, out);
}
static void band7_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    int32_t t, int32_t n, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Band7_8)(lp1, lp2, weight, gain, t, n, out);
}
static void band7_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, int32_t n, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(Band7_16)(lp1, lp2, weight, gain, t, n, out);
}
static void band5_8(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                    const uint8_t* y, int32_t n, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Band5_8)(lp1, lp2, weight, gain, y, n, out);
}
static void band5_16(const int16_t* lp1, const int16_t* lp2, const uint8_t* weight, int32_t gain,
                     int32_t t, const uint16_t* y, int32_t n, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(Band5_16)(lp1, lp2, weight, gain, t, y, n, out);
}
static void add8(const uint8_t* y, const uint8_t* h, int32_t gain, int32_t n, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Add8)(y, h, gain, n, out);
}
static void add16(const uint16_t* y, const uint16_t* h, int32_t gain, int32_t n, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(Add16)(y, h, gain, n, out);
}
static void addSoft16(const uint16_t* y, const uint16_t* h, int32_t gain, float white, float black,
                      int32_t n, uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(AddSoft16)(y, h, gain, white, black, n, out);
}
static void addRange16(const uint16_t* y, const uint16_t* h, const uint16_t* local_max,
                       const uint16_t* local_min, int32_t gain, float white, float black, int32_t n,
                       uint16_t* out) {
    HWY_DYNAMIC_DISPATCH(AddRange16)(y, h, local_max, local_min, gain, white, black, n, out);
}
}  // namespace tav_sr2_sharpen_rows

const tav_sr2_SharpenRowOps tav_sr2_sharpenRowsVector = {
    tav_sr2_sharpen_rows::horizontal8, tav_sr2_sharpen_rows::horizontal16,
    tav_sr2_sharpen_rows::vertical,    tav_sr2_sharpen_rows::band7_8,
    tav_sr2_sharpen_rows::band7_16,    tav_sr2_sharpen_rows::band5_8,
    tav_sr2_sharpen_rows::band5_16,    tav_sr2_sharpen_rows::add8,
    tav_sr2_sharpen_rows::add16,       tav_sr2_sharpen_rows::addSoft16,
    tav_sr2_sharpen_rows::addRange16,
};
#endif  // HWY_ONCE
