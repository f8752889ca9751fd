// The work image of the ghost map: the reducer, the pre-filter, the sigma-window pre-smoothing
// and the brightness match of a frame to the base.

#include "enhance/blur.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/maths.h"
#include "foundation/row_band.h"
#include "merge/ghost_internal.h"

namespace {

constexpr double kNoFilterSigma = 1e-9;
constexpr int32_t kGainSlices = 8;
constexpr int32_t kMovingDifference = 16;  // pairs this far apart are content, not exposure

// ---- reducer ------------------------------------------------------------------------------------

struct BoxJob {
    const tav_sr2_GhostRowOps* rows;
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t factor;
};

uint32_t boxBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const BoxJob* job = static_cast<const BoxJob*>(arg);
    for (int32_t y = y0; y < y1; ++y) {
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y);
        const uint8_t* r[4];
        for (int32_t k = 0; k < job->factor; ++k)
            r[k] = tav_sr2_rowOf<const uint8_t>(job->src, 0, job->factor * y + k);
        if (job->factor == 2) {
            job->rows->box2(r[0], r[1], out, job->dst->width);
        } else {
            job->rows->box4(r, out, job->dst->width);
        }
    }
    return TAV_OK;
}

uint32_t boxPass(const tav_sr2_ImageCtx* ctx, const tav_sr2_GhostRowOps* rows, tav_sr2_Image* dst,
                 const tav_sr2_Image* src, int32_t factor) {
    BoxJob job = {rows, src, dst, factor};
    return tav_sr2_ImageCtx_runBands(ctx, tav_sr2_ImageCtx_workers(ctx), dst->height, boxBand,
                                     &job);
}

// A box pass over the leading whole cells into a temporary of 1/factor of the size, rounded down
// to even, then the reducer from there.
uint32_t reduceInTwo(const tav_sr2_ImageCtx* ctx, const tav_sr2_GhostRowOps* rows,
                     tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t factor) {
    tav_sr2_Image step;
    tav_sr2_Image_init(&step, ctx->pool);
    uint32_t status = tav_sr2_Image_alloc(&step, (src->width / factor) & ~1,
                                          (src->height / factor) & ~1, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) status = boxPass(ctx, rows, &step, src, factor);
    if (status == TAV_OK) status = tav_sr2_Ghost_reduce(ctx, rows, dst, &step);
    const uint32_t released = tav_sr2_Image_finish(&step);
    return status != TAV_OK ? status : released;
}

// ---- 7-tap Gaussian -----------------------------------------------------------------------------

struct Taps7 {
    int32_t t[4];  // centre, then distance 1..3
};

Taps7 gaussTaps(double sigma) {
    Taps7 k = {};
    double g[4] = {1.0, 0.0, 0.0, 0.0};
    const double two_s2 = 2.0 * sigma * sigma;
    double total = 1.0;
    for (int32_t i = 1; i <= 3; ++i) {
        g[i] = tav_sr2_exp(-(double)(i * i) / two_s2);
        total += 2.0 * g[i];
    }
    int32_t sides = 0;
    for (int32_t i = 1; i <= 3; ++i) {
        k.t[i] = (int32_t)(g[i] * 32768.0 / total + 0.5);
        sides += k.t[i];
    }
    k.t[0] = 32768 - 2 * sides;
    return k;
}

struct GaussJob {
    const tav_sr2_Image* src;
    tav_sr2_Image* mid;  // UINT16, 8 fraction bits
    tav_sr2_Image* dst;
    Taps7 taps;
};

int32_t clampIndex(int32_t i, int32_t n) {
    return i < 0 ? 0 : i >= n ? n - 1 : i;
}

uint32_t gaussRowsBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const GaussJob* job = static_cast<const GaussJob*>(arg);
    const int32_t w = job->src->width;
    const int32_t* t = job->taps.t;
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* in = tav_sr2_rowOf<const uint8_t>(job->src, 0, y);
        uint16_t* out = tav_sr2_rowOf<uint16_t>(job->mid, 0, y);
        for (int32_t x = 0; x < w; ++x) {
            uint32_t sum = (uint32_t)t[0] * in[x];
            for (int32_t k = 1; k <= 3; ++k)
                sum += (uint32_t)t[k] * (in[clampIndex(x - k, w)] + in[clampIndex(x + k, w)]);
            out[x] = (uint16_t)((sum + 64) >> 7);
        }
    }
    return TAV_OK;
}

uint32_t gaussColumnsBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const GaussJob* job = static_cast<const GaussJob*>(arg);
    const int32_t w = job->dst->width, h = job->dst->height;
    const int32_t* t = job->taps.t;
    for (int32_t y = y0; y < y1; ++y) {
        const uint16_t* r[7];
        for (int32_t k = -3; k <= 3; ++k)
            r[k + 3] = tav_sr2_rowOf<const uint16_t>(job->mid, 0, clampIndex(y + k, h));
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->dst, 0, y);
        for (int32_t x = 0; x < w; ++x) {
            // 32768 * 65280 and the rounding stay below 2^31.
            uint32_t sum = (uint32_t)t[0] * r[3][x];
            for (int32_t k = 1; k <= 3; ++k)
                sum += (uint32_t)t[k] * ((uint32_t)r[3 - k][x] + r[3 + k][x]);
            const uint32_t v = (sum + (1u << 22)) >> 23;
            out[x] = (uint8_t)(v > 255 ? 255 : v);
        }
    }
    return TAV_OK;
}

// ---- sigma window -------------------------------------------------------------------------------

struct SmoothJob {
    const tav_sr2_GhostRowOps* rows;
    const tav_sr2_Image* src;
    tav_sr2_Image* dst;
    int32_t threshold;
};

uint32_t smoothBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const SmoothJob* job = static_cast<const SmoothJob*>(arg);
    const int32_t h = job->src->height;
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* r[3];
        for (int32_t k = 0; k < 3; ++k)
            r[k] = tav_sr2_rowOf<const uint8_t>(job->src, 0, clampIndex(y + k - 1, h));
        job->rows->smooth(r, tav_sr2_rowOf<uint8_t>(job->dst, 0, y), job->src->width,
                          job->threshold);
    }
    return TAV_OK;
}

// ---- brightness ---------------------------------------------------------------------------------

struct GainSums {
    uint64_t cur, base;
};

struct GainJob {
    const tav_sr2_Image* cur;
    const tav_sr2_Image* base;
    GainSums slice[kGainSlices];
};

uint32_t gainBand(void* arg, int32_t slice, int32_t y0, int32_t y1) {
    GainJob* job = static_cast<GainJob*>(arg);
    GainSums sums = {0, 0};
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* c = tav_sr2_rowOf<const uint8_t>(job->cur, 0, y);
        const uint8_t* b = tav_sr2_rowOf<const uint8_t>(job->base, 0, y);
        for (int32_t x = 0; x < job->cur->width; ++x) {
            const int32_t d = c[x] - b[x];
            if (d < kMovingDifference && -d < kMovingDifference) {
                sums.cur += c[x];
                sums.base += b[x];
            }
        }
    }
    job->slice[slice] = sums;
    return TAV_OK;
}

struct ApplyGainJob {
    tav_sr2_Image* image;
    uint32_t gain;  // Q14
};

uint32_t applyGainBand(void* arg, int32_t, int32_t g0, int32_t g1) {
    const ApplyGainJob* job = static_cast<const ApplyGainJob*>(arg);
    const int32_t h = job->image->height;
    const int32_t y1 = 4 * g1 < h ? 4 * g1 : h;
    for (int32_t y = 4 * g0; y < y1; ++y) {
        uint8_t* row = tav_sr2_rowOf<uint8_t>(job->image, 0, y);
        for (int32_t x = 0; x < job->image->width; ++x) {
            const uint32_t v = (2 * job->gain * row[x] + 16384) >> 15;
            row[x] = (uint8_t)(v > 255 ? 255 : v);
        }
    }
    return TAV_OK;
}

// The two centred 4:1 reductions the gain is measured on.
uint32_t reduceCentres(tav_sr2_Ghost* ghost, tav_sr2_Image* cur4, tav_sr2_Image* base4) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    const int32_t w = ghost->cur_filtered.width, h = ghost->cur_filtered.height;
    const int32_t bw = w / 4, bh = h / 4;
    uint32_t status = tav_sr2_Image_alloc(cur4, bw, bh, nullptr, TAV_SR2_FMT_UINT8);
    if (status == TAV_OK) status = tav_sr2_Image_alloc(base4, bw, bh, nullptr, TAV_SR2_FMT_UINT8);
    tav_sr2_Image view;
    tav_sr2_Image_init(&view, nullptr);
    const int32_t x0 = (w - 4 * bw) >> 1, y0 = (h - 4 * bh) >> 1;
    if (status == TAV_OK)
        status = tav_sr2_Image_crop(&view, &ghost->cur_filtered, x0, y0, 4 * bw, 4 * bh);
    if (status == TAV_OK) status = tav_sr2_Ghost_reduce(&ctx, ghost->rows, cur4, &view);
    if (status == TAV_OK)
        status = tav_sr2_Image_crop(&view, &ghost->base_filtered, x0, y0, 4 * bw, 4 * bh);
    if (status == TAV_OK) status = tav_sr2_Ghost_reduce(&ctx, ghost->rows, base4, &view);
    return status;
}

}  // namespace

uint32_t tav_sr2_Ghost_reduce(const tav_sr2_ImageCtx* ctx, const tav_sr2_GhostRowOps* rows,
                              tav_sr2_Image* dst, const tav_sr2_Image* src) {
    const int32_t sw = src->width, sh = src->height, dw = dst->width, dh = dst->height;
    if (dw < 1 || dh < 1) return TAV_ERROR_PARAM;
    if (sw == 4 * dw && sh == 4 * dh) return boxPass(ctx, rows, dst, src, 4);
    if (sw == 2 * dw && sh == 2 * dh) return boxPass(ctx, rows, dst, src, 2);
    const int32_t qx = sw / dw, qy = sh / dh;
    if (qx >= 5 && qy >= 5) return reduceInTwo(ctx, rows, dst, src, 4);
    if (qx >= 3 && qy >= 3) return reduceInTwo(ctx, rows, dst, src, 2);
    return tav_sr2_Image_resize(ctx, dst, src);
}

uint32_t tav_sr2_Ghost_gauss7(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst,
                              const tav_sr2_Image* src, double sigma, int32_t max_bands) {
    tav_sr2_Image mid;
    tav_sr2_Image_init(&mid, ctx->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&mid, src->width, src->height, nullptr, TAV_SR2_FMT_UINT16);
    GaussJob job = {src, &mid, dst, gaussTaps(sigma)};
    int32_t bands = tav_sr2_ImageCtx_workers(ctx);
    if (bands > max_bands) bands = max_bands;
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(ctx, bands, src->height, gaussRowsBand, &job);
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(ctx, bands, dst->height, gaussColumnsBand, &job);
    const uint32_t released = tav_sr2_Image_finish(&mid);
    return status != TAV_OK ? status : released;
}

uint32_t tav_sr2_Ghost_workImage(tav_sr2_Ghost* ghost, const tav_sr2_Image* luma,
                                 tav_sr2_Image* small, tav_sr2_Image* filtered) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    const int32_t s = ghost->ghost_scale;
    const int32_t w = luma->width / s, h = luma->height / s;
    if (w < 1 || h < 1) return TAV_ERROR_PARAM;
    uint32_t status = TAV_OK;
    if (s == 1) {
        if (!small->external) status = tav_sr2_Image_finish(small);  // an owned block goes back
        tav_sr2_Image_init(small, ghost->pool);
        if (status == TAV_OK) status = tav_sr2_Image_crop(small, luma, 0, 0, w, h);
    } else {
        const int32_t x0 = (luma->width - w * s) >> 1, y0 = (luma->height - h * s) >> 1;
        int32_t* valid = ghost->ghost_valid_rect;
        valid[0] = x0, valid[1] = y0, valid[2] = x0 + w * s, valid[3] = y0 + h * s;
        if (small->width != w || small->height != h || small->plane[0] == nullptr)
            status = tav_sr2_Image_alloc(small, w, h, nullptr, TAV_SR2_FMT_UINT8);
        tav_sr2_Image area;
        tav_sr2_Image_init(&area, nullptr);
        if (status == TAV_OK) status = tav_sr2_Image_crop(&area, luma, x0, y0, w * s, h * s);
        if (status == TAV_OK) status = tav_sr2_Ghost_reduce(&ctx, ghost->rows, small, &area);
    }
    if (status == TAV_OK &&
        (filtered->width != w || filtered->height != h || filtered->plane[0] == nullptr))
        status = tav_sr2_Image_alloc(filtered, w, h, nullptr, TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    const double sigma = ghost->deghost_gauss_sigma0;
    if (sigma < 0.0) return tav_sr2_Ghost_gauss7(&ctx, filtered, small, 1.0, INT32_MAX);
    if (sigma < kNoFilterSigma) return tav_sr2_Image_copy(filtered, small);
    status = tav_sr2_Image_blurStrict(&ctx, filtered, small, sigma);
    return status == TAV_SR2_ROWS_MISSING ? TAV_ERROR_MALLOC : status;
}

uint32_t tav_sr2_Ghost_presmooth(tav_sr2_Ghost* ghost, tav_sr2_Image* filtered) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    const double factor = ghost->input_scale < 1.5f ? 4.0 : 2.0;
    const double t = ghost->deghost_noise_level * factor + 0.5;
    tav_sr2_Image out;
    tav_sr2_Image_init(&out, ghost->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&out, filtered->width, filtered->height, nullptr, TAV_SR2_FMT_UINT8);
    SmoothJob job = {ghost->rows, filtered, &out, t < 255.0 ? (int32_t)t : 255};
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(&ctx, tav_sr2_ImageCtx_workers(&ctx), filtered->height,
                                           smoothBand, &job);
    if (status == TAV_OK) {
        // The smoothed pixels become the work image; the old block goes back with `out`.
        const tav_sr2_Image old = *filtered;
        *filtered = out;
        out = old;
    }
    const uint32_t released = tav_sr2_Image_finish(&out);
    return status != TAV_OK ? status : released;
}

uint16_t tav_sr2_Ghost_gainQ14(uint64_t sum_base, uint64_t sum_cur) {
    const float gain = (float)sum_base / (float)sum_cur;
    const float scaled = gain * 16384.0f + 0.5f;
    if (!(scaled >= 0.0f)) return 0;  // 0 / 0
    if (scaled >= 65535.0f) return 65535;
    return (uint16_t)scaled;
}

uint32_t tav_sr2_Ghost_matchBrightness(tav_sr2_Ghost* ghost) {
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    tav_sr2_Image cur4, base4;
    tav_sr2_Image_init(&cur4, ghost->pool);
    tav_sr2_Image_init(&base4, ghost->pool);
    uint32_t status = reduceCentres(ghost, &cur4, &base4);
    GainJob sums = {&cur4, &base4, {}};
    if (status == TAV_OK)
        status = tav_sr2_ImageCtx_runBands(&ctx, kGainSlices, cur4.height, gainBand, &sums);
    uint32_t released = tav_sr2_Image_finish(&cur4);
    released |= tav_sr2_Image_finish(&base4);
    if (status != TAV_OK) return status;
    if (released != TAV_OK) return released;
    GainSums total = {0, 0};
    for (const GainSums& s : sums.slice) {
        total.cur += s.cur;
        total.base += s.base;
    }
    ApplyGainJob apply = {&ghost->cur_filtered, tav_sr2_Ghost_gainQ14(total.base, total.cur)};
    const int32_t groups = (ghost->cur_filtered.height + 3) >> 2;
    return tav_sr2_ImageCtx_runBands(&ctx, tav_sr2_ImageCtx_workers(&ctx), groups, applyGainBand,
                                     &apply);
}
