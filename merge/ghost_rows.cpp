// Row kernels of the ghost map (see the header for what each computes).
//
// Bounds: a gradient is at most 255 in magnitude, so a block's tensor sum is at most
// 16 * 65025 and a right-hand-side sum 16 * 255 * 255, both far inside 32 bits. In the residual
// |r| <= 64 * 255 + 2 * 128 * 255, so Q and |S| stay below 2^21, (min(|S|, 32767) m) below 2^30
// with m <= 2 * 128^2, and the weighted value below 2^27: every lane of the vector form is a
// 32-bit integer and nothing saturates before the final clamp.
//
// The vector forms work on one block (or one output pixel) per 32-bit lane and take the four
// pixel columns of a block with de-interleaving loads; the blocks or pixels that do not fill a
// vector take the scalar path.
//
// This file is compiled once per Highway target (dynamic dispatch); the scalar reference is
// compiled once.

#ifndef TAVRIN_GHOST_ROWS_SCALAR
#define TAVRIN_GHOST_ROWS_SCALAR

#include "merge/ghost_rows.h"

#include <initializer_list>

namespace tav_sr2_ghost_scalar {

static void box2From(const uint8_t* r0, const uint8_t* r1, uint8_t* out, int32_t begin, int32_t n) {
    for (int32_t x = begin; x < n; ++x) {
        const int32_t sum = r0[2 * x] + r0[2 * x + 1] + r1[2 * x] + r1[2 * x + 1];
        out[x] = (uint8_t)((sum + 2) >> 2);
    }
}

static void box4From(const uint8_t* const* rows, uint8_t* out, int32_t begin, int32_t n) {
    for (int32_t x = begin; x < n; ++x) {
        int32_t sum = 0;
        for (int32_t r = 0; r < 4; ++r) {
            const uint8_t* p = rows[r] + 4 * x;
            sum += p[0] + p[1] + p[2] + p[3];
        }
        out[x] = (uint8_t)((sum + 8) >> 4);
    }
}

static inline uint8_t smoothPixel(const uint8_t* const* rows, int32_t n, int32_t x,
                                  int32_t threshold) {
    const int32_t centre = rows[1][x];
    const int32_t left = x > 0 ? x - 1 : 0;
    const int32_t right = x + 1 < n ? x + 1 : n - 1;
    int32_t sum = 0, count = 0;
    for (int32_t r = 0; r < 3; ++r) {
        for (const int32_t xi : {left, x, right}) {
            const int32_t v = rows[r][xi];
            const int32_t d = v - centre;
            if (d <= threshold && -d <= threshold) {
                sum += v;
                ++count;
            }
        }
    }
    return (uint8_t)((2 * sum + count) / (2 * count));
}

static void smoothFrom(const uint8_t* const* rows, uint8_t* out, int32_t begin, int32_t end,
                       int32_t n, int32_t threshold) {
    for (int32_t x = begin; x < end; ++x)
        out[x] = smoothPixel(rows, n, x, threshold);
}

static void tensorFrom(const uint8_t* const* b, int32_t begin, int32_t blocks, int32_t* out) {
    for (int32_t j = begin; j < blocks; ++j) {
        int32_t a = 0, bb = 0, c = 0;
        for (int32_t r = 1; r <= 4; ++r) {
            for (int32_t x = 4 * j; x < 4 * j + 4; ++x) {
                const int32_t ix = b[r][x + 1] - b[r][x - 1];
                const int32_t iy = b[r + 1][x] - b[r - 1][x];
                a += ix * ix;
                bb += ix * iy;
                c += iy * iy;
            }
        }
        out[3 * j] = a;
        out[3 * j + 1] = bb;
        out[3 * j + 2] = c;
    }
}

static void rhsFrom(const uint8_t* const* b, const uint8_t* const* c, int32_t begin, int32_t blocks,
                    int32_t* out) {
    for (int32_t j = begin; j < blocks; ++j) {
        int32_t bx = 0, by = 0;
        for (int32_t r = 1; r <= 4; ++r) {
            for (int32_t x = 4 * j; x < 4 * j + 4; ++x) {
                const int32_t cv = c[r - 1][x];
                const int32_t d = cv != 0 ? cv - b[r][x] : 0;
                bx += d * (b[r][x + 1] - b[r][x - 1]);
                by += d * (b[r + 1][x] - b[r - 1][x]);
            }
        }
        out[2 * j] = bx;
        out[2 * j + 1] = by;
    }
}

static inline int32_t clampInt(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

static inline uint8_t ghostByte(int32_t s, int32_t q, int32_t u, int32_t v, int32_t w) {
    const int32_t a = s < 0 ? -s : s;
    const int32_t m = u * u + v * v;
    const int32_t grown = ((clampInt(a, 0, 32767) * m) >> 15) + ((clampInt(q, 0, 32767) * m) >> 15);
    const int32_t value = 512 + ((q >> 3) + (a >> 3) + grown) * w;
    return (uint8_t)clampInt(value >> 10, 0, 255);
}

static void residualFrom(const uint8_t* const* b, const uint8_t* const* c, const uint8_t* flow,
                         const uint8_t* weight, int32_t begin, int32_t blocks, uint8_t* out) {
    for (int32_t j = begin; j < blocks; ++j) {
        const int32_t u = flow[2 * j] - 128;
        const int32_t v = flow[2 * j + 1] - 128;
        int32_t s = 0, q = 0;
        for (int32_t r = 1; r <= 4; ++r) {
            for (int32_t x = 4 * j; x < 4 * j + 4; ++x) {
                const int32_t ix = b[r][x + 1] - b[r][x - 1];
                const int32_t iy = b[r + 1][x] - b[r - 1][x];
                const int32_t res = 64 * (c[r - 1][x] - b[r][x]) - u * ix - v * iy;
                s += res >> 1;
                q += (res < 0 ? -res : res) >> 1;
            }
        }
        out[j] = ghostByte(s, q, u, v, weight[j]);
    }
}

static void box2(const uint8_t* r0, const uint8_t* r1, uint8_t* out, int32_t n) {
    box2From(r0, r1, out, 0, n);
}
static void box4(const uint8_t* const* rows, uint8_t* out, int32_t n) {
    box4From(rows, out, 0, n);
}
static void smooth(const uint8_t* const* rows, uint8_t* out, int32_t n, int32_t threshold) {
    smoothFrom(rows, out, 0, n, n, threshold);
}
static void tensor(const uint8_t* const* b, int32_t blocks, int32_t* out) {
    tensorFrom(b, 0, blocks, out);
}
static void rhs(const uint8_t* const* b, const uint8_t* const* c, int32_t blocks, int32_t* out) {
    rhsFrom(b, c, 0, blocks, out);
}
static void residual(const uint8_t* const* b, const uint8_t* const* c, const uint8_t* flow,
                     const uint8_t* weight, int32_t blocks, uint8_t* out) {
    residualFrom(b, c, flow, weight, 0, blocks, out);
}

}  // namespace tav_sr2_ghost_scalar

const tav_sr2_GhostRowOps tav_sr2_ghostRowsScalar = {
    tav_sr2_ghost_scalar::box2,   tav_sr2_ghost_scalar::box4, tav_sr2_ghost_scalar::smooth,
    tav_sr2_ghost_scalar::tensor, tav_sr2_ghost_scalar::rhs,  tav_sr2_ghost_scalar::residual,
};

#endif  // TAVRIN_GHOST_ROWS_SCALAR

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "merge/ghost_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tav_sr2_ghost_rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace scalar = tav_sr2_ghost_scalar;

using D32 = hn::ScalableTag<int32_t>;
using D8 = hn::Rebind<uint8_t, D32>;
using V32 = hn::Vec<D32>;

void Box2(const uint8_t* r0, const uint8_t* r1, uint8_t* out, int32_t n) {
    const hn::ScalableTag<int16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const int32_t lanes = (int32_t)hn::Lanes(d16);
    const auto two = hn::Set(d16, 2);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        hn::Vec<decltype(d8)> e0, o0, e1, o1;
        hn::LoadInterleaved2(d8, r0 + 2 * x, e0, o0);
        hn::LoadInterleaved2(d8, r1 + 2 * x, e1, o1);
        auto sum = hn::Add(hn::PromoteTo(d16, e0), hn::PromoteTo(d16, o0));
        sum = hn::Add(sum, hn::Add(hn::PromoteTo(d16, e1), hn::PromoteTo(d16, o1)));
        hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<2>(hn::Add(sum, two))), d8, out + x);
    }
    scalar::box2From(r0, r1, out, x, n);
}

void Box4(const uint8_t* const* rows, uint8_t* out, int32_t n) {
    const hn::ScalableTag<int16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const int32_t lanes = (int32_t)hn::Lanes(d16);
    const auto eight = hn::Set(d16, 8);
    int32_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        auto sum = eight;
        for (int32_t r = 0; r < 4; ++r) {
            hn::Vec<decltype(d8)> p0, p1, p2, p3;
            hn::LoadInterleaved4(d8, rows[r] + 4 * x, p0, p1, p2, p3);
            sum = hn::Add(sum, hn::Add(hn::PromoteTo(d16, p0), hn::PromoteTo(d16, p1)));
            sum = hn::Add(sum, hn::Add(hn::PromoteTo(d16, p2), hn::PromoteTo(d16, p3)));
        }
        hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<4>(sum)), d8, out + x);
    }
    scalar::box4From(rows, out, x, n);
}

void Smooth(const uint8_t* const* rows, uint8_t* out, int32_t n, int32_t threshold) {
    const D32 d;
    const D8 d8;
    const hn::Rebind<float, D32> df;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const auto below = hn::Set(d, threshold + 1);
    const auto one = hn::Set(d, 1);
    const int32_t head = n < 1 ? n : 1;
    scalar::smoothFrom(rows, out, 0, head, n, threshold);
    int32_t x = head;
    for (; x + lanes + 1 <= n; x += lanes) {
        const V32 centre = hn::PromoteTo(d, hn::LoadU(d8, rows[1] + x));
        V32 sum = hn::Zero(d);
        V32 count = hn::Zero(d);
        for (int32_t r = 0; r < 3; ++r) {
            for (int32_t dx = -1; dx <= 1; ++dx) {
                const V32 v = hn::PromoteTo(d, hn::LoadU(d8, rows[r] + x + dx));
                const auto near = hn::Lt(hn::Abs(hn::Sub(v, centre)), below);
                sum = hn::Add(sum, hn::IfThenElseZero(near, v));
                count = hn::Add(count, hn::IfThenElseZero(near, one));
            }
        }
        // (2 sum + count) / (2 count) is below 2^13: the float quotient floors to the integer one.
        const auto num = hn::ConvertTo(df, hn::Add(hn::Add(sum, sum), count));
        const auto den = hn::ConvertTo(df, hn::Add(count, count));
        const V32 q = hn::ConvertTo(d, hn::Div(num, den));
        hn::StoreU(hn::DemoteTo(d8, q), d8, out + x);
    }
    scalar::smoothFrom(rows, out, x, n, n, threshold);
}

// Ix and Iy of column k of each block in the lanes, for pixel row r of the six base rows.
struct Gradients {
    V32 ix[4], iy[4];
};

HWY_INLINE void gradientsAt(const uint8_t* const* b, int32_t r, int32_t x, Gradients* g) {
    const D32 d;
    const D8 d8;
    hn::Vec<D8> lm[4], lp[4], up[4], dn[4];
    hn::LoadInterleaved4(d8, b[r] + x - 1, lm[0], lm[1], lm[2], lm[3]);
    hn::LoadInterleaved4(d8, b[r] + x + 1, lp[0], lp[1], lp[2], lp[3]);
    hn::LoadInterleaved4(d8, b[r - 1] + x, up[0], up[1], up[2], up[3]);
    hn::LoadInterleaved4(d8, b[r + 1] + x, dn[0], dn[1], dn[2], dn[3]);
    for (int32_t k = 0; k < 4; ++k) {
        g->ix[k] = hn::Sub(hn::PromoteTo(d, lp[k]), hn::PromoteTo(d, lm[k]));
        g->iy[k] = hn::Sub(hn::PromoteTo(d, dn[k]), hn::PromoteTo(d, up[k]));
    }
}

HWY_INLINE void columnsAt(const uint8_t* row, int32_t x, V32* v) {
    const D32 d;
    const D8 d8;
    hn::Vec<D8> p[4];
    hn::LoadInterleaved4(d8, row + x, p[0], p[1], p[2], p[3]);
    for (int32_t k = 0; k < 4; ++k)
        v[k] = hn::PromoteTo(d, p[k]);
}

// Pixel row r of the blocks in the lanes: gradients, base and current values.
struct PixelRow {
    Gradients g;
    V32 base[4], cur[4];
};

HWY_INLINE void pixelRowAt(const uint8_t* const* b, const uint8_t* const* c, int32_t r, int32_t x,
                           PixelRow* p) {
    gradientsAt(b, r, x, &p->g);
    columnsAt(b[r], x, p->base);
    columnsAt(c[r - 1], x, p->cur);
}

void Tensor(const uint8_t* const* b, int32_t blocks, int32_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    int32_t j = 0;
    for (; j + lanes <= blocks; j += lanes) {
        V32 a = hn::Zero(d), bb = hn::Zero(d), c = hn::Zero(d);
        for (int32_t r = 1; r <= 4; ++r) {
            Gradients g;
            gradientsAt(b, r, 4 * j, &g);
            for (int32_t k = 0; k < 4; ++k) {
                a = hn::Add(hn::Mul(g.ix[k], g.ix[k]), a);
                bb = hn::Add(hn::Mul(g.ix[k], g.iy[k]), bb);
                c = hn::Add(hn::Mul(g.iy[k], g.iy[k]), c);
            }
        }
        hn::StoreInterleaved3(a, bb, c, d, out + 3 * j);
    }
    scalar::tensorFrom(b, j, blocks, out);
}

void Rhs(const uint8_t* const* b, const uint8_t* const* c, int32_t blocks, int32_t* out) {
    const D32 d;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 zero = hn::Zero(d);
    int32_t j = 0;
    for (; j + lanes <= blocks; j += lanes) {
        V32 bx = zero, by = zero;
        for (int32_t r = 1; r <= 4; ++r) {
            PixelRow p;
            pixelRowAt(b, c, r, 4 * j, &p);
            for (int32_t k = 0; k < 4; ++k) {
                const V32 diff =
                    hn::IfThenElseZero(hn::Ne(p.cur[k], zero), hn::Sub(p.cur[k], p.base[k]));
                bx = hn::Add(hn::Mul(diff, p.g.ix[k]), bx);
                by = hn::Add(hn::Mul(diff, p.g.iy[k]), by);
            }
        }
        hn::StoreInterleaved2(bx, by, d, out + 2 * j);
    }
    scalar::rhsFrom(b, c, j, blocks, out);
}

void Residual(const uint8_t* const* b, const uint8_t* const* c, const uint8_t* flow,
              const uint8_t* weight, int32_t blocks, uint8_t* out) {
    const D32 d;
    const D8 d8;
    const int32_t lanes = (int32_t)hn::Lanes(d);
    const V32 still = hn::Set(d, 128);
    const V32 limit = hn::Set(d, 32767);
    const V32 zero = hn::Zero(d);
    int32_t j = 0;
    for (; j + lanes <= blocks; j += lanes) {
        hn::Vec<D8> fu, fv;
        hn::LoadInterleaved2(d8, flow + 2 * j, fu, fv);
        const V32 u = hn::Sub(hn::PromoteTo(d, fu), still);
        const V32 v = hn::Sub(hn::PromoteTo(d, fv), still);
        V32 s = zero, q = zero;
        for (int32_t r = 1; r <= 4; ++r) {
            PixelRow p;
            pixelRowAt(b, c, r, 4 * j, &p);
            for (int32_t k = 0; k < 4; ++k) {
                V32 res = hn::ShiftLeft<6>(hn::Sub(p.cur[k], p.base[k]));
                res = hn::Sub(res, hn::Mul(u, p.g.ix[k]));
                res = hn::Sub(res, hn::Mul(v, p.g.iy[k]));
                s = hn::Add(s, hn::ShiftRight<1>(res));
                q = hn::Add(q, hn::ShiftRight<1>(hn::Abs(res)));
            }
        }
        const V32 a = hn::Abs(s);
        const V32 m = hn::Add(hn::Mul(u, u), hn::Mul(v, v));
        V32 sum = hn::Add(hn::ShiftRight<3>(q), hn::ShiftRight<3>(a));
        sum = hn::Add(sum, hn::ShiftRight<15>(hn::Mul(hn::Min(a, limit), m)));
        sum = hn::Add(sum, hn::ShiftRight<15>(hn::Mul(hn::Min(hn::Max(q, zero), limit), m)));
        const V32 w = hn::PromoteTo(d, hn::LoadU(d8, weight + j));
        const V32 value = hn::Add(hn::Mul(sum, w), hn::Set(d, 512));
        hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<10>(value)), d8, out + j);
    }
    scalar::residualFrom(b, c, flow, weight, j, blocks, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace tav_sr2_ghost_rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tav_sr2_ghost_rows {
HWY_EXPORT(Box2);
HWY_EXPORT(Box4);
HWY_EXPORT(Smooth);
HWY_EXPORT(Tensor);
HWY_EXPORT(Rhs);
HWY_EXPORT(Residual);

static void box2(const uint8_t* r0, const uint8_t* r1, uint8_t* out, int32_t n) {
    HWY_DYNAMIC_DISPATCH(Box2)(r0, r1, out, n);
}
static void box4(const uint8_t* const* rows, uint8_t* out, int32_t n) {
    HWY_DYNAMIC_DISPATCH(Box4)(rows, out, n);
}
static void smooth(const uint8_t* const* rows, uint8_t* out, int32_t n, int32_t threshold) {
    HWY_DYNAMIC_DISPATCH(Smooth)(rows, out, n, threshold);
}
static void tensor(const uint8_t* const* b, int32_t blocks, int32_t* out) {
    HWY_DYNAMIC_DISPATCH(Tensor)(b, blocks, out);
}
static void rhs(const uint8_t* const* b, const uint8_t* const* c, int32_t blocks, int32_t* out) {
    HWY_DYNAMIC_DISPATCH(Rhs)(b, c, blocks, out);
}
static void residual(const uint8_t* const* b, const uint8_t* const* c, const uint8_t* flow,
                     const uint8_t* weight, int32_t blocks, uint8_t* out) {
    HWY_DYNAMIC_DISPATCH(Residual)(b, c, flow, weight, blocks, out);
}
}  // namespace tav_sr2_ghost_rows

const tav_sr2_GhostRowOps tav_sr2_ghostRowsVector = {
    tav_sr2_ghost_rows::box2,   tav_sr2_ghost_rows::box4, tav_sr2_ghost_rows::smooth,
    tav_sr2_ghost_rows::tensor, tav_sr2_ghost_rows::rhs,  tav_sr2_ghost_rows::residual,
};
#endif  // HWY_ONCE
