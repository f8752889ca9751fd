// The colour guided filter of the chroma (see chroma_nr.h).
//
// Cell statistics are small (1/16 of the frame at scale 2, 1/64 at scale 4) and run on the
// caller; sums are kept in doubles, exact for the largest window of 99 cells. The per-sample
// apply, the only pass over the whole chroma plane, runs by 4-row bands over the workers.
#include "nr/chroma_nr.h"

#include <string.h>

#include "enhance/blur.h"
#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/row_band.h"

namespace {

constexpr int32_t kMoments = 9;  // Y, U, V, YY, UU, VV, YU, YV, UV
constexpr int32_t kCoefs = 8;    // U: gY gU gV b, then V

bool deepFrame(int32_t f) {
    return tav_sr2_isSemiPlanar10(f);
}

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

int32_t sampleAt(const tav_sr2_Image* image, bool deep, int32_t i, int32_t y) {
    return deep ? tav_sr2_rowOf<const uint16_t>(image, 0, y)[i]
                : tav_sr2_rowOf<const uint8_t>(image, 0, y)[i];
}

// Box sums of `planes` values per cell over (2r + 1) cells along rows, then columns, in place.
void boxSums(double* v, int32_t planes, int32_t nw, int32_t nh, int32_t r, double* line) {
    for (int32_t j = 0; j < nh; ++j) {
        double* row = v + (int64_t)j * nw * planes;
        memcpy(line, row, sizeof(double) * nw * planes);
        for (int32_t p = 0; p < planes; ++p) {
            double s = 0;
            for (int32_t k = -r; k <= r; ++k)
                s += line[clampTo(k, 0, nw - 1) * planes + p];
            for (int32_t i = 0; i < nw; ++i) {
                row[i * planes + p] = s;
                s += line[clampTo(i + r + 1, 0, nw - 1) * planes + p] -
                     line[clampTo(i - r, 0, nw - 1) * planes + p];
            }
        }
    }
    for (int32_t i = 0; i < nw; ++i)
        for (int32_t p = 0; p < planes; ++p) {
            for (int32_t j = 0; j < nh; ++j)
                line[j] = v[((int64_t)j * nw + i) * planes + p];
            double s = 0;
            for (int32_t k = -r; k <= r; ++k)
                s += line[clampTo(k, 0, nh - 1)];
            for (int32_t j = 0; j < nh; ++j) {
                v[((int64_t)j * nw + i) * planes + p] = s;
                s += line[clampTo(j + r + 1, 0, nh - 1)] - line[clampTo(j - r, 0, nh - 1)];
            }
        }
}

// The model of one cell into out[0..8]: eight confidence-weighted coefficients and the confidence.
void solveCell(const double* m, float n, float q, float ey, float eu, float ev, float* out) {
    const float sy = (float)m[0], su = (float)m[1], sv = (float)m[2];
    const float cyy = (float)m[3] - sy * sy / n, cuu = (float)m[4] - su * su / n;
    const float cvv = (float)m[5] - sv * sv / n, cyu = (float)m[6] - sy * su / n;
    const float cyv = (float)m[7] - sy * sv / n, cuv = (float)m[8] - su * sv / n;
    const float ryy = cyy + ey * ey * n * q, ruu = cuu + eu * eu * n * q,
                rvv = cvv + ev * ev * n * q;
    // Cofactors of the symmetric matrix [ryy cyu cyv; cyu ruu cuv; cyv cuv rvv].
    const float a00 = ruu * rvv - cuv * cuv, a01 = cyv * cuv - cyu * rvv,
                a02 = cyu * cuv - cyv * ruu;
    const float a11 = ryy * rvv - cyv * cyv, a12 = cyu * cyv - ryy * cuv,
                a22 = ryy * ruu - cyu * cyu;
    const float det = ryy * a00 + cyu * a01 + cyv * a02;
    float g[kCoefs];
    const float inv = 1.0f / det;
    const bool usable = det != 0.0f && inv - inv == 0.0f;  // finite
    for (int32_t k = 0; k < 2; ++k) {
        const float t0 = k == 0 ? cyu : cyv, t1 = k == 0 ? cuu : cuv, t2 = k == 0 ? cuv : cvv;
        float gy = (a00 * t0 + a01 * t1 + a02 * t2) * inv;
        float gu = (a01 * t0 + a11 * t1 + a12 * t2) * inv;
        float gv = (a02 * t0 + a12 * t1 + a22 * t2) * inv;
        if (!usable || !(gy - gy == 0.0f && gu - gu == 0.0f && gv - gv == 0.0f)) {
            gy = 0.0f;  // keep the chroma as it is
            gu = k == 0 ? 1.0f : 0.0f;
            gv = k == 0 ? 0.0f : 1.0f;
        }
        const float own = k == 0 ? su : sv;
        g[4 * k] = gy;
        g[4 * k + 1] = gu;
        g[4 * k + 2] = gv;
        g[4 * k + 3] = (own - (gy * sy + gu * su + gv * sv)) / n;
    }
    const float c = 1.0f / (n + cyy + cuu + cvv);
    for (int32_t k = 0; k < kCoefs; ++k)
        out[k] = c * g[k];
    out[kCoefs] = c;
}

struct Apply {
    tav_sr2_Image chroma;         // the frame's chroma pairs
    const tav_sr2_Image* luma_c;  // luma at the chroma plane's size
    const float* rows;            // per cell row: cw * 8 coefficients
    int32_t nh, bands;
    float strength;
    bool deep;
};

uint32_t applyBand(void* arg, int32_t band, int32_t, int32_t) {
    const Apply* a = static_cast<const Apply*>(arg);
    const int32_t cw = a->chroma.width, ch = a->chroma.height;
    int32_t y0, y1;
    tav_sr2_rowBand(ch, band, a->bands, &y0, &y1);
    const float mid = a->deep ? 512.0f : 128.0f, top = a->deep ? 1023.0f : 255.0f;
    for (int32_t j = y0; j < y1; ++j) {
        const int64_t pos = (((int64_t)a->nh - ch + 2 * (int64_t)j * a->nh) << 15) / (2 * ch);
        const int32_t i0 = clampTo((int32_t)(pos >> 15), 0, a->nh - 1);
        const int32_t i1 = clampTo((int32_t)(pos >> 15) + 1, 0, a->nh - 1);
        const float f = pos < 0 ? 0.0f : (float)(pos & 0x7fff) * 3.0517578e-5f;
        const float* r0 = a->rows + (int64_t)i0 * cw * kCoefs;
        const float* r1 = a->rows + (int64_t)i1 * cw * kCoefs;
        for (int32_t x = 0; x < cw; ++x) {
            float c[kCoefs];
            for (int32_t k = 0; k < kCoefs; ++k)
                c[k] = r0[x * kCoefs + k] + f * (r1[x * kCoefs + k] - r0[x * kCoefs + k]);
            const float y = (float)sampleAt(a->luma_c, a->deep, x, j);
            const float u = (float)sampleAt(&a->chroma, a->deep, 2 * x, j);
            const float v = (float)sampleAt(&a->chroma, a->deep, 2 * x + 1, j);
            int32_t out[2];
            for (int32_t k = 0; k < 2; ++k) {
                const float t = c[4 * k] * y + c[4 * k + 1] * u + c[4 * k + 2] * v + c[4 * k + 3];
                float o = a->strength * (t - mid) + mid + 0.5f;
                o = o < top ? o : top;
                out[k] = o > 0.0f ? (int32_t)o : 0;
            }
            for (int32_t k = 0; k < 2; ++k) {
                if (a->deep) {
                    tav_sr2_rowOf<uint16_t>(&a->chroma, 0, j)[2 * x + k] = (uint16_t)out[k];
                } else {
                    tav_sr2_rowOf<uint8_t>(&a->chroma, 0, j)[2 * x + k] = (uint8_t)out[k];
                }
            }
        }
    }
    return TAV_OK;
}

// Everything a call allocates, released together.
struct Scratch {
    tav_sr2_Image y_small, uv_small, luma_c, mask_half;
    void* block;
};

uint32_t resizeCell(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* src) {
    return tav_sr2_Image_resize_cell(ctx->pool, ctx->threads, ctx->tasks, dst, src);
}

uint32_t filterFrame(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame, const tav_sr2_Image* mask,
                     int32_t window, float ey, float eu, float ev, float strength, float scale,
                     Scratch* s) {
    const bool deep = deepFrame(frame->format);
    const int32_t w = frame->width, h = frame->height;
    const int32_t gw = (int32_t)((float)w / scale + 0.5f), gh = (int32_t)((float)h / scale + 0.5f);
    const int32_t nw = gw >> 1, nh = gh >> 1;
    if (nw < 1 || nh < 1) return TAV_ERROR_PARAM;
    tav_sr2_Image luma, chroma;
    uint32_t status = tav_sr2_Image_viewPlane0(&luma, frame, 0, 0, w, h);
    if (status == TAV_OK) status = tav_sr2_Image_viewChroma(&chroma, frame, 0, 0, w, h);
    if (status != TAV_OK) return status;
    const int32_t cw = chroma.width, ch = chroma.height;
    const int32_t plain = deep ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8;
    status = tav_sr2_Image_alloc(&s->y_small, gw, gh, nullptr, plain);
    if (status == TAV_OK) status = resizeCell(ctx, &s->y_small, &luma);
    const tav_sr2_Image* uv = &chroma;
    if (status == TAV_OK && (cw != gw || ch != gh)) {
        status = tav_sr2_Image_alloc(&s->uv_small, gw, gh, nullptr,
                                     deep ? TAV_SR2_FMT_UINT1616 : TAV_SR2_FMT_UINT88);
        if (status == TAV_OK) status = resizeCell(ctx, &s->uv_small, &chroma);
        uv = &s->uv_small;
    }
    const tav_sr2_Image* luma_c = &s->y_small;
    if (status == TAV_OK && (cw != gw || ch != gh)) {
        status = tav_sr2_Image_alloc(&s->luma_c, cw, ch, nullptr, plain);
        if (status == TAV_OK) status = resizeCell(ctx, &s->luma_c, &luma);
        luma_c = &s->luma_c;
    }
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&s->mask_half, nw, nh, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) {
        status = mask != nullptr ? tav_sr2_Image_warpResize(ctx, &s->mask_half, mask)
                                 : tav_sr2_Image_fillValue(ctx, &s->mask_half, 32);
    }
    if (status != TAV_OK) return status;
    const int64_t cells = (int64_t)nw * nh, longest = (nw > nh ? nw : nh);
    const int64_t bytes = cells * kMoments * 8 + longest * kMoments * 8 + cells * kMoments * 4 +
                          (int64_t)nh * cw * kCoefs * 4;
    s->block = tav_sr2_MemPool_alloc(ctx->pool, (uint32_t)bytes);
    if (s->block == nullptr) return TAV_ERROR_MALLOC;
    double* moments = static_cast<double*>(s->block);
    double* line = moments + cells * kMoments;
    float* coef = reinterpret_cast<float*>(line + longest * kMoments);
    float* rows = coef + cells * kMoments;
    // Moments of each 2 x 2 cell.
    for (int32_t j = 0; j < nh; ++j)
        for (int32_t i = 0; i < nw; ++i) {
            double* m = moments + ((int64_t)j * nw + i) * kMoments;
            for (int32_t k = 0; k < kMoments; ++k)
                m[k] = 0;
            for (int32_t d = 0; d < 4; ++d) {
                const int32_t x = 2 * i + (d & 1), y = 2 * j + (d >> 1);
                const double Y = sampleAt(&s->y_small, deep, x, y);
                const double U = sampleAt(uv, deep, 2 * x, y), V = sampleAt(uv, deep, 2 * x + 1, y);
                const double t[kMoments] = {Y, U, V, Y * Y, U * U, V * V, Y * U, Y * V, U * V};
                for (int32_t k = 0; k < kMoments; ++k)
                    m[k] += t[k];
            }
        }
    boxSums(moments, kMoments, nw, nh, window >> 1, line);
    const float n = 4.0f * (float)window * (float)window;
    const float scale_eps = deep ? 4.0f : 1.0f;
    for (int32_t j = 0; j < nh; ++j)
        for (int32_t i = 0; i < nw; ++i) {
            const float m = (float)tav_sr2_rowOf<const uint8_t>(&s->mask_half, 0, j)[i];
            const int64_t c = (int64_t)j * nw + i;
            solveCell(moments + c * kMoments, n, m * m, ey * scale_eps, eu * scale_eps,
                      ev * scale_eps, coef + c * kMoments);
        }
    // Smooth the weighted models over 5 x 5 cells and normalise them, in the moments' space.
    for (int64_t k = 0; k < cells * kMoments; ++k)
        moments[k] = coef[k];
    boxSums(moments, kMoments, nw, nh, 2, line);
    for (int64_t c = 0; c < cells; ++c)
        for (int32_t k = 0; k < kCoefs; ++k)
            coef[c * kCoefs + k] =
                (float)(moments[c * kMoments + k] / moments[c * kMoments + kCoefs]);
    // Along each cell row to the chroma width.
    const int64_t base = (((int64_t)nw - cw) << 15) / (2 * cw), stepq = ((int64_t)nw << 15) / cw;
    for (int32_t j = 0; j < nh; ++j)
        for (int32_t x = 0; x < cw; ++x) {
            const int64_t pos = base + x * stepq;
            const int32_t i0 = clampTo((int32_t)(pos >> 15), 0, nw - 1);
            const int32_t i1 = clampTo((int32_t)(pos >> 15) + 1, 0, nw - 1);
            const float f = pos < 0 ? 0.0f : (float)(pos & 0x7fff) * 3.0517578e-5f;
            const float* c0 = coef + ((int64_t)j * nw + i0) * kCoefs;
            const float* c1 = coef + ((int64_t)j * nw + i1) * kCoefs;
            float* out = rows + ((int64_t)j * cw + x) * kCoefs;
            for (int32_t k = 0; k < kCoefs; ++k)
                out[k] = c0[k] + f * (c1[k] - c0[k]);
        }
    const int32_t workers = tav_sr2_ImageCtx_workers(ctx);
    Apply a = {chroma, luma_c, rows, nh, workers < 1 ? 1 : workers, strength, deep};
    return tav_sr2_ImageCtx_runBands(ctx, a.bands, a.bands, applyBand, &a);
}

}  // namespace

uint32_t tav_sr2_ChromaNR_run(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                              tav_sr2_Image* dst, const tav_sr2_Image* mask, int32_t window,
                              float eps_y, float eps_u, float eps_v, float strength, float scale) {
    if (ctx == nullptr || src == nullptr || dst == nullptr || window < 1 || !(scale >= 1.0f))
        return TAV_ERROR_PARAM;
    const int32_t f = src->format;
    if (!(tav_sr2_isSemiPlanar8(f) || deepFrame(f)) || dst->format != f)
        return TAV_ERROR_UNSUPPORTED;
    if (!tav_sr2_sameSize(src, dst)) return TAV_ERROR_PARAM;
    if (src->plane[0] != dst->plane[0]) {
        const uint32_t status = tav_sr2_Image_copy(dst, src);
        if (status != TAV_OK) return status;
    }
    Scratch s = {};
    for (tav_sr2_Image* im : {&s.y_small, &s.uv_small, &s.luma_c, &s.mask_half})
        tav_sr2_Image_init(im, ctx->pool);
    const uint32_t status =
        filterFrame(ctx, dst, mask, window, eps_y, eps_u, eps_v, strength, scale, &s);
    tav_sr2_MemPool_free(ctx->pool, s.block);
    for (tav_sr2_Image* im : {&s.y_small, &s.uv_small, &s.luma_c, &s.mask_half})
        tav_sr2_Image_finish(im);
    return status;
}

uint32_t tav_sr2_ChromaNR_clip(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame, int32_t window,
                               float scale) {
    if (ctx == nullptr || frame == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_Image chroma, keep;
    uint32_t status = tav_sr2_Image_viewChroma(&chroma, frame, 0, 0, frame->width, frame->height);
    if (status != TAV_OK) return status;
    tav_sr2_Image_init(&keep, ctx->pool);
    status = tav_sr2_Image_alloc(&keep, chroma.width, chroma.height, nullptr, chroma.format);
    if (status == TAV_OK) status = tav_sr2_Image_copy(&keep, &chroma);
    if (status == TAV_OK)
        status =
            tav_sr2_ChromaNR_run(ctx, frame, frame, nullptr, window, 0.1f, 0.5f, 0.5f, 1.0f, scale);
    if (status == TAV_OK) {
        const bool deep = deepFrame(frame->format);
        for (int32_t y = 0; y < chroma.height; ++y)
            for (int32_t x = 0; x < 2 * chroma.width; ++x) {
                const int32_t k = sampleAt(&keep, deep, x, y);
                const int32_t v = k + clampTo(sampleAt(&chroma, deep, x, y) - k, -4, 4);
                if (deep) {
                    tav_sr2_rowOf<uint16_t>(&chroma, 0, y)[x] = (uint16_t)v;
                } else {
                    tav_sr2_rowOf<uint8_t>(&chroma, 0, y)[x] = (uint8_t)v;
                }
            }
    }
    tav_sr2_Image_finish(&keep);
    return status;
}

uint32_t tav_sr2_ChromaNR_highFrequency(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame,
                                        const tav_sr2_Image* like) {
    if (ctx == nullptr || frame == nullptr || like == nullptr) return TAV_ERROR_PARAM;
    const int32_t w = frame->width, h = frame->height;
    if (w < 8 || h < 8) return TAV_ERROR_PARAM;
    const bool deep = deepFrame(frame->format);
    tav_sr2_Image luma, raw, mask;
    uint32_t status = tav_sr2_Image_viewPlane0(&luma, frame, 0, 0, w, h);
    if (status != TAV_OK) return status;
    tav_sr2_Image_init(&raw, ctx->pool);
    tav_sr2_Image_init(&mask, ctx->pool);
    status = tav_sr2_Image_alloc(&mask, like->width, like->height, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK)
        status = tav_sr2_Image_alloc(&raw, w - 4, h - 4, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) {
        // Where a one-pixel detail stands out from its neighbours at distance two (8-bit units).
        const int32_t shift = deep ? 2 : 0;
        auto at = [&](int32_t x, int32_t y) { return sampleAt(&luma, deep, x, y) >> shift; };
        for (int32_t y = 0; y < h - 4; ++y)
            for (int32_t x = 0; x < w - 4; ++x) {
                const int32_t cx = x + 2, cy = y + 2, c = at(cx, cy);
                const auto mag = [](int32_t v) { return v < 0 ? -v : v; };
                const int32_t sum = mag(2 * c - at(cx - 1, cy) - at(cx + 1, cy)) +
                                    mag(2 * c - at(cx, cy - 1) - at(cx, cy + 1)) -
                                    mag(at(cx - 2, cy) - c) - mag(at(cx + 2, cy) - c) -
                                    mag(c - at(cx, cy - 2)) - mag(at(cx, cy + 2) - c);
                tav_sr2_rowOf<uint8_t>(&raw, 0, y)[x] =
                    (uint8_t)clampTo((sum > 0 ? sum : 0) * 8, 0, 255);
            }
        status = tav_sr2_Image_blurStrict(ctx, &raw, &raw, 4.0);
    }
    if (status == TAV_OK)
        status = tav_sr2_Image_resizeStrict(ctx, &mask, &raw, &tav_sr2_resizeRowsVector);
    if (status == TAV_OK)
        status = tav_sr2_ChromaNR_run(ctx, frame, frame, &mask, 7, 0.0f, 1.0f, 1.0f, 1.0f, 2.0f);
    tav_sr2_Image_finish(&raw);
    tav_sr2_Image_finish(&mask);
    return status;
}
