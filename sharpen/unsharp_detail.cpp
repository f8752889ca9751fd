// What the sharpening paths do to a high-pass image between the band pass and the add: the
// checker-removing smoothing, the detail boost of method 1, the Haar-split denoise of methods 2
// and 3 with its plane filter, and the small mask operators of the weight map.
//
// The smoothing runs in groups of 64 rows, each group's second differences taken from the rows
// before the group writes them (the row above a group carries over from the previous group), so
// it needs 66 rows of scratch and works in place. The detail boost's activity is the mean of
// |dx| + |dy| over each 4 x 4 cell of the frame's luma (in 8-bit units), blurred at sigma 1.8 and
// enlarged back; a pixel adds the filtered high pass times min(8 activity, 128) / 128, so flat
// areas, where the high pass is noise, get nothing and textured ones all of it.
#include <string.h>

#include "enhance/blur.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/rank_filter.h"
#include "foundation/row_band.h"
#include "nr/guided_filter.h"
#include "sharpen/unsharp.h"

namespace {

constexpr int32_t kGroupRows = 64;

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

bool plainHighPass(const tav_sr2_Image* image) {
    return image != nullptr && image->plane[0] != nullptr &&
           (image->format == TAV_SR2_FMT_UINT8 || image->format == TAV_SR2_FMT_UINT16);
}

int32_t sampleAt(const tav_sr2_Image* image, int32_t x, int32_t y) {
    return image->format == TAV_SR2_FMT_UINT16 ? tav_sr2_rowOf<const uint16_t>(image, 0, y)[x]
                                               : tav_sr2_rowOf<const uint8_t>(image, 0, y)[x];
}

void setSample(tav_sr2_Image* image, int32_t x, int32_t y, int32_t v) {
    if (image->format == TAV_SR2_FMT_UINT16) {
        tav_sr2_rowOf<uint16_t>(image, 0, y)[x] = (uint16_t)v;
    } else {
        tav_sr2_rowOf<uint8_t>(image, 0, y)[x] = (uint8_t)v;
    }
}

int32_t limitOf(const tav_sr2_Image* image) {
    return image->format == TAV_SR2_FMT_UINT16 ? 1023 : 255;
}

int32_t bandCount(const tav_sr2_ImageCtx* ctx) {
    const int32_t n = tav_sr2_ImageCtx_workers(ctx);
    return n < 1 ? 1 : n > 16 ? 16 : n;
}

// ---- smoothing ----------------------------------------------------------------------------------

struct SmoothGroup {
    tav_sr2_Image* image;
    const tav_sr2_Image* mask;
    const int16_t* diff;  // rows g0 - 1 .. g1 of the second difference, slot 0 for row g0 - 1
    int32_t g0, g1, bands;
};

void secondDifference(const tav_sr2_Image* image, int32_t y, int16_t* out) {
    const int32_t w = image->width;
    if (w < 2) {
        out[0] = 0;
        return;
    }
    out[0] = (int16_t)(sampleAt(image, 0, y) - sampleAt(image, 1, y));
    for (int32_t x = 1; x + 1 < w; ++x)
        out[x] = (int16_t)(2 * sampleAt(image, x, y) - sampleAt(image, x - 1, y) -
                           sampleAt(image, x + 1, y));
    out[w - 1] = (int16_t)(sampleAt(image, w - 1, y) - sampleAt(image, w - 2, y));
}

uint32_t smoothBand(void* arg, int32_t band, int32_t, int32_t) {
    const SmoothGroup* g = static_cast<const SmoothGroup*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(g->g1 - g->g0, band, g->bands, &y0, &y1);
    const int32_t w = g->image->width, limit = limitOf(g->image);
    for (int32_t y = g->g0 + y0; y < g->g0 + y1; ++y) {
        const int16_t* up = g->diff + (int64_t)(y - g->g0) * w;
        const int16_t* mid = up + w;
        const int16_t* down = mid + w;
        for (int32_t x = 0; x < w; ++x) {
            const int32_t p = sampleAt(g->image, x, y);
            const int32_t mixed = 2 * mid[x] - up[x] - down[x];
            int32_t v;
            if (g->mask != nullptr) {
                const int32_t m =
                    clampTo(2 * tav_sr2_rowOf<const uint8_t>(g->mask, 0, y)[x] - 32, 0, 128);
                v = p - ((mixed * m * 64 + 32768) >> 16);
            } else {
                v = (8 * p - mixed + 4) >> 3;
            }
            setSample(g->image, x, y, clampTo(v, 0, limit));
        }
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Unsharp_smooth_high_pass(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image,
                                          const tav_sr2_Image* mask) {
    if (ctx == nullptr || !plainHighPass(image)) return TAV_ERROR_PARAM;
    if (mask != nullptr && (mask->format != TAV_SR2_FMT_UINT8 || !tav_sr2_sameSize(mask, image)))
        return TAV_ERROR_PARAM;
    const int32_t w = image->width, h = image->height;
    int16_t* diff = static_cast<int16_t*>(
        tav_sr2_MemPool_alloc(ctx->pool, (uint32_t)((int64_t)(kGroupRows + 2) * w * 2)));
    if (diff == nullptr) return TAV_ERROR_MALLOC;
    secondDifference(image, 0, diff);  // row -1 repeats row 0
    uint32_t status = TAV_OK;
    for (int32_t g0 = 0; g0 < h && status == TAV_OK; g0 += kGroupRows) {
        const int32_t g1 = g0 + kGroupRows < h ? g0 + kGroupRows : h;
        for (int32_t y = g0; y <= g1; ++y)
            secondDifference(image, y < h ? y : h - 1, diff + (int64_t)(y - g0 + 1) * w);
        SmoothGroup group = {image, mask, diff, g0, g1, bandCount(ctx)};
        status = tav_sr2_ImageCtx_runBands(ctx, group.bands, group.bands, smoothBand, &group);
        // The last row's difference, of the rows as they were, is the next group's row above.
        memmove(diff, diff + (int64_t)(g1 - g0) * w, (size_t)w * 2);
    }
    tav_sr2_MemPool_free(ctx->pool, diff);
    return status;
}

// ---- detail boost
// --------------------------------------------------------------------------------

namespace {

struct BoostJob {
    tav_sr2_Image* high;      // the high pass
    tav_sr2_Image* filtered;  // its box guided filter
    tav_sr2_Image* luma;      // the frame's luma
    const tav_sr2_Image* activity;
    int32_t* columns;  // per band, two rows of column sums
    double eps;
    int32_t bias, limit, bands;
};

// The 5 x 5 box guided filter of the high pass, edges repeating, by rows: the five rows' column
// sums, then a window of five of them along the row. Sums of at most 25 * 1023^2 fit int32.
uint32_t boxBand(void* arg, int32_t band, int32_t, int32_t) {
    const BoostJob* j = static_cast<const BoostJob*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(j->high->height, band, j->bands, &y0, &y1);
    const int32_t w = j->high->width, h = j->high->height;
    int32_t* col1 = j->columns + (int64_t)band * 2 * w;
    int32_t* col2 = col1 + w;
    for (int32_t y = y0; y < y1; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            int32_t s1 = 0, s2 = 0;
            for (int32_t dy = -2; dy <= 2; ++dy) {
                const int32_t v = sampleAt(j->high, x, clampTo(y + dy, 0, h - 1));
                s1 += v;
                s2 += v * v;
            }
            col1[x] = s1;
            col2[x] = s2;
        }
        for (int32_t x = 0; x < w; ++x) {
            int64_t s1 = 0, s2 = 0;
            for (int32_t dx = -2; dx <= 2; ++dx) {
                s1 += col1[clampTo(x + dx, 0, w - 1)];
                s2 += col2[clampTo(x + dx, 0, w - 1)];
            }
            const double var = (double)(25 * s2 - s1 * s1);
            const double a = var + j->eps > 0.0 ? var / (var + j->eps) : 0.0;
            const double out = a * sampleAt(j->high, x, y) + (1.0 - a) * ((double)s1 * 0.04) + 0.5;
            setSample(j->filtered, x, y, (int32_t)(out < j->limit ? out : j->limit));
        }
    }
    return TAV_OK;
}

uint32_t boostBand(void* arg, int32_t band, int32_t, int32_t) {
    const BoostJob* j = static_cast<const BoostJob*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(j->luma->height, band, j->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* act = tav_sr2_rowOf<const uint8_t>(j->activity, 0, y);
        for (int32_t x = 0; x < j->luma->width; ++x) {
            const int32_t weight = act[x] >= 16 ? 128 : 8 * act[x];
            const int32_t add = ((sampleAt(j->filtered, x, y) - j->bias) * weight + 64) >> 7;
            setSample(j->luma, x, y, clampTo(sampleAt(j->luma, x, y) + add, 0, j->limit));
        }
    }
    return TAV_OK;
}

// Mean |dx| + |dy| of each 4 x 4 cell of the luma, in 8-bit units, saturating.
void cellActivity(const tav_sr2_Image* luma, tav_sr2_Image* cells) {
    const int32_t w = luma->width, h = luma->height;
    const int32_t shift = luma->format == TAV_SR2_FMT_UINT16 ? 2 : 0;
    for (int32_t j = 0; j < cells->height; ++j)
        for (int32_t i = 0; i < cells->width; ++i) {
            int32_t sum = 0;
            for (int32_t k = 0; k < 16; ++k) {
                const int32_t x = clampTo(4 * i + (k & 3), 0, w - 1);
                const int32_t y = clampTo(4 * j + (k >> 2), 0, h - 1);
                const int32_t p = sampleAt(luma, x, y);
                const int32_t dx = p - sampleAt(luma, clampTo(x + 1, 0, w - 1), y);
                const int32_t dy = p - sampleAt(luma, x, clampTo(y + 1, 0, h - 1));
                sum += ((dx < 0 ? -dx : dx) + (dy < 0 ? -dy : dy)) >> shift;
            }
            tav_sr2_rowOf<uint8_t>(cells, 0, j)[i] = (uint8_t)(sum / 16 > 255 ? 255 : sum / 16);
        }
}

}  // namespace

uint32_t tav_sr2_Unsharp_detail_boost(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame,
                                      tav_sr2_Image* high_pass, double level) {
    if (ctx == nullptr || frame == nullptr || !plainHighPass(high_pass)) return TAV_ERROR_PARAM;
    BoostJob j = {};
    tav_sr2_Image luma;
    uint32_t status = tav_sr2_Image_viewPlane0(&luma, frame, 0, 0, frame->width, frame->height);
    if (status != TAV_OK) return status;
    j.luma = &luma;
    const bool deep = high_pass->format == TAV_SR2_FMT_UINT16;
    if ((luma.format == TAV_SR2_FMT_UINT16) != deep || !tav_sr2_sameSize(&luma, high_pass))
        return TAV_ERROR_PARAM;
    j.high = high_pass;
    j.bias = deep ? 512 : 128;
    j.limit = deep ? 1023 : 255;
    j.eps = 625.0 * level * (deep ? 16.0 : 1.0);
    j.bands = bandCount(ctx);
    tav_sr2_Image filtered, cells, activity;
    for (tav_sr2_Image* image : {&filtered, &cells, &activity})
        tav_sr2_Image_init(image, ctx->pool);
    const int32_t w = frame->width, h = frame->height;
    status = tav_sr2_Image_alloc(&filtered, w, h, nullptr, high_pass->format);
    status |= tav_sr2_Image_alloc(&cells, (w + 3) >> 2, (h + 3) >> 2, nullptr, TAV_SR2_FMT_UINT8);
    status |= tav_sr2_Image_alloc(&activity, w, h, nullptr, TAV_SR2_FMT_UINT8);
    j.columns = static_cast<int32_t*>(
        tav_sr2_MemPool_alloc(ctx->pool, (uint32_t)((int64_t)j.bands * 2 * w * 4)));
    if (status == TAV_OK && j.columns == nullptr) status = TAV_ERROR_MALLOC;
    if (status == TAV_OK) {
        j.filtered = &filtered;
        j.activity = &activity;
        status = tav_sr2_ImageCtx_runBands(ctx, j.bands, j.bands, boxBand, &j);
        cellActivity(&luma, &cells);
        if (status == TAV_OK) status = tav_sr2_Image_blurStrict(ctx, &cells, &cells, 1.8);
        if (status == TAV_OK)
            status = tav_sr2_Image_resizeStrict(ctx, &activity, &cells, &tav_sr2_resizeRowsVector);
        if (status == TAV_OK)
            status = tav_sr2_ImageCtx_runBands(ctx, j.bands, j.bands, boostBand, &j);
        // The filtered high pass is what the later add of the 10-bit path takes.
        if (status == TAV_OK) status = tav_sr2_Image_copy(high_pass, &filtered);
    }
    tav_sr2_MemPool_free(ctx->pool, j.columns);
    for (tav_sr2_Image* image : {&filtered, &cells, &activity})
        tav_sr2_Image_finish(image);
    return status;
}

// ---- denoise of the high pass
// --------------------------------------------------------------------

uint32_t tav_sr2_Unsharp_planeFilter(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                                     tav_sr2_Image* dst, int32_t window,
                                     const tav_sr2_Image* noise_map, double level, double scale) {
    if (ctx == nullptr || !plainHighPass(src) || !plainHighPass(dst)) return TAV_ERROR_PARAM;
    const bool deep = src->format == TAV_SR2_FMT_UINT16;
    const double strength = level * scale * (deep ? 4.0 * 0.125 : 1.0);
    tav_sr2_GuidedFilter filter;
    tav_sr2_GuidedFilter_init(&filter, ctx->pool);
    tav_sr2_GuidedFilter_setThreads(&filter, ctx->tasks);
    uint32_t status =
        tav_sr2_GuidedFilter_setup(&filter, src->width, src->height, src->format, nullptr);
    const float eps = (float)(strength * strength);
    if (status == TAV_OK) {
        status = noise_map != nullptr
                     ? tav_sr2_GuidedFilter_processMap(&filter, src, dst, noise_map, window, eps)
                     : tav_sr2_GuidedFilter_process(&filter, src, dst, window, eps);
    }
    tav_sr2_GuidedFilter_finish(&filter);
    return status;
}

namespace {

// A 2 x 2 Haar step between an image and four half-size planes: the mean, and the horizontal,
// vertical and diagonal differences halved and biased. An odd last column or row stays as it is.
struct Haar {
    tav_sr2_Image* image;
    tav_sr2_Image* planes;  // four
    int32_t bias, limit, bands;
};

uint32_t splitBand(void* arg, int32_t band, int32_t, int32_t) {
    const Haar* q = static_cast<const Haar*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(q->planes[0].height, band, q->bands, &y0, &y1);
    const int32_t twice = 2 * q->bias;
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = 0; x < q->planes[0].width; ++x) {
            const int32_t a = sampleAt(q->image, 2 * x, 2 * y),
                          b = sampleAt(q->image, 2 * x + 1, 2 * y);
            const int32_t c = sampleAt(q->image, 2 * x, 2 * y + 1);
            const int32_t d = sampleAt(q->image, 2 * x + 1, 2 * y + 1);
            setSample(&q->planes[0], x, y, (a + b + c + d + 2) >> 2);
            setSample(&q->planes[1], x, y, clampTo((a + b - c - d + twice) >> 1, 0, q->limit));
            setSample(&q->planes[2], x, y, clampTo((a - b + c - d + twice) >> 1, 0, q->limit));
            setSample(&q->planes[3], x, y, clampTo((a - b - c + d + twice) >> 1, 0, q->limit));
        }
    return TAV_OK;
}

uint32_t joinBand(void* arg, int32_t band, int32_t, int32_t) {
    const Haar* q = static_cast<const Haar*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(q->planes[0].height, band, q->bands, &y0, &y1);
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = 0; x < q->planes[0].width; ++x) {
            const int32_t s = sampleAt(&q->planes[0], x, y);
            const int32_t p = sampleAt(&q->planes[1], x, y) - q->bias;
            const int32_t r = sampleAt(&q->planes[2], x, y) - q->bias;
            const int32_t t = sampleAt(&q->planes[3], x, y) - q->bias;
            setSample(q->image, 2 * x, 2 * y, clampTo(s + ((p + r + t) >> 1), 0, q->limit));
            setSample(q->image, 2 * x + 1, 2 * y, clampTo(s + ((p - r - t) >> 1), 0, q->limit));
            setSample(q->image, 2 * x, 2 * y + 1, clampTo(s + ((r - p - t) >> 1), 0, q->limit));
            setSample(q->image, 2 * x + 1, 2 * y + 1, clampTo(s + ((t - p - r) >> 1), 0, q->limit));
        }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Unsharp_denoise_high_pass(const tav_sr2_ImageCtx* ctx, const tav_sr2_Image* src,
                                           tav_sr2_Image* dst, const tav_sr2_Image* noise_map,
                                           double level, double scale) {
    if (ctx == nullptr || !plainHighPass(src) || !plainHighPass(dst)) return TAV_ERROR_PARAM;
    if (src->format != dst->format || !tav_sr2_sameSize(src, dst)) return TAV_ERROR_PARAM;
    if (src != dst && src->plane[0] != dst->plane[0]) {
        const uint32_t status = tav_sr2_Image_copy(dst, src);
        if (status != TAV_OK) return status;
    }
    // Level 0 makes every filter below the identity; the split would only round.
    if (!(level > 0.0)) return TAV_OK;
    tav_sr2_Image planes[4];
    const int32_t hw = dst->width >> 1, hh = dst->height >> 1;
    uint32_t status = TAV_OK;
    for (tav_sr2_Image& plane : planes) {
        tav_sr2_Image_init(&plane, ctx->pool);
        if (status == TAV_OK) status = tav_sr2_Image_alloc(&plane, hw, hh, nullptr, dst->format);
    }
    if (status == TAV_OK && hw > 0 && hh > 0) {
        const bool deep = dst->format == TAV_SR2_FMT_UINT16;
        Haar q = {dst, planes, deep ? 512 : 128, deep ? 1023 : 255, bandCount(ctx)};
        status = tav_sr2_ImageCtx_runBands(ctx, q.bands, q.bands, splitBand, &q);
        for (tav_sr2_Image& plane : planes) {
            if (status == TAV_OK)
                tav_sr2_Unsharp_planeFilter(ctx, &plane, &plane, 3, noise_map, level, 1.0);
        }
        if (status == TAV_OK)
            status = tav_sr2_ImageCtx_runBands(ctx, q.bands, q.bands, joinBand, &q);
    }
    for (tav_sr2_Image& plane : planes)
        tav_sr2_Image_finish(&plane);
    if (status == TAV_OK)
        tav_sr2_Unsharp_planeFilter(ctx, dst, dst, 3, noise_map, level * 0.5, scale);
    return status;
}

// ---- masks --------------------------------------------------------------------------------------

uint32_t tav_sr2_Image_dilate(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image) {
    if (ctx == nullptr || image == nullptr) return TAV_ERROR_PARAM;
    if (image->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, ctx->pool, ctx->threads);
    return tav_sr2_Image_max3x3(&filter, image, image);
}

uint32_t tav_sr2_Image_erode(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* image) {
    if (ctx == nullptr || image == nullptr) return TAV_ERROR_PARAM;
    if (image->format != TAV_SR2_FMT_UINT8) return TAV_ERROR_UNSUPPORTED;
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, ctx->pool, ctx->threads);
    return tav_sr2_Image_min3x3(&filter, image, image);
}

uint32_t tav_sr2_Image_min(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* dst, const tav_sr2_Image* a,
                           const tav_sr2_Image* b) {
    if (ctx == nullptr || !plainHighPass(dst) || !plainHighPass(a) || !plainHighPass(b))
        return TAV_ERROR_PARAM;
    if (a->format != dst->format || b->format != dst->format || !tav_sr2_sameSize(a, dst) ||
        !tav_sr2_sameSize(b, dst))
        return TAV_ERROR_PARAM;
    for (int32_t y = 0; y < dst->height; ++y)
        for (int32_t x = 0; x < dst->width; ++x) {
            const int32_t u = sampleAt(a, x, y), v = sampleAt(b, x, y);
            setSample(dst, x, y, u < v ? u : v);
        }
    return TAV_OK;
}
